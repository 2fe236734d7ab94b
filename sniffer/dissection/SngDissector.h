#pragma once

#include <log4cxx/logger.h>
#include <pcap/pcap.h>
#include <pthread.h>

#include <atomic>
#include <bit>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "BaseConnection.h"
#include "CommandReader.h"
#include "Engine.h"
#include "H323Parser.h"
#include "LinkObserver.h"
#include "Settings.h"
#include "SipHelper.h"
#include "Statistics.h"

class TcpConnection;

/// One captured frame on its way from a capture thread to the consumer. The queue owns the three buffers until the
/// consumer has processed the packet.
struct SniffedPacket {
  /// Zeroed bytes behind a frame copy: more than any walk over Ethernet with two tags (22), IPv4 (60) and TCP (60)
  /// headers and a start-line test (20) can reach from a frame that ends too early.
  static constexpr int kSlack = 192;

  u_char* args = nullptr;         ///< copy of libpcap's user argument, or null; new[]
  pcap_pkthdr* header = nullptr;  ///< copy of the capture header; `len` is the number of bytes in `packet`; new
  u_char* packet = nullptr;       ///< copy of the frame from the Ethernet header on, with the slack behind it; new[]

  /// Copies of a capture header and a frame. The copy ends where the capture ended: at the captured length, at the
  /// length on the wire or at `maxLength`, whichever comes first.
  static SniffedPacket copyOf(const pcap_pkthdr& header, const u_char* frame, u_int maxLength);

  void release();
};

/// One destination that the recorder wants the RTP of. Eight bytes without a gap, compared as one number: every
/// datagram that is not SIP is looked for among thousands of them.
struct RtpAddr {
  u_int rtpIp;         ///< IPv4 address in host order, first octet most significant
  u_short rtpPort;     ///< UDP port in host order
  u_short filler = 0;  ///< always 0

  RtpAddr(u_int ip, u_short port) : rtpIp(ip), rtpPort(port) {}
  bool operator==(const RtpAddr& other) const { return key() == other.key(); }
  std::uint64_t key() const { return std::bit_cast<std::uint64_t>(*this); }
};

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

  /// The header of the packet being forwarded. Addresses and ports are in host order until buildPayload() writes the
  /// frame, `len` in network order from the start.
  struct our_header {
    u_short len;  ///< whole frame, the 15 header bytes included
    u_char protocol;
    u_int dstIp;
    u_short dstPort;
    u_int srcIp;
    u_short srcPort;
  };
  static constexpr int kHeaderLength = 15;  ///< of our_header on the wire, packed

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
  void setSettings(const Settings& values) { settings = values; }
  void setServerNameMedia(const char* name) { serverNameMedia = name; }
  const char* getServerNameMedia() const { return serverNameMedia; }
  void setServerPortMedia(int port) { serverPortMedia = port; }
  int getServerPortMedia() const { return serverPortMedia; }
  void setServerNameSig(const char* name) { serverNameSig = name; }
  const char* getServerNameSig() const { return serverNameSig; }
  void setServerPortSig(int port) { serverPortSig = port; }
  int getServerPortSig() const { return serverPortSig; }
  void setBrokenTcp(bool broken) { brokenTcp = broken; }
  bool getBrokenTcp() const { return brokenTcp; }
  void setTraceSignalling(bool trace) { h323Parser->setTraceSignalling(trace); }

  /// Makes the connections to the recorder: the host's queues when `embedded`, else by the engine's transport.
  void makeConnection(bool embedded);

  /// To be given to the connections that this dissector is to own.
  LinkObserver& getLinkObserver() { return link; }

  /// Takes over connections made elsewhere; `signalling` may be null. For tests and measurements.
  void setConnections(std::unique_ptr<BaseConnection> media, std::unique_ptr<BaseConnection> signalling);

  /// Closes both connections and keeps the objects.
  void closeConnection();

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

  /// Queues a packet and takes over its buffers. Capture threads.
  void producePacket(SniffedPacket& packet);

  /// Processes the oldest packet, waiting for one if need be. When the engine has ended it drops all that is queued
  /// instead. Consumer thread.
  void consumePacket();

  /// Drops all that is queued. Any thread.
  void clearQueue();

  /// Ends the command reader and wakes the consumer; the engine's end flag is set before.
  void signalEnd();

  /// With the lengths as they are now. Any thread.
  Statistics& getStatistics();
  std::string reportStatistics();

  /// Packets that wait for the consumer. Any thread.
  std::size_t getQueueLength();

  /// True when nothing is queued and nothing is being processed. Any thread.
  bool isIdle();

  /// Classifies one frame and forwards it if it is wanted. `*packet` is the Ethernet header of a frame of `header->len`
  /// bytes with SniffedPacket::kSlack readable bytes behind them. Consumer thread.
  void processPacket(u_char* args, const pcap_pkthdr* header, u_char** packet);

  /// `size_header` is where the UDP header starts.
  void processUdp(const u_char* packet, const pcap_pkthdr* header, int size_header);

  /// `size_header` is where the TCP header starts.
  void processTcp(u_char* packet, const pcap_pkthdr* header, int size_header);

  /// True for a SIP start line (RFC 3261) at `payload`; the packet is SIP from then on.
  bool isSip(const u_char* payload);

  /// True when the packet's destination is listed; the packet is RTP from then on.
  bool isRtpFilter();

  // The list of RTP destinations. Addresses and ports in host order. Any thread.

  /// Appends an entry, whether or not it is there already.
  void addRtp(u_int rtpIp, u_short rtpPort);
  /// Removes every equal entry.
  void removeRtp(u_int rtpIp, u_short rtpPort);
  bool isInRtpList(u_int rtpIp, u_short rtpPort);
  /// Empties the list, without waiting for anyone who uses it.
  void removeAllRtp() { rtpListCleared = true; }

  /// Writes the frame header in front of a payload and sends the frame. `payload` points kHeaderLength bytes in front
  /// of the transport payload, into the protocol headers, which are overwritten; `payloadLen` counts from there. Of a
  /// TCP segment the text that describes it is sent instead, if there is one.
  void buildPayload(u_char* payload, int payloadLen, bool isUdp, u_char** packet);

  /// Sends a frame on the connection that its class belongs to.
  void sendPayload(u_char* payload, int len);

  void replyHeartbeat();

  /// Logs the 15 header bytes of a frame at DEBUG. For diagnosis.
  void printFormatHeader(const u_char* ptr);

 private:
  enum PayloadType { kSip = 1, kRtp = 2, kHeartbeat = 3, kH323 = 4 };

  bool sharesMediaConnection() const;
  BaseConnection* connectionFor(const u_char* frame) const;
  void carryOut(const SnifferRequest& request);
  void interruptConnections();
  BaseConnection* newUdpConnection(const char* host, int port);
  TcpConnection* newTcpConnection(const char* host, int port);
  void makeUdpConnections();
  void makeTcpConnections();
  void logDrop(const char* heading, const sniff_ip& ip);
  void applyClear();
  void sendFrame(u_char* frame, int length);
  bool describeSegment(u_char* payload, int payloadLen);

  /// The link to the recorder is lost: what was asked for and what waits is dropped.
  class Link final : public LinkObserver {
   public:
    explicit Link(SngDissector& dissector) : owner(dissector) {}
    void linkEstablished() override {
      owner.statistics.recorderConnects.add();
      owner.statistics.recorderConnected = 1;
    }
    void linkLost() override {
      owner.statistics.recorderLosses.add();
      owner.statistics.recorderConnected = 0;
    }
    void forgetDestinations() override { owner.removeAllRtp(); }
    void discardWaiting() override { owner.clearQueue(); }
    void waitedForRoom(std::chrono::milliseconds time, std::size_t frames) override {
      owner.statistics.countWait(time, frames);
    }
    void foreignCommand() override { count(owner.statistics.commandsIgnored); }

   private:
    SngDissector& owner;
  };

  bool engineHasEnded() const { return sniffer != nullptr && sniffer->hasEnded(); }

  Engine* sniffer = nullptr;
  Settings settings;
  Link link{*this};
  our_header ohdr{};
  const char* serverNameMedia = nullptr;
  int serverPortMedia = 6000;
  const char* serverNameSig = nullptr;
  int serverPortSig = 6000;
  std::atomic<int> payloadType = 0;  ///< of the last packet that was forwarded; also read by the heartbeat reply
  bool brokenTcp = false;
  std::unique_ptr<SipHelper> sipHelper;
  BaseConnection* conMedia = nullptr;  ///< owned, unless it is the shared embedded connection
  BaseConnection* conSig = nullptr;    ///< owned; null when signalling shares the media connection
  std::unique_ptr<H323Parser> h323Parser;
  CommandReader commands{[this](const SnifferRequest& request) { carryOut(request); }};

  std::vector<RtpAddr> rtpList;
  pthread_mutex_t rtpListLock;
  std::atomic<bool> rtpListCleared = false;  ///< the list counts as empty; whoever locks it next empties it

  std::deque<SniffedPacket> packetQueue;
  pthread_mutex_t packetQueueLock;
  pthread_cond_t packetPresent;
  bool processing = false;  ///< the consumer is at work on a packet; guarded by `packetQueueLock`

  std::vector<u_char> description;  ///< the H.323 frame being sent, reused
  Statistics statistics;

  static std::atomic<SngDissector*> dissector;
  static log4cxx::LoggerPtr logger;
};
