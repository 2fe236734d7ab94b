#include "statistics/Statistics.h"

namespace voip {

namespace {

template <typename IsIncluded>
std::string reportWith(std::string text, const Statistics& statistics, const Settings& settings,
                       IsIncluded isIncluded) {
  for (const StatisticsRow& row : kStatisticsRows) {
    if (row.name == nullptr || !isIncluded(row)) continue;
    const std::uint64_t value = statistics.*row.value;
    if (value != 0 || row.zeroShown(settings)) text += std::string(" ") + row.name + "=" + std::to_string(value);
  }
  return text;
}

}  // namespace

void Statistics::countWait(std::chrono::milliseconds time, std::size_t frames) {
  sendWaits.add();
  framesWaited.add(frames);
  sendWaitLongest.raiseTo(static_cast<std::uint64_t>(time.count()));
}

std::string Statistics::report(const Settings& settings) const {
  return reportWith("Statistics:", *this, settings, [](const StatisticsRow&) { return true; });
}

std::string Statistics::reportOf(const std::string& recorder, const Settings& settings) const {
  return reportWith("Statistics of recorder " + recorder + ":", *this, settings, isOfRecorder);
}

}  // namespace voip
