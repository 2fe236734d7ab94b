// Captured frames through classification and forwarding. Input: frames, as Split cuts them; an empty one is a
// heartbeat. Each forwarded frame must be well-formed and match the captured frame.

#include <log4cxx/logger.h>

#include <algorithm>
#include <memory>

#include "support/Frames.h"
#include "support/Require.h"
#include "support/Split.h"

using namespace voip;

namespace {

Bytes captured;  // the current frame, unchanged

/// A recorder that checks each frame against the captured one.
struct CheckingConnection : BaseConnection {
  bool receiveRequest(SnifferRequest&) override { return false; }
  void closeConnection() override {}

  int sendPacket(u_char* buffer, int length) override {
    require(length >= 15 && (buffer[0] << 8 | buffer[1]) == length);
    const std::size_t payload = static_cast<std::size_t>(length) - 15;
    switch (buffer[2]) {
      case 1:
      case 2:  // the end of the captured frame, unchanged, and no byte after it
        require(payload > 0 && payload + 42 <= captured.size());
        require(std::equal(captured.end() - static_cast<long>(payload), captured.end(), buffer + 15));
        break;
      case 3:
        require(payload == 0);
        break;
      case 4:  // text and its zero byte
        require(payload > 0 && buffer[length - 1] == 0);
        break;
      default:
        require(false);
    }
    return length;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  log4cxx::Logger::getRootLogger()->setLevel(log4cxx::Level::getOff());
  SngDissector dissector;
  dissector.setConnections(std::make_unique<CheckingConnection>(), std::make_unique<CheckingConnection>());
  // Destinations that mutations find: those of the corpus, and that of the zeroed bytes after a truncated frame.
  dissector.addRtp(0x0A000002, 5000);
  dissector.addRtp(0, 0);
  for (Split frames(data, size); frames.more();) {
    captured = frames.next();
    if (captured.empty()) dissector.replyHeartbeat();
    process(dissector, captured);
  }
  dissector.signalEnd();
  return 0;
}
