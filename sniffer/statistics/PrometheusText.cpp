#include "statistics/PrometheusText.h"

#include <cstdio>
#include <string_view>

namespace voip {

namespace {

constexpr std::string_view kPrefix = "sniffer_";

struct DeviceRow {
  const char* metric;
  const char* type;
  const char* cause;  ///< the value of the label `by`, or null
  const char* help;
  std::uint64_t (*value)(const DeviceStatistics& device);
};

constexpr const char* kUp = "device_up";

constexpr DeviceRow kDeviceRows[] = {
    {kUp, "gauge", nullptr, "1 while the device is open.",
     [](const DeviceStatistics& device) -> std::uint64_t { return device.isUp; }},
    {"device_received_frames_total", "counter", nullptr, "Frames that the device has given.",
     [](const DeviceStatistics& device) { return device.received; }},
    {"device_dropped_frames_total", "counter", "kernel",
     "Frames lost before the sniffer saw them: by the kernel, whose buffer was full, or by the interface.",
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

/// A label's value: printable ASCII as it is, anything else as '?', as bytes that are no UTF-8 spoil the whole file.
std::string quoted(const std::string& value) {
  std::string text = "\"";
  for (const char c : value) {
    if (c == '\\' || c == '"') text += '\\';
    text += c >= ' ' && c <= '~' ? c : '?';
  }
  return text + "\"";
}

std::string inBaseUnit(std::uint64_t value, StatisticsRow::Unit unit) {
  if (unit == StatisticsRow::Plain) return std::to_string(value);
  char text[32];
  std::snprintf(text, sizeof text, "%llu.%03u", static_cast<unsigned long long>(value / 1000),
                static_cast<unsigned>(value % 1000));
  return text;
}

/// A metric's rows must stand together in the file; in the table they stand in the order of the log line.
bool isFirstOfItsMetric(const StatisticsRow& row) {
  for (const StatisticsRow& other : kStatisticsRows) {
    if (std::string_view(other.metric) == row.metric) return &other == &row;
  }
  return false;
}

void addMetric(std::string& text, const Statistics& statistics, const StatisticsRow& first) {
  const std::string metric = std::string(kPrefix) + first.metric;
  addHeading(text, metric, first.help, first.kind == StatisticsRow::Total ? "counter" : "gauge");
  for (const StatisticsRow& row : kStatisticsRows) {
    if (std::string_view(row.metric) != first.metric) continue;
    addSample(text, metric, row.label == nullptr ? "" : row.label, inBaseUnit(statistics.*row.value, row.unit));
  }
}

void addDeviceRow(std::string& text, const DeviceRow& row, const std::vector<DeviceStatistics>& devices) {
  const std::string metric = std::string(kPrefix) + row.metric;
  if (*row.help != 0) addHeading(text, metric, row.help, row.type);
  for (std::size_t i = 0; i < devices.size(); ++i) {
    // A counter that falls to 0 and is back would be taken for a burst; a gap is not.
    if (!devices[i].isUp && row.metric != kUp) continue;
    // A device may be listed twice.
    std::string labels = "device=" + quoted(devices[i].name) + ",index=" + quoted(std::to_string(i));
    if (row.cause != nullptr) labels += ",by=" + quoted(row.cause);
    addSample(text, metric, labels, std::to_string(row.value(devices[i])));
  }
}

}  // namespace

std::string prometheusText(const Statistics& statistics, const std::vector<DeviceStatistics>& devices) {
  std::string text;
  for (const StatisticsRow& row : kStatisticsRows) {
    if (isFirstOfItsMetric(row)) addMetric(text, statistics, row);
  }
  for (const DeviceRow& row : kDeviceRows) addDeviceRow(text, row, devices);
  return text;
}

}  // namespace voip
