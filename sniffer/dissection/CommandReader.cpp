#include "CommandReader.h"

log4cxx::LoggerPtr CommandReader::logger = log4cxx::Logger::getLogger("SnifferClient");

void CommandReader::carryOutWaiting(BaseConnection& connection) {
  // No wire and no host can give this code: what still has it was not decoded.
  constexpr u_short kNotDecoded = 0xFFFF;
  // A connection may answer true without a new command, as long as a command sent in pieces is incomplete: then the one
  // before runs again. The limit bounds that, and what a recorder that never pauses can do to the end.
  constexpr int kMostRepeats = 4096;
  SnifferRequest request;
  for (int repeats = 0; repeats < kMostRepeats;) {
    const u_short before = request.request;
    request.request = kNotDecoded;
    if (!connection.receiveRequest(request)) return;
    const bool decoded = request.request != kNotDecoded;
    if (!decoded) request.request = before;
    if (!decoded || terminate) ++repeats;
    carryOut(request);
  }
}

void CommandReader::start(void* (*entry)(void*)) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_JOINABLE);
  const int rc = pthread_create(&thread, &attributes, entry, threadId.data());
  pthread_attr_destroy(&attributes);
  started = rc == 0;
  if (rc != 0) {
    logger->error("Error - startCmdReaderThread return code from pthread_create() is " + std::to_string(rc));
  }
  logger->info("Command reader thread created " + threadId);
}

void CommandReader::run(BaseConnection& connection) {
  while (!terminate) {
    carryOutWaiting(connection);
    connection.awaitRequest();
  }
}

void CommandReader::stop() {
  if (!started) return;
  terminate = true;
  pthread_join(thread, nullptr);
  started = false;
}
