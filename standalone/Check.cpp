#include "Check.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <iostream>
#include <set>
#include <string>
#include <vector>

#include "Diagnosis.h"

using namespace voip;

namespace {

constexpr int kWillNotDo = 1;

void complain(const std::string& about) {
  std::cerr << "sniffer: " << about << std::endl;
}

bool recorderIsPossible(const Sniffer& engine) {
  bool possible = true;
  const auto refuse = [&](const std::string& about) {
    complain(about);
    possible = false;
  };
  const std::string name = engine.getServerNameMedia();
  in_addr address;
  if (inet_pton(AF_INET, name.c_str(), &address) != 1) {
    refuse("the recorder's address has to be an IPv4 address such as 192.168.3.22, not \"" + name + "\"");
  }
  if (const int port = engine.getServerPortMedia(); port < 1 || port > 65535) {
    refuse("the recorder's port has to be from 1 to 65535, not " + std::to_string(port));
  }
  const char* protocol = engine.getServerProtocol();
  if (strcasecmp(protocol, "TCP") != 0 && strcasecmp(protocol, "UDP") != 0) {
    refuse(std::string("the recorder is reached over TCP or UDP, not over \"") + protocol + "\"");
  }
  return possible;
}

// ---- does the filter let through what a setting is for? ----

using Frame = std::vector<u_char>;

enum : u_short { kIpv4 = 0x0800, kMpls = 0x8847, kPppoe = 0x8864 };
constexpr u_int kSomePort = 49152;
constexpr u_short kLaterFragment = 185;  // as the second of two frames of 1500 bytes has it

void append(Frame& frame, u_int value, int bytes) {
  while (bytes-- > 0) frame.push_back(static_cast<u_char>(value >> 8 * bytes));
}

/// What stands in a filter tells which addresses and ports it may let through.
struct Candidates {
  std::set<u_int> addresses = {0x0A000001, 0x0A000002};
  std::set<u_int> ports = {1720, 5060, 16384};

  explicit Candidates(const std::string& filter) {
    std::size_t end = 0;
    for (std::size_t at; (at = filter.find_first_of("0123456789", end)) != std::string::npos;) {
      end = std::min(filter.find_first_not_of("0123456789.", at), filter.size());
      const std::string word = filter.substr(at, end - at);
      if (in_addr address; inet_pton(AF_INET, word.c_str(), &address) == 1) {
        // Of a network one of its hosts as well.
        addresses.insert({ntohl(address.s_addr), ntohl(address.s_addr) | 1});
      } else if (word.size() <= 5 && word.find('.') == std::string::npos) {
        ports.insert(static_cast<u_int>(std::stoi(word)));
      }
    }
  }
};

/// A kind of frame, with the least that filters look at.
struct Kind {
  u_short etherType;
  u_char protocol = 0;  ///< of an IPv4 frame
  u_short fragmentOffset = 0;
  u_int port = 0;  ///< destination; 0: any of the filter's
};

Frame build(const Kind& kind, u_int source, u_int destination, u_int port) {
  Frame frame(12);
  append(frame, kind.etherType, 2);
  if (kind.etherType == kIpv4) {
    append(frame, 0x45000064, 4);
    append(frame, kind.fragmentOffset, 4);
    append(frame, 64U << 24 | static_cast<u_int>(kind.protocol) << 16, 4);
    append(frame, source, 4);
    append(frame, destination, 4);
    append(frame, kind.port != 0 ? kSomePort << 16 | kind.port : port << 16 | port, 4);
  }
  frame.resize(128);
  return frame;
}

bool letsThrough(const bpf_program& program, const Candidates& candidates, const Kind& kind) {
  for (const u_int source : candidates.addresses) {
    for (const u_int destination : candidates.addresses) {
      for (const u_int port : candidates.ports) {
        const Frame frame = build(kind, source, destination, port);
        const auto length = static_cast<bpf_u_int32>(frame.size());
        const pcap_pkthdr header{{}, length, length};
        if (pcap_offline_filter(&program, &header, frame.data()) != 0) return true;
      }
    }
  }
  return false;
}

/// A setting, and the frames of which the filter has to let one kind through.
struct Need {
  bool Settings::*setting;
  const char* name;
  std::vector<Kind> kinds;
  const char* advice;
};

const Need kNeeds[] = {
    {&Settings::reassembleFragments,
     "ReassembleFragments",
     {{kIpv4, IPPROTO_UDP, kLaterFragment}},
     "the later fragments, which have no ports: add \"or (ip[6:2] & 0x1fff != 0)\""},
    {&Settings::reassembleTcp, "ReassembleTcp", {{kIpv4, IPPROTO_TCP}}, "TCP: add \"or tcp\""},
    {&Settings::decapsulate,
     "Decapsulate",
     {{kIpv4, IPPROTO_UDP, 0, 4789},
      {kIpv4, IPPROTO_UDP, 0, 6081},
      {kIpv4, IPPROTO_GRE},
      {kIpv4, IPPROTO_IPIP},
      {kMpls},
      {kPppoe}},
     "a tunnel: add what the mirror wraps its frames in, \"or udp port 4789\" (VXLAN), \"or proto gre\", \"or mpls\""},
};

/// Only a filter that lets plain telephony through is understood well enough to tell what it leaves out.
void warnOfFilter(const Sniffer& engine) {
  pcap_t* ethernet = pcap_open_dead(DLT_EN10MB, Device::kSnapLength);
  bpf_program program{};
  if (pcap_compile(ethernet, &program, engine.getFilter(), 0, 0) == 0) {
    const Candidates candidates(engine.getFilter());
    const bool isUnderstood = letsThrough(program, candidates, {kIpv4, IPPROTO_UDP});
    for (const Need& need : kNeeds) {
      if (!(engine.getSettings().*need.setting) || !isUnderstood) continue;
      const bool met = std::any_of(need.kinds.begin(), need.kinds.end(),
                                   [&](const Kind& kind) { return letsThrough(program, candidates, kind); });
      if (met) continue;
      complain(std::string("warning: ") + need.name + "=yes does nothing, since the filter does not let through " +
               need.advice);
    }
    pcap_freecode(&program);
  }
  pcap_close(ethernet);
}

}  // namespace

int check(Sniffer& engine) {
  int status = engine.openDevices();
  explainDownDevices(engine);
  for (int i = 0; i < engine.getDeviceCount(); ++i) {
    if (engine.isDeviceDown(i)) status = std::max(status, kWillNotDo);
  }
  if (engine.getDeviceCount() == 0) status = kWillNotDo;
  if (!recorderIsPossible(engine)) status = std::max(status, kWillNotDo);
  if (status == 0) warnOfFilter(engine);
  std::cout << (status == 0 ? "Devices, filter and the recorder's address are good" : "This will not do, see above")
            << std::endl;
  return status;
}
