#pragma once

#include <algorithm>
#include <cstdint>

namespace asn1 {

// How much decoding one segment is worth, in steps. A step is a value, an extension addition that is skipped, or 32
// bits that tell which additions there are: some nanoseconds. The messages of a segment draw on one Effort, for it is
// the segment that anybody can send; once it is used up no further message decodes.
class Effort {
 public:
  // Of a segment, whatever comes of it. The largest messages seen take a few hundred.
  static constexpr std::uint32_t kSteps = 5120;
  // Beyond these, for messages that described something: hundreds of channels in one Setup.
  static constexpr std::uint32_t kReserve = 20480;
  // To begin a message.
  static constexpr std::uint32_t kMessage = 16;

  // False when there is less left; then nothing is left any more.
  bool spend(std::uint32_t steps = 1) {
    if (steps > left_) left_ = 0;
    left_ -= std::min(steps, left_);
    return left_ != 0;
  }
  std::uint32_t left() const { return left_; }

  // What was spent since this much was left was worth it: it comes out of the reserve.
  void wasWorthIt(std::uint32_t leftBefore) {
    const std::uint32_t steps = std::min(leftBefore - left_, reserve_);
    left_ += steps;
    reserve_ -= steps;
  }

 private:
  std::uint32_t left_ = kSteps;
  std::uint32_t reserve_ = kReserve;
};

}  // namespace asn1
