#pragma once

#include <log4cxx/logger.h>
#include <pcap/pcap.h>
#include <pthread.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "BaseConnection.h"
#include "CommandReader.h"
#include "Engine.h"
#include "FrameForwarder.h"
#include "FrameHeader.h"
#include "H323Parser.h"
#include "LinkObserver.h"
#include "LookBack.h"
#include "NetworkStack.h"
#include "PacketQueue.h"
#include "RecorderLinks.h"
#include "RtpDestinations.h"
#include "Settings.h"
#include "SipHelper.h"
#include "SniffedPacket.h"
#include "Statistics.h"

/// Decides what each captured frame is and whether the recorder wants it, puts what it wants behind the 15-byte header
/// and sends it, and carries out the recorder's commands.
///
/// Capture threads call producePacket(). One consumer thread calls consumePacket() and does everything from there to
/// the send. Stand-alone, a command-reader thread calls checkCommand(); embedded, the consumer does after each packet.
class SngDissector {
 public:
  struct sniff_ethernet {
    u_char ether_dhost[6];
    u_char ether_shost[6];
    u_char ether_type[2];
  };

  /// Multi-byte fields as they stand in the frame, in network order.
  struct sniff_ip {
    u_char ip_vhl;
    u_char ip_tos;
    u_short ip_len;
    u_short ip_id;
    u_short ip_off;
    u_char ip_ttl;
    u_char ip_p;
    u_short ip_sum;
    u_int ip_src;
    u_int ip_dst;
  };

  struct sniff_tcp {
    u_short th_sport;
    u_short th_dport;
    u_int th_seq;
    u_int th_ack;
    u_char th_offx2;
    u_char th_flags;
    u_short th_win;
    u_short th_sum;
    u_short th_urp;
  };

  struct sniff_udp {
    u_short uh_sport;
    u_short uh_dport;
    u_short uh_ulen;
    u_short uh_sum;
  };

  /// The header of the packet being forwarded, in host order until buildPayload() writes it.
  using our_header = FrameHeader;

  /// The longest frame that is taken from a capture thread: the capture engine's snap length.
  static constexpr u_int kMaxPacket = 8192;

  /// Destroys the dissector that is alive, if any, and takes its place.
  SngDissector();
  SngDissector(const SngDissector&) = delete;
  SngDissector& operator=(const SngDissector&) = delete;

  /// Ends the command reader if it still runs, closes the connections and drops what is queued.
  virtual ~SngDissector();

  /// The live dissector, or null. Any thread.
  static SngDissector* dft() { return dissector; }

  // Set-up, by one thread before any other knows the dissector. Host names are not copied.
  void setSniffer(Engine* engine) { sniffer = engine; }
  void setSettings(const Settings& values);
  void setServerNameMedia(const char* name) { recorder.nameMedia = name; }
  const char* getServerNameMedia() const { return recorder.nameMedia; }
  void setServerPortMedia(int port) { recorder.portMedia = port; }
  int getServerPortMedia() const { return recorder.portMedia; }
  void setServerNameSig(const char* name) { recorder.nameSig = name; }
  const char* getServerNameSig() const { return recorder.nameSig; }
  void setServerPortSig(int port) { recorder.portSig = port; }
  int getServerPortSig() const { return recorder.portSig; }
  void setBrokenTcp(bool broken) { brokenTcp = broken; }
  bool getBrokenTcp() const { return brokenTcp; }
  void setTraceSignalling(bool trace) { h323Parser->setTraceSignalling(trace); }

  /// Makes the connections to the recorder: the host's queues when `embedded`, else by the engine's transport.
  void makeConnection(bool embedded);

  /// To be given to the connections that this dissector is to own.
  LinkObserver& getLinkObserver() { return link; }

  /// Takes over connections made elsewhere; `signalling` may be null. For tests and measurements.
  void setConnections(std::unique_ptr<BaseConnection> media, std::unique_ptr<BaseConnection> signalling) {
    links.take(std::move(media), std::move(signalling));
  }

  /// Closes both connections and keeps the objects.
  void closeConnection() { links.close(); }

  void startCmdReaderThread();

  /// The thread to join, or null when none was started.
  pthread_t* getCmdReaderThread() { return commands.getThread(); }

  /// To be told by whoever joined the thread.
  void cmdReaderJoined() { commands.joined(); }

  /// The thread's entry: serves the dissector that is alive.
  static void* startCmdReaderLoop(void* arg);

  /// Carries out what commands are readable now: 1 adds an RTP destination, 2 removes it, 3 is answered by a heartbeat
  /// frame, any other is ignored.
  void checkCommand();

  bool getTerminate() const { return commands.hasEnded(); }

  // ---- the queue ----

  /// Queues a copy of a packet. Capture threads. Throws std::bad_alloc.
  void producePacket(SniffedPacket& packet) { packetQueue.push(packet, kMaxPacket); }

  /// Processes the packets that wait, waiting for one if need be. When the engine has ended it drops all that is queued
  /// instead. Consumer thread.
  void consumePacket();

  /// Drops all that is queued. Any thread.
  void clearQueue();

  /// Ends the command reader and wakes the consumer; the engine's end flag is set before.
  void signalEnd();

  /// Packets that wait for the consumer. Any thread.
  std::size_t getQueueLength() { return packetQueue.size(); }

  /// True when nothing is queued and nothing is being processed. Any thread.
  bool isIdle() { return packetQueue.isIdle(); }

  // ---- statistics; any thread ----

  /// With the lengths as they are now.
  Statistics& getStatistics();
  std::string reportStatistics() { return getStatistics().report(settings); }

  // ---- classification; consumer thread ----

  /// Takes the plain way of Ethernet frames, or through the network stack, as settings and link type (libpcap's DLT_
  /// value) ask for. SniffedPacket::kSlack zeroed bytes stand behind the frame, which is written to.
  void processFrame(const pcap_pkthdr& header, u_char* frame, int linkType);

  /// Classifies one frame and forwards it if it is wanted. `*packet` is the Ethernet header of a frame of `header->len`
  /// bytes with SniffedPacket::kSlack readable bytes behind them.
  void processPacket(u_char* args, const pcap_pkthdr* header, u_char** packet);

  /// As processPacket(), from the IP header on, which stands at `linkLength`.
  void processIp(u_char* packet, const pcap_pkthdr* header, int linkLength);

  /// `size_header` is where the UDP header starts.
  void processUdp(const u_char* packet, const pcap_pkthdr* header, int size_header);

  /// `size_header` is where the TCP header starts.
  void processTcp(u_char* packet, const pcap_pkthdr* header, int size_header);

  /// True for a SIP start line (RFC 3261) at `payload`; the packet is SIP from then on.
  bool isSip(const u_char* payload);

  /// True when the packet's destination is listed; the packet is RTP from then on.
  bool isRtpFilter();

  // ---- the list of RTP destinations; addresses and ports in host order; any thread ----

  /// Appends an entry, whether or not it is there already.
  void addRtp(u_int rtpIp, u_short rtpPort);
  /// Removes every equal entry.
  void removeRtp(u_int rtpIp, u_short rtpPort);
  bool isInRtpList(u_int rtpIp, u_short rtpPort) const { return rtpList.contains({rtpIp, rtpPort}); }
  /// Empties the list, without waiting for anyone who uses it.
  void removeAllRtp() { rtpList.clear(); }

  // ---- forwarding; consumer thread, but for the heartbeat's answer ----

  /// Writes the frame header in front of a payload and sends the frame. `payload` points FrameHeader::kLength bytes in
  /// front of the transport payload, into the protocol headers, which are overwritten; `payloadLen` counts from there.
  /// Of a TCP segment the text that describes it is sent instead, if there is one.
  void buildPayload(u_char* payload, int payloadLen, bool isUdp, u_char** packet);

  /// Sends a frame on the connection that its class belongs to.
  void sendPayload(u_char* payload, int len);

  void replyHeartbeat();

  /// Logs the 15 header bytes of a frame at DEBUG. For diagnosis.
  void printFormatHeader(const u_char* ptr);

 private:
  /// The link to the recorder is lost: what was asked for and what waits is dropped, or kept for a while.
  class Link final : public LinkObserver {
   public:
    explicit Link(SngDissector& conductor) : owner(conductor) {}
    void linkEstablished() override {
      owner.statistics.recorderConnects.add();
      owner.statistics.recorderConnected = 1;
    }
    void linkLost() override {
      owner.statistics.recorderLosses.add();
      owner.statistics.recorderConnected = 0;
    }
    void forgetDestinations() override;
    void discardWaiting() override;
    void waitedForRoom(std::chrono::milliseconds time, std::size_t frames) override {
      owner.statistics.countWait(time, frames);
    }
    void foreignCommand() override { owner.statistics.commandsIgnored.add(); }

   private:
    SngDissector& owner;
  };

  /// What the network stack has found is judged as if it had come plainly.
  class Network final : public NetworkSink {
   public:
    explicit Network(SngDissector& conductor) : owner(conductor) {}
    void takePacket(std::span<std::uint8_t> frame, std::size_t ipOffset, bool isCaptured) override;
    void takeSipMessage(const StreamEnds& ends, std::span<const std::uint8_t> message) override;
    void takeTpkt(const StreamEnds& ends, std::span<const std::uint8_t> tpkt) override;

   private:
    void setEnds(const StreamEnds& ends);

    SngDissector& owner;
  };

  bool engineHasEnded() const { return sniffer != nullptr && sniffer->hasEnded(); }
  void carryOut(const SnifferRequest& request);
  void processBatch();
  void answerHost();
  void forward(u_char* frame, int length);
  void dropUdp(u_char* frame, int length);
  void forwardRecalled();
  void sendMissedSignalling();
  bool isSipWithAnyUri(const u_char* payload, int length);
  void logDrop(const char* heading, const sniff_ip& ip);
  bool describeSegment(u_char* payload, int payloadLen, int ourHdrLen = FrameHeader::kLength);

  Engine* sniffer = nullptr;
  Settings settings;
  Link link{*this};
  RecorderAddresses recorder;
  Statistics statistics;

  our_header ohdr;
  std::atomic<FrameProtocol> payloadType =
      FrameProtocol::None;  ///< of the last packet forwarded; heartbeats go its way
  bool brokenTcp = false;

  std::unique_ptr<SipHelper> sipHelper;
  std::unique_ptr<H323Parser> h323Parser;
  std::vector<u_char> description;  ///< the frame being sent that is no part of a captured one, reused

  Network networkSink{*this};
  std::unique_ptr<NetworkStack> network = std::make_unique<NetworkStack>(settings, networkSink, statistics);

  PacketQueue packetQueue{statistics};
  RtpDestinations rtpList;
  std::unique_ptr<LookBack> lookBack;  ///< null when nothing is kept
  RecorderLinks links;
  FrameForwarder forwarder{rtpList, statistics};
  CommandReader commands{[this](const SnifferRequest& request) { carryOut(request); }};
  CaptureStamp stamp;    ///< of the packet being processed
  bool inBatch = false;  ///< more packets follow at once: their frames leave together

  // Destinations asked for since the consumer looked last: what has been kept for them is to be forwarded.
  std::mutex recallLock;
  std::vector<RtpAddr> recalls;
  std::atomic<bool> recallPending = false;

  static std::atomic<SngDissector*> dissector;
  static log4cxx::LoggerPtr logger;
};
