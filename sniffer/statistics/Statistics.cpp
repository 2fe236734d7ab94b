#include "statistics/Statistics.h"

namespace voip {

void Statistics::countWait(std::chrono::milliseconds time, std::size_t frames) {
  sendWaits.add();
  framesWaited.add(frames);
  sendWaitLongest.raiseTo(static_cast<std::uint64_t>(time.count()));
}

std::string Statistics::report(const Settings& settings) const {
  std::string text = "Statistics:";
  for (const StatisticsRow& row : kStatisticsRows) {
    if (row.name == nullptr) continue;
    const std::uint64_t value = this->*row.value;
    if (value != 0 || row.zeroShown(settings)) text += std::string(" ") + row.name + "=" + std::to_string(value);
  }
  return text;
}

}  // namespace voip
