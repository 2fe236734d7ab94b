#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace voip {

/// A tunnel over UDP.
enum class Tunnel : std::uint8_t { kNone, kVxlan, kGeneve, kGtp, kL2tp, kTzsp };

/// The UDP ports of tunnels. Any thread.
class TunnelPorts {
 public:
  static constexpr std::size_t kMostOfSite = 16;

  /// The ports that are assigned to the tunnels.
  TunnelPorts();

  /// The assigned ports and those of a text such as "vxlan:8472,geneve:6082". Ignores entries that are not understood;
  /// appends a warning for each to `warnings`, if there is one.
  explicit TunnelPorts(const std::string& site, std::vector<std::string>* warnings = nullptr);

  /// Returns the tunnel that a datagram between these ports may belong to: by its destination port, or for GTP-U and
  /// L2TP by its source port as well, since a reply may go to another port.
  Tunnel between(std::uint16_t source, std::uint16_t destination) const {
    if (const Tunnel tunnel = at(destination); tunnel != Tunnel::kNone) return tunnel;
    const Tunnel tunnel = at(source);
    return tunnel == Tunnel::kGtp || tunnel == Tunnel::kL2tp ? tunnel : Tunnel::kNone;
  }

  /// Returns all ports.
  std::vector<std::uint16_t> all() const;

 private:
  struct Entry {
    Tunnel tunnel;
    std::uint16_t port;
  };

  Tunnel at(std::uint16_t port) const {
    if (!lowOctets_[port & 0xFF]) return Tunnel::kNone;  // most ports
    for (const Entry& entry : entries_) {
      if (entry.port == port) return entry.tunnel;
    }
    return Tunnel::kNone;
  }
  void add(Tunnel tunnel, std::uint16_t port);
  std::string addOfSite(const std::string& entry);

  std::vector<Entry> entries_;
  std::array<bool, 256> lowOctets_ = {};  ///< true for those of the ports
};

}  // namespace voip
