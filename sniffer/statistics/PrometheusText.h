#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "statistics/Statistics.h"

namespace voip {

/// What became of the frames of one device.
struct DeviceStatistics {
  std::string name;
  bool isUp = false;  ///< it is open
  std::uint64_t received = 0;
  std::uint64_t droppedByKernel = 0;
  std::uint64_t droppedByInterface = 0;
};

/// All figures in the text format of Prometheus, version 0.0.4, as node_exporter's textfile collector takes it.
std::string prometheusText(const Statistics& statistics, const std::vector<DeviceStatistics>& devices);

}  // namespace voip
