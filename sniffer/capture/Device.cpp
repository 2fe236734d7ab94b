#include "capture/Device.h"

#include <sys/socket.h>

#include <chrono>
#include <filesystem>
#include <system_error>
#include <utility>

#include "base/Logger.h"
#include "network/LinkLayer.h"

namespace voip {

namespace {

constexpr std::string_view kFilePrefix = "file:";
constexpr std::chrono::seconds kRetryInterval(1);

/// Returns the name of the link layer when it is not supported, else an empty text.
std::string unsupportedLinkLayer(pcap_t* handle, const Device::Mode& mode) {
  const int type = pcap_datalink(handle);
  if (understandsLinkType(type, mode.decapsulate)) return {};
  const char* known = pcap_datalink_val_to_name(type);
  return known != nullptr ? known : "number " + std::to_string(type);
}

/// Returns the handle, or closes it and returns null when its link layer is not supported.
pcap_t* closeUnlessSupported(pcap_t* handle, const Device::Mode& mode, std::string& reason) {
  const std::string unsupported = handle != nullptr ? unsupportedLinkLayer(handle, mode) : std::string();
  if (unsupported.empty()) return handle;
  reason = "its frames have the link layer " + unsupported +
           ", which is not understood; Ethernet, Linux cooked, raw IP and BSD loopback are";
  pcap_close(handle);
  return nullptr;
}

pcap_t* openFile(std::string_view path, std::string& reason) {
  char errbuf[PCAP_ERRBUF_SIZE] = "";
  pcap_t* handle = pcap_open_offline(std::string(path).c_str(), errbuf);
  reason = errbuf;
  return handle;
}

pcap_t* openImmediate(const std::string& name, const Device::Mode& mode, std::string& reason) {
  char errbuf[PCAP_ERRBUF_SIZE] = "";
  pcap_t* handle = pcap_create(name.c_str(), errbuf);
  reason = errbuf;
  if (handle == nullptr) return nullptr;
  pcap_set_snaplen(handle, mode.snapLength);
  pcap_set_promisc(handle, mode.promiscuous);
  pcap_set_timeout(handle, Device::kImmediateTimeoutMs);
  pcap_set_buffer_size(handle, Device::kImmediateBufferSize);
  if (mode.group != nullptr) FanoutGroup::silence(handle);
  const int status = pcap_activate(handle);
  if (status >= 0) return handle;
  // The message of the device is more precise than that of the status, but may be empty.
  reason = pcap_statustostr(status);
  if (const std::string message = pcap_geterr(handle); !message.empty()) reason += " (" + message + ")";
  pcap_close(handle);
  return nullptr;
}

Device::FilterResult install(pcap_t* handle, const std::string& expression, std::string& reason) {
  bpf_program program{};
  if (pcap_compile(handle, &program, expression.c_str(), 0, 0) == -1) {
    reason = pcap_geterr(handle);
    return Device::kFilterNotCompiled;
  }
  const int status = pcap_setfilter(handle, &program);
  pcap_freecode(&program);
  reason = status == 0 ? "" : pcap_geterr(handle);
  return status == 0 ? Device::kFilterInstalled : Device::kFilterNotInstalled;
}

}  // namespace

std::optional<std::string_view> captureFilePath(std::string_view deviceName) {
  if (!deviceName.starts_with(kFilePrefix)) return std::nullopt;
  return deviceName.substr(kFilePrefix.size());
}

bool isPipe(std::string_view deviceName) {
  const auto path = captureFilePath(deviceName);
  std::error_code ignored;
  return path && std::filesystem::is_fifo(*path, ignored);
}

// ---- opening and closing ----

bool Device::open(const std::string& name, const Mode& mode) {
  close();
  name_ = name;
  mode_ = mode;
  const auto path = captureFilePath(name);
  if (!mode.opensPipes && isPipe(name)) {
    error_ = "it is a pipe, which a check does not open";
    return false;
  }
  pcap_t* const opened = path ? openFile(*path, error_) : openNetworkDevice(error_);
  adopt(joinGroup(closeUnlessSupported(opened, mode_, error_), error_));
  if (handle_ == nullptr) return false;
  if (path) pace_ = std::make_unique<ReplayPace>();
  error_.clear();  // libpcap leaves warnings in it
  return true;
}

pcap_t* Device::openNetworkDevice(std::string& reason) const {
  if (mode_.group != nullptr && !mode_.isFirst && !mode_.group->hasMembers()) {
    reason = "its first socket has no fanout group";
    return nullptr;
  }
  if (mode_.immediate || mode_.group != nullptr) return openImmediate(name_, mode_, reason);
  char errbuf[PCAP_ERRBUF_SIZE] = "";
  pcap_t* handle = pcap_open_live(name_.c_str(), mode_.snapLength, mode_.promiscuous, kReadTimeoutMs, errbuf);
  reason = errbuf;
  return handle;
}

/// Returns the handle, or closes it and returns null when it gets no frames.
pcap_t* Device::joinGroup(pcap_t* opened, std::string& reason) {
  if (opened == nullptr || mode_.group == nullptr || isFile()) return opened;
  switch (mode_.group->join(opened, mode_.isFirst, reason)) {
    case FanoutGroup::Result::kJoined:
      isMember_ = true;
      return opened;
    case FanoutGroup::Result::kAlone:
      logger().error("Device " + name_ + " is captured by one thread, more are not possible: " + reason);
      return opened;
    case FanoutGroup::Result::kFailed:
      break;
  }
  pcap_close(opened);
  return nullptr;
}

void Device::closeAfterJoin(pcap_t* opened) {
  if (isMember_.exchange(false)) mode_.group->leave();
  pcap_close(opened);
}

void Device::adopt(pcap_t* opened) {
  const MutexLock lock(mutex_);
  if (handle_ != opened) release();
  handle_ = opened;
  stopped_ = false;
}

void Device::close() {
  const MutexLock lock(mutex_);
  release();
  pace_.reset();
  received_ = droppedByKernel_ = droppedByInterface_ = {};
  takenDrops_ = 0;
}

void Device::release() {
  if (handle_ != nullptr) closeAfterJoin(std::exchange(handle_, nullptr));
  received_.restart();
  droppedByKernel_.restart();
  droppedByInterface_.restart();
}

Device::FilterResult Device::setFilter(const std::string& expression) {
  filter_ = expression;
  if (handle_ == nullptr) return kFilterInstalled;
  return install(handle_, filter_, error_);
}

bool Device::filtersAfterCopying() const {
  if (handle_ == nullptr || isFile()) return false;
  socklen_t instructions = 0;  // with no space for them, the kernel returns their number
  // Fails for a device that is captured in another way than through a packet socket.
  if (getsockopt(pcap_fileno(handle_), SOL_SOCKET, SO_GET_FILTER, nullptr, &instructions) != 0) return false;
  return instructions == 0;
}

// ---- capturing ----

int Device::capture(int count, pcap_handler callback) {
  if (isFile()) return replay(count, callback);
  for (;;) {
    if (handle_ != nullptr) {
      const int result = pcap_loop(handle_, count, callback, nullptr);
      if (result != PCAP_ERROR) return result;
      error_ = pcap_geterr(handle_);
    }
    if (!reopens()) return PCAP_ERROR;
    if (!waitUntilReopened()) return PCAP_ERROR_BREAK;
  }
}

int Device::replay(int count, pcap_handler callback) {
  struct Player {
    ReplayPace& pace;
    pcap_handler callback;
  } player{*pace_, callback};
  const auto play = [](u_char* user, const pcap_pkthdr* header, const u_char* frame) {
    auto& [pace, pass] = *reinterpret_cast<Player*>(user);
    if (pace.waitFor(header->ts)) pass(nullptr, header, frame);
  };
  const int result = pcap_loop(handle_, count, play, reinterpret_cast<u_char*>(&player));
  if (result == PCAP_ERROR) error_ = pcap_geterr(handle_);
  return result;
}

/// Opens the device again as soon as it exists. Returns false after breakLoop().
bool Device::waitUntilReopened() {
  const bool wasOpen = handle_ != nullptr;
  if (!releaseHandle()) return false;
  if (wasOpen && mode_.isFirst) {
    logger().warn("Device " + name_ + " is gone (" + error_ + "), it is tried again every second");
  }
  do {
    if (!pauseBeforeRetry()) return false;
  } while (!reopen());
  if (mode_.isFirst) logger().info("Device " + name_ + " is there and is captured");
  return true;
}

/// Returns false after breakLoop().
bool Device::releaseHandle() {
  std::string unused;
  getStatistics(unused);  // the last counts of the handle
  const MutexLock lock(mutex_);
  release();
  return !stopped_;
}

/// Returns false after breakLoop().
bool Device::pauseBeforeRetry() {
  const auto end = Condition::Clock::now() + kRetryInterval;
  const MutexLock lock(mutex_);
  while (!stopped_ && stopSignal_.waitUntil(mutex_, end)) {
  }
  return !stopped_;
}

bool Device::reopen() {
  pcap_t* opened = joinGroup(closeUnlessSupported(openNetworkDevice(error_), mode_, error_), error_);
  if (opened == nullptr) return false;
  if (install(opened, filter_, error_) != kFilterInstalled) {
    closeAfterJoin(opened);
    return false;
  }
  const MutexLock lock(mutex_);
  handle_ = opened;
  if (stopped_) pcap_breakloop(handle_);
  return true;
}

void Device::breakLoop() {
  {
    const MutexLock lock(mutex_);
    stopped_ = true;
    if (handle_ != nullptr) pcap_breakloop(handle_);
    if (pace_) pace_->stop();
  }
  stopSignal_.notifyAll();
}

DeviceStatistics Device::getStatistics(std::string& reason) {
  const MutexLock lock(mutex_);
  if (pace_) return {name_, true, pace_->getPassed(), 0, 0};
  pcap_stat stat{};
  const bool isUp = handle_ != nullptr && pcap_stats(handle_, &stat) == 0;
  if (isUp) {
    received_.update(stat.ps_recv);
    droppedByKernel_.update(stat.ps_drop);
    if (mode_.isFirst) droppedByInterface_.update(stat.ps_ifdrop);
  } else {
    reason = handle_ != nullptr ? pcap_geterr(handle_) : "it is not open";
  }
  return {name_, isUp, received_.getTotal(), droppedByKernel_.getTotal(), droppedByInterface_.getTotal()};
}

std::uint64_t Device::takeNewDrops(const DeviceStatistics& figures) {
  const MutexLock lock(mutex_);
  return figures.droppedByKernel - std::exchange(takenDrops_, figures.droppedByKernel);
}

}  // namespace voip
