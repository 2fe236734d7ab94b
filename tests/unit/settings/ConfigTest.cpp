#include "settings/Config.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <numeric>
#include <sstream>

#include "settings/MoreRecorders.h"
#include "settings/SettingKeys.h"
#include "settings/SettingsReader.h"
#include "settings/SnifferConfig.h"
#include "settings/TunnelPorts.h"
#include "statistics/Statistics.h"
#include "support/TestLog.h"

using namespace voip;

namespace {

using Texts = std::vector<std::string>;

std::string fileOf(const std::string& text) {
  std::string name = testing::TempDir() + "sniffer-config-test.properties";
  std::ofstream(name, std::ios::binary) << text;
  return name;
}

void load(Config& config, const std::string& text) {
  std::istringstream lines(text);
  config.loadLines(lines, "test");
}

TEST(Properties, KeepWhatTheLinesSay) {
  TestLog log;
  const std::string longest(509, 'x');
  Config config;
  load(config,
       "A=1\nA=2\r\n# a comment\n# B=3\n C=4\nD = 5\nE=a=b=c\r\nF= \t text with blanks \t\r\nG=  \t\n=nokey\n\nL=" +
           longest + "\nM=x" + longest + "\nZ=" + std::string(5000, 'y') + "\nlast=without line feed");
  const std::pair<const char*, std::string> expected[] = {{"A", "1"},     {"# B", "3"},
                                                          {"C", ""},      {" C", "4"},
                                                          {"D", ""},      {"D ", "5"},
                                                          {"E", "a=b=c"}, {"F", "text with blanks"},
                                                          {"G", ""},      {"", "nokey"},
                                                          {"L", longest}, {"M", ""},
                                                          {"Z", ""},      {"last", "without line feed"},
                                                          {"absent", ""}};
  for (const auto& [key, value] : expected) EXPECT_EQ(config.getProperty(key), value) << key;
  EXPECT_EQ(log.take().size(), 2U) << "each over-long line is logged";

  // A second load adds new keys only. The look-up of an absent key has added it, empty.
  load(config, "A=changed\nabsent=late\nnew=1");
  for (const auto& [key, value] : {std::pair{"A", "1"}, {"absent", ""}, {"new", "1"}}) {
    EXPECT_EQ(config.getProperty(key), value) << key;
  }
}

TEST(Properties, UnreadableFileEndsTheProcess) {
  for (const std::string& name : {std::string("/nonexistent/file"), testing::TempDir()}) {
    EXPECT_EXIT(
        {
          std::atexit([] { std::fputs("left by exit", stderr); });
          SnifferConfig config(name);
        },
        testing::ExitedWithCode(1), "left by exit");
  }
}

// The table of settings is shared in a process, so a separate process reads each file.
TEST(SnifferConfigGetters, HaveTheirDefaultsAndTheirTextsStay) {
  const struct {
    const char *text, *level;
    bool trace;
    int port;
    const char *name, *message;
  } cases[] = {
      {"", "INFO", true, 0, "", "^Invalid LogLevel, assuming INFO\n$"},
      {"LogLevel=TRACE\nTraceSignalling=yes\nServerPort=port", "INFO", false, 0, "",
       "^Invalid LogLevel, assuming INFO\n$"},
      {"LogLevel= warn \nTraceSignalling=YES\nServerPort=6000x\nServerName=a b", "WARN", true, 6000, "a b", "^$"},
      {"LogLevel=Fatal\nTraceSignalling=no\nServerPort = 7", "FATAL", true, 0, "", "^$"},
      {"LogLevel=error\nServerPort=99999999999999999999\nServerPort=1", "ERROR", true, -1, "", "^$"},
  };
  for (const auto& [text, level, trace, port, name, message] : cases) {
    EXPECT_EXIT(
        {
          SnifferConfig config(fileOf(text));
          const char* const kept = config.getServerName();
          for (int i = 0; i < 1000; ++i) Config::dft()->getProperty(std::to_string(i));
          const std::string unused =
              std::string(config.getTransport()) + config.getProtocolList() + config.getPortList();
          const bool ok = unused.empty() && config.getLogLevel() == std::string(level) &&
                          config.getTraceSignalling() == trace && config.getServerPort() == port &&
                          kept == std::string(name);
          std::exit(ok ? 0 : 1);
        },
        testing::ExitedWithCode(0), message)
        << text;
  }
}

TEST(SettingTable, ValuesAreTakenOrReplacedWithAWarning) {
  const std::string used = "not a number of milliseconds from 0 to 60000, ";
  const struct {
    const char* line;
    int lookBack;
    std::string warning;
  } numbers[] = {{"LookBack=2000", 2000, ""},
                 {"LookBack=", 0, ""},
                 {"LookBack=0060", 60, ""},
                 {"LookBack=60001", 60000, used + "60000 is used"},
                 {"LookBack=-1", 0, used + "0 is used"},
                 {"LookBack=99999999999999999999", 60000, used + "60000 is used"},
                 {"LookBack=5s", 0, used + "0 is used"},
                 {"LookBack=yes", 0, used + "0 is used"}};
  TestLog log;
  for (const auto& [line, lookBack, warning] : numbers) {
    EXPECT_EQ(parseHostSettings(line).lookBack, lookBack) << line;
    EXPECT_EQ(log.take(),
              warning.empty() ? Texts() : Texts{"WARN Line 1 of the settings: " + std::string(line) + ", " + warning});
  }
  // Each key sets another member: without one key the settings differ.
  const auto allBut = [](std::string_view but) {
    std::string text;
    for (const SettingKey& key : kSettingKeys) {
      const char* const words = key.name == "MoreRecorders" ? "=10.0.0.7:7\n" : "=gtp:7\n";
      const char* const values[] = {words, "=yes\n", "=7\n"};  // in the order of the variant
      if (hasMember(key) && key.name != but) text += std::string(key.name) + values[key.value.index()];
    }
    return parseHostSettings(text);
  };
  for (const SettingKey& key : kSettingKeys) EXPECT_EQ(allBut(key.name) == allBut(""), !hasMember(key)) << key.name;
  EXPECT_EQ(log.take(), Texts{"WARN ResendLast does nothing without LookBack"});
}

TEST(MoreRecorders, AreReadOrLeftOutWithAWarning) {
  const std::string toDo = " is left out: write an address and a port, such as 10.0.0.12:6000 or [2001:db8::12]:6000";
  const struct {
    const char* value;
    std::string addresses;
    Texts wrong;
    Texts repeated;
  } cases[] = {
      {"", "", {}, {}},
      {"10.0.0.12:6000;10.0.0.13:6001;", "10.0.0.12:6000 10.0.0.13:6001 ", {}, {}},
      {" 10.0.0.12:65535 ; 10.0.0.13:1", "10.0.0.12:65535 10.0.0.13:1 ", {}, {}},
      {"10.0.0.12;10.0.0.13:6000;;name:6000", "10.0.0.13:6000 ", {"\"10.0.0.12\"", "\"\"", "\"name:6000\""}, {}},
      {"10.0.0.1:0;10.0.0.1:65536;10.0.0.1:6a;10.0.0:1;:5;10.0.0.1:",
       "",
       {"\"10.0.0.1:0\"", "\"10.0.0.1:65536\"", "\"10.0.0.1:6a\"", "\"10.0.0:1\"", "\":5\"", "\"10.0.0.1:\""},
       {}},
      {"[2001:db8::12]:6000;[fe80::1%eth0]:1;[::ffff:10.0.0.9]:2",
       "[2001:db8::12]:6000 [fe80::1%eth0]:1 [::ffff:10.0.0.9]:2 ",
       {},
       {}},
      {"2001:db8::12;[2001:db8::12];[10.0.0.1]:6000;[]:1;[::1:6000;::1]:6",
       "",
       {"\"2001:db8::12\"", "\"[2001:db8::12]\"", "\"[10.0.0.1]:6000\"", "\"[]:1\"", "\"[::1:6000\"", "\"::1]:6\""},
       {}},
      {"10.0.0.12:6000;10.0.0.12:6000",
       "10.0.0.12:6000 ",
       {},
       {"MoreRecorders has 10.0.0.12:6000 twice, it gets everything once"}},
      {"10.0.0.11:6000",
       "10.0.0.11:6000 ",
       {},
       {"MoreRecorders has 10.0.0.11:6000, which is the recorder of ServerName: it gets everything twice"}},
      {"[::FFFF:10.0.0.11]:6000;[2001:DB8:0::1]:1;[2001:db8::1]:1;0.0.0.0:1;127.0.0.1:1;[::]:1;[::1]:1",
       "[::FFFF:10.0.0.11]:6000 [2001:DB8:0::1]:1 0.0.0.0:1 [::]:1 ",
       {},
       {"MoreRecorders has [2001:db8::1]:1 twice, it gets everything once",
        "MoreRecorders has 127.0.0.1:1 twice, it gets everything once",
        "MoreRecorders has [::1]:1 twice, it gets everything once",
        "MoreRecorders has [::FFFF:10.0.0.11]:6000, which is the recorder of ServerName: it gets everything twice"}},
  };
  for (const auto& [value, addresses, wrong, repeated] : cases) {
    const MoreRecorders read = readMoreRecorders(value);
    std::string found;
    for (const RecorderAddress& address : read.addresses) found += address.text() + " ";
    EXPECT_EQ(found, addresses) << value;
    Texts warnings;
    for (const std::string& text : wrong) warnings.push_back(text + toDo);
    EXPECT_EQ(read.wrong, warnings) << value;
    EXPECT_EQ(findRepeatedRecorders(value, {"10.0.0.11", 6000}), repeated) << value;
  }
  std::string many;
  for (int i = 1; i <= 32; ++i) many += "10.0.0." + std::to_string(i) + ":6000;";
  EXPECT_EQ(readMoreRecorders(many).addresses.size(), 31U);
  EXPECT_EQ(readMoreRecorders(many).wrong,
            Texts{"10.0.0.32:6000 is left out: at most 31 further recorders are possible"});
}

std::string contentOf(const char* path) {
  std::ifstream file(std::string(TEST_FILES "/../../") + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST(SettingTable, EveryKeyAndEveryFigureIsDocumented) {
  const std::string readme = contentOf("README.md"), sample = contentOf("packaging/sniffer.properties");
  const std::string operation = contentOf("docs/operation.md");
  const auto expectIn = [](const std::string& text, const std::string& name) {
    EXPECT_NE(text.find(name), std::string::npos) << name;
  };
  for (const SettingKey& key : kSettingKeys) {
    expectIn(readme, "`" + std::string(key.name) + "`");
    expectIn(sample, hasMember(key) ? std::string(key.name) + "=" : "");
  }
  for (const StatisticsRow& row : kStatisticsRows) {
    expectIn(operation, row.name != nullptr ? "`" + std::string(row.name) + "`" : "");
  }
  // The sample for new installations has no warnings and switches on the settings of a recording site.
  TestLog log;
  Config config;
  load(config, sample);
  logSettingWarnings(config, SettingsOrigin::File);
  EXPECT_EQ(log.take(), Texts());
  const Settings settings = readSettings(config);
  EXPECT_TRUE(settings.sendTimeout == 5000 && settings.lookBack == 2000 && settings.queueLimit == 1024);
}

TEST(SettingTable, WarningsOfAFileNameTheLine) {
  TestLog log;
  Config config;
  load(config,
       "ServerName=recorder\nServerPort=70000\n# Device=none\nDevice=eth0;;eth0;\nDevice=eth2\n"
       "Filter =udp\nServerProtocol=SCTP\nLogLevel=chatty\nTraceSignalling=Yes\nImmediateCapture=no\n"
       "StatisticsInterval=often\nRecorder=1\n");
  logSettingWarnings(config, SettingsOrigin::File);
  const Texts events = log.take();
  EXPECT_EQ(std::accumulate(events.begin(), events.end(), std::string(),
                            [](auto all, auto& one) { return all + one + "\n"; }),
            R"(WARN Line 5 of the settings: Device is set again, line 4 counts
WARN Line 6 of the settings: "Filter " is no setting, blanks in front of '=' belong to the key, ignored
WARN Line 12 of the settings: "Recorder" is no setting, ignored
WARN Line 1 of the settings: ServerName=recorder, the recorder is not reachable without an IPv4 or IPv6 address
WARN Line 2 of the settings: ServerPort=70000, a port is a number from 1 to 65535, port 4464 is used
WARN Line 7 of the settings: ServerProtocol=SCTP, TCP is used
WARN Line 4 of the settings: Device=eth0;;eth0;, there is an empty name in the list
WARN Line 4 of the settings: Device=eth0;;eth0;, eth0 is in the list twice and its frames are sent twice
WARN The settings have no Filter, everything is captured
WARN Line 8 of the settings: LogLevel=chatty, INFO is used
WARN Line 9 of the settings: TraceSignalling=Yes, neither yes nor no, the trace is on
WARN Line 11 of the settings: StatisticsInterval=often, not a number of seconds from 0 to 86400, 0 is used
)");
}

TEST(SettingTable, PortsOfTunnels) {
  const std::pair<const char*, const char*> cases[] = {
      {"", ""},
      {"vxlan:8472, Geneve : 6082 ,vxlan:8472,gtp:2152", ""},
      {"vxlan:8472,l2tp", "\"l2tp\" is ignored: an entry is a tunnel and its port, such as vxlan:8472"},
      {"vxlam:8472", "\"vxlam:8472\" is ignored: a tunnel is vxlan, geneve, gtp, l2tp or tzsp"},
      {"gtp:65536", "\"gtp:65536\" is ignored: a port is a number from 1 to 65535"},
      {"gtp:0", "\"gtp:0\" is ignored: a port is a number from 1 to 65535"},
      {"tzsp:4789", "\"tzsp:4789\" is ignored: the port belongs to another tunnel"},
  };
  for (const auto& [value, warning] : cases) {
    EXPECT_EQ(setting_checks::tunnelPorts(value), *warning == 0 ? Texts() : Texts{warning}) << value;
  }
  std::string many;
  for (int port = 10'001; port <= 10'017; ++port) many += "vxlan:" + std::to_string(port) + ",";
  EXPECT_EQ(setting_checks::tunnelPorts(many), Texts{"\"vxlan:10017\" is ignored: there are more than 16 ports"});

  const TunnelPorts ports("vxlan:8472,l2tp:1702");
  EXPECT_EQ(ports.between(4789, 8472), Tunnel::kVxlan);
  EXPECT_EQ(ports.between(8472, 5000), Tunnel::kNone) << "replies come from other ports";
  EXPECT_EQ(ports.between(1702, 5000), Tunnel::kL2tp);
  EXPECT_EQ(ports.between(5000, 8472 + 256), Tunnel::kNone);
}

}  // namespace
