#pragma once

#include <pcap/pcap.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/Mutex.h"
#include "capture/ExtendedCounter.h"
#include "capture/FanoutGroup.h"
#include "capture/ReplayPace.h"
#include "statistics/PrometheusText.h"

namespace voip {

/// Returns the path in a device name "file:PATH", or nothing when the name is that of a network device.
std::optional<std::string_view> captureFilePath(std::string_view deviceName);

/// Returns true when the device name is "file:PATH" and the file is a pipe.
bool isPipe(std::string_view deviceName);

/// A source of frames: a network device, or a capture file that is replayed at the pace of its time stamps. Several
/// objects for the same network device share its frames when they have a fanout group.
///
/// One thread opens the device, sets the filter, captures and closes. Other threads may call only the operations that
/// are marked "Any thread".
class Device {
 public:
  static constexpr int kSnapLength = 8192;
  static constexpr int kLargeSnapLength = 65535;  ///< segmentation offload makes frames as long as an IP packet
  static constexpr int kReadTimeoutMs = 1000;

  // With immediate capture the kernel passes on a block of frames after this time. The immediate mode of libpcap would
  // wake the capture thread for each frame, at ten times the cost. A block takes 256 KiB of the buffer even when it is
  // nearly empty: the capture thread may be kept from running for the number of blocks times the time-out.
  static constexpr int kImmediateTimeoutMs = 2;
  static constexpr int kImmediateBufferSize = 128 * 1024 * 1024;

  /// The result of setting a filter; also a result of the engine's set-up.
  enum FilterResult { kFilterInstalled = 0, kFilterNotCompiled = 3, kFilterNotInstalled = 4 };

  /// How a network device is opened.
  struct Mode {
    int promiscuous = 1;
    bool immediate = false;  ///< frames arrive within milliseconds, through a large buffer
    bool reopen = false;     ///< capture() opens a missing device again, one attempt a second
    int snapLength = kSnapLength;
    std::shared_ptr<FanoutGroup> group;  ///< null: the device gets all frames; else capture is immediate
    bool isFirst = true;                 ///< makes the group, and logs for all of it
    std::uint16_t zone = 0;              ///< see getZone()
    bool decapsulate = false;            ///< PPP is a supported link layer
    bool opensPipes = true;              ///< opening a pipe waits for the program that writes to it
  };

  Device() = default;
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;
  ~Device() { close(); }

  /// Closes what is open and opens `name`. Returns false on failure, with the reason in getError(): there is no such
  /// device, the privilege is missing, or the link layer is not supported.
  bool open(const std::string& name, const Mode& mode);

  /// Takes ownership of a handle that was opened elsewhere.
  void adopt(pcap_t* opened);

  void close();

  /// Compiles a filter expression and installs it, also when the device is opened again. An empty expression matches
  /// every frame. On failure the reason is in getError(). While no device is open, the expression is kept for the next
  /// opening.
  FilterResult setFilter(const std::string& expression);

  /// True when the kernel has not taken the filter, as too long for example. libpcap then copies all frames to the
  /// process and filters them there.
  bool filtersAfterCopying() const;

  /// The reason of the last failure, empty after a success.
  const std::string& getError() const { return error_; }

  pcap_t* getHandle() const { return handle_; }
  bool isFile() const { return pace_ != nullptr; }

  /// Returns SniffedPacket::replayShift of a capture file, and nothing for a network device. For the capture thread.
  std::optional<std::int64_t> getReplayShift() const { return pace_ ? std::optional(pace_->shift()) : std::nullopt; }

  /// True when a missing device is opened again. A file is not: when it is missing, its name is wrong.
  bool reopens() const { return mode_.reopen && !captureFilePath(name_); }

  /// The link layer of the frames, one of libpcap's DLT_ values.
  int getLinkType() const { return handle_ != nullptr ? pcap_datalink(handle_) : DLT_EN10MB; }

  /// The number of the device, by which link-local addresses on different devices differ.
  std::uint16_t getZone() const { return mode_.zone; }

  /// Reads frames and passes each to `callback`, with a null user argument. Ends after `count` frames since the device
  /// was last opened (-1: no limit), at the end of the file, on an error or on breakLoop(). Returns the result of
  /// pcap_loop(); the reason for PCAP_ERROR is in getError().
  int capture(int count, pcap_handler callback);

  /// Ends capture(), also one that has not started yet. Any thread. A signal has to interrupt a blocked read of a file.
  void breakLoop();

  /// Returns the figures since open(), including those from before the device was reopened. When the device is not up,
  /// `reason` says why. Of a group only the first has the drops of the interface, which all share. Any thread.
  DeviceStatistics getStatistics(std::string& reason);

  /// Returns the growth of droppedByKernel since the last call, up to the figures passed to this one. Any thread.
  std::uint64_t takeNewDrops(const DeviceStatistics& figures);

 private:
  pcap_t* openNetworkDevice(std::string& reason) const;
  pcap_t* joinGroup(pcap_t* opened, std::string& reason);
  void closeAfterJoin(pcap_t* opened);
  int replay(int count, pcap_handler callback);
  bool waitUntilReopened();
  bool pauseBeforeRetry();
  bool reopen();
  bool releaseHandle();
  void release() REQUIRES(mutex_);

  std::string name_;
  std::string filter_;
  std::string error_;
  Mode mode_;
  std::atomic<bool> isMember_ = false;  ///< of the group
  std::unique_ptr<ReplayPace> pace_;    ///< null for a network device

  Mutex mutex_;
  Condition stopSignal_;
  bool stopped_ GUARDED_BY(mutex_) = false;

  /// Only the capturing thread changes it, with `mutex_` held. Other threads hold `mutex_` while they use it.
  pcap_t* handle_ = nullptr;

  // libpcap counts from 0 for each handle.
  ExtendedCounter received_ GUARDED_BY(mutex_);
  ExtendedCounter droppedByKernel_ GUARDED_BY(mutex_);
  ExtendedCounter droppedByInterface_ GUARDED_BY(mutex_);
  std::uint64_t takenDrops_ GUARDED_BY(mutex_) = 0;
};

}  // namespace voip
