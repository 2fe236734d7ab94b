#pragma once

#include <pcap/pcap.h>
#include <pthread.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "capture/Device.h"
#include "dissection/Engine.h"
#include "statistics/PeriodicTask.h"
#include "settings/Settings.h"
#include "dissection/SngDissector.h"
#include "settings/SnifferConfig.h"
#include "statistics/StatisticsFile.h"

/// The capture engine: the settings, a thread for each device, and the order in which everything starts and stops.
/// There is one in a process.
///
/// Use: the constructor; configure(), configureFromFile() or the setters; setupSniffing(); startSniffing(), which keeps
/// the calling thread until another one calls stopSniffing(); the destructor.
///
/// A device name "file:PATH" replays a capture file at the pace of its time stamps (see Device.h).
class Sniffer final : public voip::Engine {
 public:
  static constexpr int kMaxDevices = 10;
  static constexpr int kDeviceNameSize = 50;          ///< with the terminating zero; a file: name may be longer
  static constexpr int kCfgFileNameSize = 100;        ///< with the terminating zero
  static constexpr int kStatisticsFileInterval = 60;  ///< seconds, without StatisticsInterval

  Sniffer();
  Sniffer(const Sniffer&) = delete;
  Sniffer& operator=(const Sniffer&) = delete;

  /// Closes the capture handles and destroys the dissector. Not while startSniffing() runs.
  virtual ~Sniffer();

  /// voip::Settings from the command line: -d DEVICES, -f FILTER, -h HOST, -p PORT. The texts are not copied. 0, or 1 when
  /// there is no device.
  int configure(int argc, char** argv);

  /// voip::Settings from a properties file: -c FILE, -l LOG4CXX_FILE. 0, or 1 for bad arguments. A properties file that
  /// cannot be read ends the process with status 1.
  int configureFromFile(int argc, char** argv);

  /// Opens the devices, installs the filter, connects to the recorder. A device that cannot be opened is left out.
  /// 0 when ready, 3 when the filter does not compile, 4 when it cannot be installed.
  int setupSniffing();

  /// The part of setupSniffing() that opens the devices and installs the filter, with the same results. It asks nothing
  /// of the recorder.
  int openDevices();

  /// Starts the capture threads and makes the calling thread the consumer until the engine is stopped.
  void startSniffing();

  /// Ends the capture threads and makes startSniffing() return; when it has not started yet, it will return at once.
  /// Any thread but the one in startSniffing(). SIGUSR1 needs a handler: it interrupts the capture threads' reads.
  void stopSniffing();

  /// True when no device will give another frame, and all that they gave have been processed. Any thread.
  bool captureFinished();

  /// True when every device is a file to replay.
  bool replaysOnly() const;

  /// True when not one of the devices could be opened, and none is awaited.
  bool allDevicesDown() const;

  /// The device list: names separated by ';'. At most ten, of at most 49 characters; what is more is left out with an
  /// error line. Always 0.
  int setDevice(const char* devices);

  const char* getDevice(int i) const { return device[i]; }
  int getDeviceCount() const { return deviceCount; }
  bool isDeviceDown(int i) const { return deviceDown[i]; }

  /// True when device i is missing but will be captured as soon as it is there.
  bool isDeviceAwaited(int i) const { return deviceDown[i] && handle[i].reopens(); }

  /// Opens device i. Null when it cannot be opened.
  pcap_t* getHandle(int i);

  /// Makes `pcap` the handle of device i, which owns it from then on.
  void setHandle(pcap_t* pcap, int i) { handle[i].adopt(pcap); }

  /// What the devices have counted, in their order. Any thread.
  std::vector<voip::DeviceStatistics> getDeviceStatistics() const;

  /// What became of the frames. Any thread.
  voip::Statistics getStatistics() const { return dissector->getStatistics(); }

  // Texts are not copied and must live as long as the engine.
  const char* getFilter() const { return filter; }
  void setFilter(const char* expression) { filter = expression; }
  int getPromiscuous() const { return promiscuous; }
  void setPromiscuous(int on) { promiscuous = on; }
  int getCount() const { return count; }
  void setCount(int packets) { count = packets; }  ///< packets of each device, -1 for no limit
  bool getEmbedded() const override { return embedded; }
  void setEmbedded(bool on) { embedded = on; }
  bool getTraceSignalling() const { return traceSignalling; }
  void setTraceSignalling(bool on) { traceSignalling = on; }
  const char* getServerProtocol() const override { return serverProtocol; }
  void setServerProtocol(const char* protocol) { serverProtocol = protocol; }
  const char* getServerNameMedia() const { return serverNameMedia; }
  int getServerPortMedia() const { return serverPortMedia; }
  const char* getLoglevel() const { return logLevel; }
  void setLogLevel(const char* level);

  /// Frames are to be handed over within a few milliseconds, not when a buffer is full or a second has passed.
  void setImmediateCapture(bool on) { settings.immediateCapture = on; }
  bool getImmediateCapture() const { return settings.immediateCapture; }

  /// All settings beyond devices, filter and recorder. To be set before setupSniffing(), which hands them on.
  void setSettings(const voip::Settings& values) { settings = values; }
  const voip::Settings& getSettings() const { return settings; }

  /// True from the stop of the engine on, until the next start.
  static bool getEndMain() { return endMain; }
  bool hasEnded() const override { return endMain; }

  /// Logs what became of the frames: a line for each device, by libpcap's counters, and one for the rest. A device that
  /// has lost frames in the kernel since the last time makes its line a warning. Any thread.
  void logStatistics();

  /// The same figures in the text format of Prometheus. Any thread.
  std::string prometheusStatistics();

  void displayConfig();

  /// Sets the level of the logger "SnifferClient", which is everyone's, by its name in capitals. Another text changes
  /// nothing.
  void setLoggerLevel(const char* level);

  /// libpcap's callback, on the capture threads: queues a copy of the frame.
  static void gotPacket(u_char* args, const pcap_pkthdr* header, const u_char* packet);

  /// Body of a capture thread; `idp` points to the number of its device.
  static void* startLoop(void* idp);

 private:
  bool addDevice(const std::string& name);
  int installFilter(voip::Device& opened);
  int startCaptureThreads();
  void stopCaptureThreads();
  void stopCommandReader();
  std::unique_ptr<voip::StatisticsFile> writeStatisticsFile();
  std::unique_ptr<voip::PeriodicTask> logStatisticsRegularly();
  void logDeviceStatistics(int i);

  int threadId[kMaxDevices];
  char* device[kMaxDevices];
  const char* filter = "udp";
  char logLevel[10] = "INFO";
  int promiscuous = 1;
  char errbuf[PCAP_ERRBUF_SIZE] = "";
  char cfgFileName[kCfgFileNameSize] = "";
  int instance = 0;
  std::unique_ptr<SnifferConfig> snifferConfig;
  SngDissector* dissector;  ///< owned, as long as it is the live one
  const char* serverNameMedia = "127.0.0.1";
  int serverPortMedia = 6000;
  const char* serverNameSig = nullptr;
  int serverPortSig = 0;
  const char* serverProtocol = "TCP";
  bool embedded = false;
  bool traceSignalling = false;
  voip::Settings settings;

  std::mutex stopLock;            ///< held during a stop, so that a second one returns when all threads have ended
  std::mutex lifecycle;           ///< held while the capture threads are started and while a stop begins
  bool started = false;           ///< guarded by `lifecycle`
  bool stopRequested = false;     ///< guarded by `lifecycle`
  bool capturing[kMaxDevices]{};  ///< the device's thread is to be joined; of who starts or stops

  std::mutex statisticsLock;
  std::uint64_t reportedDrops[kMaxDevices]{};  ///< guarded by `statisticsLock`

  // libpcap's callback and the threads' start routine are plain functions: what they need belongs to the class.
  static voip::Device* const handle;  ///< kMaxDevices of them; never destroyed, since a thread may outlive main()
  static pthread_t thread[kMaxDevices];
  static bool deviceDown[kMaxDevices];
  static int deviceCount;
  static int count;
  static std::atomic<bool> endMain;
  static std::atomic<bool> breaking;         ///< the capture threads are being stopped
  static std::atomic<int> atWork;            ///< capture threads that have not ended
  static thread_local const voip::Device* source;  ///< what this capture thread reads
};
