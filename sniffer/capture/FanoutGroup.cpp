#include "capture/FanoutGroup.h"

#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <iterator>

namespace voip {

namespace {

constexpr int kNoProtocol = 0xFFFF;  // reserved: no frame has this Ethernet type
constexpr unsigned kFromKernel = static_cast<unsigned>(SKF_AD_OFF);

// Offsets in the IPv4 header, and from its end on in the UDP header.
constexpr unsigned kFragment = 6, kProtocol = 9, kSource = 12, kDestination = 16;
constexpr unsigned kSourcePort = 0, kDestinationPort = 2, kPayload = 8;

constexpr unsigned kVxlan = 4789, kGeneve = 6081, kGtp = 2152, kL2tp = 1701, kTzsp = 37008;

/// Returns a jump that goes on with the next instruction when the test holds, and else to instruction `otherwise`.
constexpr sock_filter unlessJump(unsigned at, unsigned test, unsigned value, unsigned otherwise) {
  return BPF_JUMP(BPF_JMP | test | BPF_K, value, 0, static_cast<__u8>(otherwise - at - 1));
}

/// Returns a jump to instruction `target` when the test holds.
constexpr sock_filter jump(unsigned at, unsigned test, unsigned value, unsigned target) {
  return BPF_JUMP(BPF_JMP | test | BPF_K, value, static_cast<__u8>(target - at - 1), 0);
}

constexpr unsigned kFirst = 35;  // the instruction that chooses the first socket

/// Chooses a socket for a frame: the result modulo the number of sockets is its number. The frame begins with the
/// header after the link layer. A load after its end ends the program with 0, the first socket.
constexpr sock_filter kChoice[] = {
    /* 0 */ BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kFromKernel + SKF_AD_PROTOCOL),
    /* 1 */ unlessJump(1, BPF_JEQ, ETH_P_IP, kFirst),
    // The data of a frame that this machine sends begins with the link layer.
    /* 2 */ BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kFromKernel + SKF_AD_PKTTYPE),
    /* 3 */ jump(3, BPF_JEQ, PACKET_OUTGOING, kFirst),
    /* 4 */ BPF_STMT(BPF_LD | BPF_B | BPF_ABS, kProtocol),
    /* 5 */ unlessJump(5, BPF_JEQ, IPPROTO_UDP, kFirst),
    /* 6 */ BPF_STMT(BPF_LD | BPF_H | BPF_ABS, kFragment),
    /* 7 */ jump(7, BPF_JSET, 0x3FFF, kFirst),
    /* 8 */ BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, 0),
    /* 9 */ BPF_STMT(BPF_LD | BPF_W | BPF_IND, kPayload),
    // SIP begins with three letters. No RTP, STUN or DTLS packet has three octets from 0x40 to 0x7F there.
    /* 10 */ BPF_STMT(BPF_ALU | BPF_AND | BPF_K, 0xC0C0C000),
    /* 11 */ jump(11, BPF_JEQ, 0x40404000, kFirst),
    /* 12 */ BPF_STMT(BPF_LD | BPF_H | BPF_IND, kDestinationPort),
    /* 13 */ jump(13, BPF_JEQ, kVxlan, kFirst),
    /* 14 */ jump(14, BPF_JEQ, kGeneve, kFirst),
    /* 15 */ jump(15, BPF_JEQ, kTzsp, kFirst),
    /* 16 */ jump(16, BPF_JEQ, kGtp, kFirst),
    /* 17 */ jump(17, BPF_JEQ, kL2tp, kFirst),
    // Sums, so that both directions have the same result.
    /* 18 */ BPF_STMT(BPF_ST, 0),
    /* 19 */ BPF_STMT(BPF_LD | BPF_H | BPF_IND, kSourcePort),
    /* 20 */ jump(20, BPF_JEQ, kGtp, kFirst),
    /* 21 */ jump(21, BPF_JEQ, kL2tp, kFirst),
    /* 22 */ BPF_STMT(BPF_LDX | BPF_W | BPF_MEM, 0),
    /* 23 */ BPF_STMT(BPF_ALU | BPF_ADD | BPF_X, 0),
    /* 24 */ BPF_STMT(BPF_ST, 0),
    /* 25 */ BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kSource),
    /* 26 */ BPF_STMT(BPF_MISC | BPF_TAX, 0),
    /* 27 */ BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kDestination),
    /* 28 */ BPF_STMT(BPF_ALU | BPF_ADD | BPF_X, 0),
    /* 29 */ BPF_STMT(BPF_ALU | BPF_MUL | BPF_K, 0x9E3779B1),
    /* 30 */ BPF_STMT(BPF_LDX | BPF_W | BPF_MEM, 0),
    /* 31 */ BPF_STMT(BPF_ALU | BPF_ADD | BPF_X, 0),
    /* 32 */ BPF_STMT(BPF_ALU | BPF_MUL | BPF_K, 0x9E3779B1),
    /* 33 */ BPF_STMT(BPF_ALU | BPF_RSH | BPF_K, 16),
    /* 34 */ BPF_STMT(BPF_RET | BPF_A, 0),
    /* 35 */ BPF_STMT(BPF_RET | BPF_K, 0),
};

static_assert(std::size(kChoice) == kFirst + 1);

constexpr sock_filter kNothing[] = {BPF_STMT(BPF_RET | BPF_K, 0)};

template <std::size_t size>
bool setProgram(int sd, int level, int option, const sock_filter (&program)[size]) {
  const sock_fprog value{size, const_cast<sock_filter*>(program)};
  return setsockopt(sd, level, option, &value, sizeof value) == 0;
}

/// Returns the address that a packet socket is bound to. Returns another family for any other socket.
sockaddr_ll addressOf(int sd) {
  sockaddr_ll address{};
  socklen_t length = sizeof address;
  if (getsockname(sd, reinterpret_cast<sockaddr*>(&address), &length) != 0) address.sll_family = AF_UNSPEC;
  return address;
}

/// Lets frames of all types come to the socket, where they pass no filter yet.
bool startDelivery(int sd, sockaddr_ll address) {
  address.sll_protocol = htons(ETH_P_ALL);
  return setProgram(sd, SOL_SOCKET, SO_ATTACH_FILTER, kNothing) &&
         bind(sd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool joinGroup(int sd, int id, int flags) {
  const int value = id | (PACKET_FANOUT_CBPF | flags) << 16;
  return setsockopt(sd, SOL_PACKET, PACKET_FANOUT, &value, sizeof value) == 0;
}

}  // namespace

void FanoutGroup::silence(pcap_t* handle) {
  pcap_set_protocol_linux(handle, kNoProtocol);
}

FanoutGroup::Result FanoutGroup::join(pcap_t* handle, bool isFirst, std::string& reason) {
  const int sd = pcap_fileno(handle);
  const sockaddr_ll address = addressOf(sd);
  const MutexLock lock(mutex_);
  if (!isFirst && members_ == 0) {
    reason = "there is no fanout group";
    return Result::kFailed;
  }
  if (address.sll_family != AF_PACKET) {
    reason = "it has no packet socket";
    return Result::kAlone;
  }
  if (!startDelivery(sd, address)) {
    reason = std::strerror(errno);
    return Result::kFailed;
  }
  if (members_ == 0) return makeGroup(sd, reason);
  if (!joinGroup(sd, id_, 0)) {
    reason = std::strerror(errno);
    return Result::kFailed;
  }
  ++members_;
  return Result::kJoined;
}

FanoutGroup::Result FanoutGroup::makeGroup(int sd, std::string& reason) {
  int made = 0;
  socklen_t length = sizeof made;
  if (!joinGroup(sd, 0, PACKET_FANOUT_FLAG_UNIQUEID) || !setProgram(sd, SOL_PACKET, PACKET_FANOUT_DATA, kChoice) ||
      getsockopt(sd, SOL_PACKET, PACKET_FANOUT, &made, &length) != 0) {
    reason = std::strerror(errno);
    return Result::kAlone;
  }
  id_ = made & 0xFFFF;
  members_ = 1;
  return Result::kJoined;
}

void FanoutGroup::leave() {
  const MutexLock lock(mutex_);
  --members_;
}

bool FanoutGroup::hasMembers() {
  const MutexLock lock(mutex_);
  return members_ > 0;
}

}  // namespace voip
