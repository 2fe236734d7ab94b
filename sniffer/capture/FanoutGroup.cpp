#include "capture/FanoutGroup.h"

#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

namespace voip {

namespace {

constexpr int kNoProtocol = 0xFFFF;  // reserved: no frame has this Ethernet type
constexpr unsigned kFromKernel = static_cast<unsigned>(SKF_AD_OFF);

// Offsets in the IPv4 header, and from its end on in the UDP header.
constexpr unsigned kFragment = 6, kProtocol = 9, kSource = 12, kDestination = 16;
constexpr unsigned kSourcePort = 0, kDestinationPort = 2, kPayload = 8;

constexpr __u8 kFirst = 255;  // the target of a jump to the last instruction, which chooses the first socket

/// Returns a jump that chooses the first socket when the test holds.
constexpr sock_filter firstIf(unsigned test, unsigned value) {
  return BPF_JUMP(BPF_JMP | test | BPF_K, value, kFirst, 0);
}

/// Returns a jump that chooses the first socket unless the test holds.
constexpr sock_filter firstUnless(unsigned test, unsigned value) {
  return BPF_JUMP(BPF_JMP | test | BPF_K, value, 0, kFirst);
}

constexpr sock_filter kSelection[] = {
    BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kFromKernel + SKF_AD_PROTOCOL),
    firstUnless(BPF_JEQ, ETH_P_IP),
    // The data of a frame that this machine sends begins with the link layer.
    BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kFromKernel + SKF_AD_PKTTYPE),
    firstIf(BPF_JEQ, PACKET_OUTGOING),
    BPF_STMT(BPF_LD | BPF_B | BPF_ABS, kProtocol),
    firstUnless(BPF_JEQ, IPPROTO_UDP),
    BPF_STMT(BPF_LD | BPF_H | BPF_ABS, kFragment),
    firstIf(BPF_JSET, 0x3FFF),
    BPF_STMT(BPF_LDX | BPF_B | BPF_MSH, 0),
    BPF_STMT(BPF_LD | BPF_W | BPF_IND, kPayload),
    // SIP begins with three letters. No RTP, STUN or DTLS packet has three octets from 0x40 to 0x7F there.
    BPF_STMT(BPF_ALU | BPF_AND | BPF_K, 0xC0C0C000),
    firstIf(BPF_JEQ, 0x40404000),
    BPF_STMT(BPF_LD | BPF_H | BPF_IND, kDestinationPort),
};
constexpr sock_filter kOtherPort[] = {
    BPF_STMT(BPF_ST, 0),
    BPF_STMT(BPF_LD | BPF_H | BPF_IND, kSourcePort),
};
// Sums, so that both directions have the same result.
constexpr sock_filter kSpreading[] = {
    BPF_STMT(BPF_LDX | BPF_W | BPF_MEM, 0),
    BPF_STMT(BPF_ALU | BPF_ADD | BPF_X, 0),
    BPF_STMT(BPF_ST, 0),
    BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kSource),
    BPF_STMT(BPF_MISC | BPF_TAX, 0),
    BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kDestination),
    BPF_STMT(BPF_ALU | BPF_ADD | BPF_X, 0),
    BPF_STMT(BPF_ALU | BPF_MUL | BPF_K, 0x9E3779B1),
    BPF_STMT(BPF_LDX | BPF_W | BPF_MEM, 0),
    BPF_STMT(BPF_ALU | BPF_ADD | BPF_X, 0),
    BPF_STMT(BPF_ALU | BPF_MUL | BPF_K, 0x9E3779B1),
    BPF_STMT(BPF_ALU | BPF_RSH | BPF_K, 16),
    BPF_STMT(BPF_RET | BPF_A, 0),
    BPF_STMT(BPF_RET | BPF_K, 0),
};

using Program = std::vector<sock_filter>;

template <std::size_t size>
void append(Program& program, const sock_filter (&part)[size]) {
  program.insert(program.end(), part, part + size);
}

/// Replaces kFirst by the distance to the last instruction.
void resolveJumps(Program& program) {
  for (std::size_t at = 0; at < program.size(); ++at) {
    if (BPF_CLASS(program[at].code) != BPF_JMP) continue;
    const auto distance = static_cast<__u8>(program.size() - 1 - at - 1);
    if (program[at].jt == kFirst) program[at].jt = distance;
    if (program[at].jf == kFirst) program[at].jf = distance;
  }
}

/// Returns a program that chooses a socket for a frame: the result modulo the number of sockets is its number. The
/// frame begins with the header after the link layer. A load after its end ends the program with 0, the first socket.
Program choiceBeside(const TunnelPorts& tunnels) {
  const std::vector<std::uint16_t> ports = tunnels.all();
  Program program;
  const auto excludeTunnels = [&] {
    for (const std::uint16_t port : ports) program.push_back(firstIf(BPF_JEQ, port));
  };
  append(program, kSelection);
  excludeTunnels();
  append(program, kOtherPort);
  excludeTunnels();
  append(program, kSpreading);
  resolveJumps(program);
  return program;
}

bool setProgram(int sd, int level, int option, Program program) {
  const sock_fprog value{static_cast<unsigned short>(program.size()), program.data()};
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
  return setProgram(sd, SOL_SOCKET, SO_ATTACH_FILTER, {BPF_STMT(BPF_RET | BPF_K, 0)}) &&
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
  if (!joinGroup(sd, 0, PACKET_FANOUT_FLAG_UNIQUEID) ||
      !setProgram(sd, SOL_PACKET, PACKET_FANOUT_DATA, choiceBeside(tunnels_)) ||
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
