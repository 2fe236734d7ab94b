#include "Statistics.h"

void Statistics::countWait(std::chrono::milliseconds time, std::size_t frames) {
  count(sendWaits);
  count(framesWaited, frames);
  const auto length = static_cast<std::uint64_t>(time.count());
  if (length > sendWaitLongest) sendWaitLongest = length;
}

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
  if (sendWaits > 0) {
    add("sendWaits", sendWaits);
    add("sendWaitLongest", sendWaitLongest);
    add("framesWaited", framesWaited);
  }
  if (commandsIgnored > 0) add("commandsIgnored", commandsIgnored);
  if (hostWaitingHighest > 0) {
    add("hostWaiting", hostWaiting);
    add("hostWaitingHighest", hostWaitingHighest);
  }
  return text;
}
