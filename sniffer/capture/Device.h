#pragma once

#include <pcap/pcap.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "statistics/PrometheusText.h"
#include "capture/ReplayPace.h"
#include "statistics/Statistics.h"

namespace voip {

/// The path in a device name "file:PATH", which is replayed, or nothing when it names a network device.
std::optional<std::string_view> captureFilePath(std::string_view deviceName);

/// A source of frames: a network device, or a capture file that stands for one and is replayed at the pace of its time
/// stamps. Opened, given a filter, read by one thread, closed.
class Device {
 public:
  static constexpr int kSnapLength = 8192;
  static constexpr int kReadTimeoutMs = 1000;

  // With immediate capture the kernel hands a block of frames over after this time. libpcap's own immediate mode would
  // wake the capture thread for each frame, at ten times the cost. Each block, however empty, takes 256 KiB of the
  // buffer: as many as fit, times the time-out, is how long the capture thread may be kept from running.
  static constexpr int kImmediateTimeoutMs = 2;
  static constexpr int kImmediateBufferSize = 128 * 1024 * 1024;

  /// What came of a filter, as the set-up returns it.
  enum FilterResult { kFilterInstalled = 0, kFilterNotCompiled = 3, kFilterNotInstalled = 4 };

  /// How a network device is opened.
  struct Mode {
    int promiscuous = 1;
    bool immediate = false;  ///< frames within milliseconds and through a large buffer
    bool reopen = false;     ///< capture() waits for a device that is missing or goes away, and takes it again
  };

  Device() = default;
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;
  ~Device() { close(); }

  /// Closes what is open and opens `name`. On failure false, and getError() tells why: there is no such device, the
  /// privilege is missing, or its frames have a link layer that is not understood.
  bool open(const std::string& name, const Mode& mode);

  /// Takes over a handle that was opened elsewhere.
  void adopt(pcap_t* opened);

  void close();

  /// Compiles a filter expression, empty for everything, and installs it, now and when the device is taken again. On
  /// failure getError() tells why.
  FilterResult setFilter(const std::string& expression);

  const std::string& getError() const { return error; }
  pcap_t* getHandle() const { return handle; }
  bool isFile() const { return pace != nullptr; }
  bool reopens() const { return mode.reopen && !isFile(); }

  /// The kind of frames, one of libpcap's DLT_ values.
  int linkType() const { return handle != nullptr ? pcap_datalink(handle) : DLT_EN10MB; }

  /// Reads frames until `count` of them have been given to `take` since the device was there (-1: endless), the file
  /// ends, the device fails or breakLoop() is called. What pcap_loop() has returned; getError() tells more of
  /// PCAP_ERROR. `take` gets a null user argument.
  int capture(int count, pcap_handler take);

  /// Ends capture(), now or as soon as it is called. Any thread. A blocked read of a file needs a signal besides.
  void breakLoop();

  /// What has been counted since open(), over the times that the device was away. `reason` tells why it is not up. Any
  /// thread.
  DeviceStatistics getStatistics(std::string& reason);

 private:
  pcap_t* openNetworkDevice(std::string& reason) const;
  int replay(int count, pcap_handler take);
  bool awaitReturn();
  bool takeAgain();
  void release();

  std::string name;
  std::string filter;
  std::string error;
  Mode mode;
  std::unique_ptr<ReplayPace> pace;  ///< of a file

  std::mutex lock;           ///< held while `handle` changes, and by the threads that do not capture while they use it
  pcap_t* handle = nullptr;  ///< changed by the capturing thread only, while there is one
  bool stopped = false;
  std::condition_variable stopSignal;

  // Guarded by `lock`. libpcap counts from 0 for each handle.
  CarriedCounter received, droppedByKernel, droppedByInterface;
};

}  // namespace voip
