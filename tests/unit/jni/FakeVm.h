#pragma once

#include <gtest/gtest.h>
#include <jni.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

// As much of a Java virtual machine as the native methods use. It is strict: an environment on another thread, a call
// under a pending exception, characters that are not given back and an array index out of bounds are failures, and any
// other function of the interface is a null pointer.

using FakeArray = std::vector<jbyte>;

/// A channel object. A field without value is a null reference.
struct FakeChannel {
  std::optional<std::string> nicDevice;
  std::optional<std::string> packetFilter = "udp or tcp";
  jint packetCount = -1;
  bool traceSignalling = false;
  bool immediateCapture = true;
  std::optional<std::string> settings;

  std::set<std::string> missingFields;      ///< of the class
  bool outOfMemory = false;                 ///< no string's characters can be had
  bool monitorFails = false;                ///< it cannot be entered
  std::atomic<bool> monitorKeeps = false;   ///< who enters it does not come back: the machine has ended
  std::atomic<bool> kept = false;           ///< somebody did
  std::function<void()> whileRead = [] {};  ///< runs in the look-up of packetFilter
  std::recursive_mutex monitor;
  int depth = 0;  ///< how often the monitor is entered

  jobject object() { return reinterpret_cast<jobject>(this); }
};

/// The environment of one thread.
struct FakeVm : JNIEnv {
  std::thread::id owner = std::this_thread::get_id();
  bool pendingException = false;
  static inline std::atomic<int> heldStrings = 0;

  FakeVm() { functions = &table(); }
  FakeVm(const FakeVm&) = delete;
  FakeVm& operator=(const FakeVm&) = delete;

  /// The calling thread's.
  static FakeVm* here() {
    thread_local FakeVm environment;
    return &environment;
  }

 private:
  struct Field {
    const char* name;
    const char* signature;
  };
  static constexpr Field kFields[] = {{"nicDevice", "Ljava/lang/String;"},
                                      {"packetFilter", "Ljava/lang/String;"},
                                      {"packetCount", "I"},
                                      {"traceSignalling", "Z"},
                                      {"immediateCapture", "Z"},
                                      {"settings", "Ljava/lang/String;"}};

  static FakeVm& of(JNIEnv* env) {
    FakeVm& self = *static_cast<FakeVm*>(env);
    EXPECT_EQ(self.owner, std::this_thread::get_id()) << "an environment on another thread";
    return self;
  }
  static FakeVm& check(JNIEnv* env) {
    FakeVm& self = of(env);
    EXPECT_FALSE(self.pendingException) << "a call under a pending exception";
    return self;
  }
  static FakeChannel& channel(jobject object) { return *reinterpret_cast<FakeChannel*>(object); }
  static FakeArray& array(jobject object) { return *reinterpret_cast<FakeArray*>(object); }
  static std::string name(jfieldID field) { return reinterpret_cast<const Field*>(field)->name; }

  static jclass getObjectClass(JNIEnv* env, jobject object) {
    check(env);
    return reinterpret_cast<jclass>(object);
  }
  static jfieldID getFieldId(JNIEnv* env, jclass type, const char* name, const char* signature) {
    FakeVm& self = check(env);
    for (const Field& field : kFields) {
      if (std::strcmp(field.name, name) != 0 || std::strcmp(field.signature, signature) != 0) continue;
      if (channel(type).missingFields.count(name) == 0) {
        return reinterpret_cast<jfieldID>(const_cast<Field*>(&field));
      }
    }
    self.pendingException = true;
    return nullptr;
  }
  static jobject getObjectField(JNIEnv* env, jobject object, jfieldID field) {
    check(env);
    FakeChannel& self = channel(object);
    if (name(field) == "packetFilter") self.whileRead();
    std::optional<std::string>& value = name(field) == "packetFilter" ? self.packetFilter
                                        : name(field) == "settings"   ? self.settings
                                                                      : self.nicDevice;
    if (self.outOfMemory) return reinterpret_cast<jobject>(&kUnreadable);
    return value ? reinterpret_cast<jobject>(&*value) : nullptr;
  }
  static const char* getStringUtfChars(JNIEnv* env, jstring text, jboolean*) {
    FakeVm& self = check(env);
    if (reinterpret_cast<std::string*>(text) == &kUnreadable) {
      self.pendingException = true;
      return nullptr;
    }
    const auto& characters = *reinterpret_cast<std::string*>(text);
    ++heldStrings;
    return std::strcpy(new char[characters.size() + 1], characters.c_str());
  }
  static void releaseStringUtfChars(JNIEnv* env, jstring, const char* characters) {
    of(env);
    if (characters != nullptr) --heldStrings;
    delete[] characters;
  }
  static jint getIntField(JNIEnv* env, jobject object, jfieldID) {
    check(env);
    return channel(object).packetCount;
  }
  static jboolean getBooleanField(JNIEnv* env, jobject object, jfieldID field) {
    check(env);
    return name(field) == "traceSignalling" ? channel(object).traceSignalling : channel(object).immediateCapture;
  }
  static jsize getArrayLength(JNIEnv* env, jarray object) {
    check(env);
    return static_cast<jsize>(array(object).size());
  }
  static bool inBounds(const FakeArray& elements, jsize start, jsize length) {
    const bool fits = start >= 0 && length >= 0 && static_cast<std::size_t>(start + length) <= elements.size();
    EXPECT_TRUE(fits) << "an array index out of bounds";
    return fits;
  }
  static void getByteArrayRegion(JNIEnv* env, jbyteArray object, jsize start, jsize length, jbyte* to) {
    check(env);
    const FakeArray& elements = array(object);
    if (inBounds(elements, start, length)) std::copy_n(elements.begin() + start, length, to);
  }
  static void setByteArrayRegion(JNIEnv* env, jbyteArray object, jsize start, jsize length, const jbyte* from) {
    check(env);
    FakeArray& elements = array(object);
    if (inBounds(elements, start, length)) std::copy_n(from, length, elements.begin() + start);
  }
  static void exceptionClear(JNIEnv* env) { of(env).pendingException = false; }
  static jint monitorEnter(JNIEnv* env, jobject object) {
    FakeVm& self = check(env);
    FakeChannel& entered = channel(object);
    if (entered.monitorFails) {
      self.pendingException = true;
      return JNI_ERR;
    }
    if (entered.monitorKeeps) {
      entered.kept = true;
      while (true) std::this_thread::sleep_for(std::chrono::hours(1));
    }
    entered.monitor.lock();
    ++entered.depth;
    return JNI_OK;
  }
  static jint monitorExit(JNIEnv* env, jobject object) {
    of(env);
    FakeChannel& left = channel(object);
    EXPECT_GT(left.depth, 0) << "a monitor left that was not entered";
    --left.depth;
    left.monitor.unlock();
    return JNI_OK;
  }

  static const JNINativeInterface_& table() {
    static const JNINativeInterface_ functions = [] {
      JNINativeInterface_ used{};
      used.GetObjectClass = getObjectClass;
      used.GetFieldID = getFieldId;
      used.GetObjectField = getObjectField;
      used.GetStringUTFChars = getStringUtfChars;
      used.ReleaseStringUTFChars = releaseStringUtfChars;
      used.GetIntField = getIntField;
      used.GetBooleanField = getBooleanField;
      used.GetArrayLength = getArrayLength;
      used.GetByteArrayRegion = getByteArrayRegion;
      used.SetByteArrayRegion = setByteArrayRegion;
      used.ExceptionClear = exceptionClear;
      used.MonitorEnter = monitorEnter;
      used.MonitorExit = monitorExit;
      return used;
    }();
    return functions;
  }

  static inline std::string kUnreadable;
};
