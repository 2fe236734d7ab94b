#include "dissection/CommandReader.h"

#include "base/Logger.h"

namespace voip {

void CommandReader::carryOutWaiting(BaseConnection& connection) {
  // No wire and no host can give this code: a request that still has it was not decoded.
  constexpr u_short kNotDecoded = 0xFFFF;
  // A connection may return true without a new command, as long as a command sent in pieces is incomplete: then the one
  // before runs again. The limit bounds that, and how long a recorder that never pauses can delay the end.
  constexpr int kMostRepeats = 4096;
  SnifferRequest request;
  for (int repeats = 0; repeats < kMostRepeats;) {
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
  const int rc = pthread_create(&thread_, &attributes, entry, threadId_.data());
  pthread_attr_destroy(&attributes);
  isStarted_ = rc == 0;
  if (rc != 0) {
    logger().error("Error - startCmdReaderThread return code from pthread_create() is " + std::to_string(rc));
  }
  logger().info("Command reader thread created " + threadId_);
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
