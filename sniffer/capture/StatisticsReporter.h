#pragma once

#include <memory>
#include <string>

#include "base/Mutex.h"
#include "capture/DeviceList.h"
#include "dissection/SngDissector.h"
#include "settings/Settings.h"
#include "statistics/PeriodicTask.h"
#include "statistics/StatisticsFile.h"

namespace voip {

/// Reports the figures of the devices and of the dissector, in the log and in a file.
class StatisticsReporter {
 public:
  static constexpr int kFileInterval = 60;  ///< seconds, without StatisticsInterval

  StatisticsReporter(DeviceList& devices, SngDissector& dissector) : devices_(devices), dissector_(dissector) {}

  /// Logs a line for each capture thread and one for the dissector. The line of a device is a WARN when the kernel has
  /// dropped frames since the last report. Any thread.
  void log();

  /// Returns the figures in the text format of Prometheus. Any thread.
  std::string getPrometheusText();

  /// Keeps the file of the settings up to date as long as the returned object lives. Null when the settings name none.
  std::unique_ptr<StatisticsFile> writeFile(const Settings& settings);

  /// Logs at the interval of the settings as long as the returned object lives. Null when the settings have none.
  std::unique_ptr<PeriodicTask> logRegularly(const Settings& settings);

 private:
  void logDevice(int i) REQUIRES(mutex_);

  DeviceList& devices_;
  SngDissector& dissector_;
  Mutex mutex_;  ///< held during a report, so that the reports of two threads do not mix
};

}  // namespace voip
