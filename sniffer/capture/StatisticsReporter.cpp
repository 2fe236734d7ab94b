#include "capture/StatisticsReporter.h"

#include <chrono>

#include "base/Logger.h"
#include "statistics/PrometheusText.h"

namespace voip {

std::unique_ptr<StatisticsFile> StatisticsReporter::writeFile(const Settings& settings) {
  if (settings.statisticsFile.empty()) return nullptr;
  const std::chrono::seconds interval(settings.statisticsInterval > 0 ? settings.statisticsInterval : kFileInterval);
  return std::make_unique<StatisticsFile>(settings.statisticsFile, interval, [this] { return getPrometheusText(); });
}

std::unique_ptr<PeriodicTask> StatisticsReporter::logRegularly(const Settings& settings) {
  if (settings.statisticsInterval == 0) return nullptr;
  return std::make_unique<PeriodicTask>(std::chrono::seconds(settings.statisticsInterval), [this] { log(); });
}

std::string StatisticsReporter::getPrometheusText() {
  return prometheusText(dissector_.getStatistics(), devices_.getStatistics(), dissector_.getRecorderStatistics());
}

void StatisticsReporter::log() {
  const MutexLock lock(mutex_);
  for (int i = 0; i < devices_.sockets(); ++i) {
    if (devices_.isCaptured(i)) logDevice(i);
  }
  logger().info(dissector_.reportStatistics());
  for (const std::string& line : dissector_.reportRecorders()) logger().info(line);
}

void StatisticsReporter::logDevice(int i) {
  Device& device = devices_[i];
  const std::string thread = devices_.isShared(i) ? ", thread " + std::to_string(i) : "";
  const std::string heading = "Statistics of device " + devices_.getName(i) + thread + ":";
  std::string reason;
  const DeviceStatistics now = device.getStatistics(reason);
  if (!now.isUp && !device.reopens()) {
    logger().warn(heading + " not to be had: " + reason);
    return;
  }
  if (device.isFile()) {
    logger().info(heading + " replayed=" + std::to_string(now.received));
    return;
  }
  const std::string text = heading + " received=" + std::to_string(now.received) +
                           " droppedByKernel=" + std::to_string(now.droppedByKernel) +
                           " droppedByInterface=" + std::to_string(now.droppedByInterface);
  const std::uint64_t newDrops = device.takeNewDrops(now);
  if (newDrops == 0) {
    logger().info(text);
    return;
  }
  logger().warn(
      text + "; " + std::to_string(newDrops) +
      " frames are lost since the last report: a larger buffer (ImmediateCapture=yes), a narrower filter or a "
      "free processor core helps");
}

}  // namespace voip
