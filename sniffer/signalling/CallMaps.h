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

/// Finds the call of an H.245 connection. H.245 messages do not name a call, so the maps keep the addresses that calls
/// announce for H.245 until the call is released.
///
/// The two maps mirror each other, call reference to address and address to call reference, with two intended
/// exceptions. When a call announces a second address, the first one stays in the map by address permanently. When
/// another call takes over an address, the map by call reference still has it for the first call, whose release then
/// removes it.
///
/// Calls that are never released cannot fill the memory: after kMaxAddresses the oldest address is removed and counted.
///
/// Logs every change at DEBUG. Any thread.
class CallMaps {
 public:
  /// The address and port at which an endpoint listens for H.245.
  struct h245Addr {
    PString h245Ip;  ///< "10.1.2.3", or "[2001:db8::1]"
    u_int h245Port = 0;

    h245Addr() = default;
    h245Addr(const PString& ip, u_int port) : h245Ip(ip), h245Port(port) {}

    friend bool operator==(const h245Addr& a, const h245Addr& b) = default;
    friend std::ostream& operator<<(std::ostream& stream, const h245Addr& addr) {
      return stream << addr.h245Ip << ':' << addr.h245Port;
    }
  };

  /// Less by address or less by port. This is kept on purpose although it is no strict weak order: of two addresses
  /// that differ in both in opposite directions, each is less than the other. A tree does not work in this order; use
  /// AddressOrder. Two addresses are equal if and only if neither is less.
  struct h245comp {
    bool operator()(const h245Addr& a, const h245Addr& b) const {
      return a.h245Ip.Compare(b.h245Ip) == PString::LessThan || a.h245Port < b.h245Port;
    }
  };

  /// By address, then by port: a strict weak order. It agrees with h245comp where only one of two addresses is less.
  struct AddressOrder {
    bool operator()(const h245Addr& a, const h245Addr& b) const {
      const PString::Comparison order = a.h245Ip.Compare(b.h245Ip);
      return order == PString::LessThan || (order == PString::EqualTo && a.h245Port < b.h245Port);
    }
  };

  /// As texts: "10" is less than "9".
  struct callrefcomp {
    bool operator()(const PString& a, const PString& b) const { return a.Compare(b) == PString::LessThan; }
  };

  static constexpr std::size_t kMaxAddresses = 65536;

  /// Counts the addresses removed because of kMaxAddresses in `statistics`, which may be null and must outlive the
  /// maps.
  explicit CallMaps(Statistics* statistics = nullptr) : statistics_(statistics) {}

  /// Records that the call listens for H.245 at `addr`. Takes the address over from any other call. Earlier addresses
  /// of the same call stay.
  void announce(const PString& callReference, const h245Addr& addr);

  /// Removes the call and the address that it announced last.
  void release(const PString& callReference);

  /// Returns the reference of the call that announced `addr` last.
  std::optional<PString> callOf(const h245Addr& addr) const;

  /// Logs both maps at DEBUG.
  void display() const;

 private:
  struct Announcement {
    PString callReference;
    std::list<h245Addr>::iterator age;  ///< the entry in byAge_
  };
  using AddressMap = std::map<h245Addr, Announcement, AddressOrder>;

  void erase(AddressMap::iterator entry);
  void eraseOldest();

  AddressMap h245Map_;                                   ///< the call that announced the address last
  std::map<PString, h245Addr, callrefcomp> callRefMap_;  ///< the address that the call announced last
  std::list<h245Addr> byAge_;                            ///< the keys of h245Map_, oldest first
  mutable std::mutex lock_;  ///< guards all members: another thread may log the maps while a segment is described
  Statistics* statistics_;
  bool warned_ = false;
};

}  // namespace voip
