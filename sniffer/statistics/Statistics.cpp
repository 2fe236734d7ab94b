#include "Statistics.h"

std::string Statistics::report(std::size_t queueLength, std::size_t rtpListLength) const {
  std::string text = "Statistics:";
  const auto add = [&text](const char* name, std::uint64_t value) {
    text += std::string(" ") + name + "=" + std::to_string(value);
  };
  add("sipForwarded", sipForwarded);
  add("rtpForwarded", rtpForwarded);
  add("h323Forwarded", h323Forwarded);
  add("udpDropped", udpDropped);
  add("tcpDropped", tcpDropped);
  add("otherDropped", otherDropped);
  add("queueLength", queueLength);
  add("queueHighest", queueHighest);
  add("queueDiscarded", queueDiscarded);
  add("rtpListLength", rtpListLength);
  add("recorderConnects", recorderConnects);
  add("recorderLosses", recorderLosses);
  add("notSent", notSent);
  return text;
}
