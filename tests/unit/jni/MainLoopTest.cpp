// The run of the native methods, for the sanitizers. Other tests run the native methods in a Java virtual machine.

#include "jni/MainLoop.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>

#include "jni/com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel.h"
#include "recorder/EmbeddedConnection.h"
#include "settings/Logging.h"
#include "support/TestLog.h"

using namespace voip;

extern Sniffer* sniffer;

/// A process that ends while sniffing does not join its threads. They are no leak.
extern "C" const char* __tsan_default_options() {  // NOLINT(bugprone-reserved-identifier): set by the sanitizer
  return "report_thread_leaks=0";
}

namespace {

const std::string kCall = TEST_FILES "/../../samples/sip-g711a-call.pcap";  // begins with SIP

void eventually(const std::function<bool()>& condition) {
  while (!condition()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

class MainLoopTest : public testing::Test {
 protected:
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    makeLogLevels();  // before the threads: the sanitizer does not see how log4cxx shares them
  }

  void mainLoop() {
    MainLoop::dft().run([this] { MainLoop::dft().sniff(fields, signalHandler); });
  }

  void start() {
    loop = std::async(std::launch::async, [this] { mainLoop(); });
  }

  static int fetch() {
    char frame[65535];
    return EmbeddedConnection::dft()->receivePacket(frame, sizeof frame);
  }

  void stop() {
    MainLoop::dft().stop();
    loop.get();
    EXPECT_EQ(sniffer, nullptr);
  }

  TestLog log;
  ChannelFields fields{"file:" + kCall, "udp", -1, false, {}};
  std::future<void> loop;
};

TEST_F(MainLoopTest, StopIsSafeAtAnyTime) {
  MainLoop::dft().stop();  // before
  MainLoop::dft().run([this] {
    std::thread([] { MainLoop::dft().stop(); }).join();  // before there is an engine
    MainLoop::dft().sniff(fields, signalHandler);
  });

  // While the engine is being set up: a pipe keeps it waiting for the header of the file.
  const std::string pipe = testing::TempDir() + "main-loop-test-pipe";
  std::filesystem::remove(pipe);
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  std::fstream writer(pipe, std::ios::in | std::ios::out);
  const std::string device = std::exchange(fields.nicDevice, "file:" + pipe);
  start();
  eventually([&] {
    const auto events = log.take();
    return std::any_of(events.begin(), events.end(), [](auto& event) { return event.starts_with("INFO device[0]="); });
  });
  MainLoop::dft().stop();
  writer << std::string(std::istreambuf_iterator<char>(std::ifstream(kCall).rdbuf()), {}).substr(0, 24) << std::flush;
  loop.get();
  EXPECT_FALSE(log.contains("INFO PCAP thread created 0"));
  fields.nicDevice = device;
  std::filesystem::remove(pipe);

  // While it waits for the next frame, by several threads at once; each returns when capture has stopped.
  for (int round = 0; round < 10; ++round) {
    start();
    eventually([] { return fetch() > 0; });
    log.take();
    std::vector<std::thread> stoppers;
    for (int i = 0; i < 4; ++i) {
      stoppers.emplace_back([&] {
        MainLoop::dft().stop();
        EXPECT_TRUE(log.contains("INFO Completed join with PCAP thread 0 status=0"));
      });
    }
    for (std::thread& stopper : stoppers) stopper.join();
    stop();
  }
}

TEST_F(MainLoopTest, AllAtOnce) {
  std::atomic<bool> ended = false;
  std::vector<std::thread> others, loops;
  others.emplace_back([&] {
    while (!ended) MainLoop::dft().stop();
  });
  others.emplace_back([&] {
    SnifferRequest add(1, 0x0A000002, 7000);
    while (!ended) {
      if (fetch() == 0) EmbeddedConnection::dft()->sendRequest(add);
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  for (int i = 0; i < 3; ++i) {
    loops.emplace_back([&] {
      for (int round = 0; round < 60; ++round) mainLoop();
    });
  }
  for (std::thread& thread : loops) thread.join();
  ended = true;
  for (std::thread& thread : others) thread.join();
}

TEST_F(MainLoopTest, ProcessMayEndWhileSniffing) {
  EXPECT_EXIT(
      {
        start();
        eventually([] { return fetch() > 0; });
        std::exit(7);
      },
      testing::ExitedWithCode(7), "");
}

}  // namespace
