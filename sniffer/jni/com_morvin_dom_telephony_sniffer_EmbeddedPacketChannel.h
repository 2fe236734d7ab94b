#pragma once

#include <jni.h>

// The native methods of the Java class com.morvin.dom.telephony.sniffer.EmbeddedPacketChannel: the sniffer inside a
// Java process. The shared library exports nothing else.
//
// Each may be called at any time, in any order and from any thread. A call at the wrong time returns at once and has no
// effect. No C++ exception leaves a native method.

extern "C" {

/// void mainLoop(): reads the fields of the channel object, then captures and forwards on the calling thread until
/// breakMainLoop(). Returns at once when a field is missing (the Java exception of the look-up stays pending), when a
/// text field is null, when the set-up fails, and when another thread is in mainLoop().
JNIEXPORT void JNICALL Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_mainLoop(JNIEnv* env,
                                                                                            jobject channel);

/// void breakMainLoop(): ends mainLoop(). Returns when capture has stopped; mainLoop() returns soon after. During the
/// set-up, mainLoop() returns without capturing. Does nothing when no thread is in mainLoop().
JNIEXPORT void JNICALL Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_breakMainLoop(JNIEnv* env,
                                                                                                 jobject channel);

/// int getPacket(byte[] buffer): moves the oldest waiting frame into the array and returns its length in bytes. Returns
/// 0 when no frame waits, and when the array is null or shorter than the frame, which then stays. Never waits.
JNIEXPORT jint JNICALL Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_getPacket(JNIEnv* env,
                                                                                             jobject channel,
                                                                                             jbyteArray buffer);

/// int getPackets(ByteBuffer buffer): moves the oldest waiting frames into the direct buffer, from its first byte on
/// and one after the other, as many whole frames as fit. Returns their length in bytes, 0 when no frame waits. Throws
/// IllegalArgumentException, and all frames stay, when the buffer is null, not direct, read-only or shorter than the
/// oldest frame. Uses neither position nor limit of the buffer. Optional: a host class may lack it. Never waits.
JNIEXPORT jint JNICALL Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_getPackets(JNIEnv* env,
                                                                                              jobject channel,
                                                                                              jobject buffer);

/// int sendRequest(byte[] buffer): queues the command in the first 7 bytes (see SnifferRequest) and returns the length
/// of the array. Returns 0 when the array is null or shorter than 7 bytes. With the setting IPv6, the codes 4 and 5
/// take 19 bytes instead of 7. Never waits.
JNIEXPORT jint JNICALL Java_com_morvin_dom_telephony_sniffer_EmbeddedPacketChannel_sendRequest(JNIEnv* env,
                                                                                               jobject channel,
                                                                                               jbyteArray buffer);
}

/// The handler of SIGUSR1. Does nothing: a signal with a handler interrupts the read of a capture thread.
void signalHandler(int aSignal);
