#pragma once

#include <pcap/pcap.h>
#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "dissection/Engine.h"
#include "dissection/PacketRouter.h"
#include "forwarding/FanOut.h"
#include "forwarding/RecorderLane.h"
#include "forwarding/RtpDestinations.h"
#include "network/WireHeaders.h"
#include "queue/PacketQueue.h"
#include "queue/SniffedPacket.h"
#include "recorder/BaseConnection.h"
#include "recorder/FrameHeader.h"
#include "settings/Settings.h"
#include "statistics/Statistics.h"

/// Takes captured frames from the queue, forwards them to the recorder, and carries out the recorder's commands.
///
/// Capture threads call producePacket(). One consumer thread calls consumePacket(), which does everything up to the
/// send. The stand-alone program carries out commands on a command-reader thread; embedded, the consumer calls
/// checkCommand() after each packet.
///
/// With several recorders (Settings::moreRecorders) a further thread classifies, and consumePacket() sends what it
/// finds to the first recorder. The operations below that name a recorder are about the first one.
class SngDissector {
 public:
  using sniff_ethernet = voip::sniff_ethernet;
  using sniff_ip = voip::sniff_ip;
  using sniff_tcp = voip::sniff_tcp;
  using sniff_udp = voip::sniff_udp;

  /// The header of a forwarded frame, in host order until it is written to the frame.
  using our_header = voip::FrameHeader;

  /// Maximum length in bytes of a captured frame: the capture engine's snap length.
  static constexpr u_int kMaxPacket = 8192;
  static constexpr u_int kMaxPacketOfStreams = 65535;  ///< the same while TCP streams are followed

  /// Destroys the live dissector, if there is one, and takes its place.
  SngDissector();
  SngDissector(const SngDissector&) = delete;
  SngDissector& operator=(const SngDissector&) = delete;

  /// Stops the command reader, closes the connections and drops all queued packets. No other thread may use the
  /// dissector at that time.
  virtual ~SngDissector();

  /// Returns the live dissector, without ownership, or null. Any thread.
  static SngDissector* dft() { return dissector_; }

  // ---- set-up, by one thread before any other uses the dissector ----
  //
  // Host names are IPv4 or IPv6 addresses, which are not copied and must outlive the connections. Ports are in host
  // order.

  /// Sets the engine that drives the dissector; null for none. It must outlive the dissector's use of it.
  void setSniffer(voip::Engine* engine) { sniffer_ = engine; }

  /// Applies the settings. Drops frames that the look-back has kept. With several recorders, to be called only once.
  void setSettings(const voip::Settings& settings);
  void setServerNameMedia(const char* name) { recorder_.nameMedia = name; }
  const char* getServerNameMedia() const { return recorder_.nameMedia; }
  void setServerPortMedia(int port) { recorder_.portMedia = port; }
  int getServerPortMedia() const { return recorder_.portMedia; }
  void setServerNameSig(const char* name) { recorder_.nameSig = name; }
  const char* getServerNameSig() const { return recorder_.nameSig; }
  void setServerPortSig(int port) { recorder_.portSig = port; }
  int getServerPortSig() const { return recorder_.portSig; }

  /// A setting without effect.
  void setBrokenTcp(bool broken) { brokenTcp_ = broken; }
  bool getBrokenTcp() const { return brokenTcp_; }

  /// Sets whether each H.323 message is logged at INFO.
  void setTraceSignalling(bool trace) { router_.classifier().h323Parser().setTraceSignalling(trace); }

  /// Makes the connections to the recorder: to the host when `embedded`, else over the engine's transport. The engine
  /// and the recorder's addresses must be set. Makes those to further recorders as well.
  void makeConnection(bool embedded);

  /// Takes ownership of connections made elsewhere; `signalling` may be null. Makes the connections to further
  /// recorders. For tests and benchmarks.
  void setConnections(std::unique_ptr<BaseConnection> media, std::unique_ptr<BaseConnection> signalling);

  /// Closes the connections but keeps the objects.
  void closeConnection() { lane_.links().close(); }

  // ---- commands ----

  /// Starts the command-reader thread. The connections must have been made.
  void startCmdReaderThread() { lane_.commands().start(startCmdReaderLoop); }

  /// Returns the thread to join, which the dissector owns, or null when none was started.
  pthread_t* getCmdReaderThread() { return lane_.commands().getThread(); }

  /// Notes that the caller has joined the thread.
  void cmdReaderJoined() { lane_.commands().joined(); }

  /// The entry of the command-reader thread: carries out commands for the live dissector. `arg` is not used.
  static void* startCmdReaderLoop(void* arg);

  /// Carries out the commands that are readable now: 1 adds an RTP destination, 2 removes it, 3 sends a heartbeat
  /// reply, 4 and 5 add and remove an IPv6 one; any other is ignored. One thread at a time.
  void checkCommand() { lane_.checkCommands(); }

  /// Sends a heartbeat reply and logs it at DEBUG. Command thread.
  void replyHeartbeat() { lane_.replyHeartbeat(router_.classifier().lastClass()); }

  /// True after signalEnd(). Any thread.
  bool getTerminate() const { return lane_.commands().hasEnded(); }

  // ---- the queue ----

  /// Queues a copy of a packet; the caller owns the packet. Any thread. Throws std::bad_alloc.
  void producePacket(SniffedPacket& packet);

  /// Waits until packets are queued and processes them. Drops all queued packets instead after the end of the engine.
  /// With several recorders, starts their threads if necessary. Consumer thread.
  void consumePacket();

  /// Ends the threads of several recorders and forwards the messages that the network stack still holds. Does nothing
  /// when there is one recorder. To be called after signalEnd(). Consumer thread.
  void endLanes();

  /// Drops all queued packets. Any thread.
  void clearQueue() { packetQueue_.clear(); }

  /// Ends the command reader and all waits of the dissector, and logs the H.323 calls. The engine has set its end flag
  /// before. Any thread.
  void signalEnd();

  /// Returns the number of packets that wait for the consumer. Any thread.
  std::size_t getQueueLength() { return packetQueue_.size(); }

  /// True when nothing is queued, nothing is being processed and frames have left no work. Any thread.
  bool isIdle();

  /// Returns a copy of the present statistics. Any thread.
  voip::Statistics getStatistics();

  /// Returns the present statistics of the recorders after the first. Any thread.
  std::vector<voip::RecorderStatistics> getRecorderStatistics();

  /// Returns the present statistics as the text of the log line. Any thread.
  std::string reportStatistics() { return getStatistics().report(settings_); }

  /// As reportStatistics(), for each recorder after the first. Any thread.
  std::vector<std::string> reportRecorders();

  // ---- single steps of the path of a frame; consumer thread ----

  /// Processes a frame of `header.len` bytes with a link layer of `linkType` (libpcap's DLT_ value) according to the
  /// settings, and forwards what the recorder wants. Writes to the frame. kFrameSlack zeroed bytes must follow it.
  void processFrame(const pcap_pkthdr& header, std::uint8_t* frame, int linkType);

  /// Classifies an Ethernet frame of `header->len` bytes at `*packet` and forwards it if the recorder wants it. Writes
  /// to the frame. kFrameSlack readable bytes must follow it. `args` is not used.
  void processPacket(u_char* args, const pcap_pkthdr* header, u_char** packet);

  /// Processes a frame of `header->len` bytes whose UDP header begins at index `size_header`. The addresses are those
  /// of the last packet. Writes to the frame.
  void processUdp(const u_char* packet, const pcap_pkthdr* header, int size_header);

  /// As processUdp(), for a TCP header.
  void processTcp(u_char* packet, const pcap_pkthdr* header, int size_header);

  /// Returns true when a SIP start line (RFC 3261) is at `payload`, and makes SIP the class of the packet. 20 bytes
  /// must be readable.
  bool isSip(const u_char* payload) { return router_.classifier().isSip(payload); }

  /// Returns true when the destination of the packet is on the list, and makes RTP the class of the packet.
  bool isRtpFilter() { return router_.classifier().isRtpFilter(); }

  /// Writes the frame header before a payload and sends the frame. `payload` is FrameHeader::kLength bytes before the
  /// transport payload of an IPv4 packet, in the protocol headers, which are overwritten; `payloadLen` is the number of
  /// bytes from there. For a TCP segment (not `isUdp`), sends its H.323 description instead, if it has one. `packet` is
  /// not used.
  void buildPayload(u_char* payload, int payloadLen, bool isUdp, u_char** packet);

  /// Sends a frame of `len` bytes, header first, on the connection of the last class. The caller owns the frame.
  /// Heartbeat replies: command thread.
  void sendPayload(u_char* payload, int len);

  /// Logs the header of a frame, 15 bytes at `ptr`, or 39 with the setting IPv6, at DEBUG. For diagnosis.
  void printFormatHeader(const u_char* ptr);

  // ---- the IPv4 destinations in the list; addresses and ports in host order; any thread ----

  /// Adds an entry, whether or not there is an equal one, and recalls kept media of the destination. Throws
  /// std::bad_alloc.
  void addRtp(u_int rtpIp, u_short rtpPort) { lane_.addDestination({rtpIp, rtpPort}); }

  /// Removes all equal entries.
  void removeRtp(u_int rtpIp, u_short rtpPort) { lane_.removeDestination({rtpIp, rtpPort}); }

  /// True when the list has an equal entry. Takes no lock.
  bool isInRtpList(u_int rtpIp, u_short rtpPort) const { return lane_.destinations().contains({rtpIp, rtpPort}); }

  /// Empties the list without waiting for threads that use it.
  void removeAllRtp() { lane_.destinations().clear(); }

 private:
  bool engineHasEnded() const { return sniffer_ != nullptr && sniffer_->hasEnded(); }
  bool isEmbedded() const { return sniffer_ != nullptr && sniffer_->getEmbedded(); }
  void finish();
  bool takeBatch();
  void processBatch();
  void forwardToFirst(voip::FanOut& fanOut);
  void startLanes(voip::FanOut& fanOut);
  void classify(voip::FanOut& fanOut);

  voip::Engine* sniffer_ = nullptr;
  voip::Settings settings_;
  voip::NetworkOptions networkOptions_;  ///< those of `settings_`
  voip::RecorderAddresses recorder_;
  bool brokenTcp_ = false;
  voip::Statistics statistics_;

  voip::RtpDestinations rtpList_;
  voip::PacketQueue packetQueue_{statistics_};
  voip::RecorderLane lane_{rtpList_, 0, statistics_};  ///< of the first recorder
  std::unique_ptr<voip::FanOut> ownFanOut_;            ///< null unless there are several recorders
  std::atomic<voip::FanOut*> fanOut_ = nullptr;        ///< the same; atomic, since signalEnd() may be called meanwhile
  voip::PacketRouter router_{rtpList_, lane_, statistics_};
  std::atomic<bool> hasMore_ = false;  ///< frames have left work
  std::thread classifying_;            ///< when there are several recorders

  static std::atomic<SngDissector*> dissector_;
};
