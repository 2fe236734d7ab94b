#include "capture/Sniffer.h"

#include <getopt.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "settings/Logging.h"
#include "statistics/PrometheusText.h"
#include "dissection/SngDissector.h"
#include "settings/StringTokenizer.h"
#include "base/Logger.h"

using namespace voip;

namespace {

constexpr const char* kCommandLineUsage =
    "Usage: UdpSniffer [-d device] [-f filter] [-h server] [-p port] [-i serverSig]\t\t\t\t\t[-q portSig] [-c count] "
    "[-e]\nwhere:\n\t-d The device name to sniff, defaults pcap choses device; e.g. eth0\n\t-f The sniff filter, "
    "defaults to udp; e.g. udp\n\t-h The server host name, defaults to 127.0.0.1; e.g. 192.168.3.22\n\t-p The server "
    "port name, defaults to 6000; e.g. 6000\n\t-i The signalling server hostname, defaults to server host; e.g. "
    "192.168.3.22\n\t-q The signalling server port, defaults to server port; e.g. 6001\n\t-c The number of packets to "
    "sniff, defaults to -1, -1 endless loop; e.g -1\n";

/// A copy cut to the size of the buffer, terminating zero included.
template <std::size_t size>
void copyText(char (&to)[size], const char* from) {
  to[std::string_view(from).copy(to, size - 1)] = 0;
}

const char* defaultDevice(char* errbuf) {
// The one call that tells which device libpcap itself would take.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  return pcap_lookupdev(errbuf);
#pragma GCC diagnostic pop
}

}  // namespace

Device* const Sniffer::handle = new Device[kMaxDevices];
pthread_t Sniffer::thread[kMaxDevices];
bool Sniffer::deviceDown[kMaxDevices] = {true};
int Sniffer::deviceCount = 0;
int Sniffer::count = -1;
std::atomic<bool> Sniffer::endMain = false;
std::atomic<bool> Sniffer::breaking = false;
std::atomic<int> Sniffer::atWork = 0;
thread_local const Device* Sniffer::source = nullptr;

Sniffer::Sniffer() {
  count = -1;
  dissector = new SngDissector;
  for (int i = 0; i < kMaxDevices; ++i) {
    threadId[i] = i;
    device[i] = new char[kDeviceNameSize]{};
  }
}

Sniffer::~Sniffer() {
  for (int i = 0; i < kMaxDevices; ++i) {
    handle[i].close();
    delete[] device[i];
  }
  deviceCount = 0;
  // A dissector made after this engine's has destroyed it already.
  if (SngDissector::dft() == dissector) delete dissector;
}

// ---- configuration ----

int Sniffer::setDevice(const char* devices) {
  deviceCount = 0;
  StringTokenizer names(devices, ';');
  while (names.hasMoreTokens()) {
    const std::string name = names.nextToken();
    if (addDevice(name)) ++deviceCount;
  }
  return 0;
}

bool Sniffer::addDevice(const std::string& name) {
  if (deviceCount == kMaxDevices) {
    logger().error("Device " + name + " is left out: at most " + std::to_string(kMaxDevices) + " devices are captured");
    return false;
  }
  if (name.size() >= kDeviceNameSize) {
    if (!captureFilePath(name)) {
      logger().error("Device " + name + " is left out: a device name has at most " +
                    std::to_string(kDeviceNameSize - 1) + " characters");
      return false;
    }
    delete[] std::exchange(device[deviceCount], new char[name.size() + 1]);
  }
  std::memcpy(device[deviceCount], name.c_str(), name.size() + 1);
  return true;
}

int Sniffer::configure(int argc, char** argv) {
  const char* devices = nullptr;
  const char* expression = "udp";
  optind = 0;  // also forgets the rest of an argument that an earlier parse was in
  for (int option; (option = getopt(argc, argv, "d:f:h:p:")) != -1;) {
    switch (option) {
      case 'd':
        devices = optarg;
        break;
      case 'f':
        expression = optarg;
        break;
      case 'h':
        serverNameMedia = optarg;
        break;
      case 'p':
        serverPortMedia = std::atoi(optarg);
        break;
      default:
        logger().error("Invalid argument " + std::to_string(option));
        logger().error(kCommandLineUsage);
    }
  }
  if (devices == nullptr) devices = defaultDevice(errbuf);
  if (devices == nullptr) {
    logger().error(std::string("Couldn't find default device=") + errbuf);
    return 1;
  }
  setDevice(devices);
  promiscuous = 1;
  count = -1;
  serverNameSig = serverNameMedia;
  serverPortSig = serverPortMedia;
  filter = expression;
  displayConfig();
  return 0;
}

int Sniffer::configureFromFile(int argc, char** argv) {
  std::string logCfgFileName = "./log4cxx.properties";
  instance = 0;
  copyText(cfgFileName, "sniffer.properties");
  optind = 0;  // also forgets the rest of an argument that an earlier parse was in
  for (int option; (option = getopt(argc, argv, "c:l:")) != -1;) {
    switch (option) {
      case 'c':
        if (std::strlen(optarg) >= kCfgFileNameSize) {
          logger().error(std::string("The name of the configuration file is too long: ") + optarg + ", at most " +
                        std::to_string(kCfgFileNameSize - 1) + " characters are possible");
          return 1;
        }
        copyText(cfgFileName, optarg);
        break;
      case 'l':
        logCfgFileName = optarg;
        break;
      default:
        logger().error("Usage: sniffer [-c <cfgFileName>] [-l <logCfgFileName>]");
        return 1;
    }
  }
  configureLogging(logCfgFileName);
  snifferConfig = std::make_unique<SnifferConfig>(cfgFileName);
  setDevice(snifferConfig->getDevice());
  serverNameMedia = snifferConfig->getServerName();
  serverPortMedia = snifferConfig->getServerPort();
  serverNameSig = serverNameMedia;
  serverPortSig = serverPortMedia;
  serverProtocol = snifferConfig->getServerProtocol();
  filter = snifferConfig->getFilter();
  traceSignalling = snifferConfig->getTraceSignalling();
  settings = snifferConfig->getSettings();
  count = -1;
  setLogLevel(snifferConfig->getLogLevel());
  setLoggerLevel(logLevel);
  promiscuous = 1;
  snifferConfig->logWarnings();
  return 0;
}

void Sniffer::setLogLevel(const char* level) {
  copyText(logLevel, level);
}

void Sniffer::setLoggerLevel(const char* level) {
  logger().setLevel(level);
}

void Sniffer::displayConfig() {
  std::string text;
  for (int i = 0; i < deviceCount; ++i) text += "device[" + std::to_string(i) + "]=" + device[i] + "\n";
  text += std::string("Filter=") + filter + "\n";
  text += std::string("ServerNameMedia=") + serverNameMedia + "\n";
  text += "ServerPortMedia=" + std::to_string(serverPortMedia) + "\n";
  text += std::string("ServerProtocol=") + serverProtocol + "\n";
  text += "DeviceCount=" + std::to_string(deviceCount) + "\n";
  text += std::string("LogLevel=") + logLevel + "\n";
  text += std::string("TraceSignalling=") + (traceSignalling ? "1" : "0");
  logger().info(text);
}

// ---- set-up ----

pcap_t* Sniffer::getHandle(int i) {
  const std::string name = device[i];
  {
    const std::lock_guard guard(statisticsLock);
    reportedDrops[i] = 0;
  }
  if (handle[i].open(name, {promiscuous, settings.immediateCapture, settings.reopenDevices})) {
    logger().info("Device: " + name + " opened");
  } else {
    logger().error("Couldn't open device " + name + ":" + handle[i].getError());
  }
  return handle[i].getHandle();
}

int Sniffer::installFilter(Device& opened) {
  const Device::FilterResult result = opened.setFilter(filter);
  if (result == Device::kFilterNotCompiled) {
    logger().error(std::string("Couldn't parse filter ") + filter + ":" + opened.getError());
    return result;
  }
  logger().info(std::string("Filter compilation ok: ") + filter);
  if (result == Device::kFilterNotInstalled) {
    logger().error(std::string("Couldn't install filter ") + filter + ": " + opened.getError());
    return result;
  }
  logger().info(std::string("Filter instalation ok: ") + filter);
  return 0;
}

int Sniffer::setupSniffing() {
  displayConfig();
  if (const int status = openDevices(); status != 0) return status;
  dissector->setSniffer(this);
  dissector->setSettings(settings);
  dissector->setServerNameMedia(serverNameMedia);
  dissector->setServerPortMedia(serverPortMedia);
  dissector->setServerNameSig(serverNameSig);
  dissector->setServerPortSig(serverPortSig);
  dissector->makeConnection(embedded);
  if (!embedded) dissector->startCmdReaderThread();
  dissector->setTraceSignalling(traceSignalling);
  return 0;
}

int Sniffer::openDevices() {
  for (int i = 0; i < deviceCount; ++i) {
    deviceDown[i] = getHandle(i) == nullptr;
    if (deviceDown[i]) continue;
    if (const int status = installFilter(handle[i]); status != 0) return status;
  }
  return 0;
}

bool Sniffer::allDevicesDown() const {
  for (int i = 0; i < deviceCount; ++i) {
    if (!deviceDown[i] || isDeviceAwaited(i)) return false;
  }
  return true;
}

// ---- sniffing ----

void Sniffer::startSniffing() {
  logger().info("Sniffing started.");
  if (const int rc = startCaptureThreads(); rc != 0) {
    logger().error("Error - return code from pthread_create() is " + std::to_string(rc));
    stopSniffing();
    for (int i = 0; i < deviceCount; ++i) handle[i].close();
    std::exit(-1);
  }
  const auto statisticsFile = writeStatisticsFile();
  const auto statisticsLog = logStatisticsRegularly();
  while (!endMain) {
    try {
      dissector->consumePacket();
    } catch (const std::exception& failure) {
      logger().error(std::string("A frame is lost: ") + failure.what());
    }
  }
  // What came in while the last packet was in work counts as discarded in the report.
  if (dissector->getQueueLength() > 0) dissector->clearQueue();
  logger().info("Sniffing ended.");
  logStatistics();
}

int Sniffer::startCaptureThreads() {
  const std::lock_guard guard(lifecycle);
  // Before the threads start, so that the first frames of a second run find the engine open.
  endMain = stopRequested;
  if (stopRequested) return 0;
  started = true;
  breaking = false;
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_JOINABLE);
  int rc = 0;
  for (int i = 0; i < deviceCount && rc == 0; ++i) {
    if (deviceDown[i] && !isDeviceAwaited(i)) continue;
    ++atWork;
    rc = pthread_create(&thread[i], &attributes, startLoop, &threadId[i]);
    capturing[i] = rc == 0;
    if (capturing[i]) logger().info("PCAP thread created " + std::to_string(threadId[i]));
  }
  if (rc != 0) --atWork;
  pthread_attr_destroy(&attributes);
  return rc;
}

void* Sniffer::startLoop(void* idp) {
  const int i = *static_cast<int*>(idp);
  source = &handle[i];
  const long result = handle[i].capture(count, gotPacket);
  if (result == PCAP_ERROR && !breaking) {
    logger().error("PCAP thread " + std::to_string(i) + " captures no more: " + handle[i].getError());
  }
  --atWork;
  return reinterpret_cast<void*>(result);
}

void Sniffer::gotPacket(u_char* args, const pcap_pkthdr* header, const u_char* packet) {
  SngDissector* live = SngDissector::dft();
  if (endMain || live == nullptr) return;
  // Called from C: nothing may be thrown through it.
  try {
    SniffedPacket sniffed{args, header, packet};
    if (source != nullptr) {
      sniffed.linkType = source->getLinkType();
      sniffed.replayed = source->isFile();
    }
    live->producePacket(sniffed);
  } catch (const std::bad_alloc&) {
    logger().error("Out of memory, a frame is lost");
  }
}

bool Sniffer::captureFinished() {
  const std::lock_guard guard(lifecycle);
  return started && atWork == 0 && dissector->isIdle();
}

bool Sniffer::replaysOnly() const {
  return std::all_of(device, device + deviceCount, [](const char* name) { return captureFilePath(name).has_value(); });
}

void Sniffer::stopSniffing() {
  const std::lock_guard untilDone(stopLock);
  {
    const std::lock_guard guard(lifecycle);
    if (std::exchange(stopRequested, true)) return;
  }
  logger().info("Ending Sniffing ...");
  stopCaptureThreads();
  endMain = true;
  dissector->signalEnd();
  if (!embedded) stopCommandReader();
}

void Sniffer::stopCaptureThreads() {
  breaking = true;
  for (int i = 0; i < deviceCount; ++i) {
    if (!std::exchange(capturing[i], false)) continue;
    handle[i].breakLoop();
    pthread_kill(thread[i], SIGUSR1);
    const int status = pthread_join(thread[i], nullptr);
    logger().info("Completed join with PCAP thread " + std::to_string(i) + " status=" + std::to_string(status));
  }
}

void Sniffer::stopCommandReader() {
  pthread_t* const cmdThread = dissector->getCmdReaderThread();
  if (cmdThread == nullptr) return;
  const int status = pthread_join(*cmdThread, nullptr);
  dissector->cmdReaderJoined();
  logger().info("Completed join with Command reader thread, status=" + std::to_string(status));
}

// ---- statistics ----

std::unique_ptr<StatisticsFile> Sniffer::writeStatisticsFile() {
  if (settings.statisticsFile.empty()) return nullptr;
  const int seconds = settings.statisticsInterval > 0 ? settings.statisticsInterval : kStatisticsFileInterval;
  return std::make_unique<StatisticsFile>(settings.statisticsFile, std::chrono::seconds(seconds),
                                          [this] { return prometheusStatistics(); });
}

/// For a host: the program does so itself, on the thread that awaits its signals.
std::unique_ptr<PeriodicTask> Sniffer::logStatisticsRegularly() {
  if (!embedded || settings.statisticsInterval == 0) return nullptr;
  return std::make_unique<PeriodicTask>(std::chrono::seconds(settings.statisticsInterval), [this] { logStatistics(); });
}

void Sniffer::logStatistics() {
  const std::lock_guard guard(statisticsLock);
  for (int i = 0; i < deviceCount; ++i) {
    if (!deviceDown[i] || isDeviceAwaited(i)) logDeviceStatistics(i);
  }
  logger().info(dissector->reportStatistics());
}

std::vector<DeviceStatistics> Sniffer::getDeviceStatistics() const {
  std::vector<DeviceStatistics> all;
  std::string reason;
  for (int i = 0; i < deviceCount; ++i) all.push_back(handle[i].getStatistics(reason));
  return all;
}

std::string Sniffer::prometheusStatistics() {
  return prometheusText(dissector->getStatistics(), getDeviceStatistics());
}

void Sniffer::logDeviceStatistics(int i) {
  const std::string heading = std::string("Statistics of device ") + device[i] + ":";
  std::string reason;
  const DeviceStatistics now = handle[i].getStatistics(reason);
  if (!now.isUp && !handle[i].reopens()) {
    logger().warn(heading + " not to be had: " + reason);
    return;
  }
  if (handle[i].isFile()) {
    logger().info(heading + " replayed=" + std::to_string(now.received));
    return;
  }
  const std::string text = heading + " received=" + std::to_string(now.received) +
                           " droppedByKernel=" + std::to_string(now.droppedByKernel) +
                           " droppedByInterface=" + std::to_string(now.droppedByInterface);
  const std::uint64_t fresh = now.droppedByKernel - std::exchange(reportedDrops[i], now.droppedByKernel);
  if (fresh == 0) {
    logger().info(text);
    return;
  }
  logger().warn(text + "; " + std::to_string(fresh) +
               " frames are lost since the last report: a larger buffer (ImmediateCapture=yes), a narrower filter or a "
               "free processor core helps");
}
