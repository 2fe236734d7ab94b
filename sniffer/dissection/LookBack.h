#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <unordered_map>
#include <vector>

#include "CaptureStamp.h"
#include "PageBlock.h"
#include "RtpDestinations.h"
#include "Statistics.h"

/// A frame for the recorder that is kept: the 15-byte header and the payload.
struct KeptFrame {
  CaptureStamp stamp;
  std::span<u_char> frame;
};

/// What passed a moment ago, in case the recorder turns out to want it: media by its destination, and the signalling
/// that a lost recorder missed. Frames are kept for a fixed time and in a fixed amount of memory; the oldest go first.
/// Consumer only.
class LookBack {
 public:
  /// `memory` in bytes.
  LookBack(std::chrono::milliseconds time, std::size_t memory, Statistics& counters);
  LookBack(const LookBack&) = delete;
  LookBack& operator=(const LookBack&) = delete;

  /// Keeps a copy of a media frame, which counts as dropped when its time is over.
  void keepMedia(const KeptFrame& kept);

  /// The media frames for `destination`, oldest first. They are kept no longer, but stay where they are until
  /// releaseRecalled().
  std::span<const KeptFrame> recallMedia(RtpAddr destination);

  /// The memory of what the last recallMedia() answered may be used again.
  void releaseRecalled();

  /// Keeps a copy of a frame that the recorder missed.
  void keepSignalling(const KeptFrame& kept);

  bool hasSignalling() const { return !signalling.empty(); }

  /// The oldest one, or nothing. It stays until popSignalling().
  std::optional<KeptFrame> frontSignalling();
  void popSignalling();

  /// Lets go what is too old. To be called now and then.
  void expire();

 private:
  /// Its frame stands behind it. Linked backwards, so that nothing points at a record that is let go but records that
  /// are younger, which know its number: the oldest block goes without a look at what is in it.
  struct Record {
    Record* before;              ///< the one of the same destination that was kept before
    std::uint64_t numberBefore;  ///< 0: none
    std::int64_t kept;           ///< milliseconds of the monotonic clock
    CaptureStamp stamp;
    std::uint32_t length;

    u_char* frame() { return reinterpret_cast<u_char*>(this + 1); }
  };
  struct Block {
    std::unique_ptr<PageBlock> memory;
    std::uint64_t firstNumber = 0;
    std::size_t waiting = 0;  ///< records that have not been recalled
  };
  struct Newest {
    Record* record;
    std::uint64_t number;
  };
  struct Missed {
    std::int64_t kept;
    CaptureStamp stamp;
    std::vector<u_char> frame;
  };

  u_char* room(std::size_t size);
  void dropOldestBlock(Statistics::Counter& counter);
  void forgetEmptied();
  Block& blockOf(std::uint64_t number);
  std::uint64_t oldestNumber() const { return blocks.empty() ? nextNumber : blocks.front().firstNumber; }

  const std::int64_t time;  ///< milliseconds
  const std::size_t memory;
  Statistics& statistics;

  std::deque<Block> blocks;
  std::vector<std::unique_ptr<PageBlock>> spare;
  std::uint64_t nextNumber = 1;                      ///< of the next record
  std::int64_t newestKept = 0;                       ///< when the last media frame was kept
  std::unordered_map<std::uint64_t, Newest> newest;  ///< by destination
  std::size_t forgetAt = 1024;                       ///< destinations at which those without a frame are forgotten
  std::vector<KeptFrame> recalled;
  bool pinned = false;  ///< frames of `recalled` are in use

  std::deque<Missed> signalling;
  std::size_t signallingSize = 0;
};
