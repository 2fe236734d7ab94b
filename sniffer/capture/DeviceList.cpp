#include "capture/DeviceList.h"

#include "base/Logger.h"
#include "settings/StringTokenizer.h"

namespace voip {

// ---- names ----

void DeviceList::setNames(const char* names) {
  size_ = sockets_ = 0;
  StringTokenizer tokens(names, ';');
  while (tokens.hasMoreTokens()) {
    if (add(tokens.nextToken())) sockets_ = ++size_;
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
  entries_[size_].group.reset();
  return true;
}

// ---- opening and closing ----

bool DeviceList::open(int i, const Device::Mode& mode) {
  auto& [name, device, isDown, group] = entries_[i];
  if (device.open(name, mode)) {
    logger().info("Device: " + name + " opened");
    return true;
  }
  logger().error("Couldn't open device " + name + ":" + device.getError());
  return false;
}

int DeviceList::openAll(const Device::Mode& mode, const std::string& filter, int threads, const TunnelPorts& tunnels) {
  sockets_ = size_;
  for (int i = 0; i < size_; ++i) addSockets(i, threads, tunnels);
  for (int i = 0; i < size_; ++i) {
    Entry& entry = entries_[i];
    Device::Mode own = mode;
    own.group = entry.group;
    own.zone = zoneOf(i);
    entry.isDown = !open(i, own);
    openSockets(i, own);
    if (!isDown(i)) {
      if (const int status = installFilter(entry.device, filter); status != 0) return status;
    } else {
      entry.device.setFilter(filter);  // for the time when it is there
    }
    setSocketFilters(i, filter);
  }
  return 0;
}

/// The number of the first device with this name, from 1.
std::uint16_t DeviceList::zoneOf(int i) const {
  int first = 0;
  while (getName(first) != getName(i)) ++first;
  return static_cast<std::uint16_t>(first + 1);
}

// ---- further sockets ----

void DeviceList::addSockets(int i, int threads, const TunnelPorts& tunnels) {
  entries_[i].group.reset();
  if (threads <= 1) return;
  const std::string name = getName(i);
  if (captureFilePath(name)) {
    logger().info("Device " + name + " is a file, which one thread replays");
    return;
  }
  entries_[i].group = std::make_shared<FanoutGroup>(tunnels);
  for (int more = 1; more < threads; ++more) {
    Entry& entry = entries_[sockets_++];
    entry.name = name;
    entry.group = entries_[i].group;
  }
}

/// Calls `use` with each further socket of device i.
template <typename Use>
void DeviceList::forSockets(int i, Use use) {
  if (entries_[i].group == nullptr) return;
  for (int n = size_; n < sockets_; ++n) {
    if (entries_[n].group == entries_[i].group) use(entries_[n]);
  }
}

/// All sockets are in the group before one of them gets frames. So no frame is delivered twice.
void DeviceList::openSockets(int i, Device::Mode mode) {
  mode.isFirst = false;
  int open = 1;
  forSockets(i, [&](Entry& entry) {
    entry.isDown = !entry.device.open(entry.name, mode);
    if (!entry.isDown) {
      ++open;
    } else if (entry.group->hasMembers()) {
      logger().error("Device " + entry.name + " has a capture thread less: " + entry.device.getError());
    }
  });
  if (open > 1) logger().info("Device " + getName(i) + " is captured by " + std::to_string(open) + " threads");
}

/// The filter has been installed on the first socket of the device, so a failure is that of the socket.
void DeviceList::setSocketFilters(int i, const std::string& filter) {
  forSockets(i, [&](Entry& entry) {
    if (entry.device.setFilter(filter) == Device::kFilterInstalled) return;
    logger().error("Device " + entry.name + " has a capture thread less: " + entry.device.getError());
    entry.device.close();
    entry.isDown = true;
  });
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
  size_ = sockets_ = 0;
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
  for (int i = 0; i < sockets_; ++i) all.push_back(entries_[i].device.getStatistics(reason));
  return all;
}

}  // namespace voip
