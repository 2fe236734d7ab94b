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

}  // namespace
