#include <gtest/gtest.h>
#include <pcap/pcap.h>
#include <signal.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>

#include "../TestLog.h"
#include "../sniffer/Frames.h"
#include "EmbeddedConnection.h"
#include "FakeVm.h"
#include "Sniffer.h"
#include "com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel.h"

extern JNIEnv* mainLoop_JNIEnv;
extern jobject mainLoop_jobject;
extern Sniffer* sniffer;

/// A process that ends while sniffing joins nobody: its threads are no leak.
extern "C" const char* __tsan_default_options() {
  return "report_thread_leaks=0";
}

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

void mainLoop(FakeChannel& channel) {
  Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_mainLoop(FakeVm::here(), channel.object());
}

void breakMainLoop(FakeChannel& channel) {
  Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_breakMainLoop(FakeVm::here(), channel.object());
}

jbyteArray object(FakeArray* array) {
  return reinterpret_cast<jbyteArray>(array);
}

int getPacket(FakeChannel& channel, FakeArray* buffer) {
  const std::lock_guard synchronized(channel.monitor);
  return Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_getPacket(FakeVm::here(), channel.object(),
                                                                               object(buffer));
}

int sendRequest(FakeChannel& channel, FakeArray* buffer) {
  const std::lock_guard synchronized(channel.monitor);
  return Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_sendRequest(FakeVm::here(), channel.object(),
                                                                                 object(buffer));
}

template <typename Condition>
bool eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + seconds(60);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(milliseconds(1));
  }
  return true;
}

/// A SIP message that tells its place in the file.
Frame sip(int number) {
  return {.payload = bytes("INVITE sip:" + std::to_string(number) + "@example.org SIP/2.0\r\n")};
}

class NativeMethods : public testing::Test {
 protected:
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    char name[] = "/tmp/jni_test.XXXXXX";
    directory = mkdtemp(name);
    setenv("SNIFFER_REPLAY_PACE", "full", 1);
    EmbeddedConnection::dft()->closeConnection();
  }
  void TearDown() override {
    EXPECT_EQ(FakeVm::heldStrings, 0) << "characters of a string that were not given back";
    EXPECT_FALSE(FakeVm::here()->pendingException);
    expectIdle();
    std::filesystem::remove_all(directory);
  }

  static void expectIdle() {
    EXPECT_EQ(mainLoop_JNIEnv, nullptr);
    EXPECT_EQ(mainLoop_jobject, nullptr);
    EXPECT_EQ(sniffer, nullptr);
  }

  /// Writes a capture file and answers the name of the device that replays it. The frames are an hour apart.
  std::string replay(const std::vector<Bytes>& frames) {
    const std::string path = directory + "/" + std::to_string(++files) + ".pcap";
    pcap_t* format = pcap_open_dead(DLT_EN10MB, 65535);
    pcap_dumper_t* file = pcap_dump_open(format, path.c_str());
    pcap_pkthdr header{};
    for (const Bytes& frame : frames) {
      header.caplen = header.len = static_cast<bpf_u_int32>(frame.size());
      pcap_dump(reinterpret_cast<u_char*>(file), &header, frame.data());
      header.ts.tv_sec += 3600;
    }
    pcap_dump_close(file);
    pcap_close(format);
    return "file:" + path;
  }

  std::string replaySip(int count) {
    std::vector<Bytes> frames;
    for (int i = 0; i < count; ++i) frames.push_back(sip(i).build());
    return replay(frames);
  }

  /// A file whose second frame comes an hour after the first.
  std::string idleDevice() {
    unsetenv("SNIFFER_REPLAY_PACE");
    return replaySip(2);
  }

  void start() {
    loop = std::async(std::launch::async, [this] {
      mainLoop(channel);
      return FakeVm::here()->pendingException;
    });
  }

  bool hasReturned() { return loop.wait_for(seconds(0)) == std::future_status::ready; }

  void stop() {
    breakMainLoop(channel);
    EXPECT_EQ(loop.wait_for(seconds(60)), std::future_status::ready) << "mainLoop does not return";
    EXPECT_FALSE(loop.get()) << "an exception is pending";
    expectIdle();
  }

  std::vector<Bytes> take(std::size_t count) {
    std::vector<Bytes> frames;
    FakeArray buffer(65535);
    eventually([&] {
      while (const int length = getPacket(channel, &buffer))
        frames.emplace_back(buffer.begin(), buffer.begin() + length);
      return frames.size() >= count;
    });
    return frames;
  }

  TestLog log;
  FakeChannel channel;
  std::future<bool> loop;
  std::string directory;
  int files = 0;
};

TEST_F(NativeMethods, RequestIsTakenFromTheFirstSevenBytes) {
  FakeArray command{1, -64, -88, 1, 10, 0x1F, 0x40};  // 192.168.1.10:8000
  EXPECT_EQ(sendRequest(channel, &command), 7);
  command.insert(command.end(), {9, 9, 9});
  command[0] = -1;
  EXPECT_EQ(sendRequest(channel, &command), 10);
  command.resize(6);
  EXPECT_EQ(sendRequest(channel, &command), 0);
  command.clear();
  EXPECT_EQ(sendRequest(channel, &command), 0);
  EXPECT_EQ(sendRequest(channel, nullptr), 0);

  SnifferRequest request;
  ASSERT_TRUE(EmbeddedConnection::dft()->receiveRequest(request));
  EXPECT_EQ(request, SnifferRequest(1, 0xC0A8010A, 8000));
  ASSERT_TRUE(EmbeddedConnection::dft()->receiveRequest(request));
  EXPECT_EQ(request, SnifferRequest(255, 0xC0A8010A, 8000));
  EXPECT_FALSE(EmbeddedConnection::dft()->receiveRequest(request));
}

TEST_F(NativeMethods, FrameWaitsForAnArrayThatHoldsIt) {
  FakeArray large(70000, 0x11);
  EXPECT_EQ(getPacket(channel, &large), 0);
  EXPECT_EQ(std::count(large.begin(), large.end(), 0x11), 70000);

  Bytes longest(65535, 0x22);
  Bytes next(15, 0x33);
  EmbeddedConnection::dft()->sendPacket(longest.data(), 65535);
  EmbeddedConnection::dft()->sendPacket(next.data(), 15);
  FakeArray tooShort(65534, 0x11);
  FakeArray empty;
  EXPECT_EQ(getPacket(channel, &tooShort), 0);
  EXPECT_EQ(getPacket(channel, &empty), 0);
  EXPECT_EQ(getPacket(channel, nullptr), 0);
  EXPECT_EQ(std::count(tooShort.begin(), tooShort.end(), 0x11), 65534);

  EXPECT_EQ(getPacket(channel, &large), 65535);
  EXPECT_EQ(std::count(large.begin(), large.end(), 0x22), 65535);
  EXPECT_EQ(large[65535], 0x11);
  FakeArray exact(15);
  EXPECT_EQ(getPacket(channel, &exact), 15);
  EXPECT_EQ(exact, FakeArray(15, 0x33));
  EXPECT_EQ(getPacket(channel, &exact), 0);
}

TEST_F(NativeMethods, CallFromAFileReachesTheHost) {
  const Frame invite = sip(1);
  const Frame wanted{.dstPort = 7000};
  const Frame unwanted{.dstPort = 7002};
  channel.nicDevice = replay({invite.build(), wanted.build(), unwanted.build(), wanted.build()});
  FakeArray add{1, 10, 0, 0, 2, 0x1B, 0x58};
  FakeArray heartbeat{3, 0, 0, 0, 0, 0, 0};
  sendRequest(channel, &add);
  sendRequest(channel, &heartbeat);
  start();
  Bytes alive(15);
  alive[1] = 15;
  alive[2] = 3;
  const Bytes rtp = forwarded(2, wanted, wanted.payload);
  EXPECT_EQ(take(4), (std::vector<Bytes>{forwarded(1, invite, invite.payload), alive, rtp, rtp}));
  stop();
}

TEST_F(NativeMethods, BurstComesWholeAndInOrder) {
  constexpr int kFrames = 20000;
  channel.nicDevice = replaySip(kFrames);
  start();
  const std::vector<Bytes> frames = take(kFrames);
  ASSERT_EQ(frames.size(), kFrames);
  for (int i = 0; i < kFrames; ++i) ASSERT_EQ(frames[i], forwarded(1, sip(i), sip(i).payload)) << i;
  stop();
  EXPECT_TRUE(log.contains("INFO Sniffing ended."));
}

TEST_F(NativeMethods, CountAndDevicesComeFromTheObject) {
  const std::string device = replaySip(100);
  channel.nicDevice = device + ";" + device + ";file:/does/not/exist";
  channel.packetCount = 10;
  start();
  EXPECT_EQ(take(20).size(), 20u);
  EXPECT_FALSE(hasReturned());
  EXPECT_TRUE(log.contains("INFO PCAP thread created 1"));
  EXPECT_FALSE(log.contains("INFO PCAP thread created 2"));
  stop();
  EXPECT_EQ(take(0).size(), 0u);
}

TEST_F(NativeMethods, ObjectThatCannotBeReadEndsTheCall) {
  channel.nicDevice = replaySip(1);
  for (const char* field : {"nicDevice", "packetFilter", "packetCount", "traceSignalling"}) {
    channel.missingFields = {field};
    mainLoop(channel);
    EXPECT_TRUE(std::exchange(FakeVm::here()->pendingException, false)) << field;
    expectIdle();
  }
  channel.missingFields.clear();
  for (std::optional<std::string>* text : {&channel.nicDevice, &channel.packetFilter}) {
    const auto value = std::exchange(*text, std::nullopt);
    mainLoop(channel);
    EXPECT_FALSE(FakeVm::here()->pendingException);
    expectIdle();
    *text = value;
  }
  channel.outOfMemory = true;
  mainLoop(channel);
  EXPECT_TRUE(std::exchange(FakeVm::here()->pendingException, false));
  channel.outOfMemory = false;

  // Not asked of older host classes, and a host may give them no value.
  for (const auto& missing : {std::set<std::string>{"immediateCapture", "settings"}, {}}) {
    channel.missingFields = missing;
    start();
    EXPECT_EQ(take(1).size(), 1u);
    EXPECT_EQ(sniffer->getSettings().immediateCapture, missing.empty());
    stop();
  }
}

TEST_F(NativeMethods, SettingsComeFromTheObject) {
  channel.nicDevice = idleDevice();
  channel.immediateCapture = false;
  channel.settings = "LookBack=2000\r\nDevice=eth0\nDropDuplicates=Yes\nReassembleTcp=yes";
  start();
  EXPECT_EQ(take(1).size(), 1u);
  const Settings& settings = sniffer->getSettings();
  EXPECT_EQ(settings.lookBack, 2000);
  EXPECT_TRUE(settings.reassembleTcp && !settings.dropDuplicates && !settings.immediateCapture);
  EXPECT_TRUE(log.contains("WARN Line 2 of the settings: Device is not for the host's settings, ignored"));
  EXPECT_TRUE(log.contains("WARN Line 3 of the settings: DropDuplicates=Yes, neither yes nor no, no is assumed"));
  stop();
}

TEST_F(NativeMethods, SetUpFailureLeavesNothingBehind) {
  const std::string device = replaySip(3);
  for (int round = 0; round < 3; ++round) {
    channel.nicDevice = device;
    channel.packetFilter = "no such filter";
    testing::internal::CaptureStderr();
    mainLoop(channel);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Errors in setup, terminating...\n");
    expectIdle();
    breakMainLoop(channel);
    channel.packetFilter = "udp";
    start();
    EXPECT_EQ(take(3).size(), 3u);
    stop();
  }
}

TEST_F(NativeMethods, SecondMainLoopReturnsAtOnce) {
  channel.nicDevice = idleDevice();
  start();
  EXPECT_EQ(take(1).size(), 1u);
  const Sniffer* engine = sniffer;
  FakeChannel other;
  other.nicDevice = channel.nicDevice;
  mainLoop(other);
  EXPECT_TRUE(log.contains("ERROR mainLoop is running already, a second call of it does nothing"));
  EXPECT_EQ(mainLoop_jobject, channel.object());
  EXPECT_EQ(sniffer, engine);
  EXPECT_FALSE(hasReturned());
  stop();
}

TEST_F(NativeMethods, StopIsSafeAtAnyTime) {
  breakMainLoop(channel);  // before

  // While the object is being read: there is no engine yet.
  channel.nicDevice = replaySip(10);
  channel.whileRead = [&] { std::thread([&] { breakMainLoop(channel); }).join(); };
  mainLoop(channel);
  EXPECT_FALSE(log.contains("INFO PCAP thread created 0"));
  expectIdle();
  channel.whileRead = [] {};

  // While the engine is being set up: a pipe keeps it waiting for the header of the file.
  const std::string pipe = directory + "/pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const std::string file = channel.nicDevice->substr(5);
  channel.nicDevice = "file:" + pipe;
  log.take();
  start();
  ASSERT_TRUE(eventually([&] {
    const auto events = log.take();
    return std::any_of(events.begin(), events.end(), [](auto& event) { return event.starts_with("INFO device[0]="); });
  }));
  breakMainLoop(channel);
  std::ofstream(pipe) << std::ifstream(file).rdbuf();
  EXPECT_EQ(loop.wait_for(seconds(60)), std::future_status::ready);
  EXPECT_FALSE(log.contains("INFO PCAP thread created 0"));
  expectIdle();
  breakMainLoop(channel);  // after

  // While it is idle, by several threads at once; each returns when capture has stopped.
  channel.nicDevice = idleDevice();
  for (int round = 0; round < 10; ++round) {
    start();
    EXPECT_EQ(take(1).size(), 1u);
    log.take();
    std::vector<std::thread> stoppers;
    for (int i = 0; i < 4; ++i) {
      stoppers.emplace_back([&] {
        breakMainLoop(channel);
        EXPECT_TRUE(log.contains("INFO Completed join with PCAP thread 0 status=0"));
      });
    }
    for (std::thread& stopper : stoppers) stopper.join();
    stop();
  }
}

TEST_F(NativeMethods, StopUnderLoadHoldingTheMonitor) {
  channel.nicDevice = replaySip(50000);
  for (int round = 0; round < 5; ++round) {
    start();
    EXPECT_GE(take(100).size(), 100u);
    {
      const std::lock_guard synchronized(channel.monitor);
      breakMainLoop(channel);
    }
    stop();
    EXPECT_EQ(take(0).size(), 0u) << "frames of a run that has ended";
  }
}

TEST_F(NativeMethods, AllAtOnce) {
  channel.nicDevice = replaySip(500);
  std::atomic<bool> ended = false;
  const auto until = [&](auto action) {
    return std::thread([&, action] {
      while (!ended) action();
    });
  };
  std::vector<std::thread> others;
  for (int i = 0; i < 2; ++i) {
    others.push_back(until([&] { breakMainLoop(channel); }));
    others.push_back(until([&] {
      FakeArray buffer(2048);
      getPacket(channel, &buffer);
      Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_getPacket(  // a host that forgets the monitor
          FakeVm::here(), channel.object(), object(&buffer));
      FakeArray command{1, 10, 0, 0, 2, 0x1B, 0x58};
      sendRequest(channel, &command);
      std::this_thread::sleep_for(milliseconds(1));
    }));
  }
  std::vector<std::thread> loops;
  for (int i = 0; i < 3; ++i) {
    loops.emplace_back([&] {
      for (int round = 0; round < 60; ++round) mainLoop(channel);
    });
  }
  for (std::thread& thread : loops) thread.join();
  ended = true;
  for (std::thread& thread : others) thread.join();
}

TEST_F(NativeMethods, FramesComeEvenWhenTheMonitorCannotBeEntered) {
  channel.nicDevice = replaySip(10);
  channel.monitorFails = true;
  start();
  EXPECT_EQ(take(10).size(), 10u);
  stop();
}

TEST_F(NativeMethods, SignalInterruptsSystemCalls) {
  channel.nicDevice = replaySip(1);
  signal(SIGUSR1, SIG_DFL);
  start();
  take(1);
  struct sigaction action {};
  sigaction(SIGUSR1, nullptr, &action);
  EXPECT_EQ(action.sa_handler, signalHandler);
  EXPECT_EQ(action.sa_flags & SA_RESTART, 0);
  EXPECT_EQ(raise(SIGUSR1), 0);
  stop();
}

TEST_F(NativeMethods, ProcessMayEndWhileSniffing) {
  channel.nicDevice = replaySip(200000);
  const auto endUnderLoad = [this](bool machineHasEnded) {
    start();
    take(100);
    channel.monitorKeeps = machineHasEnded;
    if (machineHasEnded) eventually([this] { return channel.kept.load(); });
    std::exit(7);
  };
  EXPECT_EXIT(endUnderLoad(false), testing::ExitedWithCode(7), "");
  EXPECT_EXIT(endUnderLoad(true), testing::ExitedWithCode(7), "");
}

}  // namespace
