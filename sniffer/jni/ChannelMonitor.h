#pragma once

#include <jni.h>

#include "recorder/EmbeddedConnection.h"

namespace voip {

/// The monitor of the channel object, for the thread in mainLoop(). It exists as long as mainLoop() runs.
///
/// A failure to enter or leave is ignored and its Java exception cleared: the queues also have an inner lock, and later
/// JNI calls must not be made with a pending exception.
class ChannelMonitor final : public HostMonitor {
 public:
  ChannelMonitor(JNIEnv* env, jobject channel);
  ~ChannelMonitor();
  ChannelMonitor(const ChannelMonitor&) = delete;
  ChannelMonitor& operator=(const ChannelMonitor&) = delete;

  void enter() override;
  void leave() override;

  /// Stops all use of the virtual machine: the process ends and the machine may be gone. Any thread.
  static void abandonMachine();

  /// Returns true while the thread in mainLoop() is inside the virtual machine. At the end of the process the thread
  /// may never return from it. Any thread.
  static bool isInsideMachine();

 private:
  bool call(jint (JNIEnv::*operation)(jobject));

  bool entered_ = false;
};

}  // namespace voip
