#include "RecorderLinks.h"

#include <log4cxx/logger.h>

#include <cstring>
#include <string>

#include "EmbeddedConnection.h"
#include "SipHelper.h"
#include "TcpConnection.h"
#include "UdpConnection.h"

namespace {

log4cxx::LoggerPtr logger = log4cxx::Logger::getLogger("SnifferClient");

bool shareOneConnection(const RecorderAddresses& recorder) {
  if (recorder.nameSig == nullptr) return true;
  return recorder.portMedia == recorder.portSig && std::strcmp(recorder.nameMedia, recorder.nameSig) == 0;
}

}  // namespace

void RecorderLinks::release() {
  if (BaseConnection* media = conMedia.exchange(nullptr)) {
    media->closeConnection();
    if (media != EmbeddedConnection::dft()) delete media;
  }
  if (BaseConnection* signalling = conSig.exchange(nullptr)) {
    signalling->closeConnection();
    delete signalling;
  }
}

void RecorderLinks::makeEmbedded() {
  logger->info("Embedded connection created");
  conMedia = EmbeddedConnection::dft();
  conSig = nullptr;
}

BaseConnection* RecorderLinks::Manner::newUdp(const char* host, int port) const {
  auto* connection = new UdpConnection(host, port);
  connection->setObserver(&observer);
  connection->setCommandsFromServerOnly(settings.commandsFromServerOnly);
  return connection;
}

TcpConnection* RecorderLinks::Manner::newTcp(const char* host, int port) const {
  auto* connection = new TcpConnection(host, port);
  connection->setObserver(&observer);
  connection->setSendTimeout(std::chrono::milliseconds(settings.sendTimeout));
  return connection;
}

void RecorderLinks::makeSockets(const char* transport, const RecorderAddresses& recorder, const Settings& settings,
                                LinkObserver& observer) {
  // Three characters decide, so a copy that is shorter is padded with zeros.
  u_char name[4] = {};
  std::strncpy(reinterpret_cast<char*>(name), transport, 3);
  SipHelper text;
  const auto is = [&](const char* known) {
    return text.memcmpNocase(reinterpret_cast<const u_char*>(known), name, 3) == 0;
  };
  if (is("UDP")) {
    makeUdp(recorder, {settings, observer});
    return;
  }
  if (!is("TCP")) logger->error("Invalid ServerProtocol assuming TCP");
  makeTcp(recorder, {settings, observer});
}

void RecorderLinks::makeUdp(const RecorderAddresses& recorder, const Manner& manner) {
  conMedia = manner.newUdp(recorder.nameMedia, recorder.portMedia);
  logger->info("UDP connection created");
  conSig = shareOneConnection(recorder) ? nullptr : manner.newUdp(recorder.nameSig, recorder.portSig);
}

void RecorderLinks::makeTcp(const RecorderAddresses& recorder, const Manner& manner) {
  TcpConnection* media = manner.newTcp(recorder.nameMedia, recorder.portMedia);
  conMedia = media;
  logger->info("TCP connection created");
  media->tcpConnect();
  const std::string address = std::string(recorder.nameMedia) + ":" + std::to_string(recorder.portMedia);
  logger->info((media->isConnected() ? "Connected to recorder " : "Connecting to recorder ") + address);
  if (shareOneConnection(recorder)) {
    conSig = nullptr;
    return;
  }
  TcpConnection* signalling = manner.newTcp(recorder.nameSig, recorder.portSig);
  conSig = signalling;
  signalling->tcpConnect();
}

void RecorderLinks::take(std::unique_ptr<BaseConnection> media, std::unique_ptr<BaseConnection> signalling) {
  conMedia = media.release();
  conSig = signalling.release();
}

BaseConnection* RecorderLinks::forFrame(FrameProtocol packetClass, FrameProtocol protocol) const {
  if (packetClass == FrameProtocol::Rtp) return conMedia;
  if (conSig != nullptr && packetClass == FrameProtocol::Sip) return conSig;
  const bool signalling = packetClass == FrameProtocol::Sip || packetClass == FrameProtocol::H323;
  return signalling || protocol == FrameProtocol::Heartbeat ? conMedia.load() : nullptr;
}

void RecorderLinks::interrupt() {
  if (BaseConnection* media = conMedia) media->interrupt();
  if (BaseConnection* signalling = conSig) signalling->interrupt();
}

void RecorderLinks::close() {
  if (BaseConnection* signalling = conSig) signalling->closeConnection();
  if (BaseConnection* media = conMedia) media->closeConnection();
}
