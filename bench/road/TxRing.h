#pragma once

#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace road {

/// A packet socket whose frames lie in a ring of memory that it shares with the kernel: a frame is neither copied to
/// the kernel nor costs a system call of its own. Ends the process when the device cannot be opened.
class TxRing {
 public:
  static constexpr unsigned kSlots = 8192;
  static constexpr unsigned kLongest = 1024 - (TPACKET2_HDRLEN - sizeof(sockaddr_ll));  ///< bytes of a frame

  explicit TxRing(const char* device) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(if_nametoindex(device));
    const int on = 1, version = TPACKET_V2;
    tpacket_req size{kBlock, kSlots / (kBlock / kSlot), kSlot, kSlots};
    sd_ = socket(AF_PACKET, SOCK_RAW, 0);
    setsockopt(sd_, SOL_PACKET, PACKET_QDISC_BYPASS, &on, sizeof on);
    setsockopt(sd_, SOL_PACKET, PACKET_VERSION, &version, sizeof version);
    if (setsockopt(sd_, SOL_PACKET, PACKET_TX_RING, &size, sizeof size) != 0 ||
        bind(sd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      std::perror(device);
      std::exit(1);
    }
    void* memory =
        mmap(nullptr, std::size_t{kSlot} * kSlots, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, sd_, 0);
    if (memory == MAP_FAILED) std::exit(1);
    memory_ = static_cast<unsigned char*>(memory);
  }
  TxRing(const TxRing&) = delete;
  TxRing& operator=(const TxRing&) = delete;

  /// Returns the memory of a slot. What was written to it stays after it was sent.
  unsigned char* slot(unsigned number) { return memory_ + number * kSlot + TPACKET2_HDRLEN - sizeof(sockaddr_ll); }

  /// Returns the next slot. Waits until the kernel has sent what was in it.
  unsigned char* next() {
    while (std::atomic_ref(header().tp_status).load(std::memory_order_acquire) != TP_STATUS_AVAILABLE) flush();
    return slot(next_);
  }

  /// Marks the slot of next() as a frame of `length` bytes to send.
  void push(std::size_t length) {
    header().tp_len = static_cast<unsigned>(length);
    std::atomic_ref(header().tp_status).store(TP_STATUS_SEND_REQUEST, std::memory_order_release);
    next_ = (next_ + 1) % kSlots;
  }

  /// Sends the marked frames.
  void flush() { send(sd_, nullptr, 0, 0); }

 private:
  static constexpr unsigned kSlot = 1024;  // bytes
  static constexpr unsigned kBlock = 65536;

  tpacket2_hdr& header() { return *reinterpret_cast<tpacket2_hdr*>(memory_ + next_ * kSlot); }

  int sd_;
  unsigned char* memory_;
  unsigned next_ = 0;
};

}  // namespace road
