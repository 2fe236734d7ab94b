#pragma once

#include <sys/types.h>

#include <atomic>
#include <bit>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

/// One destination that the recorder wants the RTP of.
struct RtpAddr {
  u_int rtpIp;         ///< IPv4 address in host order, first octet most significant
  u_short rtpPort;     ///< UDP port in host order
  u_short filler = 0;  ///< always 0: the eight bytes have no gap

  RtpAddr(u_int ip, u_short port) : rtpIp(ip), rtpPort(port) {}
  bool operator==(const RtpAddr& other) const { return key() == other.key(); }
  std::uint64_t key() const { return std::bit_cast<std::uint64_t>(*this); }
};

/// The RTP destinations that the recorder has asked for. An entry that is added again counts again, and one removal
/// takes all equal ones away.
///
/// A look-up takes no lock and costs the same for one entry and for a hundred thousand. Any thread may do anything.
class RtpDestinations {
 public:
  RtpDestinations();
  RtpDestinations(const RtpDestinations&) = delete;
  RtpDestinations& operator=(const RtpDestinations&) = delete;

  void add(RtpAddr destination);
  void remove(RtpAddr destination);
  bool contains(RtpAddr destination) const;

  /// Empties the list without waiting for anyone who uses it.
  void clear() { cleared.store(true, std::memory_order_release); }

  /// Entries, equal ones counted each.
  std::size_t length();

 private:
  // Open addressing with linear probing; a key never stands behind a free slot of its run. The sizes double, so all
  // tables that were ever outgrown are together no larger than the present one: they are kept for readers that are
  // still in one.
  struct Table {
    explicit Table(std::size_t size);
    std::size_t slotOf(std::uint64_t key) const;  ///< where the key is, or the free slot where it belongs

    const std::size_t mask;
    const int shift;
    std::unique_ptr<std::atomic<std::uint64_t>[]> keys;
    std::vector<u_int> counts;  ///< the writers' only
  };

  void applyClear();
  void insert(std::uint64_t key, u_int times);
  void erase(std::size_t slot);
  void grow();

  std::mutex rtpListLock;                ///< held by who changes the list
  std::atomic<std::uint64_t> changes{};  ///< odd while the table is being changed
  std::atomic<Table*> table;
  std::vector<std::unique_ptr<Table>> tables;
  std::atomic<bool> cleared = false;  ///< the list counts as empty; whoever changes it next empties it
  std::size_t used = 0;
  std::size_t total = 0;
};
