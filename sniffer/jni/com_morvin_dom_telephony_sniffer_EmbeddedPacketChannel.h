#pragma once

#include <jni.h>

/// The native methods of the Java class com.morvin.dom.telephony.sniffer.EmbeddedPacketChannel: the sniffer inside a
/// Java process. They are all that the shared library exports.
///
/// Each of them may be called at any time, in any order and from any thread: a call out of turn does nothing and
/// returns. No C++ exception leaves them.

extern "C" {

/// void mainLoop(): reads the channel object's fields, captures and forwards on the calling thread until
/// breakMainLoop(). Returns at once when a field is missing (with the Java exception of the look-up pending) or null,
/// when the set-up fails, and when another thread is in mainLoop() already.
JNIEXPORT void JNICALL Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_mainLoop(JNIEnv* env,
                                                                                            jobject channel);

/// void breakMainLoop(): ends mainLoop(). Returns when capture has stopped; mainLoop() itself returns soon after, or,
/// while it is still setting up, without having captured. Does nothing when no thread is in mainLoop().
JNIEXPORT void JNICALL Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_breakMainLoop(JNIEnv* env,
                                                                                                 jobject channel);

/// int getPacket(byte[] buffer): moves the oldest waiting frame into the array and answers its length in bytes. 0 when
/// none waits; also when the array is null or shorter than the frame, which stays. Never waits.
JNIEXPORT jint JNICALL Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_getPacket(JNIEnv* env,
                                                                                             jobject channel,
                                                                                             jbyteArray buffer);

/// int sendRequest(byte[] buffer): queues the command in the first 7 bytes (see SnifferRequest) and answers the array's
/// length. 0 when the array is null or shorter. Never waits.
JNIEXPORT jint JNICALL Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_sendRequest(JNIEnv* env,
                                                                                               jobject channel,
                                                                                               jbyteArray buffer);
}

/// Of SIGUSR1. Does nothing: that it is installed lets the signal interrupt a capture thread's read.
void signalHandler(int aSignal);
