#include "forwarding/CommandReader.h"

#include "base/Logger.h"

namespace voip {

void CommandReader::carryOutWaiting(BaseConnection& connection) {
  // No decoded command has this code: the code of a command is one byte.
  constexpr u_short kNotDecoded = 0xFFFF;
  // While the rest of a command is missing, a connection may return true without a new command: then the previous one
  // is carried out again. The limit bounds the repetitions, and the time for which a recorder that sends without a
  // pause can delay the end.
  constexpr int kMaxRepeats = 4096;
  SnifferRequest request;
  for (int repeats = 0; repeats < kMaxRepeats;) {
    const u_short before = request.request;
    request.request = kNotDecoded;
    if (!connection.receiveRequest(request)) return;
    const bool isDecoded = request.request != kNotDecoded;
    if (!isDecoded) request.request = before;
    if (!isDecoded || terminate_) ++repeats;
    carryOut_(request);
  }
}

void CommandReader::start(void* (*entry)(void*)) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_JOINABLE);
  const int rc = pthread_create(&thread_, &attributes, entry, threadName_.data());
  pthread_attr_destroy(&attributes);
  isStarted_ = rc == 0;
  if (rc != 0) {
    logger().error("Error - startCmdReaderThread return code from pthread_create() is " + std::to_string(rc));
  }
  logger().info("Command reader thread created " + threadName_);
}

void CommandReader::run(BaseConnection& connection) {
  while (!terminate_) {
    carryOutWaiting(connection);
    connection.awaitRequest();
  }
}

void CommandReader::stop() {
  if (!isStarted_) return;
  terminate_ = true;
  pthread_join(thread_, nullptr);
  isStarted_ = false;
}

}  // namespace voip
