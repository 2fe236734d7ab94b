#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

/// What became of the frames since the engine was made. Written by the thread that does the work, without a lock; read
/// by any thread.
struct Statistics {
  using Counter = std::atomic<std::uint64_t>;

  // Frames that the connection to the recorder took whole.
  Counter sipForwarded = 0;
  Counter rtpForwarded = 0;
  Counter h323Forwarded = 0;

  // Frames that nobody asked for.
  Counter udpDropped = 0;    ///< neither SIP nor to a listed destination, or without payload
  Counter tcpDropped = 0;    ///< no payload, or nothing in it to tell the recorder
  Counter otherDropped = 0;  ///< neither UDP nor TCP over IPv4

  Counter queueHighest = 0;    ///< most frames that ever waited for the consumer
  Counter queueDiscarded = 0;  ///< frames that waited while the recorder was lost or the engine ended

  Counter recorderConnects = 0;
  Counter recorderLosses = 0;
  Counter sendWaits = 0;           ///< times that sending waited for the recorder to make room
  Counter sendWaitLongest = 0;     ///< milliseconds
  Counter framesWaited = 0;        ///< frames that were about to leave and were held up by those waits
  Counter commandsIgnored = 0;     ///< commands from elsewhere than the recorder
  Counter hostWaiting = 0;         ///< frames that the host has not fetched yet
  Counter hostWaitingHighest = 0;  ///< most frames that ever waited for the host
  Counter notSent = 0;             ///< frames for the recorder that its connection did not take whole

  void countWait(std::chrono::milliseconds time, std::size_t frames);

  /// One line for the log. Figures of what is off are left out. The length of the queue and of the RTP list are told by
  /// their owner.
  std::string report(std::size_t queueLength, std::size_t rtpListLength) const;
};

/// Carries one of libpcap's 32-bit counters on beyond its overflow, which takes days on a busy line.
struct CarriedCounter {
  std::uint64_t total = 0;

  /// Takes in the counter's new value; returns by how much it has grown.
  std::uint32_t advance(std::uint32_t now) {
    const std::uint32_t more = now - last;
    last = now;
    total += more;
    return more;
  }

  /// The counter will begin at 0 again.
  void restart() { last = 0; }

 private:
  std::uint32_t last = 0;
};

/// Counts one more. Relaxed: the counters stand for themselves and order nothing.
inline void count(Statistics::Counter& counter, std::uint64_t more = 1) {
  counter.fetch_add(more, std::memory_order_relaxed);
}
