#pragma once

#include <sys/types.h>

#include <deque>
#include <memory>
#include <vector>

/// One frame that waits for the host.
struct SnifferPacket {
  int length;             ///< bytes in `payload`
  const u_char* payload;  ///< the queue's, until pop()
};

/// Copies of frames, first in, first out. They stand in large blocks that are used again, so that a frame costs no
/// allocation; what a burst took beyond a megabyte is given back as it drains. For one thread at a time.
class FrameQueue {
 public:
  /// Takes a frame in; it counts once it is published.
  void append(const u_char* bytes, int length);
  void publish() { published = appended; }

  // Of what is published.
  std::size_t size() const { return published; }
  SnifferPacket front() const;
  void pop();

  /// Drops everything, the unpublished too.
  void clear();

 private:
  struct Block {
    explicit Block(std::size_t size) : bytes(new u_char[size]), capacity(size) {}
    std::unique_ptr<u_char[]> bytes;
    std::size_t capacity;
    std::size_t written = 0;  ///< each frame behind its length
    std::size_t read = 0;
  };

  Block& blockWithRoom(std::size_t size);
  void putAside(Block block);

  std::deque<Block> blocks;  ///< oldest first
  std::vector<Block> spare;
  std::size_t appended = 0;
  std::size_t published = 0;
};
