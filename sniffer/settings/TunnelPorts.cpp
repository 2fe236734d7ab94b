#include "settings/TunnelPorts.h"

#include <strings.h>

#include <charconv>

#include "settings/Config.h"
#include "settings/StringTokenizer.h"

namespace voip {

namespace {

struct Assigned {
  const char* name;
  Tunnel tunnel;
  std::uint16_t port;
};

constexpr Assigned kAssigned[] = {
    {"vxlan", Tunnel::kVxlan, 4789}, {"geneve", Tunnel::kGeneve, 6081}, {"gtp", Tunnel::kGtp, 2152},
    {"l2tp", Tunnel::kL2tp, 1701},   {"tzsp", Tunnel::kTzsp, 37008},
};

Tunnel tunnelNamed(const std::string& name) {
  for (const Assigned& one : kAssigned) {
    if (strcasecmp(name.c_str(), one.name) == 0) return one.tunnel;
  }
  return Tunnel::kNone;
}

/// Returns 0 for a text that is no port.
std::uint16_t portOf(const std::string& text) {
  std::uint16_t port = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, port);
  return stop == end && error == std::errc() ? port : std::uint16_t{0};
}

}  // namespace

TunnelPorts::TunnelPorts() {
  for (const Assigned& one : kAssigned) add(one.tunnel, one.port);
}

TunnelPorts::TunnelPorts(const std::string& site, std::vector<std::string>* warnings) : TunnelPorts() {
  StringTokenizer entries(site.c_str(), ',');
  while (entries.hasMoreTokens()) {
    const std::string entry = Config::trim(entries.nextToken());
    const std::string fault = addOfSite(entry);
    if (!fault.empty() && warnings != nullptr) warnings->push_back("\"" + entry + "\" is ignored: " + fault);
  }
}

/// Adds the port of an entry. Returns the reason when the entry is ignored, else an empty text.
std::string TunnelPorts::addOfSite(const std::string& entry) {
  const std::size_t colon = entry.find(':');
  if (colon == std::string::npos) return "an entry is a tunnel and its port, such as vxlan:8472";
  const Tunnel tunnel = tunnelNamed(Config::trim(entry.substr(0, colon)));
  if (tunnel == Tunnel::kNone) return "a tunnel is vxlan, geneve, gtp, l2tp or tzsp";
  const std::uint16_t port = portOf(Config::trim(entry.substr(colon + 1)));
  if (port == 0) return "a port is a number from 1 to 65535";
  if (at(port) == tunnel) return {};
  if (at(port) != Tunnel::kNone) return "the port belongs to another tunnel";
  if (entries_.size() == std::size(kAssigned) + kMostOfSite) {
    return "there are more than " + std::to_string(kMostOfSite) + " ports";
  }
  add(tunnel, port);
  return {};
}

void TunnelPorts::add(Tunnel tunnel, std::uint16_t port) {
  entries_.push_back({tunnel, port});
  lowOctets_[port & 0xFF] = true;
}

std::vector<std::uint16_t> TunnelPorts::all() const {
  std::vector<std::uint16_t> ports;
  for (const Entry& entry : entries_) ports.push_back(entry.port);
  return ports;
}

}  // namespace voip
