#include "capture/Sniffer.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <list>
#include <thread>
#include <tuple>

#include "recorder/EmbeddedConnection.h"
#include "statistics/StatisticsFile.h"
#include "support/Frames.h"
#include "support/Loopback.h"
#include "support/TestLog.h"

using namespace voip;

namespace {

const Bytes kSip = bytes("INVITE sip:alice.example SIP/2.0\r\n\r\n");

std::string temporary(const std::string& name) {
  return testing::TempDir() + "sniffer-test-" + name;
}

/// Writes a capture file with a SIP message every `interval` and returns its path.
std::string captureFile(const std::string& name, int frames, std::chrono::microseconds interval,
                        int linkType = DLT_EN10MB, bool isLinkLocal = false) {
  std::string path = temporary(name);
  pcap_t* pcap = pcap_open_dead(linkType, 65535);
  pcap_dumper_t* dumper = pcap_dump_open(pcap, path.c_str());
  for (int i = 0; i < frames; ++i) {
    Bytes payload = kSip;
    append(payload, static_cast<uint64_t>(i), 4);
    Bytes frame = Frame{.payload = payload, .ipv6 = isLinkLocal}.build();
    if (isLinkLocal) std::ranges::copy(Bytes{0xFE, 0x80, 0, 0}, frame.begin() + 22);
    const auto length = static_cast<bpf_u_int32>(frame.size());
    const auto stamp = i * interval.count();
    const pcap_pkthdr header{{1000 + stamp / 1000000, stamp % 1000000}, length, length};
    pcap_dump(reinterpret_cast<u_char*>(dumper), &header, frame.data());
  }
  pcap_dump_close(dumper);
  pcap_close(pcap);
  return path;
}

int configure(Sniffer& engine, std::vector<std::string> options,
              int (Sniffer::*how)(int, char**) = &Sniffer::configure) {
  static std::list<std::vector<std::string>> kept;  // the engine keeps pointers to the texts
  std::vector<std::string>& arguments = kept.emplace_back(std::move(options));
  arguments.insert(arguments.begin(), "sniffer");
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  return (engine.*how)(static_cast<int>(arguments.size()), argv.data());
}

class Engine : public testing::Test {
 protected:
  Engine() {
    struct sigaction interrupt = {};
    interrupt.sa_handler = [](int) {};
    sigaction(SIGUSR1, &interrupt, nullptr);
    EmbeddedConnection::dft()->closeConnection();
    log.take();
  }
  ~Engine() override { unsetenv("SNIFFER_REPLAY_PACE"); }

  /// Runs the engine until `condition`, then stops it.
  template <typename Condition>
  void run(Sniffer& engine, Condition condition) {
    std::thread consumer([&] { engine.startSniffing(); });
    EXPECT_TRUE(eventually(condition));
    engine.stopSniffing();
    consumer.join();
  }

  TestLog log;
};

TEST_F(Engine, TakesItsSettingsFromTheCommandLine) {
  Sniffer engine;
  EXPECT_EQ(configure(engine, {"-d", "eth0;;eth1;", "-i", "-f", "udp port 5060", "-h", "10.0.0.5", "-p", "7001"}), 0);
  const std::vector<std::string> events = log.take();
  ASSERT_EQ(events.size(), 3U) << "an unknown option is logged and ignored";
  EXPECT_EQ(events[0], "ERROR Invalid argument 63");
  EXPECT_TRUE(
      events[1].starts_with("ERROR Usage: UdpSniffer [-d device] [-f filter] [-h server] [-p port] "
                            "[-i serverSig]\t\t\t\t\t[-q portSig] [-c count] [-e]\nwhere:\n\t-d The device"));
  EXPECT_TRUE(events[1].ends_with("\n\t-c The number of packets to sniff, defaults to -1, -1 endless loop; e.g -1\n"));
  EXPECT_EQ(events[2],
            "INFO device[0]=eth0\ndevice[1]=\ndevice[2]=eth1\nFilter=udp port 5060\nServerNameMedia=10.0.0.5\n"
            "ServerPortMedia=7001\nServerProtocol=TCP\nDeviceCount=3\nLogLevel=INFO\nTraceSignalling=0");
  EXPECT_EQ(configure(engine, {"-xd", "eth1", "-p", "port"}), 0);
  EXPECT_EQ(engine.getDevice(0), std::string("eth1"));
  EXPECT_EQ(engine.getServerPortMedia(), 0);
  EXPECT_EQ(engine.getFilter(), std::string("udp"));
}

TEST_F(Engine, LimitsTheDeviceList) {
  Sniffer engine;
  const std::string longest(49, 'a');
  const std::string tooLong(50, 'b');
  const std::string file = "file:/" + std::string(300, 'c');
  EXPECT_EQ(engine.setDevice((longest + ";" + tooLong + ";" + file + ";1;2;3;4;5;6;7;8;9;10").c_str()), 0);
  ASSERT_EQ(engine.getDeviceCount(), 10);
  EXPECT_EQ(engine.getDevice(0), longest);
  EXPECT_EQ(engine.getDevice(1), file);
  EXPECT_EQ(engine.getDevice(9), std::string("8"));
  EXPECT_EQ(log.take().size(), 3U) << "each name left out is logged";
  engine.setDevice((longest + ";x;" + file + file).c_str());
  EXPECT_EQ(engine.getDevice(1), std::string("x"));
  EXPECT_EQ(engine.getDevice(2), file + file);
}

TEST_F(Engine, TakesOnlyLevelNamesInCapitals) {
  Sniffer engine;
  const std::pair<const char*, const char*> levels[] = {{"ERROR", "ERROR"}, {"debug", "ERROR"}, {"TRACE", "ERROR"},
                                                        {"", "ERROR"},      {"WARN", "WARN"},   {"FATAL", "FATAL"},
                                                        {"INFO", "INFO"},   {"DEBUG", "DEBUG"}};
  for (const auto& [name, level] : levels) {
    engine.setLoggerLevel(name);
    EXPECT_EQ(log.getLevel()->toString(), level);
  }
}

TEST_F(Engine, RefusesArgumentsOfTheFileMode) {
  Sniffer engine;
  log.take();
  EXPECT_EQ(configure(engine, {"-xyz", "-c", "some.properties"}, &Sniffer::configureFromFile), 1);
  EXPECT_EQ(log.take(), std::vector<std::string>{"ERROR Usage: sniffer [-c <cfgFileName>] [-l <logCfgFileName>]"});
  EXPECT_EQ(configure(engine, {"-c", std::string(100, 'c')}, &Sniffer::configureFromFile), 1);
  log.take();
  EXPECT_EQ(configure(engine, {"-d", "eth0"}), 0);
  EXPECT_FALSE(log.contains("ERROR Invalid argument 63")) << "nothing is left of the options that were refused before";
}

TEST_F(Engine, SetsUpWhatCanBeOpened) {
  const auto file = [](const char* name, int linkType) {
    return "file:" + captureFile(name, 1, std::chrono::microseconds(0), linkType);
  };
  const std::string wireless = file("wireless.pcap", DLT_IEEE802_11);
  std::string devices = "no such device;" + wireless + ";file:/nonexistent;" + file("ethernet.pcap", DLT_EN10MB);
  for (const int linkType : {DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_RAW, DLT_NULL, DLT_LOOP}) {
    devices += ";" + file(std::to_string(linkType).c_str(), linkType);
  }
  Sniffer engine;
  engine.setEmbedded(true);
  engine.setDevice(devices.c_str());
  log.take();
  EXPECT_EQ(engine.setupSniffing(), 0);
  ASSERT_EQ(engine.getDeviceCount(), 9);
  for (int i = 0; i < 9; ++i) EXPECT_EQ(engine.isDeviceDown(i), i < 3);
  const std::string ppp = file("ppp.pcap", DLT_PPP), serial = file("serial.pcap", DLT_PPP_SERIAL);
  for (const bool decapsulate : {false, true}) {
    Settings settings;
    settings.decapsulate = decapsulate;
    engine.setSettings(settings);
    engine.setDevice((ppp + ";" + serial).c_str());
    engine.setupSniffing();
    for (int i = 0; i < 2; ++i) EXPECT_EQ(engine.isDeviceDown(i), !decapsulate);
  }
  EXPECT_TRUE(log.contains("ERROR Couldn't open device " + wireless +
                           ":its frames have the link layer IEEE802_11, which is not understood; Ethernet, Linux "
                           "cooked, raw IP and BSD loopback are"));
}

TEST_F(Engine, ReplaysFilesAtTheirPace) {
  const std::string path = captureFile("paced.pcap", 4, std::chrono::milliseconds(50));
  for (const bool full : {false, true}) {
    if (full) setenv("SNIFFER_REPLAY_PACE", "full", 1);
    Sniffer engine;
    engine.setEmbedded(true);
    engine.setDevice(("file:" + path).c_str());
    ASSERT_EQ(engine.setupSniffing(), 0);
    EXPECT_FALSE(engine.captureFinished());
    const auto start = std::chrono::steady_clock::now();
    run(engine, [&] { return engine.captureFinished(); });
    // Sleeps may be long, never short.
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(full ? 0 : 150));
    EXPECT_EQ(engine.getStatistics().sipForwarded, 4U);
  }
}

TEST_F(Engine, TellsLinkLocalHostsOfTwoDevicesApart) {
  std::string devices;
  for (const char* name : {"one.pcap", "other.pcap"}) {
    devices += "file:" + captureFile(name, 4, std::chrono::milliseconds(1), DLT_EN10MB, true) + ";";
  }
  Settings settings;
  settings.ipv6 = settings.dropDuplicates = true;
  Sniffer engine;
  engine.setEmbedded(true);
  engine.setSettings(settings);
  engine.setDevice(devices.c_str());
  ASSERT_EQ(engine.setupSniffing(), 0);
  run(engine, [&] { return engine.captureFinished(); });
  EXPECT_EQ(engine.getStatistics().sipForwarded, 8U);
}

TEST_F(Engine, CapturesWithOneThreadWhereNoMoreArePossible) {
  // libpcap also has devices without a packet socket. Such a device looks like this file to the group.
  const std::string path = captureFile("no-socket.pcap", 1, std::chrono::microseconds(0));
  FanoutGroup group{TunnelPorts()};
  Device device;
  std::string reason;
  ASSERT_TRUE(device.open("file:" + path, {}));
  EXPECT_EQ(group.join(device.getHandle(), true, reason), FanoutGroup::Result::kAlone);
  EXPECT_EQ(group.join(device.getHandle(), false, reason), FanoutGroup::Result::kFailed);

  Settings settings;
  settings.captureThreads = 4;
  Sniffer engine;
  engine.setEmbedded(true);
  engine.setSettings(settings);
  engine.setDevice(("file:" + path + ";no such device").c_str());
  ASSERT_EQ(engine.setupSniffing(), 0);
  log.take();
  run(engine, [&] { return engine.captureFinished(); });
  EXPECT_EQ(engine.getStatistics().sipForwarded, 1U);
  EXPECT_TRUE(log.contains("INFO PCAP thread created 0"));
  EXPECT_FALSE(log.contains("INFO PCAP thread created 1"));
}

TEST_F(Engine, WritesAStatisticsFileThatAnyUserMayRead) {
  const mode_t umaskBefore = umask(0077);
  const std::string path = temporary("statistics");
  Settings settings;
  settings.statisticsFile = path;
  Sniffer engine;
  engine.setEmbedded(true);
  engine.setSettings(settings);
  engine.setDevice(("file:" + captureFile("one.pcap", 1, std::chrono::microseconds(0))).c_str());
  ASSERT_EQ(engine.setupSniffing(), 0);
  run(engine, [&] { return engine.captureFinished(); });
  umask(umaskBefore);
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0644U);
  std::ifstream file(path);
  const std::string text(std::istreambuf_iterator<char>(file), {});
  EXPECT_NE(text.find("\nsniffer_forwarded_frames_total{protocol=\"sip\"} 1\n"), std::string::npos);
}

TEST_F(Engine, ReplacesOnlyARegularStatisticsFile) {
  const std::string folder = temporary("targets");
  std::filesystem::remove_all(folder);
  std::filesystem::create_directory(folder);
  const auto path = [&](const std::string& name) { return folder + "/" + name; };
  std::ofstream(path("file")) << "old";
  std::ofstream(path("file.new")) << "left by a killed program";
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  ASSERT_EQ(mkfifo(path("fresh.new").c_str(), 0600), 0);
  ASSERT_EQ(symlink("file", path("link").c_str()), 0);
  ASSERT_EQ(symlink("pipe", path("linkToPipe").c_str()), 0);
  const std::tuple<const char*, const char*, std::filesystem::file_type> cases[] = {
      {"file", "", std::filesystem::file_type::regular},
      {"fresh", "", std::filesystem::file_type::regular},
      {"link", "", std::filesystem::file_type::regular},
      {"pipe", "Not a regular file", std::filesystem::file_type::fifo},
      {"linkToPipe", "Not a regular file", std::filesystem::file_type::symlink},
      {".", "Is a directory", std::filesystem::file_type::directory},
  };
  for (const auto& [name, reason, type] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(StatisticsFile::tryReplacing(path(name)), reason);
    log.take();
    const auto write = [] { return std::string("new"); };
    { const StatisticsFile file(path(name), std::chrono::seconds(60), write); }
    const std::string warning = "WARN Can't write the statistics file " + path(name) + ": " + reason;
    EXPECT_EQ(log.take(), *reason == 0 ? std::vector<std::string>() : std::vector{warning});
    EXPECT_EQ(std::filesystem::symlink_status(path(name)).type(), type);
    EXPECT_FALSE(std::filesystem::exists(path(name) + std::string(".try")));
  }
}

TEST_F(Engine, AHostileTimeStampNeitherStallsNorOverflows) {
  ReplayPace pace;
  EXPECT_TRUE(pace.waitFor({1000, 0}));
  for (const time_t seconds : {time_t{0}, time_t{-1}, std::numeric_limits<time_t>::min()}) {
    EXPECT_TRUE(pace.waitFor({seconds, 0}));
  }
  std::thread stop([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    pace.stop();
  });
  EXPECT_FALSE(pace.waitFor({std::numeric_limits<time_t>::max(), 999999}));
  stop.join();
  EXPECT_FALSE(pace.waitFor({1000, 0}));
}

TEST_F(Engine, AStopBeforeTheStartHolds) {
  Sniffer engine;
  engine.setEmbedded(true);
  engine.stopSniffing();
  engine.startSniffing();
  engine.stopSniffing();
  EXPECT_EQ(log.count("INFO Ending Sniffing ..."), 1);
  EXPECT_EQ(log.count("INFO Sniffing ended."), 1);
}

TEST_F(Engine, StopsUnderLoadAtTheEndOfAFrame) {
  const std::string path = captureFile("load.pcap", 200000, std::chrono::microseconds(200));
  log.setLevel(log4cxx::Level::getInfo());
  const std::string kTooSlow = "WARN Can not send. Connection to recorder lost.";
  const Loopback listener(SOCK_STREAM, 0);
  for (int round = 0; round < 2; ++round) {  // the second engine shares its static state with the first
    Sniffer engine;
    ASSERT_EQ(configure(engine, {"-d", "file:" + path + ";file:" + path + ";no such device", "-p",
                                 std::to_string(listener.port())}),
              0);
    ASSERT_EQ(engine.setupSniffing(), 0);
    log.take();
    std::atomic<int> frames = 0;
    bool whole = true;
    std::thread recorder([&] {
      Loopback peer = listener.accept();
      peer.write(command(1, 1, 1));
      for (Bytes frame = peer.read(15); !frame.empty(); frame = peer.read(15), ++frames) {
        const auto length = static_cast<std::size_t>(frame.size() == 15 ? frame[0] << 8 | frame[1] : 0);
        whole = whole && length == 15 + kSip.size() + 4 && peer.read(length - 15).size() == length - 15;
      }
    });
    {
      std::thread consumer([&] { engine.startSniffing(); });
      EXPECT_TRUE(eventually([&] { return frames > 20 || log.contains(kTooSlow); }));
      engine.stopSniffing();
      consumer.join();
    }
    EXPECT_EQ(log.count("INFO Completed join with PCAP thread 0 status=0"), 1);
    EXPECT_EQ(log.count("INFO Completed join with PCAP thread 1 status=0"), 1);
    EXPECT_EQ(log.count("INFO Completed join with Command reader thread, status=0"), 1);
    SngDissector::dft()->closeConnection();
    recorder.join();
    // Only a recorder that was too slow, and therefore counts as lost, may receive a part of a frame.
    EXPECT_TRUE(whole || log.contains(kTooSlow));
  }
}

}  // namespace
