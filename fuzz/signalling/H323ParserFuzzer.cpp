// Fuzzes the parser with segments of several connections, one after the other. The call maps live as long as an input.
//
// An input is a list of segments. A segment has a header of four octets: the connection (two bits for each of the two
// addresses and ports), bits for the state of the parser, and the length of the segment, big-endian. The segment
// follows, with its TPKT header. The last segment may be shorter than its length. There are few addresses, so that
// segments match addresses that others announced.

#include <arpa/inet.h>
#include <log4cxx/logger.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "signalling/H323Parser.h"
#include "signalling/SipStartLine.h"

using namespace voip;

namespace {

constexpr int kHeaderLength = 15;
constexpr const char* kAddresses[] = {"10.20.0.1", "10.20.0.2", "10.9.7.21", "10.20.0.10"};
constexpr u_int kPorts[] = {1720, 2077, 40000, 65535};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // The logger has no appender, but the texts of its events are built.
  static const auto logger = log4cxx::Logger::getLogger("SnifferClient");
  logger->setAdditivity(false);
  H323Parser parser;
  while (size >= 4) {
    const unsigned connection = data[0];
    const unsigned settings = data[1];
    const std::size_t length = std::min<std::size_t>(static_cast<std::size_t>(data[2]) << 8 | data[3], size - 4);
    // The buffer ends with the segment, so that the sanitizer finds a read beyond the end.
    std::vector<u_char> segment(kHeaderLength + length);
    std::copy_n(data + 4, length, segment.begin() + kHeaderLength);
    isSipRequestWithAnyUri({data + 4, length});
    beginsSip({data + 4, length});
    data += 4 + length;
    size -= 4 + length;

    logger->setLevel((settings & 1) != 0 ? log4cxx::Level::getDebug() : log4cxx::Level::getError());
    parser.setTraceSignalling((settings & 2) != 0);
    parser.setLimitsComplaints((settings & 8) != 0);
    PString text;
    const bool forwarded = parser.parseH323(
        segment.data(), static_cast<int>(segment.size()), kHeaderLength, inet_addr(kAddresses[connection & 3]),
        inet_addr(kAddresses[connection >> 2 & 3]), kPorts[connection >> 4 & 3], kPorts[connection >> 6 & 3], text);
    const char* const characters = text;
    if (std::strlen(characters) != text.GetLength()) std::abort();
    if (forwarded && (std::strncmp(characters, "t:", 2) != 0 || characters[text.GetLength() - 1] != '\n')) std::abort();
    if ((settings & 4) != 0) parser.displayCallIdMap();
  }
  return 0;
}
