#include "ReplayPace.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

constexpr std::string_view kFilePrefix = "file:";

// The clock counts in nanoseconds and would overflow on the way to what a file can claim: no wait is longer than a
// year, and no time stamp lies outside these seconds.
constexpr std::chrono::microseconds kLongestWait = std::chrono::hours(24 * 365);
constexpr time_t kLastSecond = time_t{1} << 33;

bool fullSpeedWanted() {
  const char* pace = std::getenv("SNIFFER_REPLAY_PACE");
  return pace != nullptr && std::string_view(pace) == "full";
}

}  // namespace

std::optional<std::string_view> captureFilePath(std::string_view deviceName) {
  if (!deviceName.starts_with(kFilePrefix)) return std::nullopt;
  return deviceName.substr(kFilePrefix.size());
}

pcap_t* openCaptureFile(std::string_view path, char* errbuf) {
  pcap_t* handle = pcap_open_offline(std::string(path).c_str(), errbuf);
  if (handle == nullptr || pcap_datalink(handle) == DLT_EN10MB) return handle;
  const char* name = pcap_datalink_val_to_name(pcap_datalink(handle));
  std::snprintf(errbuf, PCAP_ERRBUF_SIZE, "the frames of this file are %s, not Ethernet; capture on an Ethernet device",
                name != nullptr ? name : "of an unknown kind");
  pcap_close(handle);
  return nullptr;
}

ReplayPace::ReplayPace() : unpaced(fullSpeedWanted()) {}

bool ReplayPace::waitFor(const timeval& timeStamp) {
  const auto stamp = std::chrono::seconds(std::clamp(timeStamp.tv_sec, time_t{0}, kLastSecond)) +
                     std::chrono::microseconds(std::clamp<suseconds_t>(timeStamp.tv_usec, 0, 999'999));
  std::unique_lock guard(lock);
  if (!firstStamp) {
    firstStamp = stamp;
    start = Clock::now();
  }
  if (!unpaced) {
    const auto due = start + std::clamp(stamp - *firstStamp, std::chrono::microseconds(0), kLongestWait);
    stopSignal.wait_until(guard, due, [this] { return stopped; });
  }
  if (!stopped) ++passed;
  return !stopped;
}

void ReplayPace::stop() {
  {
    const std::lock_guard guard(lock);
    stopped = true;
  }
  stopSignal.notify_all();
}
