#include "jni/ChannelMonitor.h"

#include <atomic>
#include <utility>

// The environment and the object of the running mainLoop(), or null. Only the thread of mainLoop() may use them.
JNIEnv* mainLoop_JNIEnv = nullptr;
jobject mainLoop_jobject = nullptr;

namespace voip {

namespace {
std::atomic<bool> machineAbandoned = false;
std::atomic<bool> insideMachine = false;
}  // namespace

ChannelMonitor::ChannelMonitor(JNIEnv* env, jobject channel) {
  mainLoop_JNIEnv = env;
  mainLoop_jobject = channel;
  EmbeddedConnection::dft()->setHostMonitor(this);
}

ChannelMonitor::~ChannelMonitor() {
  EmbeddedConnection::dft()->setHostMonitor(nullptr);
  mainLoop_JNIEnv = nullptr;
  mainLoop_jobject = nullptr;
}

void ChannelMonitor::enter() {
  entered_ = call(&JNIEnv::MonitorEnter);
}

void ChannelMonitor::leave() {
  if (std::exchange(entered_, false)) call(&JNIEnv::MonitorExit);
}

bool ChannelMonitor::call(jint (JNIEnv::*operation)(jobject)) {
  insideMachine = true;
  bool done = false;
  if (!machineAbandoned) {
    done = (mainLoop_JNIEnv->*operation)(mainLoop_jobject) == JNI_OK;
    if (!done) mainLoop_JNIEnv->ExceptionClear();
  }
  insideMachine = false;
  return done;
}

void ChannelMonitor::abandonMachine() {
  machineAbandoned = true;
}

bool ChannelMonitor::isInsideMachine() {
  return insideMachine;
}

}  // namespace voip
