#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>

#include "../TestLog.h"
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

const std::string kCall = TEST_FILES "/../../samples/sip-g711a-call.pcap";  // begins with SIP

void mainLoop(FakeChannel& channel) {
  Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_mainLoop(FakeVm::here(), channel.object());
}

void breakMainLoop(FakeChannel& channel) {
  Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_breakMainLoop(FakeVm::here(), channel.object());
}

int getPacket(FakeChannel& channel, FakeArray& buffer) {
  return Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_getPacket(FakeVm::here(), channel.object(),
                                                                               reinterpret_cast<jbyteArray>(&buffer));
}

void eventually(const std::function<bool()>& condition) {
  while (!condition()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

class NativeMethods : public testing::Test {
 protected:
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    unsetenv("SNIFFER_REPLAY_PACE");
    channel.fields["nicDevice"] = FakeChannel::Text("file:" + kCall);
  }
  void TearDown() override {
    EXPECT_EQ(FakeVm::heldStrings, 0) << "characters of a string that were not given back";
    expectIdle();
  }

  static void expectIdle() {
    EXPECT_FALSE(std::exchange(FakeVm::here()->pendingException, false));
    EXPECT_TRUE(mainLoop_JNIEnv == nullptr && mainLoop_jobject == nullptr && sniffer == nullptr);
  }

  /// Runs until the first frame is there.
  void start() {
    loop = std::async(std::launch::async, [this] { mainLoop(channel); });
    FakeArray buffer(65535);
    eventually([&] {
      const std::lock_guard synchronized(channel.monitor);
      return getPacket(channel, buffer) > 0;
    });
  }

  void stop() {
    breakMainLoop(channel);
    loop.get();
    expectIdle();
  }

  TestLog log;
  FakeChannel channel;
  std::future<void> loop;
};

TEST_F(NativeMethods, FieldsComeFromTheObjectAndOlderHostsDoWithoutSome) {
  const auto all = channel.fields;
  for (const auto& [name, value] : all) {
    const bool isOptional = name == "settings" || name == "immediateCapture";
    for (const bool isMissing : {true, false}) {
      channel.fields = all;
      if (isMissing) {
        channel.fields.erase(name);
      } else if (std::holds_alternative<FakeChannel::Text>(value)) {
        channel.fields[name] = FakeChannel::Text();
      } else {
        continue;
      }
      if (isOptional) {
        start();
        stop();
      } else {
        mainLoop(channel);
        EXPECT_EQ(std::exchange(FakeVm::here()->pendingException, false), isMissing) << name;
        expectIdle();
      }
    }
  }
  channel.fields = all;
  channel.fields["settings"] = FakeChannel::Text("LookBack=2000\r\nDevice=eth0\nDropDuplicates=Yes\nReassembleTcp=yes");
  channel.fields["immediateCapture"] = false;
  start();
  Settings expected;
  expected.lookBack = 2000;
  expected.reassembleTcp = true;
  EXPECT_EQ(sniffer->getSettings(), expected);
  EXPECT_TRUE(log.contains("WARN Line 2 of the settings: Device is not for the host's settings, ignored"));
  EXPECT_TRUE(log.contains("WARN Line 3 of the settings: DropDuplicates=Yes, neither yes nor no, no is assumed"));
  stop();
}

TEST_F(NativeMethods, StopIsSafeAtAnyTime) {
  breakMainLoop(channel);  // before

  // While the object is being read: there is no engine yet.
  channel.whileRead = [&] { std::thread([&] { breakMainLoop(channel); }).join(); };
  mainLoop(channel);
  expectIdle();
  channel.whileRead = [] {};

  // While the engine is being set up: a pipe keeps it waiting for the header of the file.
  const std::string pipe = testing::TempDir() + "jni-test-pipe";
  std::filesystem::remove(pipe);
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::fstream writer(pipe, std::ios::in | std::ios::out);
  const auto device = std::exchange(channel.fields["nicDevice"], FakeChannel::Text("file:" + pipe));
  loop = std::async(std::launch::async, [this] { mainLoop(channel); });
  eventually([&] {
    const auto events = log.take();
    return std::any_of(events.begin(), events.end(), [](auto& event) { return event.starts_with("INFO device[0]="); });
  });
  breakMainLoop(channel);
  writer << std::string(std::istreambuf_iterator<char>(std::ifstream(kCall).rdbuf()), {}).substr(0, 24) << std::flush;
  loop.get();
  expectIdle();
  EXPECT_FALSE(log.contains("INFO PCAP thread created 0"));
  channel.fields["nicDevice"] = device;
  std::filesystem::remove(pipe);

  // While it waits for the next frame, by several threads at once; each returns when capture has stopped.
  for (int round = 0; round < 10; ++round) {
    start();
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

TEST_F(NativeMethods, AllAtOnce) {
  setenv("SNIFFER_REPLAY_PACE", "full", 1);
  std::atomic<bool> ended = false;
  std::vector<std::thread> others, loops;
  for (int i = 0; i < 2; ++i) {
    others.emplace_back([&] {
      while (!ended) breakMainLoop(channel);
    });
    others.emplace_back([&] {  // a host that forgets the monitor
      FakeArray buffer(2048), command{1, 10, 0, 0, 2, 0x1B, 0x58};
      while (!ended) {
        getPacket(channel, buffer);
        Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_sendRequest(FakeVm::here(), channel.object(),
                                                                                reinterpret_cast<jbyteArray>(&command));
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
    });
  }
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
  channel.monitorFails = true;
  start();
  stop();
}

TEST_F(NativeMethods, ProcessMayEndWhenTheMachineHasEndedAlready) {
  EXPECT_EXIT(
      {
        start();
        channel.monitorKeeps = true;
        eventually([this] { return channel.kept.load(); });
        std::exit(7);
      },
      testing::ExitedWithCode(7), "");
}

}  // namespace
