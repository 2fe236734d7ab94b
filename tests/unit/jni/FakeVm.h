#pragma once

#include <gtest/gtest.h>
#include <jni.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <variant>
#include <vector>

// As much of a Java virtual machine as the native methods use, for what a real one cannot be made to do, and for the
// sanitizers. It is strict: an environment on another thread, a call under a pending exception, characters that are not
// given back and an array index out of bounds are failures, and any other function of the interface is a null pointer.

using FakeArray = std::vector<jbyte>;

/// A channel object.
struct FakeChannel {
  using Text = std::optional<std::string>;  ///< nothing: a null reference
  using Value = std::variant<Text, jint, bool>;

  std::map<std::string, Value> fields = {{"nicDevice", Text()}, {"packetFilter", Text("udp")},
                                         {"packetCount", -1},   {"traceSignalling", false},
                                         {"settings", Text()},  {"immediateCapture", true}};
  bool monitorFails = false;                ///< it cannot be entered
  std::atomic<bool> monitorKeeps = false;   ///< who enters it does not come back: the machine has ended
  std::atomic<bool> kept = false;           ///< somebody did
  std::function<void()> whileRead = [] {};  ///< runs in the look-up of a boolean
  std::recursive_mutex monitor;

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
  static FakeVm& of(JNIEnv* env) {
    FakeVm& self = *static_cast<FakeVm*>(env);
    EXPECT_EQ(self.owner, std::this_thread::get_id()) << "an environment on another thread";
    return self;
  }
  static FakeVm& check(JNIEnv* env) {
    EXPECT_FALSE(of(env).pendingException) << "a call under a pending exception";
    return of(env);
  }
  template <typename To, typename From>
  static To& as(From from) {
    return *reinterpret_cast<To*>(from);
  }
  template <typename T>
  static T& value(jfieldID field) {
    return std::get<T>(as<FakeChannel::Value>(field));
  }
  /// Where an array's region begins.
  static FakeArray::iterator region(JNIEnv* env, jarray array, jsize start, jsize length) {
    check(env);
    FakeArray& elements = as<FakeArray>(array);
    EXPECT_TRUE(start >= 0 && length >= 0 && std::size_t(start) + std::size_t(length) <= elements.size());
    return elements.begin() + start;
  }

  static const JNINativeInterface_& table() {
    static const JNINativeInterface_ functions = [] {
      JNINativeInterface_ used{};
      used.GetObjectClass = [](JNIEnv* env, jobject object) {
        check(env);
        return reinterpret_cast<jclass>(object);
      };
      used.GetFieldID = [](JNIEnv* env, jclass type, const char* name, const char* signature) -> jfieldID {
        auto& fields = as<FakeChannel>(type).fields;
        const char* const signatures[] = {"Ljava/lang/String;", "I", "Z"};
        const auto field = fields.find(name);
        if (!check(env).pendingException && field != fields.end() &&
            std::strcmp(signatures[field->second.index()], signature) == 0) {
          return reinterpret_cast<jfieldID>(&field->second);
        }
        of(env).pendingException = true;
        return nullptr;
      };
      used.GetObjectField = [](JNIEnv* env, jobject, jfieldID field) -> jobject {
        check(env);
        auto& text = value<FakeChannel::Text>(field);
        return text ? reinterpret_cast<jobject>(&*text) : nullptr;
      };
      used.GetStringUTFChars = [](JNIEnv* env, jstring text, jboolean*) -> const char* {
        check(env);
        ++heldStrings;
        return strdup(as<std::string>(text).c_str());
      };
      used.ReleaseStringUTFChars = [](JNIEnv* env, jstring, const char* characters) {
        of(env);
        --heldStrings;
        std::free(const_cast<char*>(characters));
      };
      used.GetIntField = [](JNIEnv* env, jobject, jfieldID field) {
        check(env);
        return value<jint>(field);
      };
      used.GetBooleanField = [](JNIEnv* env, jobject object, jfieldID field) -> jboolean {
        check(env);
        as<FakeChannel>(object).whileRead();
        return value<bool>(field);
      };
      used.GetArrayLength = [](JNIEnv* env, jarray array) {
        check(env);
        return static_cast<jsize>(as<FakeArray>(array).size());
      };
      used.GetByteArrayRegion = [](JNIEnv* env, jbyteArray array, jsize start, jsize length, jbyte* to) {
        std::copy_n(region(env, array, start, length), length, to);
      };
      used.SetByteArrayRegion = [](JNIEnv* env, jbyteArray array, jsize start, jsize length, const jbyte* from) {
        std::copy_n(from, length, region(env, array, start, length));
      };
      used.ExceptionClear = [](JNIEnv* env) { of(env).pendingException = false; };
      used.MonitorEnter = [](JNIEnv* env, jobject object) -> jint {
        FakeChannel& entered = as<FakeChannel>(object);
        if (entered.monitorFails) {
          check(env).pendingException = true;
          return JNI_ERR;
        }
        if (entered.monitorKeeps) {
          entered.kept = true;
          while (true) std::this_thread::sleep_for(std::chrono::hours(1));
        }
        entered.monitor.lock();
        return JNI_OK;
      };
      used.MonitorExit = [](JNIEnv* env, jobject object) -> jint {
        of(env);
        as<FakeChannel>(object).monitor.unlock();
        return JNI_OK;
      };
      return used;
    }();
    return functions;
  }
};
