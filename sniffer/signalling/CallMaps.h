#pragma once

#include <sys/types.h>

#include <cstddef>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <ostream>

#include "h323/base/PString.h"
#include "statistics/Statistics.h"

namespace voip {

/// Which call an H.245 connection belongs to: H.245 names no call, so the addresses that calls announce for it are
/// remembered until the call is released.
///
/// Two maps mirror each other, call reference to address and back, but not in everything: an address that a call
/// announced before its last one stays with it for good, and one that another call takes over is still named by the
/// first, whose release then takes it away. What nobody releases is bounded: beyond kMostAddresses the address that was
/// announced longest ago is forgotten, and counted.
///
/// Every change is logged at DEBUG. Any thread.
class CallMaps {
 public:
  /// Where an H.245 connection is listened for.
  struct h245Addr {
    PString h245Ip;  ///< dotted decimal
    u_int h245Port = 0;

    h245Addr() = default;
    h245Addr(const PString& ip, u_int port) : h245Ip(ip), h245Port(port) {}

    friend bool operator==(const h245Addr& a, const h245Addr& b) = default;
    friend std::ostream& operator<<(std::ostream& stream, const h245Addr& addr) {
      return stream << addr.h245Ip << ':' << addr.h245Port;
    }
  };

  /// By address or by port, whichever is less. When that is the address of one and the port of the other, each comes
  /// before the other: two addresses are the same only if neither is less. A tree cannot be kept in such an order.
  struct h245comp {
    bool operator()(const h245Addr& a, const h245Addr& b) const {
      return a.h245Ip.Compare(b.h245Ip) == PString::LessThan || a.h245Port < b.h245Port;
    }
  };

  /// By address, then by port: one of the orders that agree with h245comp about every pair on which it decides.
  struct h245order {
    bool operator()(const h245Addr& a, const h245Addr& b) const {
      const PString::Comparison order = a.h245Ip.Compare(b.h245Ip);
      return order == PString::LessThan || (order == PString::EqualTo && a.h245Port < b.h245Port);
    }
  };

  /// As texts: "10" comes before "9".
  struct callrefcomp {
    bool operator()(const PString& a, const PString& b) const { return a.Compare(b) == PString::LessThan; }
  };

  static constexpr std::size_t kMostAddresses = 65536;

  /// Addresses that are forgotten are counted in `counters`, which may be null and must outlive the maps.
  explicit CallMaps(Statistics* counters = nullptr) : statistics(counters) {}

  /// The call announces that it listens for H.245 at `addr`. That takes the address over from any other call; an
  /// address that the same call announced before stays its own.
  void announce(const PString& callReference, const h245Addr& addr);

  /// The call is over: forgets it and the address that it announced last.
  void release(const PString& callReference);

  /// The reference of the call that announced `addr`.
  std::optional<PString> callOf(const h245Addr& addr) const;

  /// Logs at DEBUG what is known.
  void display() const;

 private:
  struct Announcement {
    PString callReference;
    std::list<h245Addr>::iterator age;
  };
  using AddressMap = std::map<h245Addr, Announcement, h245order>;

  void erase(AddressMap::iterator entry);
  void forgetOldest();

  AddressMap h245Map;                                   ///< the call that announced the address
  std::map<PString, h245Addr, callrefcomp> callRefMap;  ///< the address that the call announced last
  std::list<h245Addr> byAge;                            ///< the keys of h245Map, announced longest ago first
  mutable std::mutex lock;  ///< guards all three: who ends the sniffer has them logged while a segment may be in work
  Statistics* statistics;
  bool warned = false;
};

}  // namespace voip
