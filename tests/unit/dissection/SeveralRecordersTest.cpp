// Several recorders: each gets what it would get alone, whatever the others do.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/Mutex.h"
#include "capture/Sniffer.h"
#include "statistics/PrometheusText.h"
#include "support/Frames.h"
#include "support/Loopback.h"
#include "support/TestLog.h"

using namespace voip;

namespace {

constexpr u_int kAlice = 0x0A000001, kBob = 0x0A000002;
constexpr std::uint16_t kFrames = 600;

Bytes sipFrame(const std::string& id) {
  return Frame{.payload = bytes("OPTIONS sip:" + id + " SIP/2.0\r\n\r\n")}.build();
}

Bytes rtpFrame(u_int destination, std::uint16_t number) {
  Bytes payload = {0x80, 8};
  append(payload, number, 2);
  payload.resize(1000);
  return Frame{.dstIp = destination, .payload = payload}.build();
}

/// A recorder on the loopback device: `serve` handles each of its connections on a separate thread.
class TestRecorder {
 public:
  using Serve = std::function<void(const Loopback& stream)>;

  explicit TestRecorder(Serve serve) {
    listener_.limitSegments();
    thread_ = std::thread([this, serve = std::move(serve)] {
      while (true) {
        const Loopback stream = listener_.accept();
        if (stream.sd == -1) return;
        serve(stream);
      }
    });
  }
  ~TestRecorder() {
    shutdown(listener_.sd, SHUT_RDWR);
    thread_.join();
  }
  std::uint16_t port() const { return listener_.port(); }
  std::string address() const { return "127.0.0.1:" + std::to_string(port()); }

 private:
  Loopback listener_{SOCK_STREAM, 0};
  std::thread thread_;
};

/// The recorder that the test observes: keeps each frame.
class Observer {
 public:
  void serve(const Loopback& stream) {
    {
      const MutexLock held(mutex_);
      stream_ = &stream;
    }
    for (Bytes frame = stream.readFrame(); !frame.empty(); frame = stream.readFrame()) {
      const MutexLock held(mutex_);
      frames_.push_back(frame);
    }
    const MutexLock held(mutex_);
    stream_ = nullptr;
  }
  void send(const Bytes& data) {
    const MutexLock held(mutex_);
    ASSERT_NE(stream_, nullptr);
    stream_->write(data);
  }
  std::vector<Bytes> frames() {
    const MutexLock held(mutex_);
    return frames_;
  }
  long count(FrameProtocol protocol) {
    const std::vector<Bytes> all = frames();
    return std::count_if(all.begin(), all.end(),
                         [&](const Bytes& frame) { return FrameHeader::protocolOf(frame.data()) == protocol; });
  }
  /// Sends commands and returns when they have been carried out.
  void command(const Bytes& commands) {
    const long before = count(FrameProtocol::Heartbeat);
    Bytes all = commands;
    append(all, ::command(3));
    send(all);
    EXPECT_TRUE(eventually([&] { return count(FrameProtocol::Heartbeat) > before; }));
  }
  /// Returns what has arrived since the first reply to a heartbeat, without replies.
  std::vector<Bytes> sinceFirstReply() {
    std::vector<Bytes> all = frames();
    const auto isReply = [](const Bytes& frame) { return frame[2] == 3; };
    all.erase(all.begin(), std::find_if(all.begin(), all.end(), isReply));
    std::erase_if(all, isReply);
    return all;
  }

 private:
  Mutex mutex_;
  const Loopback* stream_ GUARDED_BY(mutex_) = nullptr;
  std::vector<Bytes> frames_ GUARDED_BY(mutex_);
};

/// Bad company: each of them asks for the same media in its own way, or for none.
struct Others {
  Others() {
    const auto asks = [](const Loopback& stream) {
      Bytes adds = ::command(1, kBob, 5000);
      append(adds, ::command(1, kAlice, 5000));
      stream.write(adds);
    };
    add([this, asks](const Loopback& stream) {  // asks and never reads
      asks(stream);
      waitForEnd();
    });
    add([this, asks](const Loopback& stream) {  // half a command after a removal
      asks(stream);
      Bytes removal = ::command(2, kBob, 5000);
      append(removal, Bytes{1, 10, 0});
      stream.write(removal);
      waitForEnd();
    });
    add([this](const Loopback& stream) {  // floods
      Bytes flood;
      for (u_int i = 0; i < 200; ++i) {
        append(flood, ::command(1 + static_cast<int>(i % 3), kBob, 5000));
        append(flood, ::command(1, i % 5 == 0 ? kAlice : i, 5000));
      }
      while (!ended && ::send(stream.sd, flood.data(), flood.size(), MSG_NOSIGNAL | MSG_DONTWAIT) != 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    });
    add([](const Loopback&) {});          // closes at once
    add([this](const Loopback& stream) {  // reads, and asks for nothing
      while (!stream.readFrame().empty()) ++read;
    });
  }
  ~Others() { ended = true; }

  void add(TestRecorder::Serve serve) { all.push_back(std::make_unique<TestRecorder>(std::move(serve))); }
  void waitForEnd() const {
    while (!ended) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

  std::atomic<bool> ended = false;
  std::atomic<int> read = 0;
  std::vector<std::unique_ptr<TestRecorder>> all;
};

enum class Place { kAlone, kFirst, kLast };

/// The engine with an observed recorder, and others unless it is alone.
class Site {
 public:
  Site(Place place, bool lookBack) {
    Settings settings;
    settings.sendTimeout = 60'000;
    settings.lookBack = lookBack ? 60'000 : 0;
    std::string first = observed.address();
    if (place != Place::kAlone) {
      others = std::make_unique<Others>();
      std::vector<std::string> addresses;
      for (const auto& other : others->all) addresses.push_back(other->address());
      addresses.insert(place == Place::kFirst ? addresses.begin() : addresses.end(), observed.address());
      first = addresses.front();
      for (std::size_t i = 1; i < addresses.size(); ++i) settings.moreRecorders += addresses[i] + ";";
    }
    dissector->setSettings(settings);
    dissector->setSniffer(&engine);
    dissector->setServerNameMedia("127.0.0.1");
    dissector->setServerPortMedia(std::stoi(first.substr(first.find(':') + 1)));
    dissector->makeConnection(false);
    dissector->startCmdReaderThread();
    consumer = std::thread([this] { engine.startSniffing(); });
    EXPECT_TRUE(eventually([] { return !Sniffer::getEndMain(); }));
  }
  ~Site() { stop(); }
  void stop() {
    if (others) others->ended = true;
    engine.stopSniffing();
    if (consumer.joinable()) consumer.join();
  }

  /// Captures SIP until a message arrives, and then returns after the last one has arrived.
  void connect() {
    int number = 0;
    EXPECT_TRUE(eventually([&] {
      produce(*dissector, sipFrame(std::to_string(++number)));
      return observer.count(FrameProtocol::Sip) > 0;
    }));
    quiesce("connected");
  }
  /// Returns when all earlier frames have arrived.
  void quiesce(const std::string& id) {
    const Bytes last = bytes("OPTIONS sip:" + id + " ");
    produce(*dissector, sipFrame(id));
    EXPECT_TRUE(eventually([&] {
      const std::vector<Bytes> all = observer.frames();
      if (all.empty()) return false;
      return std::search(all.back().begin(), all.back().end(), last.begin(), last.end()) != all.back().end();
    })) << id;
  }
  /// Asks for a destination. Returns when its kept media has been sent, after which new media is not kept any more.
  void ask(u_int destination, long kept) {
    const long before = observer.count(FrameProtocol::Rtp);
    observer.command(::command(1, destination, 5000));
    EXPECT_TRUE(eventually([&] { return observer.count(FrameProtocol::Rtp) == before + kept; }));
    for (const char* step : {"step 1", "step 2", "step 3"}) quiesce(step);
  }

  Observer observer;
  std::unique_ptr<Others> others;
  TestRecorder observed{[this](const Loopback& stream) { observer.serve(stream); }};
  Sniffer engine;
  SngDissector* dissector = SngDissector::dft();
  std::thread consumer;
};

std::vector<Bytes> streamOf(Site& site, bool lookBack) {
  site.connect();
  site.ask(kBob, 0);
  for (std::uint16_t number = 0; number < kFrames; ++number) {
    if (number % 50 == 0) produce(*site.dissector, sipFrame(std::to_string(number)));
    produce(*site.dissector, rtpFrame(kBob, number));
    produce(*site.dissector, rtpFrame(kAlice, number));
  }
  site.quiesce("half");
  site.ask(kAlice, lookBack ? kFrames : 0);
  site.observer.command(::command(2, kBob, 5000));
  for (std::uint16_t number = 0; number < 20; ++number) {
    produce(*site.dissector, rtpFrame(kBob, number));
    produce(*site.dissector, rtpFrame(kAlice, number));
  }
  site.quiesce("end");
  return site.observer.sinceFirstReply();
}

TEST(SeveralRecorders, GiveEachWhatItGetsAlone) {
  TestLog log;
  log.setLevel(log4cxx::Level::getInfo());
  for (const bool lookBack : {false, true}) {
    std::vector<Bytes> alone;
    for (const Place place : {Place::kAlone, Place::kFirst, Place::kLast}) {
      SCOPED_TRACE(testing::Message() << "look-back " << lookBack << ", place " << static_cast<int>(place));
      log.take();
      Site site(place, lookBack);
      const std::vector<Bytes> stream = streamOf(site, lookBack);
      if (place == Place::kAlone) alone = stream;
      EXPECT_TRUE(stream == alone) << stream.size() << " frames instead of " << alone.size();
      const std::string connected = "Connected to recorder " + site.observed.address();
      const std::string prefix = place == Place::kLast ? "Recorder " + site.observed.address() + ": " : "";
      EXPECT_EQ(log.count("INFO " + prefix + connected), 1);
      if (place == Place::kAlone) continue;
      EXPECT_TRUE(eventually([&] { return site.others->read >= kFrames / 50; })) << "the one that asks for nothing";
      site.stop();
      const auto figures = site.dissector->getRecorderStatistics();
      ASSERT_EQ(figures.size(), 5U);
      const RecorderStatistics& last = figures.back();
      EXPECT_EQ(last.figures.rtpForwarded, place == Place::kLast ? (lookBack ? 2 * kFrames : kFrames) + 20U : 0U);
      EXPECT_EQ(
          site.dissector->reportRecorders().back().find("Statistics of recorder " + last.name + ": sipForwarded="), 0U);
      const std::string sample = "sniffer_forwarded_frames_total{protocol=\"rtp\",recorder=\"" + last.name + "\"} " +
                                 std::to_string(last.figures.rtpForwarded) + "\n";
      EXPECT_NE(prometheusText({}, {}, figures).find(sample), std::string::npos);
    }
  }
}

}  // namespace
