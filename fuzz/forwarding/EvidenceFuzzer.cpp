// Passes frames and commands through the dissector to a failing recorder, or through the lanes of two such recorders,
// with the settings that prevent losses. Input: pieces, as Split cuts them; the first octet of each selects the
// operation. Each captured frame contains a number. A recorder must receive no frame twice, unless frames are sent
// again on a new connection, the frames of a destination in order, and each capture time directly before its frame.

#include <log4cxx/logger.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "forwarding/FanOut.h"
#include "support/Frames.h"
#include "support/Require.h"
#include "support/Split.h"

using namespace voip;

namespace {

constexpr std::size_t kNumber = 4;  // octets at the end of each frame

/// A recorder that checks the frames it receives, and fails as the input selects.
class CheckingConnection final : public BaseConnection {
 public:
  explicit CheckingConnection(const Settings& settings) : sendsAgain_(settings.resendLast > 0) {}

  bool receiveRequest(SnifferRequest& request) override {
    if (!command) return false;
    request = *std::exchange(command, std::nullopt);
    return true;
  }
  void closeConnection() override {}
  bool reportsEachLoss() const override { return sendsAgain_; }
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
        if (sendsAgain_) seen_.clear();
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

  const bool sendsAgain_;
  std::size_t sinceWait_ = 0;
  Bytes announced_;  ///< the addresses of a capture time without its frame
  std::set<std::uint32_t> seen_;
  std::map<Bytes, std::uint32_t> last_;  ///< by destination
};

Settings settingsOf(std::uint8_t options) {
  Settings settings;
  settings.lookBack = 60'000;
  settings.lookBackMemory = 1;
  settings.captureTime = (options & 1) != 0;
  settings.decapsulate = (options & 2) != 0;
  settings.sipAnyUri = (options & 4) != 0;
  settings.ipv6 = (options & 16) != 0;
  settings.resendLast = (options & 32) != 0 ? 60'000 : 0;
  return settings;
}

/// What the frames pass through, on one thread.
class Road {
 public:
  virtual ~Road() = default;

  void take(const Bytes& piece) {
    enum { kCapture, kAge, kAdd, kRemove, kFail, kUnreachable, kWait, kRoom };
    const std::uint8_t value = piece.size() > 1 ? piece[1] : 0;
    const unsigned recorder = piece[0] >> 4 & 1;
    switch (piece[0] & 7) {
      case kCapture:
        capture(Bytes(piece.begin() + 1, piece.end()));
        break;
      case kAge:
        age_ = value * 1'000;
        break;
      case kAdd:
        command(true, value, recorder);
        break;
      case kRemove:
        command(false, value, recorder);
        break;
      case kFail:
      case kUnreachable:
        connection(recorder).left = value;
        connection(recorder).failure = (piece[0] & 7) == kFail ? LinkEvent::kLost : LinkEvent::kUnreachable;
        break;
      case kWait:
        connection(recorder).waitAfter = value;
        break;
      case kRoom:
        connection(recorder).room = value * std::size_t{64};
        break;
    }
    if ((piece[0] & 8) != 0) consume();
  }

  virtual void consume() = 0;

 protected:
  virtual void capture(Bytes frame) = 0;
  virtual void command(bool isAdd, std::uint8_t value, unsigned recorder) = 0;
  virtual CheckingConnection& connection(unsigned recorder) = 0;

  void appendNumber(Bytes& frame) { append(frame, ++number_, kNumber); }

  /// Returns the capture time of the next frame, in microseconds.
  std::int64_t time() const {
    timeval now{};
    gettimeofday(&now, nullptr);
    return now.tv_sec * std::int64_t{1'000'000} + now.tv_usec - age_;
  }

 private:
  std::uint32_t number_ = 0;
  std::int64_t age_ = 0;  ///< of the next frames, in microseconds
};

/// The dissector with its queue and one recorder.
class WholeRoad final : public Road {
 public:
  explicit WholeRoad(const Settings& settings) : isIpv6_(settings.ipv6) {
    dissector_.setSettings(settings);
    auto made = std::make_unique<CheckingConnection>(settings);
    connection_ = made.get();
    dissector_.setConnections(std::move(made), nullptr);
  }

  void consume() override {
    while (dissector_.getQueueLength() > 0) dissector_.consumePacket();
  }

 private:
  /// With IPv6, every fourth to seventh value is a destination of that family.
  void command(bool isAdd, std::uint8_t value, unsigned) override {
    const auto port = static_cast<u_short>(5000 + value % 4);
    connection_->command = SnifferRequest(isAdd ? 1 : 2, 0x0A000002, port);
    if (isIpv6_ && (value & 4) != 0) {
      const Bytes address = Frame{.ipv6 = true}.address(0x0A000002);
      connection_->command = SnifferRequest(isAdd ? 4 : 5, IpAddress::read(address.data()), port);
    }
    dissector_.checkCommand();
  }

  /// With IPv6, the payloads for every second port are carried over IPv6 instead.
  void capture(Bytes frame) override {
    appendNumber(frame);
    if (isIpv6_ && frame.size() > 42 && frame[12] == 0x08 && frame[23] == 17 && (frame[37] & 1) != 0) {
      frame = Frame{.dstPort = static_cast<std::uint16_t>(frame[36] << 8 | frame[37]),
                    .payload = Bytes(frame.begin() + 42, frame.end()),
                    .ipv6 = true}
                  .build();
    }
    pcap_pkthdr header = captureHeader(frame);
    const std::int64_t captured = time();
    header.ts = {captured / 1'000'000, captured % 1'000'000};
    SniffedPacket packet{nullptr, &header, frame.data()};
    dissector_.producePacket(packet);
  }
  CheckingConnection& connection(unsigned) override { return *connection_; }

  SngDissector dissector_;
  CheckingConnection* connection_ = nullptr;
  const bool isIpv6_;
};

/// The lanes of two recorders with their queues, after the classification. The first octet of a frame selects SIP or
/// RTP and the destination.
class TwoLanes final : public Road {
 public:
  explicit TwoLanes(const Settings& settings) {
    all_.setRecorders(2);
    for (One& one : recorders_) {
      one.lane.configure(settings, one.queued.queue);
      auto made = std::make_unique<CheckingConnection>(settings);
      one.connection = made.get();
      one.lane.links().take(std::move(made), nullptr);
    }
  }

  void consume() override {
    for (One& one : recorders_) {
      do {
        one.queued.work(false, false, never_);
      } while (one.queued.queue.size() > 0);
    }
  }

 private:
  struct One {
    One(RtpDestinations& all, unsigned number)
        : lane(all, number, statistics), queued(lane, 1U << number, "a recorder", 1 << 20, statistics) {}

    Statistics statistics;
    RecorderLane lane;
    QueuedLane queued;
    CheckingConnection* connection = nullptr;
  };

  void capture(Bytes frame) override {
    const std::uint8_t kind = frame.empty() ? 0 : frame[0];
    frame.insert(frame.begin(), FrameHeader::kLength, 0);
    appendNumber(frame);
    const auto protocol = (kind & 1) != 0 ? FrameProtocol::Sip : FrameProtocol::Rtp;
    const auto port = static_cast<u_short>(5000 + (kind >> 1) % 4);
    FrameHeader{static_cast<u_short>(frame.size()), protocol, 0x0A000002, port, 1, 4000}.write(frame.data());
    for (One& one : recorders_) one.queued.queue.push({{time(), time()}, frame});
  }
  void command(bool isAdd, std::uint8_t value, unsigned recorder) override {
    const auto port = static_cast<u_short>(5000 + value % 4);
    recorders_[recorder].connection->command = SnifferRequest(isAdd ? 1 : 2, 0x0A000002, port);
    recorders_[recorder].lane.checkCommands();
  }
  CheckingConnection& connection(unsigned recorder) override { return *recorders_[recorder].connection; }

  RtpDestinations all_;
  std::array<One, 2> recorders_{One{all_, 0}, One{all_, 1}};
  const std::atomic<bool> never_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  log4cxx::Logger::getRootLogger()->setLevel(log4cxx::Level::getOff());
  if (size == 0) return 0;
  std::unique_ptr<Road> road;
  if ((data[0] & 8) != 0) {
    road = std::make_unique<TwoLanes>(settingsOf(data[0]));
  } else {
    road = std::make_unique<WholeRoad>(settingsOf(data[0]));
  }
  for (Split pieces(data + 1, size - 1); pieces.more();) {
    if (const Bytes piece = pieces.next(); !piece.empty()) road->take(piece);
  }
  road->consume();
  return 0;
}
