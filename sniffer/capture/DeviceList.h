#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "capture/Device.h"

namespace voip {

/// The capture devices of the engine, in the order of the setting. The list has a place for each possible device, so a
/// reference to a device stays valid. One thread changes the list; getStatistics() may be called by any thread.
///
/// With several capture threads each network device has further sockets, which share its frames. They follow the
/// devices in the list: those of the first device, then those of the second.
class DeviceList {
 public:
  static constexpr int kMaxDevices = 10;
  static constexpr int kMaxThreads = 16;  ///< of each device
  static constexpr int kMaxSockets = kMaxDevices * kMaxThreads;
  static constexpr int kMaxNameLength = 49;  ///< a name "file:PATH" may be longer

  DeviceList() { entries_[0].isDown = true; }
  DeviceList(const DeviceList&) = delete;
  DeviceList& operator=(const DeviceList&) = delete;

  /// Replaces the names by those in a text, separated by ';'. Names beyond the limits are left out with an ERROR.
  void setNames(const char* names);

  /// The number of devices.
  int size() const { return size_; }

  /// The number of devices and of their further sockets. Before openAll() there are no further sockets.
  int sockets() const { return sockets_; }

  const std::string& getName(int i) const { return entries_[i].name; }
  Device& operator[](int i) { return entries_[i].device; }

  /// Opens a device and logs the result. Returns false when it cannot be opened.
  bool open(int i, const Device::Mode& mode);

  /// Opens all devices, each with so many capture threads, and installs the filter on those that could be opened.
  /// Returns 0, or the result of the first filter that failed; the later devices are not opened then. Frames on
  /// the ports of `tunnels` go to the first thread.
  int openAll(const Device::Mode& mode, const std::string& filter, int threads = 1, const TunnelPorts& tunnels = {});

  /// Closes all devices.
  void close();

  /// Closes all devices and removes their names.
  void clear();

  /// True when device i is captured by several threads.
  bool isShared(int i) const { return entries_[i].group != nullptr; }

  /// True when openAll() could not open the device. Before openAll() only the first device counts as down.
  bool isDown(int i) const { return entries_[i].isDown; }

  /// True when the device is down but will be captured as soon as it exists.
  bool isAwaited(int i) const { return isDown(i) && entries_[i].device.reopens(); }

  /// True when the device has a capture thread while the engine runs.
  bool isCaptured(int i) const { return !isDown(i) || isAwaited(i); }

  /// True when no device is captured.
  bool allDown() const;

  /// True when every device is a file to replay.
  bool replaysOnly() const;

  /// Returns the figures of all sockets. Any thread.
  std::vector<DeviceStatistics> getStatistics();

 private:
  struct Entry {
    std::string name;
    Device device;
    bool isDown = false;
    std::shared_ptr<FanoutGroup> group;  ///< null with one capture thread
  };

  bool add(const std::string& name);
  std::uint16_t zoneOf(int i) const;
  void addSockets(int i, int threads, const TunnelPorts& tunnels);
  void openSockets(int i, Device::Mode mode);
  void setSocketFilters(int i, const std::string& filter);
  template <typename Use>
  void forSockets(int i, Use use);
  int installFilter(Device& device, const std::string& filter);

  std::array<Entry, kMaxSockets> entries_;
  int size_ = 0;
  int sockets_ = 0;
};

}  // namespace voip
