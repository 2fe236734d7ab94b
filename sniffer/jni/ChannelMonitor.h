#pragma once

#include <jni.h>

#include "recorder/EmbeddedConnection.h"

namespace voip {

/// The channel object's monitor, for the thread in mainLoop, as long as it is there. What fails there is taken back:
/// frames are safe without the monitor, and no exception may stay pending under the calls that follow.
class ChannelMonitor final : public HostMonitor {
 public:
  ChannelMonitor(JNIEnv* env, jobject channel);
  ~ChannelMonitor();
  ChannelMonitor(const ChannelMonitor&) = delete;
  ChannelMonitor& operator=(const ChannelMonitor&) = delete;

  void enter() override;
  void leave() override;

  /// The process is ending: the virtual machine, which may be gone, is left alone from now on.
  static void abandonMachine();

  /// The thread in mainLoop is inside the virtual machine, which at the end of the process does not let it out again.
  static bool isInsideMachine();

 private:
  bool call(jint (JNIEnv::*operation)(jobject));

  bool entered = false;
};

}  // namespace voip
