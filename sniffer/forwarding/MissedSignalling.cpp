#include "forwarding/MissedSignalling.h"

#include <iterator>

namespace voip {

namespace {

constexpr std::size_t kOverhead = 64;  // bytes of memory for a frame in addition to its own bytes

}  // namespace

void MissedSignalling::keep(const KeptFrame& kept, Instant now) {
  add(frames_, kept, now);
  limitMemory();
}

void MissedSignalling::add(std::deque<Missed>& frames, const KeptFrame& kept, Instant now) {
  frames.push_back({now, kept.stamp, {kept.frame.begin(), kept.frame.end()}, kept.firstSent});
  size_ += kept.frame.size() + kOverhead;
  statistics_.lookBackWaiting.add();
}

void MissedSignalling::putBack(const KeptFrame& kept, Instant now) {
  add(putBack_, kept, now);
}

void MissedSignalling::endPutBack() {
  frames_.insert(frames_.begin(), std::make_move_iterator(putBack_.begin()), std::make_move_iterator(putBack_.end()));
  putBack_.clear();
  limitMemory();
}

void MissedSignalling::limitMemory() {
  while (size_ > memory_ && !frames_.empty()) {
    statistics_.lookBackOverflow.add();
    pop();
  }
}

KeptFrame MissedSignalling::front() {
  Missed& oldest = frames_.front();
  return {oldest.stamp, oldest.frame, oldest.firstSent};
}

void MissedSignalling::pop() {
  --statistics_.lookBackWaiting;
  size_ -= frames_.front().frame.size() + kOverhead;
  frames_.pop_front();
}

void MissedSignalling::expire(Instant now) {
  while (!frames_.empty() && frames_.front().kept < now - time_) {
    statistics_.queueDiscarded.add();
    pop();
  }
}

}  // namespace voip
