#include "jni/ChannelMonitor.h"

#include <atomic>
#include <utility>

// The call of mainLoop that is under way, or null. Only its thread may use the environment and the object.
JNIEnv* mainLoop_JNIEnv = nullptr;
jobject mainLoop_jobject = nullptr;

namespace voip {

namespace {
std::atomic<bool> abandoned = false;
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
  entered = call(&JNIEnv::MonitorEnter);
}

void ChannelMonitor::leave() {
  if (std::exchange(entered, false)) call(&JNIEnv::MonitorExit);
}

bool ChannelMonitor::call(jint (JNIEnv::*operation)(jobject)) {
  insideMachine = true;
  bool done = false;
  if (!abandoned) {
    done = (mainLoop_JNIEnv->*operation)(mainLoop_jobject) == JNI_OK;
    if (!done) mainLoop_JNIEnv->ExceptionClear();
  }
  insideMachine = false;
  return done;
}

void ChannelMonitor::abandonMachine() {
  abandoned = true;
}

bool ChannelMonitor::isInsideMachine() {
  return insideMachine;
}

}  // namespace voip
