// Passes frames and commands through the dissector to a failing recorder, with the settings that prevent losses. Input:
// pieces, as Split cuts them; the first octet of each selects the operation. Each captured frame contains a number. The
// recorder must receive no frame twice, the frames of a destination in order, and each capture time directly before its
// frame.

#include <log4cxx/logger.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "support/Frames.h"
#include "support/Require.h"
#include "support/Split.h"

using namespace voip;

namespace {

constexpr std::size_t kNumber = 4;  // octets at the end of each frame

/// A recorder that checks the frames it receives, and fails as the input selects.
class CheckingConnection final : public BaseConnection {
 public:
  bool receiveRequest(SnifferRequest& request) override {
    if (!command) return false;
    request = *std::exchange(command, std::nullopt);
    return true;
  }
  void closeConnection() override {}
  std::size_t getRoom() override { return room; }

  int sendPacket(u_char* buffer, int length) override {
    const int header = (buffer[2] & 0x40) != 0 ? 39 : 15;
    require(length >= header && (buffer[0] << 8 | buffer[1]) == length);
    const Bytes frame(buffer, buffer + length);
    const Bytes ends(frame.begin() + 3, frame.begin() + header);
    require(announced_.empty() || announced_ == ends);
    announced_.clear();
    const int protocol = frame[2] & ~0x40;
    if (protocol == 5) {
      require(length == header + 8);
      announced_ = ends;
    } else if (protocol == 1 || protocol == 2) {
      checkNumber(frame, ends, protocol == 1);
    }
    return length;
  }

  SendResult sendPackets(std::span<OutgoingFrame> frames) override {
    for (std::size_t i = 0; i < frames.size(); ++i) {
      if (left == 0) {
        left = -1;
        announced_.clear();  // a new connection
        last_.clear();
        frames[i].sent = -1;
        return {i + 1, failure};
      }
      if (left > 0) --left;
      frames[i].sent = sendPacket(frames[i].bytes, frames[i].length);
      if (waitAfter > 0 && ++sinceWait_ > waitAfter) {
        sinceWait_ = 0;
        return {i + 1};
      }
    }
    return {frames.size()};
  }

  int left = -1;  ///< frames until the recorder fails; -1: never
  LinkEvent failure = LinkEvent::kLost;
  std::size_t waitAfter = 0;  ///< a wait follows when more frames than this were sent; 0: none
  std::size_t room = SIZE_MAX;
  std::optional<SnifferRequest> command;  ///< the next one

 private:
  void checkNumber(const Bytes& frame, const Bytes& ends, bool isSip) {
    if (frame.size() < 3 + ends.size() + kNumber) return;
    const std::uint8_t* at = frame.data() + frame.size() - kNumber;
    const auto number = static_cast<std::uint32_t>(at[0] << 24 | at[1] << 16 | at[2] << 8 | at[3]);
    require(seen_.insert(number).second);
    if (isSip) return;  // signalling that waits for the next connection may be older
    std::uint32_t& last = last_[Bytes(ends.begin(), ends.begin() + static_cast<std::ptrdiff_t>(ends.size() / 2))];
    require(number > last);
    last = number;
  }

  std::size_t sinceWait_ = 0;
  Bytes announced_;  ///< the addresses of a capture time without its frame
  std::set<std::uint32_t> seen_;
  std::map<Bytes, std::uint32_t> last_;  ///< by destination
};

/// The dissector with its queue, on one thread.
class Road {
 public:
  explicit Road(std::uint8_t options) {
    Settings settings;
    settings.lookBack = 60'000;
    settings.lookBackMemory = 1;
    settings.captureTime = (options & 1) != 0;
    settings.decapsulate = (options & 2) != 0;
    settings.sipAnyUri = (options & 4) != 0;
    settings.ipv6 = isIpv6_ = (options & 8) != 0;
    dissector_.setSettings(settings);
    auto made = std::make_unique<CheckingConnection>();
    connection_ = made.get();
    dissector_.setConnections(std::move(made), nullptr);
  }

  void take(const Bytes& piece) {
    enum { kCapture, kAge, kAdd, kRemove, kFail, kUnreachable, kWait, kRoom };
    const std::uint8_t value = piece.size() > 1 ? piece[1] : 0;
    switch (piece[0] & 7) {
      case kCapture:
        capture(Bytes(piece.begin() + 1, piece.end()));
        break;
      case kAge:
        age_ = value * 1'000;
        break;
      case kAdd:
        command(1, value);
        break;
      case kRemove:
        command(2, value);
        break;
      case kFail:
      case kUnreachable:
        connection_->left = value;
        connection_->failure = (piece[0] & 7) == kFail ? LinkEvent::kLost : LinkEvent::kUnreachable;
        break;
      case kWait:
        connection_->waitAfter = value;
        break;
      case kRoom:
        connection_->room = value * std::size_t{64};
        break;
    }
    if ((piece[0] & 8) != 0) consume();
  }

  void consume() {
    while (dissector_.getQueueLength() > 0) dissector_.consumePacket();
  }

 private:
  /// Adds (1) or removes (2) a destination; with IPv6, every second value one of either family.
  void command(u_short code, std::uint8_t value) {
    const auto port = static_cast<u_short>(5000 + value % 4);
    const Bytes address = Frame{.ipv6 = true}.address(0x0A000002);
    connection_->command = SnifferRequest(code, 0x0A000002, port);
    if (isIpv6_ && (value & 4) != 0) {
      connection_->command = SnifferRequest(static_cast<u_short>(code + 3), IpAddress::read(address.data()), port);
    }
    dissector_.checkCommand();
  }

  /// With IPv6, the payloads for every second port are carried over IPv6 instead.
  void capture(Bytes frame) {
    append(frame, ++number_, kNumber);
    if (isIpv6_ && frame.size() > 42 && frame[12] == 0x08 && frame[23] == 17 && (frame[37] & 1) != 0) {
      frame = Frame{.dstPort = static_cast<std::uint16_t>(frame[36] << 8 | frame[37]),
                    .payload = Bytes(frame.begin() + 42, frame.end()),
                    .ipv6 = true}
                  .build();
    }
    timeval now{};
    gettimeofday(&now, nullptr);
    const std::int64_t time = now.tv_sec * std::int64_t{1'000'000} + now.tv_usec - age_;
    pcap_pkthdr header = captureHeader(frame);
    header.ts = {time / 1'000'000, time % 1'000'000};
    SniffedPacket packet{nullptr, &header, frame.data()};
    dissector_.producePacket(packet);
  }

  SngDissector dissector_;
  CheckingConnection* connection_ = nullptr;
  std::uint32_t number_ = 0;
  bool isIpv6_ = false;
  std::int64_t age_ = 0;  ///< of the next frames, in microseconds
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  log4cxx::Logger::getRootLogger()->setLevel(log4cxx::Level::getOff());
  if (size == 0) return 0;
  Road road(data[0]);
  for (Split pieces(data + 1, size - 1); pieces.more();) {
    if (const Bytes piece = pieces.next(); !piece.empty()) road.take(piece);
  }
  road.consume();
  return 0;
}
