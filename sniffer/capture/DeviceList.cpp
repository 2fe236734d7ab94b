#include "capture/DeviceList.h"

#include "base/Logger.h"
#include "settings/StringTokenizer.h"

namespace voip {

// ---- names ----

void DeviceList::setNames(const char* names) {
  size_ = 0;
  StringTokenizer tokens(names, ';');
  while (tokens.hasMoreTokens()) {
    if (add(tokens.nextToken())) ++size_;
  }
}

bool DeviceList::add(const std::string& name) {
  if (size_ == kMaxDevices) {
    logger().error("Device " + name + " is left out: at most " + std::to_string(kMaxDevices) + " devices are captured");
    return false;
  }
  if (name.size() > kMaxNameLength && !captureFilePath(name)) {
    logger().error("Device " + name + " is left out: a device name has at most " + std::to_string(kMaxNameLength) +
                   " characters");
    return false;
  }
  entries_[size_].name = name;
  return true;
}

// ---- opening and closing ----

bool DeviceList::open(int i, const Device::Mode& mode) {
  auto& [name, device, isDown] = entries_[i];
  if (device.open(name, mode)) {
    logger().info("Device: " + name + " opened");
    return true;
  }
  logger().error("Couldn't open device " + name + ":" + device.getError());
  return false;
}

int DeviceList::openAll(const Device::Mode& mode, const std::string& filter) {
  for (int i = 0; i < size_; ++i) {
    entries_[i].isDown = !open(i, mode);
    if (isDown(i)) continue;
    if (const int status = installFilter(entries_[i].device, filter); status != 0) return status;
  }
  return 0;
}

int DeviceList::installFilter(Device& device, const std::string& filter) {
  const Device::FilterResult result = device.setFilter(filter);
  if (result == Device::kFilterNotCompiled) {
    logger().error("Couldn't parse filter " + filter + ":" + device.getError());
    return result;
  }
  logger().info("Filter compilation ok: " + filter);
  if (result == Device::kFilterNotInstalled) {
    logger().error("Couldn't install filter " + filter + ": " + device.getError());
    return result;
  }
  logger().info("Filter instalation ok: " + filter);
  return 0;
}

void DeviceList::close() {
  for (Entry& entry : entries_) entry.device.close();
}

void DeviceList::clear() {
  close();
  for (Entry& entry : entries_) entry.name.clear();
  size_ = 0;
}

// ---- state ----

bool DeviceList::allDown() const {
  for (int i = 0; i < size_; ++i) {
    if (isCaptured(i)) return false;
  }
  return true;
}

bool DeviceList::replaysOnly() const {
  for (int i = 0; i < size_; ++i) {
    if (!captureFilePath(getName(i))) return false;
  }
  return true;
}

std::vector<DeviceStatistics> DeviceList::getStatistics() {
  std::vector<DeviceStatistics> all;
  std::string reason;
  for (int i = 0; i < size_; ++i) all.push_back(entries_[i].device.getStatistics(reason));
  return all;
}

}  // namespace voip
