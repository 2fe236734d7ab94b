#pragma once

#include <pcap/pcap.h>
#include <pthread.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "base/Mutex.h"
#include "capture/CaptureThreads.h"
#include "capture/DeviceList.h"
#include "capture/StatisticsReporter.h"
#include "dissection/Engine.h"
#include "dissection/SngDissector.h"
#include "settings/Settings.h"
#include "settings/SnifferConfig.h"

/// The capture engine: holds the settings, and starts and stops everything in order. There is one in a process.
///
/// Use: the constructor; configure(), configureFromFile() or the setters; setupSniffing(); startSniffing(), which
/// returns after another thread has called stopSniffing(); the destructor.
///
/// A device name "file:PATH" replays a capture file at the pace of its time stamps.
class Sniffer final : public voip::Engine {
 public:
  static constexpr int kMaxDevices = voip::DeviceList::kMaxDevices;
  static constexpr int kMaxLogLevelLength = 9;

  Sniffer();
  Sniffer(const Sniffer&) = delete;
  Sniffer& operator=(const Sniffer&) = delete;

  /// Closes the capture handles and destroys the dissector. Not while startSniffing() runs.
  virtual ~Sniffer();

  /// Configures from the command line: -d DEVICES, -f FILTER, -h HOST, -p PORT. The texts are not copied, except the
  /// devices. Returns 0, or 1 when there is no device.
  int configure(int argc, char** argv);

  /// Configures from a properties file: -c FILE, -l LOG4CXX_FILE. Returns 0, or 1 for bad arguments. Ends the process
  /// with status 1 when the properties file cannot be read.
  int configureFromFile(int argc, char** argv);

  /// Opens the devices, installs the filter and connects to the recorder. A device that cannot be opened is left out.
  /// Returns 0 when ready, 3 when the filter does not compile, 4 when it cannot be installed.
  int setupSniffing();

  /// The part of setupSniffing() that opens the devices and installs the filter, with the same results. Without
  /// `opensPipes` a pipe counts as a device that cannot be opened: opening waits for the program that writes to it.
  int openDevices(bool opensPipes = true);

  /// Starts the capture threads and makes the calling thread the consumer until the engine is stopped.
  void startSniffing();

  /// Ends the capture threads and makes startSniffing() return, also one that has not started yet. Any thread except
  /// the one in startSniffing(). SIGUSR1 needs a handler: it interrupts the reads of the capture threads.
  void stopSniffing();

  /// True when all capture threads have ended and all their frames have been processed. Any thread.
  bool captureFinished();

  /// True when every device is a file to replay.
  bool replaysOnly() const { return devices_.replaysOnly(); }

  /// True when none of the devices could be opened and none is awaited.
  bool allDevicesDown() const { return devices_.allDown(); }

  /// Sets the device list: names separated by ';', at most ten, each of at most 49 characters. Names beyond the limits
  /// are left out with an ERROR. Always returns 0.
  int setDevice(const char* devices);

  const char* getDevice(int i) const { return devices_.getName(i).c_str(); }
  int getDeviceCount() const { return devices_.size(); }
  bool isDeviceDown(int i) const { return devices_.isDown(i); }

  /// Returns why device i could not be opened or did not take the filter. Empty when it did.
  const std::string& getDeviceError(int i) const { return devices_[i].getError(); }

  /// See Device::filtersAfterCopying().
  bool filtersAfterCopying(int i) const { return devices_[i].filtersAfterCopying(); }

  /// Opens device i. Returns null when it cannot be opened.
  pcap_t* getHandle(int i);

  /// Makes `pcap` the handle of device i, which takes ownership.
  void setHandle(pcap_t* pcap, int i) { devices_[i].adopt(pcap); }

  /// Returns the figures of the devices, in their order. Any thread.
  std::vector<voip::DeviceStatistics> getDeviceStatistics() const { return devices_.getStatistics(); }

  /// Returns a snapshot of the dissector's figures. Any thread.
  voip::Statistics getStatistics() const { return dissector_->getStatistics(); }

  /// Returns the figures of the recorders after the first. Any thread.
  std::vector<voip::RecorderStatistics> getRecorderStatistics() const { return dissector_->getRecorderStatistics(); }

  /// Returns a warning for each address in MoreRecorders that occurs again or is that of the first recorder.
  std::vector<std::string> findRepeatedRecorders() const;

  // Texts are not copied and must live as long as the engine.
  const char* getFilter() const { return filter_; }
  void setFilter(const char* filter) { filter_ = filter; }
  int getPromiscuous() const { return promiscuous_; }
  void setPromiscuous(int promiscuous) { promiscuous_ = promiscuous; }
  int getCount() const { return count_; }
  void setCount(int count) { count_ = count; }  ///< packets of each device, -1 for no limit
  bool getEmbedded() const override { return embedded_; }
  void setEmbedded(bool embedded) { embedded_ = embedded; }
  bool getTraceSignalling() const { return traceSignalling_; }
  void setTraceSignalling(bool traceSignalling) { traceSignalling_ = traceSignalling; }
  const char* getServerProtocol() const override { return serverProtocol_; }
  void setServerProtocol(const char* serverProtocol) { serverProtocol_ = serverProtocol; }
  const char* getServerNameMedia() const { return serverNameMedia_; }
  int getServerPortMedia() const { return serverPortMedia_; }

  const char* getLoglevel() const { return logLevel_.c_str(); }
  void setLogLevel(const char* logLevel);  ///< copied, cut to kMaxLogLevelLength

  /// Sets all settings beyond devices, filter and recorder. Call it before setupSniffing().
  void setSettings(const voip::Settings& settings) { settings_ = settings; }
  const voip::Settings& getSettings() const { return settings_; }

  /// True from the stop of the engine until the next start.
  static bool getEndMain() { return endMain_; }
  bool hasEnded() const override { return endMain_; }

  /// Logs the statistics (see StatisticsReporter). Any thread.
  void logStatistics() { statisticsReporter_.log(); }

  /// Logs the configuration.
  void displayConfig();

  /// Sets the level of the logger "SnifferClient", which all classes share, by its name in capitals. Another text
  /// changes nothing.
  void setLoggerLevel(const char* level);

  /// libpcap's callback, on the capture threads: queues a copy of the frame.
  static void gotPacket(u_char* args, const pcap_pkthdr* header, const u_char* packet);

  /// Body of a capture thread; `idp` points to the number of its device.
  static void* startLoop(void* idp);

 private:
  voip::Device::Mode deviceMode() const;
  int startCaptureThreads();
  void stopCommandReader();
  void warnAboutRepeatedRecorders() const;

  const char* filter_ = "udp";
  std::string logLevel_ = "INFO";
  int promiscuous_ = 1;
  std::unique_ptr<SnifferConfig> snifferConfig_;
  SngDissector* dissector_;  ///< owned while it is the live dissector
  const char* serverNameMedia_ = "127.0.0.1";
  int serverPortMedia_ = 6000;
  const char* serverNameSig_ = nullptr;
  int serverPortSig_ = 0;
  const char* serverProtocol_ = "TCP";
  bool embedded_ = false;
  bool traceSignalling_ = false;
  voip::Settings settings_;
  voip::StatisticsReporter statisticsReporter_;

  voip::Mutex stopMutex_;   ///< held during a stop: a second stop returns when all threads have ended
  voip::Mutex stateMutex_;  ///< held while the capture threads are started and while a stop begins
  bool started_ GUARDED_BY(stateMutex_) = false;
  bool stopRequested_ GUARDED_BY(stateMutex_) = false;

  // libpcap's callback and the body of a thread are plain functions, so what they use is static. Never destroyed: a
  // capture thread may run until the process ends.
  static voip::DeviceList& devices_;
  static voip::CaptureThreads& captureThreads_;
  static int count_;
  static std::atomic<bool> endMain_;
};
