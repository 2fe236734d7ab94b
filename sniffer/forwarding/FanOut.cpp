#include "forwarding/FanOut.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "base/Logger.h"

namespace voip {

namespace {

constexpr std::size_t kWithoutLimit = std::size_t{256} << 20;  // bytes for each queue without QueueLimit

void logLostFrame(const std::exception& failure) {
  logger().error(std::string("A frame is lost: ") + failure.what());
}

}  // namespace

// ---- a lane ----

void QueuedLane::work(bool mayWait, bool hasHost, const std::atomic<bool>& hasEnded) {
  try {
    const auto longest = lane_.prepareWait();
    const bool hasFrames = queue.takeBatch(mayWait ? longest : std::chrono::milliseconds(0));
    lane_.finishWait(hasFrames, hasHost);
    // Packets that this recorder does not need pass without a frame in the queue.
    if (hasHost) lane_.checkHostCommands();
    for (KeptFrame frame; !hasEnded && queue.next(frame);) {
      lane_.take(frame);
      if (hasHost) lane_.checkHostCommands();
    }
    lane_.flush();
  } catch (...) {
    lane_.dropGroup();  // its bytes become invalid
    throw;
  }
}

void QueuedLane::drain() {
  queue.takeBatch(std::chrono::milliseconds(0));
  do {
    for (KeptFrame frame; queue.next(frame);) lane_.take(frame);
    lane_.flush();
  } while (queue.takeBatch(std::chrono::milliseconds(0)));
}

// ---- the recorders ----

std::size_t FanOut::queueLimitFor(const Settings& settings) {
  const std::size_t recorders = readMoreRecorders(settings.moreRecorders).addresses.size() + 1;
  const std::size_t all = static_cast<std::size_t>(settings.queueLimit) << 20;
  return std::max(all / (recorders + 1), kLeastShare);
}

FanOut::FanOut(const Settings& settings, RtpDestinations& all, RecorderLane& first, Statistics& ofFirst)
    : keepsMedia_(settings.lookBack > 0), ofFirst_(ofFirst) {
  const std::size_t limit = settings.queueLimit > 0 ? queueLimitFor(settings) : kWithoutLimit;
  const auto add = [&](RecorderLane& lane, const std::string& owner, Statistics& statistics) {
    auto queued = std::make_unique<QueuedLane>(lane, std::uint32_t{1} << lanes_.size(), owner, limit, statistics);
    lane.configure(settings, queued->queue);
    lanes_.push_back(queued.get());
    return queued;
  };
  first_ = add(first, "the first recorder", ofFirst);
  for (const RecorderAddress& address : readMoreRecorders(settings.moreRecorders).addresses) {
    further_.push_back(std::make_unique<Recorder>(address, all, static_cast<unsigned>(lanes_.size())));
    Recorder& recorder = *further_.back();
    recorder.queued = add(recorder.lane, "recorder " + address.text(), recorder.statistics);
  }
  all.setRecorders(static_cast<unsigned>(lanes_.size()));
}

FanOut::~FanOut() {
  signalEnd();
  join();
  for (const auto& recorder : further_) {
    const LogPrefix prefix(recorder->prefix);
    recorder->lane.links().release();
  }
}

void FanOut::makeConnections(const Settings& settings) {
  for (const auto& recorder : further_) {
    const LogPrefix prefix(recorder->prefix);
    recorder->lane.links().makeSockets("TCP", {recorder->address.host.c_str(), recorder->address.port}, settings,
                                       recorder->statistics);
  }
}

void FanOut::start() {
  for (const auto& recorder : further_) {
    const LogPrefix prefix(recorder->prefix);
    try {
      recorder->commands = std::thread(&FanOut::readCommands, this, std::ref(*recorder));
      recorder->forwarding = std::thread(&FanOut::forward, this, std::cref(*recorder));
    } catch (const std::exception& failure) {
      logger().error(std::string("It gets nothing, there is no thread for it: ") + failure.what());
      recorder->queued->isServed = false;
    }
  }
}

void FanOut::forward(const Recorder& recorder) {
  const LogPrefix prefix(recorder.prefix);
  while (!hasEnded_) {
    try {
      recorder.queued->work(true, false, hasEnded_);
    } catch (const std::exception& failure) {
      logLostFrame(failure);
    }
  }
}

void FanOut::readCommands(Recorder& recorder) {
  const LogPrefix prefix(recorder.prefix);
  while (!hasEnded_) {
    try {
      recorder.lane.commands().run(*recorder.lane.links().getMedia());
    } catch (const std::exception& failure) {
      logger().error(std::string("A command is lost: ") + failure.what());
    }
  }
}

// ---- the classifying thread ----

void FanOut::takeForAll(const KeptFrame& frame) {
  for (QueuedLane* lane : lanes_) {
    if (lane->isServed) lane->queue.push(frame);
  }
}

void FanOut::takeMedia(const KeptFrame& frame, std::uint32_t wantedBy) {
  if (keepsMedia_) {
    takeForAll(frame);
    return;
  }
  for (QueuedLane* lane : lanes_) {
    if ((wantedBy & lane->bit()) != 0 && lane->isServed) lane->queue.push(frame);
  }
  if ((wantedBy & first().bit()) == 0) ofFirst_.udpDropped.add();
}

void FanOut::publish() {
  for (QueuedLane* lane : lanes_) lane->queue.publish();
}

// ---- any thread ----

void FanOut::signalEnd() {
  hasEnded_ = true;
  for (const auto& recorder : further_) {
    recorder->lane.commands().signalEnd();
    recorder->lane.links().interrupt();
  }
  for (QueuedLane* lane : lanes_) lane->queue.wake();
}

bool FanOut::isIdle() {
  return std::all_of(lanes_.begin(), lanes_.end(), [](QueuedLane* lane) { return lane->queue.isIdle(); });
}

std::vector<RecorderStatistics> FanOut::getStatistics() {
  std::vector<RecorderStatistics> all;
  for (const auto& recorder : further_) {
    all.push_back({recorder->address.text(), recorder->statistics});
    all.back().figures.queueLength = recorder->queued->queue.size();
    all.back().figures.rtpListLength = recorder->lane.destinations().length();
  }
  return all;
}

// ---- the end ----

std::size_t FanOut::join() {
  for (const auto& recorder : further_) {
    if (recorder->forwarding.joinable()) recorder->forwarding.join();
    if (recorder->commands.joinable()) recorder->commands.join();
    recorder->statistics.queueDiscarded.add(recorder->queued->queue.discard());
  }
  return first_->queue.discard();
}

void FanOut::stopConnecting() {
  for (const auto& recorder : further_) recorder->lane.links().stopConnecting();
}

void FanOut::drain() {
  first().drain();
  for (const auto& recorder : further_) {
    const LogPrefix prefix(recorder->prefix);
    recorder->queued->drain();
  }
}

}  // namespace voip
