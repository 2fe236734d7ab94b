#include "statistics/PrometheusText.h"

#include <cstdio>
#include <string_view>

namespace voip {

namespace {

constexpr std::string_view kPrefix = "sniffer_";

struct DeviceRow {
  const char* metric;
  const char* type;
  const char* by;    ///< value of the label `by`, or null
  const char* help;  ///< empty in the second row of a metric
  std::uint64_t (*value)(const DeviceStatistics& device);
};

constexpr const char* kUp = "device_up";

constexpr DeviceRow kDeviceRows[] = {
    {kUp, "gauge", nullptr, "1 while the device is open.",
     [](const DeviceStatistics& device) -> std::uint64_t { return device.isUp; }},
    {"device_received_frames_total", "counter", nullptr, "Frames received from the device.",
     [](const DeviceStatistics& device) { return device.received; }},
    {"device_dropped_frames_total", "counter", "kernel",
     "Frames lost before the sniffer: in the full buffer of the kernel or in the interface.",
     [](const DeviceStatistics& device) { return device.droppedByKernel; }},
    {"device_dropped_frames_total", "counter", "interface", "",
     [](const DeviceStatistics& device) { return device.droppedByInterface; }},
};

void addHeading(std::string& text, const std::string& metric, const char* help, const char* type) {
  text += "# HELP " + metric + " " + help + "\n# TYPE " + metric + " " + type + "\n";
}

void addSample(std::string& text, const std::string& metric, const std::string& labels, const std::string& value) {
  text += metric + (labels.empty() ? "" : "{" + labels + "}") + " " + value + "\n";
}

/// Returns a label value in quotes. Other characters than printable ASCII become '?': a byte that is not UTF-8 makes
/// the whole file invalid.
std::string quoted(const std::string& value) {
  std::string text = "\"";
  for (const char c : value) {
    if (c == '\\' || c == '"') text += '\\';
    text += c >= ' ' && c <= '~' ? c : '?';
  }
  return text + "\"";
}

std::string inBaseUnit(std::uint64_t value, StatisticsRow::Unit unit) {
  if (unit == StatisticsRow::kNone) return std::to_string(value);
  char text[32];
  std::snprintf(text, sizeof text, "%llu.%03u", static_cast<unsigned long long>(value / 1000),
                static_cast<unsigned>(value % 1000));
  return text;
}

void addRow(std::string& text, const StatisticsRow& row, const Statistics& statistics,
            const std::vector<RecorderStatistics>& recorders) {
  const std::string metric = std::string(kPrefix) + row.metric;
  if (*row.help != 0) addHeading(text, metric, row.help, row.kind == StatisticsRow::kCounter ? "counter" : "gauge");
  addSample(text, metric, row.label, inBaseUnit(statistics.*row.value, row.unit));
  if (!isOfRecorder(row)) return;
  for (const RecorderStatistics& one : recorders) {
    const std::string labels = (*row.label != 0 ? row.label + std::string(",") : "") + "recorder=" + quoted(one.name);
    addSample(text, metric, labels, inBaseUnit(one.figures.*row.value, row.unit));
  }
}

void addDeviceRow(std::string& text, const DeviceRow& row, const std::vector<DeviceStatistics>& devices) {
  const std::string metric = std::string(kPrefix) + row.metric;
  if (*row.help != 0) addHeading(text, metric, row.help, row.type);
  for (std::size_t i = 0; i < devices.size(); ++i) {
    // A counter that falls to 0 and rises again would look like a burst. A missing sample does not.
    if (!devices[i].isUp && row.metric != kUp) continue;
    // The index distinguishes the entries of a device that is listed twice.
    std::string labels = "device=" + quoted(devices[i].name) + ",index=" + quoted(std::to_string(i));
    if (row.by != nullptr) labels += ",by=" + quoted(row.by);
    addSample(text, metric, labels, std::to_string(row.value(devices[i])));
  }
}

}  // namespace

std::string prometheusText(const Statistics& statistics, const std::vector<DeviceStatistics>& devices,
                           const std::vector<RecorderStatistics>& recorders) {
  std::string text;
  for (const StatisticsRow& row : kStatisticsRows) addRow(text, row, statistics, recorders);
  for (const DeviceRow& row : kDeviceRows) addDeviceRow(text, row, devices);
  return text;
}

}  // namespace voip
