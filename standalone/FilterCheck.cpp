#include "FilterCheck.h"

#include <arpa/inet.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <optional>
#include <set>

#include "settings/TunnelPorts.h"

using namespace voip;

namespace {

using Frame = std::vector<std::uint8_t>;

enum : std::uint16_t { kIpv4 = 0x0800, kIpv6 = 0x86DD, kMpls = 0x8847, kPppoe = 0x8864 };
constexpr std::uint32_t kSomePort = 49152;
constexpr std::uint16_t kLaterFragment = 185;  // the offset in the second of two frames of 1500 bytes

void append(Frame& frame, std::uint32_t value, int bytes) {
  while (bytes-- > 0) frame.push_back(static_cast<std::uint8_t>(value >> 8 * bytes));
}

using Address = std::vector<std::uint8_t>;  // 4 or 16 octets

constexpr std::size_t kMostAddresses = 64;  // all pairs of them are tried
constexpr std::size_t kMostTags = 16;
constexpr std::uint32_t kUntagged = 0;

/// The addresses, ports and VLANs that a filter may let through: those that its text names, and usual ones.
struct Candidates {
  std::set<Address> addresses;
  std::set<std::uint32_t> ports = {1720, 5060, 16384};
  std::set<std::uint32_t> tags = {kUntagged, 1};

  explicit Candidates(const std::string& filter) {
    for (const char* usual : {"10.0.0.1", "10.0.0.2", "2001:db8::1", "2001:db8::2"}) addAddress(usual);
    constexpr const char* kCharacters = "0123456789abcdefABCDEF:.";
    std::size_t end = 0;
    for (std::size_t at; (at = filter.find_first_of(kCharacters, end)) != std::string::npos;) {
      end = std::min(filter.find_first_not_of(kCharacters, at), filter.size());
      const std::string word = filter.substr(at, end - at);
      if (addresses.size() < kMostAddresses && addAddress(word)) continue;
      if (word.size() <= 5 && word.find_first_not_of("0123456789") == std::string::npos) {
        const auto number = static_cast<std::uint32_t>(std::stoi(word));
        ports.insert(number);
        if (number < 4096 && tags.size() < kMostTags) tags.insert(number);
      }
    }
  }

 private:
  bool addAddress(const std::string& text) {
    Address address(4);
    if (inet_pton(AF_INET, text.c_str(), address.data()) != 1) {
      address.resize(16);
      if (inet_pton(AF_INET6, text.c_str(), address.data()) != 1) return false;
    }
    addresses.insert(address);
    address.back() |= 1;  // stands for a host in case the address is that of a network
    addresses.insert(address);
    return true;
  }
};

/// A kind of frame, with the fields that filters usually test.
struct Kind {
  std::uint16_t etherType;
  std::uint8_t protocol = 0;  ///< of an IP frame
  std::uint16_t fragmentOffset = 0;
  std::uint32_t port = 0;  ///< destination port; 0: each of the candidates
};

Frame build(const Kind& kind, const Address& source, const Address& destination, std::uint32_t port,
            std::uint32_t tag) {
  Frame frame(12);
  if (tag != kUntagged) append(frame, 0x81000000 | tag, 4);
  append(frame, kind.etherType, 2);
  if (kind.etherType == kIpv4) {
    append(frame, 0x45000064, 4);
    append(frame, kind.fragmentOffset, 4);
    append(frame, 64U << 24 | static_cast<std::uint32_t>(kind.protocol) << 16, 4);
  } else if (kind.etherType == kIpv6) {
    append(frame, 0x60000000, 4);
    append(frame, 60U << 16 | static_cast<std::uint32_t>(kind.protocol) << 8 | 64, 4);
  }
  if (kind.protocol != 0) {
    frame.insert(frame.end(), source.begin(), source.end());
    frame.insert(frame.end(), destination.begin(), destination.end());
    append(frame, kind.port != 0 ? kSomePort << 16 | kind.port : port << 16 | port, 4);
  }
  frame.resize(128);
  return frame;
}

bool letsThrough(const bpf_program& program, const Candidates& candidates, const Kind& kind, std::uint32_t tag) {
  const std::size_t size = kind.etherType == kIpv6 ? 16 : 4;
  for (const Address& source : candidates.addresses) {
    for (const Address& destination : candidates.addresses) {
      if (source.size() != size || destination.size() != size) continue;
      for (const std::uint32_t port : candidates.ports) {
        const Frame frame = build(kind, source, destination, port, tag);
        const auto length = static_cast<bpf_u_int32>(frame.size());
        const pcap_pkthdr header{{}, length, length};
        if (pcap_offline_filter(&program, &header, frame.data()) != 0) return true;
      }
    }
  }
  return false;
}

/// A setting, and the kinds of frames that it needs. The filter has to let through at least one kind.
struct Need {
  bool Settings::*setting;
  const char* name;
  std::vector<Kind> kinds;
  const char* excluded;  ///< frames, and what to add to the filter
};

const Need kNeeds[] = {
    {&Settings::reassembleFragments,
     "ReassembleFragments",
     {{kIpv4, IPPROTO_UDP, kLaterFragment}},
     "the later fragments of a datagram, which have no ports; add \"or (ip[6:2] & 0x1fff != 0)\""},
    {&Settings::reassembleTcp, "ReassembleTcp", {{kIpv4, IPPROTO_TCP}}, "TCP; add \"or tcp\""},
    {&Settings::decapsulate,
     "Decapsulate",
     {{kIpv4, IPPROTO_GRE}, {kIpv4, IPPROTO_IPIP}, {kIpv4, IPPROTO_IPV6}, {kMpls}, {kPppoe}},  // and those over UDP
     "all tunnels; add the one that the mirror uses, such as \"or udp port 4789\" (VXLAN), \"or proto gre\", \"or "
     "ether proto 0x8847\" (MPLS)"},
    {&Settings::ipv6,
     "IPv6",
     {{kIpv6, IPPROTO_UDP}, {kIpv6, IPPROTO_TCP}},
     "it; \"ip and\" and IPv4 addresses do, write \"udp\" or add \"or (udp and net 2001:db8::/32)\""},
};

/// The frames that a filter is for.
struct Purpose {
  std::uint32_t tag;      ///< their VLAN
  std::uint8_t protocol;  ///< UDP, or TCP when the filter excludes UDP
};

/// Returns nothing when the filter excludes UDP and TCP over IPv4.
std::optional<Purpose> findPurpose(const bpf_program& program, const Candidates& candidates) {
  for (const std::uint32_t tag : candidates.tags) {
    for (const std::uint8_t protocol : {IPPROTO_UDP, IPPROTO_TCP}) {
      if (letsThrough(program, candidates, {kIpv4, protocol}, tag)) return Purpose{tag, protocol};
    }
  }
  return {};
}

std::vector<std::string> warnings(const bpf_program& program, const Candidates& candidates, const Settings& settings) {
  std::vector<std::string> texts;
  const std::optional<Purpose> purpose = findPurpose(program, candidates);
  if (!purpose) return texts;
  for (const Need& need : kNeeds) {
    if (!(settings.*need.setting)) continue;
    std::vector<Kind> kinds = need.kinds;
    if (need.setting == &Settings::reassembleFragments) kinds.front().protocol = purpose->protocol;
    if (need.setting == &Settings::decapsulate) {
      for (const std::uint16_t port : TunnelPorts(settings.tunnelPorts).all()) {
        kinds.push_back({kIpv4, IPPROTO_UDP, 0, port});
      }
    }
    const auto isMet = [&](const Kind& kind) { return letsThrough(program, candidates, kind, purpose->tag); };
    if (std::any_of(kinds.begin(), kinds.end(), isMet)) continue;
    texts.push_back(std::string(need.name) + "=yes has no effect: the filter excludes " + need.excluded);
  }
  return texts;
}

/// A word after which the rest of a filter applies to the bytes after a header, also the alternatives.
struct Shift {
  const char* word;
  const char* advice;
};

const Shift kShifts[] = {
    {"vlan", "write the part with \"vlan\" last"},
    {"mpls", "write \"ether proto 0x8847\" instead"},
    {"pppoes", "write \"ether proto 0x8864\" instead"},
};

/// Returns the words of a filter, with each parenthesis as a word.
std::vector<std::string> wordsOf(const std::string& filter) {
  std::vector<std::string> words(1);
  for (const char c : filter) {
    const bool isParenthesis = c == '(' || c == ')';
    if ((isParenthesis || std::isspace(static_cast<unsigned char>(c)) != 0) && !words.back().empty()) {
      words.emplace_back();
    }
    if (isParenthesis) {
      words.back() = c;
      words.emplace_back();
    } else if (std::isspace(static_cast<unsigned char>(c)) == 0) {
      words.back() += c;
    }
  }
  return words;
}

/// Whether an alternative to the part of the filter with the word at `index` follows it.
bool hasAlternativeAfter(const std::vector<std::string>& words, std::size_t index) {
  int depth = 0, lowest = 0;  // of parentheses; an "or" in a later pair joins other parts
  for (std::size_t i = index + 1; i < words.size(); ++i) {
    depth += words[i] == "(" ? 1 : words[i] == ")" ? -1 : 0;
    lowest = std::min(lowest, depth);
    if (depth == lowest && (words[i] == "or" || words[i] == "||")) return true;
  }
  return false;
}

std::vector<std::string> shiftWarnings(const std::string& filter) {
  std::vector<std::string> texts;
  const std::vector<std::string> words = wordsOf(filter);
  for (const Shift& shift : kShifts) {
    for (std::size_t i = 0; i < words.size(); ++i) {
      if (words[i] != shift.word || !hasAlternativeAfter(words, i)) continue;
      texts.push_back(std::string("the filter after \"") + shift.word +
                      "\" applies to the bytes after that header, also what follows \"or\"; " + shift.advice);
      break;
    }
  }
  return texts;
}

}  // namespace

std::vector<std::string> checkFilter(const char* filter, const Settings& settings) {
  std::vector<std::string> texts;
  pcap_t* ethernet = pcap_open_dead(DLT_EN10MB, 65535);
  bpf_program program{};
  if (pcap_compile(ethernet, &program, filter, 0, 0) == 0) {
    texts = warnings(program, Candidates(filter), settings);
    const std::vector<std::string> shifts = shiftWarnings(filter);
    texts.insert(texts.end(), shifts.begin(), shifts.end());
    pcap_freecode(&program);
  }
  pcap_close(ethernet);
  return texts;
}
