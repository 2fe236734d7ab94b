#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "statistics/Statistics.h"

namespace voip {

/// The figures of one device.
struct DeviceStatistics {
  std::string name;
  bool isUp = false;  ///< the device is open
  std::uint64_t received = 0;
  std::uint64_t droppedByKernel = 0;
  std::uint64_t droppedByInterface = 0;
};

/// Returns all figures in the text format of Prometheus, version 0.0.4, for the textfile collector of node_exporter.
/// The samples of the further `recorders` have the label "recorder".
std::string prometheusText(const Statistics& statistics, const std::vector<DeviceStatistics>& devices,
                           const std::vector<RecorderStatistics>& recorders = {});

}  // namespace voip
