#include "capture/Sniffer.h"

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <new>
#include <string_view>
#include <utility>

#include "base/Logger.h"
#include "capture/EngineOptions.h"
#include "settings/Logging.h"
#include "settings/MoreRecorders.h"

using namespace voip;

namespace {

/// Returns the device that libpcap would choose, or null with the reason in `errbuf`.
const char* defaultDevice(char* errbuf) {
// Deprecated, but no other call applies libpcap's own choice.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  return pcap_lookupdev(errbuf);
#pragma GCC diagnostic pop
}

}  // namespace

DeviceList& Sniffer::devices_ = *new DeviceList;
CaptureThreads& Sniffer::captureThreads_ = *new CaptureThreads(devices_);
int Sniffer::count_ = -1;
std::atomic<bool> Sniffer::endMain_ = false;

Sniffer::Sniffer() : dissector_(new SngDissector), statisticsReporter_(devices_, *dissector_) {
  count_ = -1;
}

Sniffer::~Sniffer() {
  devices_.clear();
  // A later dissector has already destroyed this one.
  if (SngDissector::dft() == dissector_) delete dissector_;
}

// ---- configuration ----

int Sniffer::setDevice(const char* devices) {
  devices_.setNames(devices);
  return 0;
}

int Sniffer::configure(int argc, char** argv) {
  CommandLineOptions options =
      readCommandLine(argc, argv, {.serverName = serverNameMedia_, .serverPort = serverPortMedia_});
  serverNameMedia_ = options.serverName;
  serverPortMedia_ = options.serverPort;
  char errbuf[PCAP_ERRBUF_SIZE] = "";
  if (options.devices == nullptr) options.devices = defaultDevice(errbuf);
  if (options.devices == nullptr) {
    logger().error(std::string("Couldn't find default device=") + errbuf);
    return 1;
  }
  setDevice(options.devices);
  promiscuous_ = 1;
  count_ = -1;
  serverNameSig_ = serverNameMedia_;
  serverPortSig_ = serverPortMedia_;
  filter_ = options.filter;
  displayConfig();
  return 0;
}

int Sniffer::configureFromFile(int argc, char** argv) {
  const std::optional<FileOptions> options = readFileOptions(argc, argv);
  if (!options) return 1;
  configureLogging(options->logCfgFileName);
  snifferConfig_ = std::make_unique<SnifferConfig>(options->cfgFileName);
  setDevice(snifferConfig_->getDevice());
  serverNameMedia_ = snifferConfig_->getServerName();
  serverPortMedia_ = snifferConfig_->getServerPort();
  serverNameSig_ = serverNameMedia_;
  serverPortSig_ = serverPortMedia_;
  serverProtocol_ = snifferConfig_->getServerProtocol();
  filter_ = snifferConfig_->getFilter();
  traceSignalling_ = snifferConfig_->getTraceSignalling();
  settings_ = snifferConfig_->getSettings();
  count_ = -1;
  setLogLevel(snifferConfig_->getLogLevel());
  setLoggerLevel(logLevel_.c_str());
  promiscuous_ = 1;
  snifferConfig_->logWarnings();
  return 0;
}

void Sniffer::setLogLevel(const char* logLevel) {
  logLevel_ = std::string_view(logLevel).substr(0, kMaxLogLevelLength);
}

void Sniffer::setLoggerLevel(const char* level) {
  logger().setLevel(level);
}

void Sniffer::displayConfig() {
  std::string text;
  for (int i = 0; i < devices_.size(); ++i) text += "device[" + std::to_string(i) + "]=" + devices_.getName(i) + "\n";
  text += std::string("Filter=") + filter_ + "\n";
  text += std::string("ServerNameMedia=") + serverNameMedia_ + "\n";
  text += "ServerPortMedia=" + std::to_string(serverPortMedia_) + "\n";
  text += std::string("ServerProtocol=") + serverProtocol_ + "\n";
  if (!settings_.moreRecorders.empty()) text += "MoreRecorders=" + settings_.moreRecorders + "\n";
  text += "DeviceCount=" + std::to_string(devices_.size()) + "\n";
  text += "LogLevel=" + logLevel_ + "\n";
  text += std::string("TraceSignalling=") + (traceSignalling_ ? "1" : "0");
  logger().info(text);
}

// ---- set-up ----

pcap_t* Sniffer::getHandle(int i) {
  devices_.open(i, deviceMode());
  return devices_[i].getHandle();
}

int Sniffer::setupSniffing() {
  displayConfig();
  if (const int status = openDevices(); status != 0) return status;
  dissector_->setSniffer(this);
  dissector_->setSettings(settings_);
  dissector_->setServerNameMedia(serverNameMedia_);
  dissector_->setServerPortMedia(serverPortMedia_);
  dissector_->setServerNameSig(serverNameSig_);
  dissector_->setServerPortSig(serverPortSig_);
  warnAboutRepeatedRecorders();
  dissector_->makeConnection(embedded_);
  if (!embedded_) dissector_->startCmdReaderThread();
  dissector_->setTraceSignalling(traceSignalling_);
  return 0;
}

void Sniffer::warnAboutRepeatedRecorders() const {
  for (const std::string& warning : findRepeatedRecorders()) logger().warn(warning);
}

std::vector<std::string> Sniffer::findRepeatedRecorders() const {
  RecorderAddress first;  // none that equals an address, when the host is the first recorder
  if (!embedded_) first = {serverNameMedia_, serverPortMedia_};
  return voip::findRepeatedRecorders(settings_.moreRecorders, first);
}

int Sniffer::openDevices(bool opensPipes) {
  Device::Mode mode = deviceMode();
  mode.opensPipes = opensPipes;
  // A limit of frames is one for the device, so one thread counts them.
  return devices_.openAll(mode, filter_, count_ > 0 ? 1 : settings_.captureThreads, TunnelPorts(settings_.tunnelPorts));
}

Device::Mode Sniffer::deviceMode() const {
  return {promiscuous_,
          settings_.immediateCapture,
          settings_.reopenDevices,
          settings_.reassembleTcp ? Device::kLargeSnapLength : Device::kSnapLength,
          nullptr,
          true,
          0,
          settings_.decapsulate};
}

// ---- sniffing ----

void Sniffer::startSniffing() {
  logger().info("Sniffing started.");
  if (const int error = startCaptureThreads(); error != 0) {
    logger().error("Error - return code from pthread_create() is " + std::to_string(error));
    stopSniffing();
    devices_.close();
    std::exit(-1);
  }
  const auto statisticsFile = statisticsReporter_.writeFile(settings_);
  // In the stand-alone program, the thread that awaits signals logs the statistics.
  const auto statisticsLog = embedded_ ? statisticsReporter_.logRegularly(settings_) : nullptr;
  while (!endMain_) {
    try {
      dissector_->consumePacket();
    } catch (const std::exception& failure) {
      logger().error(std::string("A frame is lost: ") + failure.what());
    }
  }
  dissector_->endLanes();
  // Frames that arrived during the last one count as discarded in the report.
  if (dissector_->getQueueLength() > 0) dissector_->clearQueue();
  logger().info("Sniffing ended.");
  logStatistics();
}

int Sniffer::startCaptureThreads() {
  const MutexLock lock(stateMutex_);
  endMain_ = stopRequested_;  // before the threads start: gotPacket() drops frames while it is set
  if (stopRequested_) return 0;
  started_ = true;
  return captureThreads_.start(startLoop);
}

void* Sniffer::startLoop(void* idp) {
  const std::intptr_t result = captureThreads_.capture(*static_cast<int*>(idp), count_, gotPacket);
  return reinterpret_cast<void*>(result);  // NOLINT(performance-no-int-to-ptr): the type of a thread result
}

void Sniffer::gotPacket(u_char* args, const pcap_pkthdr* header, const u_char* packet) {
  SngDissector* live = SngDissector::dft();
  if (endMain_ || live == nullptr) return;
  // An exception must not pass through libpcap, which is C.
  try {
    SniffedPacket sniffed{args, header, packet};
    if (const Device* device = CaptureThreads::currentDevice(); device != nullptr) {
      sniffed.linkType = device->getLinkType();
      sniffed.replayShift = device->getReplayShift();
      sniffed.zone = device->getZone();
    }
    live->producePacket(sniffed);
  } catch (const std::bad_alloc&) {
    logger().error("Out of memory, a frame is lost");
  }
}

bool Sniffer::captureFinished() {
  const MutexLock lock(stateMutex_);
  return started_ && captureThreads_.haveEnded() && dissector_->isIdle();
}

void Sniffer::stopSniffing() {
  const MutexLock untilDone(stopMutex_);
  {
    const MutexLock lock(stateMutex_);
    if (std::exchange(stopRequested_, true)) return;
  }
  logger().info("Ending Sniffing ...");
  captureThreads_.stop();
  endMain_ = true;
  dissector_->signalEnd();
  if (!embedded_) stopCommandReader();
}

void Sniffer::stopCommandReader() {
  pthread_t* const cmdThread = dissector_->getCmdReaderThread();
  if (cmdThread == nullptr) return;
  const int status = pthread_join(*cmdThread, nullptr);
  dissector_->cmdReaderJoined();
  logger().info("Completed join with Command reader thread, status=" + std::to_string(status));
}
