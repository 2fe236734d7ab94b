#pragma once

#include <pcap/pcap.h>
#include <pthread.h>

#include <atomic>
#include <memory>
#include <string>

#include "dissection/CommandReader.h"
#include "dissection/Engine.h"
#include "dissection/PacketRouter.h"
#include "forwarding/CatchUp.h"
#include "forwarding/FrameForwarder.h"
#include "forwarding/LookBack.h"
#include "forwarding/Recalls.h"
#include "forwarding/RecorderLinks.h"
#include "forwarding/RtpDestinations.h"
#include "network/WireHeaders.h"
#include "queue/PacketQueue.h"
#include "queue/SniffedPacket.h"
#include "recorder/BaseConnection.h"
#include "recorder/FrameHeader.h"
#include "settings/Settings.h"
#include "statistics/Statistics.h"

/// Conducts the way of each captured frame from the queue to the recorder, and carries out the recorder's commands.
///
/// Capture threads call producePacket(). One consumer thread calls consumePacket() and does everything from there to
/// the send. Stand-alone, a command-reader thread calls checkCommand(); embedded, the consumer does after each packet.
class SngDissector {
 public:
  using sniff_ethernet = voip::sniff_ethernet;
  using sniff_ip = voip::sniff_ip;
  using sniff_tcp = voip::sniff_tcp;
  using sniff_udp = voip::sniff_udp;

  /// The header of the packet being forwarded, in host order until buildPayload() writes it.
  using our_header = voip::FrameHeader;

  /// The longest frame that is taken from a capture thread: the capture engine's snap length.
  static constexpr u_int kMaxPacket = 8192;
  static constexpr u_int kMaxPacketOfStreams = 65535;  ///< the same while TCP streams are followed

  /// Destroys the dissector that is alive, if any, and takes its place.
  SngDissector();
  SngDissector(const SngDissector&) = delete;
  SngDissector& operator=(const SngDissector&) = delete;

  /// Ends the command reader if it still runs, closes the connections and drops what is queued.
  virtual ~SngDissector();

  /// The live dissector, or null. Any thread.
  static SngDissector* dft() { return dissector_; }

  // ---- set-up, by one thread before any other knows the dissector; host names are not copied ----

  void setSniffer(voip::Engine* engine) { sniffer_ = engine; }
  void setSettings(const voip::Settings& settings);
  void setServerNameMedia(const char* name) { recorder_.nameMedia = name; }
  const char* getServerNameMedia() const { return recorder_.nameMedia; }
  void setServerPortMedia(int port) { recorder_.portMedia = port; }
  int getServerPortMedia() const { return recorder_.portMedia; }
  void setServerNameSig(const char* name) { recorder_.nameSig = name; }
  const char* getServerNameSig() const { return recorder_.nameSig; }
  void setServerPortSig(int port) { recorder_.portSig = port; }
  int getServerPortSig() const { return recorder_.portSig; }
  void setBrokenTcp(bool broken) { brokenTcp_ = broken; }
  bool getBrokenTcp() const { return brokenTcp_; }
  void setTraceSignalling(bool trace) { router_.classifier().h323Parser().setTraceSignalling(trace); }

  /// Makes the connections to the recorder: the host's queues when `embedded`, else by the engine's transport.
  void makeConnection(bool embedded);

  /// Takes over connections made elsewhere; `signalling` may be null. For tests and measurements.
  void setConnections(std::unique_ptr<BaseConnection> media, std::unique_ptr<BaseConnection> signalling) {
    links_.take(std::move(media), std::move(signalling));
  }

  /// Closes both connections and keeps the objects.
  void closeConnection() { links_.close(); }

  // ---- commands ----

  void startCmdReaderThread() { commands_.start(startCmdReaderLoop); }

  /// The thread to join, or null when none was started.
  pthread_t* getCmdReaderThread() { return commands_.getThread(); }

  /// The thread has been joined.
  void cmdReaderJoined() { commands_.joined(); }

  /// The thread's entry: serves the dissector that is alive.
  static void* startCmdReaderLoop(void* arg);

  /// Carries out the commands that are readable now: 1 adds an RTP destination, 2 removes it, 3 is answered by a
  /// heartbeat frame, any other is ignored.
  void checkCommand() { commands_.carryOutWaiting(*links_.getMedia()); }

  void replyHeartbeat();

  bool getTerminate() const { return commands_.hasEnded(); }

  // ---- the queue ----

  /// Queues a copy of a packet. Capture threads. Throws std::bad_alloc.
  void producePacket(SniffedPacket& packet);

  /// Processes the packets that wait, waiting for one if need be. When the engine has ended it drops all queued packets
  /// instead. Consumer thread.
  void consumePacket();

  /// Drops all queued packets. Any thread.
  void clearQueue() { packetQueue_.clear(); }

  /// Ends the command reader and wakes the consumer; the engine's end flag is set before.
  void signalEnd();

  /// Packets that wait for the consumer. Any thread.
  std::size_t getQueueLength() { return packetQueue_.size(); }

  /// True when nothing is queued and nothing is being processed. Any thread.
  bool isIdle() { return packetQueue_.isIdle(); }

  /// The figures as they are now. Any thread.
  voip::Statistics getStatistics();
  std::string reportStatistics() { return getStatistics().report(settings_); }

  // ---- steps of the road by themselves; consumer thread ----

  /// Takes a frame of a link type (libpcap's DLT_ value) to the recorder or to nowhere, as the settings ask for.
  /// `header.len` bytes are written to; kFrameSlack zeroed bytes follow them.
  void processFrame(const pcap_pkthdr& header, u_char* frame, int linkType);

  /// Classifies one Ethernet frame and forwards it if it is wanted. `*packet` is the Ethernet header of a frame of
  /// `header->len` bytes with kFrameSlack readable bytes after them.
  void processPacket(u_char* args, const pcap_pkthdr* header, u_char** packet);

  /// `size_header` is where the UDP header starts. The addresses are those of the packet processed last.
  void processUdp(const u_char* packet, const pcap_pkthdr* header, int size_header);

  /// The same for a TCP header.
  void processTcp(u_char* packet, const pcap_pkthdr* header, int size_header);

  /// True for a SIP start line (RFC 3261) at `payload`; the packet is SIP from then on.
  bool isSip(const u_char* payload) { return router_.classifier().isSip(payload); }

  /// True when the packet's destination is listed; the packet is RTP from then on.
  bool isRtpFilter() { return router_.classifier().isRtpFilter(); }

  /// Writes the frame header before a payload and sends the frame. `payload` points FrameHeader::kLength bytes before
  /// the transport payload, into the protocol headers, which are overwritten; `payloadLen` counts from there. Of a TCP
  /// segment the text that describes it is sent instead, if there is one.
  void buildPayload(u_char* payload, int payloadLen, bool isUdp, u_char** packet);

  /// Sends a frame on the connection of its class.
  void sendPayload(u_char* payload, int len);

  /// Logs the 15 header bytes of a frame at DEBUG. For diagnosis.
  void printFormatHeader(const u_char* ptr);

  // ---- the list of RTP destinations; addresses and ports in host order; any thread ----

  /// Appends an entry, whether or not there is an equal one.
  void addRtp(u_int rtpIp, u_short rtpPort);
  /// Removes every equal entry.
  void removeRtp(u_int rtpIp, u_short rtpPort);
  bool isInRtpList(u_int rtpIp, u_short rtpPort) const { return rtpList_.contains({rtpIp, rtpPort}); }
  /// Empties the list without waiting for threads that use it.
  void removeAllRtp() { rtpList_.clear(); }

 private:
  bool engineHasEnded() const { return sniffer_ != nullptr && sniffer_->hasEnded(); }
  void carryOut(const SnifferRequest& request);
  bool isEmbedded() const { return sniffer_ != nullptr && sniffer_->getEmbedded(); }
  bool takeBatch();
  void processBatch();
  void answerHost();
  void sendMissedSignalling();

  voip::Engine* sniffer_ = nullptr;
  voip::Settings settings_;
  voip::RecorderAddresses recorder_;
  bool brokenTcp_ = false;
  voip::Statistics statistics_;

  voip::RtpDestinations rtpList_;
  voip::PacketQueue packetQueue_{statistics_};
  voip::Recalls recalls_;
  std::unique_ptr<voip::LookBack> lookBack_;  ///< null when nothing is kept
  voip::RecorderLinks links_;
  voip::FrameForwarder forwarder_{rtpList_, packetQueue_, statistics_};
  voip::CatchUp catchUp_{recalls_, rtpList_, links_, forwarder_};
  voip::PacketRouter router_{rtpList_, recalls_, catchUp_, links_, forwarder_, statistics_};
  voip::CommandReader commands_{[this](const SnifferRequest& request) { carryOut(request); }};

  static std::atomic<SngDissector*> dissector_;
};
