#include "Config.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "SnifferConfig.h"
#include "StringTokenizer.h"
#include "TestLog.h"

namespace {

std::string fileOf(const std::string& text) {
  const std::string name = testing::TempDir() + "sniffer-config-test.properties";
  std::ofstream(name, std::ios::binary) << text;
  return name;
}

TEST(Tokenizer, SplitsAsTheDeviceListNeedsIt) {
  using Tokens = std::vector<std::string>;
  const struct {
    const char* text;
    Tokens tokens;
  } cases[] = {{"a;b", {"a", "b"}}, {"a;;b", {"a", "", "b"}}, {";a", {"", "a"}}, {"a;", {"a"}}, {"", {}},
               {";", {""}},         {" a ;b", {" a ", "b"}}};
  for (const auto& [text, expected] : cases) {
    StringTokenizer tokenizer(text, ';');
    Tokens tokens;
    while (tokenizer.hasMoreTokens()) tokens.push_back(tokenizer.nextToken());
    EXPECT_EQ(tokens, expected) << text;
    EXPECT_EQ(tokenizer.nextToken(), "");
  }
}

TEST(Properties, KeepWhatTheLinesSay) {
  TestLog log;
  const std::string longest = "L=" + std::string(509, 'x');
  Config config;
  config.setCfgFileName(fileOf(
      "A=1\n"
      "A=2\r\n"
      "# a comment\n"
      "# B=3\n"
      " C=4\n"
      "D = 5\n"
      "E=a=b=c\r\n"
      "F= \t text with blanks \t\r\n"
      "G=  \t\n"
      "=nokey\n\n" +
      longest + "\n" + "M=" + std::string(510, 'x') + "\nZ=" + std::string(5000, 'y') + "\nlast=without line feed"));
  config.loadProperties();
  const std::pair<const char*, std::string> expected[] = {{"A", "1"},    {"# B", "3"},   {"B", ""},
                                                          {"C", ""},     {" C", "4"},    {"D", ""},
                                                          {"D ", "5"},   {"E", "a=b=c"}, {"F", "text with blanks"},
                                                          {"G", ""},     {"", "nokey"},  {"L", longest.substr(2)},
                                                          {"M", ""},     {"Z", ""},      {"last", "without line feed"},
                                                          {"absent", ""}};
  for (const auto& [key, value] : expected) EXPECT_EQ(config.getProperty(key), value) << key;
  EXPECT_EQ(log.take().size(), 2U) << "each over-long line is told about";

  // A second load adds what is new. A key that was looked up in vain is in the table, empty.
  config.setCfgFileName(fileOf("A=changed\nabsent=late\nnew=1"));
  config.loadProperties();
  EXPECT_EQ(config.getProperty("A"), "1");
  EXPECT_EQ(config.getProperty("absent"), "");
  EXPECT_EQ(config.getProperty("new"), "1");
}

TEST(Properties, UnreadableFileEndsTheProcess) {
  const auto load = [](const std::string& name) {
    const TestLog log;
    std::atexit([] { std::fputs("left by exit", stderr); });
    Config config;
    config.setCfgFileName(name);
    config.loadProperties();
  };
  EXPECT_EXIT(load("/nonexistent/file"), testing::ExitedWithCode(1), "left by exit");
  EXPECT_EXIT(load(testing::TempDir()), testing::ExitedWithCode(1), "left by exit");
}

struct Settings {
  std::string level;
  bool trace;
  bool immediate;
  int port;
};

// The table of settings belongs to the process, so each file is read in a process of its own.
void expectSettings(const std::string& text, const Settings& expected, const char* message) {
  EXPECT_EXIT(
      {
        SnifferConfig config(fileOf(text));
        const bool ok = config.getLogLevel() == expected.level && config.getTraceSignalling() == expected.trace &&
                        config.getImmediateCapture() == expected.immediate && config.getServerPort() == expected.port;
        std::exit(ok ? 0 : 1);
      },
      testing::ExitedWithCode(0), message)
      << text;
}

TEST(Settings, AreParsedWithTheirDefaults) {
  constexpr const char* kInvalid = "^Invalid LogLevel, assuming INFO\n$";
  expectSettings("", {"INFO", true, false, 0}, kInvalid);
  expectSettings("LogLevel=TRACE\nTraceSignalling=yes\nServerPort=port", {"INFO", false, false, 0}, kInvalid);
  expectSettings("LogLevel= warn \nTraceSignalling=YES\nServerPort=6000x", {"WARN", true, false, 6000}, "^$");
  expectSettings("LogLevel=Fatal\nTraceSignalling=no\nImmediateCapture=yes", {"FATAL", true, true, 0}, "^$");
  expectSettings("LogLevel=debug\nImmediateCapture=Yes\nServerPort = 7", {"DEBUG", true, false, 0}, "^$");
  expectSettings("LogLevel=error\nServerPort=99999999999999999999\nServerPort=1", {"ERROR", true, false, -1}, "^$");
}

TEST(Settings, TextsStayValidWhileOthersAreLookedUp) {
  EXPECT_EXIT(
      {
        SnifferConfig config(
            fileOf("ServerName=10.0.0.5\nDevice=eth0;eth1\nFilter=udp port 5060\nServerProtocol=Udp\n"
                   "Transport=t\nProtocolList=p\nPortList=5060"));
        const char* const name = config.getServerName();
        const char* const device = config.getDevice();
        for (int i = 0; i < 1000; ++i) Config::dft()->getProperty(std::to_string(i));
        const bool ok = std::string(name) == "10.0.0.5" && std::string(device) == "eth0;eth1" &&
                        config.getFilter() == std::string("udp port 5060") &&
                        config.getServerProtocol() == std::string("Udp") && config.getTransport() == std::string("t") &&
                        config.getProtocolList() == std::string("p") && config.getPortList() == std::string("5060");
        std::exit(ok ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

void tellOddities() {
  TestLog log;
  SnifferConfig config(
      fileOf("ServerName=recorder.example.org\n"
             "ServerPort=70000\n"
             "# Device=none\n"
             "Device=eth0;eth1;eth0\n"
             "Device=eth2\n"
             "Filter =udp\n"
             "ServerProtocol=SCTP\n"
             "LogLevel=chatty\n"
             "TraceSignalling=Yes\n"
             "ImmediateCapture=no\n"
             "StatisticsInterval=often\n"
             "Recorder=1\n"));
  log.take();
  config.reportOddities();
  const std::string line = "WARN Line ";
  EXPECT_EQ(log.take(),
            (std::vector<std::string>{
                line + "5 of the settings: Device is set again, line 4 counts",
                line + "6 of the settings: \"Filter \" is no setting, blanks in front of '=' belong to the key, "
                       "ignored",
                line + "12 of the settings: \"Recorder\" is no setting, ignored",
                line + "1 of the settings: ServerName=recorder.example.org, the recorder is not reachable "
                       "without a dotted IPv4 address",
                line + "2 of the settings: ServerPort=70000, a port is a number from 1 to 65535, port 4464 is used",
                line + "7 of the settings: ServerProtocol=SCTP, TCP is used",
                line + "4 of the settings: Device=eth0;eth1;eth0, eth0 is in the list twice and its frames "
                       "are sent twice",
                "WARN The settings have no Filter, everything is captured",
                line + "8 of the settings: LogLevel=chatty, INFO is used",
                line + "9 of the settings: TraceSignalling=Yes, neither yes nor no, the trace is on",
                line + "11 of the settings: StatisticsInterval=often, no statistics are logged",
            }));
}

TEST(Settings, OdditiesAreToldWithTheirLine) {
  EXPECT_EXIT(
      {
        tellOddities();
        std::exit(HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
