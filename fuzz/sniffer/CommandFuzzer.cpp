// The recorder's command stream, in arbitrary splits, over a real connection on the loopback device. Input: what the
// recorder writes at once, each piece behind its length in two bytes; a piece of no bytes ends the connection, and the
// next one comes on a new connection. What is decoded must be the whole commands of each connection, and no more.

#include <cstdlib>

#include "Loopback.h"
#include "Split.h"
#include "TcpConnection.h"

namespace {

const SnifferRequest kUntouched(0xFFFF, 0xFFFFFFFF, 0xFFFF);  // a code that no byte holds

Loopback reconnected(TcpConnection& connection, const Loopback& listener) {
  while (!connection.isConnected()) connection.tcpConnect();
  return listener.accept();
}

void require(bool condition) {
  if (!condition) std::abort();
}

/// The next command. One that does not come is found by the fuzzer's time-out.
SnifferRequest decoded(TcpConnection& connection) {
  SnifferRequest request = kUntouched;
  while (request == kUntouched) connection.receiveRequest(request);
  return request;
}

SnifferRequest plain(const u_char* wire) {
  const SnifferRequest request = SnifferRequest::fromWire(wire);
  return request.request != 3 ? request : SnifferRequest(3, kUntouched.rtpAddr, kUntouched.rtpPort);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  log4cxx::Logger::getRootLogger()->setLevel(log4cxx::Level::getOff());
  static const Loopback listener(SOCK_STREAM, 0);
  static TcpConnection connection("127.0.0.1", listener.port());
  Loopback peer = reconnected(connection, listener);
  Bytes pending;
  for (Split pieces(data, size); pieces.more();) {
    const Bytes piece = pieces.next();
    if (piece.empty()) {
      peer.close();
      SnifferRequest request = kUntouched;
      while (connection.isConnected()) connection.receiveRequest(request);
      require(request == kUntouched);
      peer = reconnected(connection, listener);
      pending.clear();
      continue;
    }
    peer.write(piece);
    append(pending, piece);
    const u_char* at = pending.data();
    for (; pending.data() + pending.size() - at >= 7; at += 7) require(decoded(connection) == plain(at));
    pending.erase(pending.begin(), pending.begin() + (at - pending.data()));
    SnifferRequest request = kUntouched;
    for (int i = 0; i < 2; ++i) connection.receiveRequest(request);
    require(request == kUntouched);
  }
  connection.closeConnection();
  return 0;
}
