#pragma once

#include <log4cxx/logger.h>

#include <ctime>
#include <memory>

#include "support/Frames.h"

/// A recorder that discards all frames.
struct DiscardingConnection : BaseConnection {
  bool receiveRequest(SnifferRequest&) override { return false; }
  int sendPacket(u_char* buffer, int length) override {
    last = buffer[2];
    return length;
  }
  void closeConnection() override {}

  volatile std::uint8_t last = 0;  ///< read from each frame
};

/// Returns a dissector that logs nothing. 10.0.0.2:5000 is the last of the `listed` destinations.
inline std::unique_ptr<SngDissector> quietDissector(int listed, std::unique_ptr<BaseConnection> recorder) {
  log4cxx::Logger::getLogger("SnifferClient")->setLevel(log4cxx::Level::getOff());
  auto dissector = std::make_unique<SngDissector>();
  dissector->setConnections(std::move(recorder), nullptr);
  for (int i = 1; i < listed; ++i) dissector->addRtp(0xC0A80000U + static_cast<u_int>(i), 5000);
  if (listed > 0) dissector->addRtp(0x0A000002, 5000);
  return dissector;
}

/// Returns a clock's time in seconds. Benchmarks of one thread use its processor time, which other load on the machine
/// does not affect.
inline double secondsOf(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}
