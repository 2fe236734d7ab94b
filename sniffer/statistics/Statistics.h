#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <iterator>
#include <string>

#include "settings/Settings.h"

namespace voip {

/// Counts of frames by their result, since the engine was made. The working threads update the figures without a lock.
/// A copy is a snapshot: each figure is read once, not all at the same moment. kStatisticsRows says what each figure
/// means.
struct Statistics {
  /// Relaxed: a counter orders no other memory access.
  struct Counter : std::atomic<std::uint64_t> {
    constexpr Counter(std::uint64_t value = 0) : atomic(value) {}
    Counter(const Counter& other) : atomic(other.load(std::memory_order_relaxed)) {}
    using atomic::operator=;

    void add(std::uint64_t more = 1) { fetch_add(more, std::memory_order_relaxed); }

    /// Sets the counter to `value` if that is more.
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
  Counter resent, resendForgotten;
  Counter queueLimitMedia, queueLimitSignalling;

  Counter duplicatesDropped, duplicatesForgotten;
  Counter fragmentsHeld, fragmentsMalformed;
  Counter datagramsReassembled, datagramsTimedOut, datagramsDisplaced, datagramsContradictory, datagramsMixed;
  Counter segmentsFollowed, segmentsRetransmitted, segmentsCut;
  Counter streamMessages, streamMessagesTooLong;
  Counter streamGaps, streamsOutOfStep, streamsDisplaced;
  Counter ipv6Items, ipv6TooLong, ipv6Malformed, jumboPayloads;

  /// Counts a wait for space in the recorder's connection, and the frames that it delayed.
  void countWait(std::chrono::milliseconds time, std::size_t frames);

  /// Returns the log line.
  std::string report(const Settings& settings) const;

  /// Returns the log line of one of several recorders, with the figures that each recorder has.
  std::string reportOf(const std::string& recorder, const Settings& settings) const;
};

/// The figures of a further recorder.
struct RecorderStatistics {
  std::string name;  ///< its address and port
  Statistics figures;
};

/// A figure of the statistics, for the log line and for the file in the Prometheus text format. A new figure is a
/// member of Statistics and a row of kStatisticsRows.
struct StatisticsRow {
  enum Kind { kCounter, kGauge };  ///< a gauge may fall
  enum Unit { kNone, kMilliseconds };

  const char* name;  ///< in the log line; null: not there
  Statistics::Counter Statistics::*value;
  Kind kind;
  const char* metric;  ///< without the prefix "sniffer_"; rows of the same metric are neighbours
  const char* label;   ///< may be empty

  /// Returns true when the log line has the figure although it is 0.
  bool (*zeroShown)(const Settings& settings);

  const char* help;   ///< empty in the second and later rows of a metric
  Unit unit = kNone;  ///< in the file milliseconds become seconds
};

namespace zero_shown {
constexpr bool always(const Settings&) {
  return true;
}
constexpr bool never(const Settings&) {
  return false;
}
/// While the setting is on.
template <auto Settings::*setting>
constexpr bool with(const Settings& settings) {
  return static_cast<int>(settings.*setting) > 0;
}
}  // namespace zero_shown

/// All figures, in the order of the log line.
inline constexpr auto kStatisticsRows = [] {
  using S = Statistics;
  using enum StatisticsRow::Kind;
  using namespace zero_shown;
  constexpr auto withSendTimeout = with<&Settings::sendTimeout>;
  constexpr auto withLookBack = with<&Settings::lookBack>;
  constexpr auto withResendLast = with<&Settings::resendLast>;
  constexpr auto withQueueLimit = with<&Settings::queueLimit>;
  constexpr auto withDropDuplicates = with<&Settings::dropDuplicates>;
  constexpr auto withFragments = with<&Settings::reassembleFragments>;
  constexpr auto withTcp = with<&Settings::reassembleTcp>;
  constexpr auto withIpv6 = with<&Settings::ipv6>;
  return std::to_array<StatisticsRow>({
      {"sipForwarded", &S::sipForwarded, kCounter, "forwarded_frames_total", R"(protocol="sip")", always,
       "Frames that the connection to the recorder accepted in full."},
      {"rtpForwarded", &S::rtpForwarded, kCounter, "forwarded_frames_total", R"(protocol="rtp")", always, ""},
      {"h323Forwarded", &S::h323Forwarded, kCounter, "forwarded_frames_total", R"(protocol="h323")", always, ""},
      {"udpDropped", &S::udpDropped, kCounter, "unwanted_frames_total", R"(protocol="udp")", always,
       "Frames not for the recorder: UDP that is neither SIP nor for a listed destination, TCP without a description, "
       "others."},
      {"tcpDropped", &S::tcpDropped, kCounter, "unwanted_frames_total", R"(protocol="tcp")", always, ""},
      {"otherDropped", &S::otherDropped, kCounter, "unwanted_frames_total", R"(protocol="other")", always, ""},
      {"queueLength", &S::queueLength, kGauge, "queue_frames", "", always,
       "Captured frames that wait to be processed."},
      {"queueHighest", &S::queueHighest, kGauge, "queue_frames_max", "", always,
       "Most frames that ever waited to be processed."},
      {"queueDiscarded", &S::queueDiscarded, kCounter, "queue_discarded_frames_total", "", always,
       "Frames discarded from the queue when the recorder was lost or the sniffer ended."},
      {"rtpListLength", &S::rtpListLength, kGauge, "listed_destinations", "", always,
       "RTP destinations that the recorder has asked for."},
      {"recorderConnects", &S::recorderConnects, kCounter, "recorder_connects_total", "", always,
       "Connections made to the recorder."},
      {"recorderLosses", &S::recorderLosses, kCounter, "recorder_losses_total", "", always,
       "Connections to the recorder that were lost."},
      {"notSent", &S::notSent, kCounter, "not_sent_frames_total", "", always,
       "Frames that the connection to the recorder did not accept in full."},
      {nullptr, &S::recorderConnected, kGauge, "recorder_connected", "", always,
       "1 while there is a TCP connection to the recorder."},

      {"sendWaits", &S::sendWaits, kCounter, "send_waits_total", "", withSendTimeout,
       "Times that sending waited for space in the connection to the recorder."},
      {"sendWaitLongest", &S::sendWaitLongest, kGauge, "send_wait_seconds_max", "", withSendTimeout,
       "The longest wait for space in the connection to the recorder.", StatisticsRow::kMilliseconds},
      {"framesWaited", &S::framesWaited, kCounter, "send_waited_frames_total", "", withSendTimeout,
       "Frames delayed by waits for space in the connection to the recorder."},
      {"commandsIgnored", &S::commandsIgnored, kCounter, "ignored_commands_total", "",
       with<&Settings::commandsFromServerOnly>, "Commands from other addresses than the recorder's."},
      {"h245AddressesForgotten", &S::h245AddressesForgotten, kCounter, "forgotten_h245_addresses_total", "", never,
       "H.245 addresses of unreleased calls that newer addresses displaced."},
      {"hostWaiting", &S::hostWaiting, kGauge, "host_frames", "", never,
       "Frames that the Java host has not fetched yet."},
      {"hostWaitingHighest", &S::hostWaitingHighest, kGauge, "host_frames_max", "", never,
       "Most frames that ever waited for the Java host."},

      {"lookBackWaiting", &S::lookBackWaiting, kGauge, "look_back_frames", "", withLookBack,
       "Frames that LookBack keeps."},
      {"lookBackOverflow", &S::lookBackOverflow, kCounter, "look_back_overflow_frames_total", "", withLookBack,
       "Frames that LookBack dropped early because LookBackMemory was full."},
      {"resent", &S::resent, kCounter, "resent_frames_total", "", withResendLast,
       "Frames that were sent to a recorder shortly before it was lost, and were kept to be sent again."},
      {"resendForgotten", &S::resendForgotten, kCounter, "resend_forgotten_frames_total", "", withResendLast,
       "Sent frames that ResendLast forgot early because LookBackMemory was full."},
      {"queueLimitMedia", &S::queueLimitMedia, kCounter, "queue_limit_frames_total", R"(kind="media")", withQueueLimit,
       "Frames dropped because of QueueLimit."},
      {"queueLimitSignalling", &S::queueLimitSignalling, kCounter, "queue_limit_frames_total", R"(kind="signalling")",
       withQueueLimit, ""},

      {"duplicatesDropped", &S::duplicatesDropped, kCounter, "duplicate_frames_total", "", withDropDuplicates,
       "Packets that were captured a second time."},
      {"duplicatesForgotten", &S::duplicatesForgotten, kCounter, "duplicates_forgotten_total", "", withDropDuplicates,
       "Packets forgotten before a duplicate of them could be recognised."},
      {"fragmentsHeld", &S::fragmentsHeld, kCounter, "held_fragments_total", "", withFragments,
       "Fragments held until the datagram was complete, without the one that completed it."},
      {"fragmentsMalformed", &S::fragmentsMalformed, kCounter, "malformed_fragments_total", "", withFragments,
       "Fragments with an impossible offset or length."},
      {"datagramsReassembled", &S::datagramsReassembled, kCounter, "reassembled_datagrams_total", "", withFragments,
       "Datagrams reassembled from fragments."},
      {"datagramsTimedOut", &S::datagramsTimedOut, kCounter, "incomplete_datagrams_total", R"(reason="time")",
       withFragments,
       "Datagrams dropped incomplete: after 30 s, for lack of memory, because of contradictory fragments."},
      {"datagramsDisplaced", &S::datagramsDisplaced, kCounter, "incomplete_datagrams_total", R"(reason="memory")",
       withFragments, ""},
      {"datagramsContradictory", &S::datagramsContradictory, kCounter, "incomplete_datagrams_total",
       R"(reason="contradiction")", withFragments, ""},
      {"datagramsMixed", &S::datagramsMixed, kCounter, "incomplete_datagrams_total", R"(reason="checksum")",
       withFragments, ""},
      {"segmentsFollowed", &S::segmentsFollowed, kCounter, "followed_segments_total", "", withTcp,
       "TCP segments with payload in streams that carry signalling."},
      {"segmentsRetransmitted", &S::segmentsRetransmitted, kCounter, "retransmitted_segments_total", "", withTcp,
       "TCP segments of these streams without new data."},
      {"segmentsCut", &S::segmentsCut, kCounter, "cut_segments_total", "", withTcp,
       "TCP segments of these streams that were longer than the snap length."},
      {"streamMessages", &S::streamMessages, kCounter, "stream_messages_total", "", withTcp,
       "Messages found in TCP streams."},
      {"streamMessagesTooLong", &S::streamMessagesTooLong, kCounter, "stream_messages_too_long_total", "", withTcp,
       "Messages of TCP streams that do not fit into a frame to the recorder."},
      {"streamGaps", &S::streamGaps, kCounter, "stream_gaps_total", "", withTcp,
       "Times that segments of a TCP stream never arrived."},
      {"streamsOutOfStep", &S::streamsOutOfStep, kCounter, "streams_out_of_step_total", "", withTcp,
       "Times that no message began at an expected message boundary."},
      {"streamsDisplaced", &S::streamsDisplaced, kCounter, "streams_displaced_total", "", withTcp,
       "TCP streams dropped to make space for others."},
      {"ipv6Items", &S::ipv6Items, kCounter, "ipv6_items_total", "", withIpv6,
       "IPv6 datagrams, segments and messages that were examined."},
      {"ipv6TooLong", &S::ipv6TooLong, kCounter, "ipv6_too_long_total", "", withIpv6,
       "IPv6 datagrams that do not fit into a frame to the recorder."},
      {"ipv6Malformed", &S::ipv6Malformed, kCounter, "ipv6_refused_total", R"(reason="malformed")", withIpv6,
       "IPv6 packets that are not read: invalid headers, jumbo payloads."},
      {"jumboPayloads", &S::jumboPayloads, kCounter, "ipv6_refused_total", R"(reason="jumbo")", withIpv6, ""},
  });
}();
/// Returns true for a figure that each of several recorders has. All others exist once.
constexpr bool isOfRecorder(const StatisticsRow& row) {
  using S = Statistics;
  constexpr Statistics::Counter Statistics::*kFigures[] = {
      &S::sipForwarded,     &S::rtpForwarded,  &S::h323Forwarded,    &S::queueLength,     &S::queueHighest,
      &S::queueDiscarded,   &S::rtpListLength, &S::recorderConnects, &S::recorderLosses,  &S::recorderConnected,
      &S::notSent,          &S::sendWaits,     &S::sendWaitLongest,  &S::framesWaited,    &S::lookBackWaiting,
      &S::lookBackOverflow, &S::resent,        &S::resendForgotten,  &S::queueLimitMedia, &S::queueLimitSignalling};
  for (const auto figure : kFigures) {
    if (row.value == figure) return true;
  }
  return false;
}

static_assert(std::size(kStatisticsRows) * sizeof(Statistics::Counter) == sizeof(Statistics), "a row for each figure");

}  // namespace voip
