#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <string>

#include "settings/Settings.h"

namespace voip {

/// What became of the frames since the engine was made; kStatisticsRows tells of each what it means. Written by the
/// threads that do the work, without a lock; read by any thread.
struct Statistics {
  /// Relaxed: counters stand for themselves and order nothing.
  struct Counter : std::atomic<std::uint64_t> {
    constexpr Counter(std::uint64_t value = 0) : atomic(value) {}
    Counter(const Counter& other) : atomic(other.load(std::memory_order_relaxed)) {}
    using atomic::operator=;

    void add(std::uint64_t more = 1) { fetch_add(more, std::memory_order_relaxed); }

    /// Becomes `value` unless it is that much already.
    void raiseTo(std::uint64_t value) {
      std::uint64_t now = load(std::memory_order_relaxed);
      while (now < value && !compare_exchange_weak(now, value, std::memory_order_relaxed)) {
      }
    }
  };

  Counter sipForwarded, rtpForwarded, h323Forwarded;
  Counter udpDropped, tcpDropped, otherDropped;
  Counter queueLength, queueHighest, queueDiscarded;
  Counter rtpListLength;
  Counter recorderConnects, recorderLosses, recorderConnected;
  Counter notSent;
  Counter sendWaits, sendWaitLongest, framesWaited;
  Counter commandsIgnored;
  Counter h245AddressesForgotten;
  Counter hostWaiting, hostWaitingHighest;
  Counter lookBackWaiting, lookBackOverflow;
  Counter queueLimitMedia, queueLimitSignalling;

  Counter duplicatesDropped, duplicatesForgotten;
  Counter fragmentsHeld, fragmentsMalformed;
  Counter datagramsReassembled, datagramsTimedOut, datagramsDisplaced, datagramsContradictory, datagramsMixed;
  Counter segmentsFollowed, segmentsRetransmitted, segmentsCut;
  Counter streamMessages, streamMessagesTooLong;
  Counter streamGaps, streamsOutOfStep, streamsDisplaced;

  /// Sending waited so long for the recorder to make room, and held up so many frames that were about to leave.
  void countWait(std::chrono::milliseconds time, std::size_t frames);

  /// One line for the log.
  std::string report(const Settings& settings) const;
};

/// A figure of the statistics: for the log, and for a file in the Prometheus text format. A new one takes a member of
/// Statistics and a row here.
struct StatisticsRow {
  enum Kind { Total, Gauge };  ///< a gauge may fall
  enum Unit { Plain, Milliseconds };

  const char* name;  ///< in the log line
  Statistics::Counter Statistics::*value;
  Kind kind;
  const char* metric;  ///< behind "sniffer_"; rows of the same metric differ in their label
  const char* label;   ///< or null
  const char* help;    ///< counts for all rows of the metric when it stands at the first of them

  /// The figure is in the log line when this holds or it is not 0. Null: always.
  bool (*shown)(const Settings& settings) = nullptr;
  Unit unit = Plain;  ///< the file has seconds
};

namespace statistics_shown {
constexpr bool whenNotZero(const Settings&) {
  return false;
}
constexpr bool withSendTimeout(const Settings& settings) {
  return settings.sendTimeout > 0;
}
constexpr bool withCommandsFromServerOnly(const Settings& settings) {
  return settings.commandsFromServerOnly;
}
constexpr bool withLookBack(const Settings& settings) {
  return settings.lookBack > 0;
}
constexpr bool withQueueLimit(const Settings& settings) {
  return settings.queueLimit > 0;
}
constexpr bool withDropDuplicates(const Settings& settings) {
  return settings.dropDuplicates;
}
constexpr bool withReassembleFragments(const Settings& settings) {
  return settings.reassembleFragments;
}
constexpr bool withReassembleTcp(const Settings& settings) {
  return settings.reassembleTcp;
}
}  // namespace statistics_shown

inline constexpr StatisticsRow kStatisticsRows[] = {
    {"sipForwarded", &Statistics::sipForwarded, StatisticsRow::Total, "forwarded_frames_total", "protocol=\"sip\"",
     "Frames that the connection to the recorder took whole."},
    {"rtpForwarded", &Statistics::rtpForwarded, StatisticsRow::Total, "forwarded_frames_total", "protocol=\"rtp\"", ""},
    {"h323Forwarded", &Statistics::h323Forwarded, StatisticsRow::Total, "forwarded_frames_total", "protocol=\"h323\"",
     ""},
    {"udpDropped", &Statistics::udpDropped, StatisticsRow::Total, "unwanted_frames_total", "protocol=\"udp\"",
     "Frames that nobody asked for: UDP neither SIP nor to a listed destination, TCP with nothing to tell, others."},
    {"tcpDropped", &Statistics::tcpDropped, StatisticsRow::Total, "unwanted_frames_total", "protocol=\"tcp\"", ""},
    {"otherDropped", &Statistics::otherDropped, StatisticsRow::Total, "unwanted_frames_total", "protocol=\"other\"",
     ""},
    {"queueLength", &Statistics::queueLength, StatisticsRow::Gauge, "queue_frames", nullptr,
     "Captured frames that wait to be looked at."},
    {"queueHighest", &Statistics::queueHighest, StatisticsRow::Gauge, "queue_frames_max", nullptr,
     "Most frames that ever waited to be looked at."},
    {"queueDiscarded", &Statistics::queueDiscarded, StatisticsRow::Total, "queue_discarded_frames_total", nullptr,
     "Frames that waited while the recorder was lost or the sniffer ended."},
    {"rtpListLength", &Statistics::rtpListLength, StatisticsRow::Gauge, "listed_destinations", nullptr,
     "RTP destinations that the recorder has asked for."},
    {"recorderConnects", &Statistics::recorderConnects, StatisticsRow::Total, "recorder_connects_total", nullptr,
     "Connections made to the recorder."},
    {"recorderLosses", &Statistics::recorderLosses, StatisticsRow::Total, "recorder_losses_total", nullptr,
     "Connections to the recorder that were lost."},
    {"notSent", &Statistics::notSent, StatisticsRow::Total, "not_sent_frames_total", nullptr,
     "Frames for the recorder that its connection did not take whole."},
    {nullptr, &Statistics::recorderConnected, StatisticsRow::Gauge, "recorder_connected", nullptr,
     "1 while there is a TCP connection to the recorder."},

    {"sendWaits", &Statistics::sendWaits, StatisticsRow::Total, "send_waits_total", nullptr,
     "Times that sending waited for the recorder to make room.", statistics_shown::withSendTimeout},
    {"sendWaitLongest", &Statistics::sendWaitLongest, StatisticsRow::Gauge, "send_wait_seconds_max", nullptr,
     "The longest of these waits.", statistics_shown::withSendTimeout, StatisticsRow::Milliseconds},
    {"framesWaited", &Statistics::framesWaited, StatisticsRow::Total, "send_waited_frames_total", nullptr,
     "Frames that were about to leave and were held up by these waits.", statistics_shown::withSendTimeout},
    {"commandsIgnored", &Statistics::commandsIgnored, StatisticsRow::Total, "ignored_commands_total", nullptr,
     "Commands that did not come from the recorder's address.", statistics_shown::withCommandsFromServerOnly},
    {"h245AddressesForgotten", &Statistics::h245AddressesForgotten, StatisticsRow::Total,
     "forgotten_h245_addresses_total", nullptr,
     "H.245 addresses of calls that nobody released, pushed out by later ones.", statistics_shown::whenNotZero},
    {"hostWaiting", &Statistics::hostWaiting, StatisticsRow::Gauge, "host_frames", nullptr,
     "Frames that the Java host has not fetched yet.", statistics_shown::whenNotZero},
    {"hostWaitingHighest", &Statistics::hostWaitingHighest, StatisticsRow::Gauge, "host_frames_max", nullptr,
     "Most frames that ever waited for the Java host.", statistics_shown::whenNotZero},

    {"lookBackWaiting", &Statistics::lookBackWaiting, StatisticsRow::Gauge, "look_back_frames", nullptr,
     "Frames that LookBack keeps.", statistics_shown::withLookBack},
    {"lookBackOverflow", &Statistics::lookBackOverflow, StatisticsRow::Total, "look_back_overflow_frames_total",
     nullptr, "Frames that LookBack let go early because LookBackMemory was full.", statistics_shown::withLookBack},
    {"queueLimitMedia", &Statistics::queueLimitMedia, StatisticsRow::Total, "queue_limit_frames_total",
     "kind=\"media\"", "Frames that were dropped because of QueueLimit.", statistics_shown::withQueueLimit},
    {"queueLimitSignalling", &Statistics::queueLimitSignalling, StatisticsRow::Total, "queue_limit_frames_total",
     "kind=\"signalling\"", "", statistics_shown::withQueueLimit},

    {"duplicatesDropped", &Statistics::duplicatesDropped, StatisticsRow::Total, "duplicate_frames_total", nullptr,
     "Packets that had been seen a moment before.", statistics_shown::withDropDuplicates},
    {"duplicatesForgotten", &Statistics::duplicatesForgotten, StatisticsRow::Total, "duplicates_forgotten_total",
     nullptr, "Packets that could not be remembered for as long as a duplicate may take.",
     statistics_shown::withDropDuplicates},
    {"fragmentsHeld", &Statistics::fragmentsHeld, StatisticsRow::Total, "held_fragments_total", nullptr,
     "Fragments but for those that made a datagram whole.", statistics_shown::withReassembleFragments},
    {"fragmentsMalformed", &Statistics::fragmentsMalformed, StatisticsRow::Total, "malformed_fragments_total", nullptr,
     "Fragments that no sender can have meant so.", statistics_shown::withReassembleFragments},
    {"datagramsReassembled", &Statistics::datagramsReassembled, StatisticsRow::Total, "reassembled_datagrams_total",
     nullptr, "Datagrams put together of fragments.", statistics_shown::withReassembleFragments},
    {"datagramsTimedOut", &Statistics::datagramsTimedOut, StatisticsRow::Total, "incomplete_datagrams_total",
     "reason=\"time\"",
     "Datagrams that did not become whole: 30 s are over, there were too many, fragments contradict each other, "
     "or the checksum is wrong: they belong to different datagrams.",
     statistics_shown::withReassembleFragments},
    {"datagramsDisplaced", &Statistics::datagramsDisplaced, StatisticsRow::Total, "incomplete_datagrams_total",
     "reason=\"memory\"", "", statistics_shown::withReassembleFragments},
    {"datagramsContradictory", &Statistics::datagramsContradictory, StatisticsRow::Total, "incomplete_datagrams_total",
     "reason=\"contradiction\"", "", statistics_shown::withReassembleFragments},
    {"datagramsMixed", &Statistics::datagramsMixed, StatisticsRow::Total, "incomplete_datagrams_total",
     "reason=\"checksum\"", "", statistics_shown::withReassembleFragments},
    {"segmentsFollowed", &Statistics::segmentsFollowed, StatisticsRow::Total, "followed_segments_total", nullptr,
     "TCP segments with payload of streams that carry signalling.", statistics_shown::withReassembleTcp},
    {"segmentsRetransmitted", &Statistics::segmentsRetransmitted, StatisticsRow::Total, "retransmitted_segments_total",
     nullptr, "Followed segments without a new octet.", statistics_shown::withReassembleTcp},
    {"segmentsCut", &Statistics::segmentsCut, StatisticsRow::Total, "cut_segments_total", nullptr,
     "Followed segments that were longer than the snap length.", statistics_shown::withReassembleTcp},
    {"streamMessages", &Statistics::streamMessages, StatisticsRow::Total, "stream_messages_total", nullptr,
     "Messages found in TCP streams.", statistics_shown::withReassembleTcp},
    {"streamMessagesTooLong", &Statistics::streamMessagesTooLong, StatisticsRow::Total,
     "stream_messages_too_long_total", nullptr, "Messages of TCP streams that do not fit a frame to the recorder.",
     statistics_shown::withReassembleTcp},
    {"streamGaps", &Statistics::streamGaps, StatisticsRow::Total, "stream_gaps_total", nullptr,
     "Times that segments of a TCP stream were missing for good.", statistics_shown::withReassembleTcp},
    {"streamsOutOfStep", &Statistics::streamsOutOfStep, StatisticsRow::Total, "streams_out_of_step_total", nullptr,
     "Times that no message began where one had to.", statistics_shown::withReassembleTcp},
    {"streamsDisplaced", &Statistics::streamsDisplaced, StatisticsRow::Total, "streams_displaced_total", nullptr,
     "TCP streams forgotten for others.", statistics_shown::withReassembleTcp},
};
static_assert(std::size(kStatisticsRows) * sizeof(Statistics::Counter) == sizeof(Statistics), "a row for each figure");

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

}  // namespace voip
