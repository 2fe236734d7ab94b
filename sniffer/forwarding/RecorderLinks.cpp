#include "forwarding/RecorderLinks.h"

#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <utility>

#include "base/HostText.h"
#include "base/Logger.h"
#include "recorder/EmbeddedConnection.h"
#include "recorder/TcpConnection.h"
#include "recorder/UdpConnection.h"
#include "signalling/SipHelper.h"

namespace voip {

namespace {

bool shareOneConnection(const RecorderAddresses& recorder) {
  if (recorder.nameSig == nullptr) return true;
  return recorder.portMedia == recorder.portSig && std::strcmp(recorder.nameMedia, recorder.nameSig) == 0;
}

bool isTransport(const char* text, const char* known) {
  // Three characters decide. The copy pads a shorter text with zeros.
  std::uint8_t name[4] = {};
  std::strncpy(reinterpret_cast<char*>(name), text, 3);
  return SipHelper().memcmpNocase(reinterpret_cast<const std::uint8_t*>(known), name, 3) == 0;
}

std::unique_ptr<UdpConnection> newUdp(const char* host, int port, const Settings& settings, Statistics& statistics) {
  auto connection = std::make_unique<UdpConnection>(host, port);
  connection->setStatistics(statistics);
  connection->setIpv6(settings.ipv6);
  connection->setCommandsFromServerOnly(settings.commandsFromServerOnly);
  return connection;
}

std::unique_ptr<TcpConnection> newTcp(const char* host, int port, const Settings& settings, Statistics& statistics) {
  auto connection = std::make_unique<TcpConnection>(host, port);
  connection->setStatistics(statistics);
  connection->setIpv6(settings.ipv6);
  connection->setSendTimeout(std::chrono::milliseconds(settings.sendTimeout));
  connection->setReportsEachLoss(settings.lookBack > 0 && settings.resendLast > 0);
  connection->setClosesAttempts(!settings.moreRecorders.empty());  // a Java process makes them for each main loop
  return connection;
}

}  // namespace

// ---- making and releasing ----

void RecorderLinks::setMedia(Owned connection) {
  media_ = std::move(connection);
  conMedia_ = media_.get();
}

void RecorderLinks::setSignalling(Owned connection) {
  signalling_ = std::move(connection);
  conSig_ = signalling_.get();
}

void RecorderLinks::take(std::unique_ptr<BaseConnection> media, std::unique_ptr<BaseConnection> signalling) {
  setMedia({media.release(), destroy});
  setSignalling({signalling.release(), destroy});
}

void RecorderLinks::makeEmbedded(const Settings& settings) {
  logger().info("Embedded connection created");
  EmbeddedConnection::dft()->setCaptureTime(settings.captureTime);
  EmbeddedConnection::dft()->setIpv6(settings.ipv6);
  setMedia({EmbeddedConnection::dft(), leave});
  setSignalling({nullptr, leave});
}

void RecorderLinks::makeSockets(const char* transport, const RecorderAddresses& recorder, const Settings& settings,
                                Statistics& statistics) {
  if (isTransport(transport, "UDP")) {
    makeUdp(recorder, settings, statistics);
    return;
  }
  if (!isTransport(transport, "TCP")) logger().error("Invalid ServerProtocol assuming TCP");
  makeTcp(recorder, settings, statistics);
}

void RecorderLinks::makeUdp(const RecorderAddresses& recorder, const Settings& settings, Statistics& statistics) {
  take(newUdp(recorder.nameMedia, recorder.portMedia, settings, statistics), nullptr);
  logger().info("UDP connection created");
  if (shareOneConnection(recorder)) return;
  setSignalling({newUdp(recorder.nameSig, recorder.portSig, settings, statistics).release(), destroy});
}

void RecorderLinks::makeTcp(const RecorderAddresses& recorder, const Settings& settings, Statistics& statistics) {
  auto connection = newTcp(recorder.nameMedia, recorder.portMedia, settings, statistics);
  TcpConnection& media = *connection;
  take(std::move(connection), nullptr);
  logger().info("TCP connection created");
  media.tcpConnect();
  const std::string address = hostAndPort(recorder.nameMedia, recorder.portMedia);
  logger().info((media.isConnected() ? "Connected to recorder " : "Connecting to recorder ") + address);
  if (shareOneConnection(recorder)) return;
  auto signalling = newTcp(recorder.nameSig, recorder.portSig, settings, statistics);
  signalling->tcpConnect();
  setSignalling({signalling.release(), destroy});
}

void RecorderLinks::release() {
  if (BaseConnection* media = conMedia_.exchange(nullptr)) media->closeConnection();
  media_.reset();
  if (BaseConnection* signalling = conSig_.exchange(nullptr)) signalling->closeConnection();
  signalling_.reset();
}

void RecorderLinks::close() {
  if (BaseConnection* signalling = conSig_) signalling->closeConnection();
  if (BaseConnection* media = conMedia_) media->closeConnection();
}

// ---- using ----

BaseConnection* RecorderLinks::forFrame(FrameProtocol packetClass, FrameProtocol protocol) const {
  if (packetClass == FrameProtocol::Rtp) return conMedia_;
  if (conSig_ != nullptr && packetClass == FrameProtocol::Sip) return conSig_;
  const bool isSignalling = packetClass == FrameProtocol::Sip || packetClass == FrameProtocol::H323;
  return isSignalling || protocol == FrameProtocol::Heartbeat ? conMedia_.load() : nullptr;
}

LinkEvent RecorderLinks::keepConnected() {
  LinkEvent event = LinkEvent::kNone;
  for (BaseConnection* connection : {conMedia_.load(), conSig_.load()}) {
    if (connection != nullptr && connection->keepConnected() != LinkEvent::kNone) event = LinkEvent::kLost;
  }
  return event;
}

void RecorderLinks::stopConnecting() {
  for (BaseConnection* connection : {conMedia_.load(), conSig_.load()}) {
    if (connection != nullptr) connection->stopConnecting();
  }
}

void RecorderLinks::interrupt() {
  if (BaseConnection* media = conMedia_) media->interrupt();
  if (BaseConnection* signalling = conSig_) signalling->interrupt();
}

}  // namespace voip
