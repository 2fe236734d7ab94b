#pragma once

#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "BaseConnection.h"
#include "FrameHeader.h"
#include "LookBack.h"
#include "RtpDestinations.h"
#include "Statistics.h"

/// Brings frames to the recorder: collects those that wait together, so that they leave with few system calls, and
/// counts what became of each. When the recorder is lost in the middle of a group, the frames behind are judged anew,
/// as they would have been one by one. Consumer only, but for noteLinkLost().
class FrameForwarder {
 public:
  /// A frame that leaves later than this after its capture is announced by a frame with the time, if that is wanted.
  static constexpr std::int64_t kLate = 20'000;  ///< microseconds
  static constexpr int kTimeFrameLength = FrameHeader::kLength + 8;

  FrameForwarder(const RtpDestinations& wanted, Statistics& counters) : destinations(wanted), statistics(counters) {}

  /// `keeper` keeps what a lost recorder misses; may be null.
  void configure(bool announceCaptureTime, LookBack* keeper);

  /// Puts a frame at the end of the group, which leaves when it is full. The bytes must stay until flush().
  void add(BaseConnection& connection, const KeptFrame& frame);

  /// Sends what is in the group.
  void flush();

  /// Sends the signalling that the recorder missed, as far as it takes it; at most one attempt a second while it does
  /// not. `connectionFor` tells the connection of a frame.
  template <typename ConnectionFor>
  void sendMissed(ConnectionFor connectionFor) {
    while (const auto missed = nextMissed()) {
      add(connectionFor(*missed), *missed);
      if (!flushMissed()) return;
    }
  }

  /// What waits is discarded: the frames behind the one that is just failing as well, as if they were still in the
  /// queue. Answers how many they are; none on another thread than the one that sends.
  std::size_t discardRest();

  /// The way to the recorder is lost. Any thread.
  void noteLinkLost() { linkLost = true; }

 private:
  struct Entry {
    KeptFrame frame;
    FrameProtocol protocol;
  };

  void prepare(std::size_t from);
  std::size_t settle(std::size_t from, std::size_t dealtWith);
  void judgeAnew(std::size_t from);
  bool keep(const Entry& entry);
  std::optional<KeptFrame> nextMissed();
  bool flushMissed();

  const RtpDestinations& destinations;
  Statistics& statistics;
  LookBack* lookBack = nullptr;
  bool captureTime = false;

  BaseConnection* connection = nullptr;  ///< of all frames in the group
  std::vector<Entry> group;
  std::vector<OutgoingFrame> outgoing;  ///< the group with the frames that tell the time
  std::vector<std::array<u_char, kTimeFrameLength>> timeFrames;
  std::atomic<bool> linkLost = false;
  std::atomic<std::thread::id> sender;  ///< the thread inside sendPackets(), if any
  bool restDiscarded = false;
  bool sendingMissed = false;
  std::int64_t nextAttempt = 0;  ///< microseconds of this machine's clock
};
