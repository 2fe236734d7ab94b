#pragma once

#include <cstdint>

namespace voip {

// The types of IEEE 802 for what follows a link-layer header. GRE and GENEVE use the same numbers.
constexpr std::uint16_t kEtherIpv4 = 0x0800;
constexpr std::uint16_t kEtherIpv6 = 0x86DD;
constexpr std::uint16_t kEtherVlan = 0x8100;         ///< IEEE 802.1Q
constexpr std::uint16_t kEtherServiceVlan = 0x88A8;  ///< IEEE 802.1ad
constexpr std::uint16_t kEtherOldQinQ = 0x9100;      ///< used before 802.1ad
constexpr std::uint16_t kEtherMpls = 0x8847;
constexpr std::uint16_t kEtherMplsMulticast = 0x8848;
constexpr std::uint16_t kEtherPppoeSession = 0x8864;
constexpr std::uint16_t kEtherBridged = 0x6558;  ///< a whole Ethernet frame
constexpr std::uint16_t kEtherPpp = 0x880B;
constexpr std::uint16_t kEtherErspan = 0x88BE;     ///< ERSPAN types I and II
constexpr std::uint16_t kEtherErspanIII = 0x22EB;  ///< ERSPAN type III

}  // namespace voip
