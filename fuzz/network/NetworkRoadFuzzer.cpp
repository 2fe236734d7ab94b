// Frames in, forwarded frames out, under all settings at once. Input: frames, each behind its length in two bytes; the
// first octet of each tells its link type (3 bits) and by which power of two of microseconds time has gone on (5 bits).
// Each stands in memory of its own, so that no byte beside it is read unnoticed. Every frame has to be in one figure.

#include <log4cxx/logger.h>
#include <cstdlib>
#include <memory>

#include "support/Frames.h"
#include "support/Split.h"

using namespace voip;

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

struct CheckingConnection : BaseConnection {
  bool receiveRequest(SnifferRequest&) override { return false; }
  void closeConnection() override {}
  int sendPacket(u_char* buffer, int length) override {
    require(length > 15 && length <= 65535 && (buffer[0] << 8 | buffer[1]) == length);
    require(buffer[2] == 1 || buffer[2] == 2 || (buffer[2] == 4 && buffer[length - 1] == 0));
    unsigned sum = 0;  // reads each byte
    for (int i = 15; i < length; ++i) sum += buffer[i];
    require(sum <= 255U * 65535);
    return length;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  constexpr int kLinkTypes[] = {DLT_EN10MB, DLT_LINUX_SLL, DLT_LINUX_SLL2, DLT_RAW,
                                DLT_NULL,   DLT_LOOP,      DLT_IPV4,       DLT_EN10MB};
  log4cxx::Logger::getRootLogger()->setLevel(log4cxx::Level::getOff());
  SngDissector dissector;
  Settings settings;
  settings.decapsulate = settings.reassembleFragments = settings.reassembleTcp = settings.dropDuplicates = true;
  settings.sipAnyUri = true;
  dissector.setSettings(settings);
  dissector.setConnections(std::make_unique<CheckingConnection>(), nullptr);
  for (const u_int host : {1U, 2U}) dissector.addRtp(0x0A140000 + host, host == 1 ? 30000 : 40000);  // those of the corpus
  std::int64_t time = 0;
  std::uint64_t count = 0;
  for (Split frames(data, size); frames.more();) {
    const Bytes piece = frames.next();
    if (piece.empty()) continue;
    time += std::int64_t{1} << (piece[0] >> 3);
    std::vector<u_char> frame = withSlack(Bytes(piece.begin() + 1, piece.end()));
    const auto length = static_cast<bpf_u_int32>(piece.size() - 1);
    const pcap_pkthdr header{{time / 1'000'000, time % 1'000'000}, length, length};
    dissector.processFrame(header, frame.data(), kLinkTypes[piece[0] & 7]);
    ++count;
  }
  const Statistics& figures = dissector.getStatistics();
  require(figures.sipForwarded + figures.rtpForwarded + figures.h323Forwarded + figures.udpDropped +
              figures.tcpDropped + figures.otherDropped + figures.duplicatesDropped + figures.fragmentsHeld +
              figures.segmentsFollowed ==
          count + figures.streamMessages);
  dissector.signalEnd();
  return 0;
}
