#include "capture/Device.h"


#include <chrono>
#include <utility>

#include "network/LinkLayer.h"
#include "base/Logger.h"

namespace voip {

namespace {

constexpr std::string_view kFilePrefix = "file:";
constexpr std::chrono::seconds kRetryInterval(1);


/// The link layer if it is one that is not understood, else empty.
std::string strangeLinkLayer(pcap_t* handle) {
  const int type = pcap_datalink(handle);
  if (understandsLinkType(type)) return {};
  const char* known = pcap_datalink_val_to_name(type);
  return known != nullptr ? known : "number " + std::to_string(type);
}

/// Closes the handle and returns null when its frames are not understood.
pcap_t* understood(pcap_t* handle, std::string& reason) {
  const std::string strange = handle != nullptr ? strangeLinkLayer(handle) : std::string();
  if (strange.empty()) return handle;
  reason = "its frames have the link layer " + strange +
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

pcap_t* openImmediate(const std::string& name, int promiscuous, std::string& reason) {
  char errbuf[PCAP_ERRBUF_SIZE] = "";
  pcap_t* handle = pcap_create(name.c_str(), errbuf);
  reason = errbuf;
  if (handle == nullptr) return nullptr;
  pcap_set_snaplen(handle, Device::kSnapLength);
  pcap_set_promisc(handle, promiscuous);
  pcap_set_timeout(handle, Device::kImmediateTimeoutMs);
  pcap_set_buffer_size(handle, Device::kImmediateBufferSize);
  const int status = pcap_activate(handle);
  if (status >= 0) return handle;
  // The device's own words say more than those for the status, when there are any.
  reason = pcap_statustostr(status);
  if (const std::string words = pcap_geterr(handle); !words.empty()) reason += " (" + words + ")";
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
  if (status == 0) return Device::kFilterInstalled;
  reason = pcap_geterr(handle);
  return Device::kFilterNotInstalled;
}

}  // namespace

std::optional<std::string_view> captureFilePath(std::string_view deviceName) {
  if (!deviceName.starts_with(kFilePrefix)) return std::nullopt;
  return deviceName.substr(kFilePrefix.size());
}

// ---- opening and closing ----

bool Device::open(const std::string& newName, const Mode& newMode) {
  close();
  name = newName;
  mode = newMode;
  const auto path = captureFilePath(name);
  adopt(understood(path ? openFile(*path, error) : openNetworkDevice(error), error));
  if (path && handle != nullptr) pace = std::make_unique<ReplayPace>();
  return handle != nullptr;
}

pcap_t* Device::openNetworkDevice(std::string& reason) const {
  if (mode.immediate) return openImmediate(name, mode.promiscuous, reason);
  char errbuf[PCAP_ERRBUF_SIZE] = "";
  pcap_t* opened = pcap_open_live(name.c_str(), kSnapLength, mode.promiscuous, kReadTimeoutMs, errbuf);
  reason = errbuf;
  return opened;
}

void Device::adopt(pcap_t* opened) {
  const std::lock_guard guard(lock);
  if (handle != opened) release();
  handle = opened;
  stopped = false;
}

void Device::close() {
  const std::lock_guard guard(lock);
  release();
  pace.reset();
  received = droppedByKernel = droppedByInterface = {};
}

void Device::release() {
  if (handle != nullptr) pcap_close(std::exchange(handle, nullptr));
  received.restart();
  droppedByKernel.restart();
  droppedByInterface.restart();
}

Device::FilterResult Device::setFilter(const std::string& expression) {
  filter = expression;
  return install(handle, filter, error);
}

// ---- capturing ----

int Device::capture(int count, pcap_handler take) {
  if (isFile()) return replay(count, take);
  for (;;) {
    if (handle != nullptr) {
      const int result = pcap_loop(handle, count, take, nullptr);
      if (result != PCAP_ERROR) return result;
      error = pcap_geterr(handle);
    }
    if (!reopens()) return PCAP_ERROR;
    if (!awaitReturn()) return PCAP_ERROR_BREAK;
  }
}

int Device::replay(int count, pcap_handler take) {
  struct Player {
    ReplayPace& pace;
    pcap_handler take;
  } player{*pace, take};
  const auto play = [](u_char* user, const pcap_pkthdr* header, const u_char* frame) {
    auto& [slow, next] = *reinterpret_cast<Player*>(user);
    if (slow.waitFor(header->ts)) next(nullptr, header, frame);
  };
  const int result = pcap_loop(handle, count, play, reinterpret_cast<u_char*>(&player));
  if (result == PCAP_ERROR) error = pcap_geterr(handle);
  return result;
}

bool Device::awaitReturn() {
  const bool wasThere = handle != nullptr;
  std::string unread;
  getStatistics(unread);  // takes in the last ones of the handle
  {
    const std::lock_guard guard(lock);
    release();
    if (stopped) return false;
  }
  if (wasThere) logger().warn("Device " + name + " is gone (" + error + "), it is tried again every second");
  for (;;) {
    {
      std::unique_lock guard(lock);
      if (stopSignal.wait_for(guard, kRetryInterval, [this] { return stopped; })) return false;
    }
    if (takeAgain()) break;
  }
  logger().info("Device " + name + " is there and is captured");
  return true;
}

bool Device::takeAgain() {
  pcap_t* opened = understood(openNetworkDevice(error), error);
  if (opened == nullptr) return false;
  if (install(opened, filter, error) != kFilterInstalled) {
    pcap_close(opened);
    return false;
  }
  const std::lock_guard guard(lock);
  handle = opened;
  if (stopped) pcap_breakloop(handle);
  return true;
}

void Device::breakLoop() {
  {
    const std::lock_guard guard(lock);
    stopped = true;
    if (handle != nullptr) pcap_breakloop(handle);
    if (pace) pace->stop();
  }
  stopSignal.notify_all();
}

DeviceStatistics Device::getStatistics(std::string& reason) {
  const std::lock_guard guard(lock);
  if (pace) return {name, true, pace->getPassed(), 0, 0};
  pcap_stat stat{};
  const bool isUp = handle != nullptr && pcap_stats(handle, &stat) == 0;
  if (isUp) {
    received.advance(stat.ps_recv);
    droppedByKernel.advance(stat.ps_drop);
    droppedByInterface.advance(stat.ps_ifdrop);
  } else {
    reason = handle != nullptr ? pcap_geterr(handle) : "it is not open";
  }
  return {name, isUp, received.total, droppedByKernel.total, droppedByInterface.total};
}

}  // namespace voip
