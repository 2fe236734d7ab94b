#include "capture/CaptureThreads.h"

#include <signal.h>

#include <string>
#include <utility>

#include "base/Logger.h"

namespace voip {

thread_local const Device* CaptureThreads::currentDevice_ = nullptr;

int CaptureThreads::start(void* (*body)(void*)) {
  const MutexLock lock(mutex_);
  stopping_ = false;
  int error = 0;
  for (int i = 0; i < devices_.sockets() && error == 0; ++i) {
    if (devices_.isCaptured(i)) error = startThread(i, body);
  }
  return error;
}

int CaptureThreads::startThread(int i, void* (*body)(void*)) {
  numbers_[i] = i;
  ++running_;
  const int error = pthread_create(&threads_[i], nullptr, body, &numbers_[i]);
  if (error != 0) {
    --running_;
    return error;
  }
  joinable_[i] = true;
  logger().info("PCAP thread created " + std::to_string(i));
  return 0;
}

int CaptureThreads::capture(int i, int count, pcap_handler callback) {
  currentDevice_ = &devices_[i];
  const int result = devices_[i].capture(count, callback);
  if (result == PCAP_ERROR && !stopping_) {
    logger().error("PCAP thread " + std::to_string(i) + " captures no more: " + devices_[i].getError());
  }
  --running_;
  return result;
}

void CaptureThreads::stop() {
  const MutexLock lock(mutex_);
  stopping_ = true;
  // Another thread may be opening the devices, so the list is used only where a thread was started.
  for (int i = 0; i < DeviceList::kMaxSockets; ++i) {
    if (!std::exchange(joinable_[i], false)) continue;
    devices_[i].breakLoop();
    pthread_kill(threads_[i], SIGUSR1);
    const int status = pthread_join(threads_[i], nullptr);
    logger().info("Completed join with PCAP thread " + std::to_string(i) + " status=" + std::to_string(status));
  }
}

}  // namespace voip
