#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "forwarding/LaneQueue.h"
#include "forwarding/RecorderLane.h"
#include "settings/MoreRecorders.h"
#include "statistics/Statistics.h"

namespace voip {

/// A lane with a queue, from which its thread takes frames.
class QueuedLane {
 public:
  /// `lane` and `statistics`, which are the lane's, must outlive the object. See LaneQueue for the others.
  QueuedLane(RecorderLane& lane, std::uint32_t bit, const std::string& owner, std::size_t limit, Statistics& statistics)
      : queue(owner, limit, statistics), lane_(lane), bit_(bit) {}

  /// The bit of the recorder in RtpDestinations.
  std::uint32_t bit() const { return bit_; }

  /// Waits for frames, if `mayWait`, and gives them to the lane, until `hasEnded`. `hasHost`: also carries out the
  /// commands of the host. The lane's thread.
  void work(bool mayWait, bool hasHost, const std::atomic<bool>& hasEnded);

  /// Sends all frames in the queue. The lane's thread.
  void drain();

  LaneQueue queue;
  std::atomic<bool> isServed = true;  ///< false without a thread: the queue then stays empty

 private:
  RecorderLane& lane_;
  const std::uint32_t bit_;
};

/// Gives the frames of one classifying thread to several recorders. Each has a lane with a queue and a thread, so that
/// none delays another one. The first recorder's lane belongs to the caller, whose thread drives it.
class FanOut {
 public:
  /// Returns the bytes of the packet queue and of each recorder's queue, which have equal shares of QueueLimit.
  static std::size_t queueLimitFor(const Settings& settings);

  /// `first` is recorder 0 of `all`, and `ofFirst` its statistics. All references must outlive the object.
  FanOut(const Settings& settings, RtpDestinations& all, RecorderLane& first, Statistics& ofFirst);
  FanOut(const FanOut&) = delete;
  FanOut& operator=(const FanOut&) = delete;

  /// Ends all threads.
  ~FanOut();

  /// Returns the first recorder's lane.
  QueuedLane& first() { return *first_; }

  /// Makes the connections to the further recorders and begins to connect.
  void makeConnections(const Settings& settings);

  /// Starts two threads for each further recorder, one for frames and one for commands. Logs a failure; that recorder
  /// then gets nothing.
  void start();

  // ---- the classifying thread ----

  /// Queues a frame for all recorders.
  void takeForAll(const KeptFrame& frame);

  /// Queues media for the recorders that want it: `wantedBy` has their bits. With a look-back it is queued for all,
  /// each of which decides by its own list.
  void takeMedia(const KeptFrame& frame, std::uint32_t wantedBy);

  /// Wakes the lanes that sleep. To be called after a group of frames.
  void publish();

  // ---- any thread ----

  /// Ends all waits and threads, which finish the current frame.
  void signalEnd();
  const std::atomic<bool>& hasEnded() const { return hasEnded_; }

  /// True when no frame waits in a queue or is being processed.
  bool isIdle();

  /// Returns the figures of the further recorders.
  std::vector<RecorderStatistics> getStatistics();

  // ---- the end, on the thread of the first recorder ----

  /// Waits for all threads and drops the frames in the queues. Counts those of the further recorders as discarded, and
  /// returns the number of those of the first.
  std::size_t join();

  /// Makes no new connections to the further recorders from now on. To be called after join().
  void stopConnecting();

  /// Sends the frames that were queued after join().
  void drain();

 private:
  static constexpr std::size_t kLeastShare = std::size_t{1} << 20;  ///< bytes

  /// One of the further recorders.
  struct Recorder {
    Recorder(RecorderAddress where, RtpDestinations& all, unsigned number)
        : address(std::move(where)), prefix("Recorder " + address.text() + ": "), lane(all, number, statistics) {}

    const RecorderAddress address;
    const std::string prefix;  ///< of its log lines
    Statistics statistics;
    RecorderLane lane;
    std::unique_ptr<QueuedLane> queued;
    std::thread forwarding;
    std::thread commands;
  };

  void forward(const Recorder& recorder);
  void readCommands(Recorder& recorder);

  const bool keepsMedia_;
  Statistics& ofFirst_;
  std::atomic<bool> hasEnded_ = false;
  std::unique_ptr<QueuedLane> first_;
  std::vector<std::unique_ptr<Recorder>> further_;
  std::vector<QueuedLane*> lanes_;  ///< of all recorders, the first one first
};

}  // namespace voip
