#pragma once

#include <algorithm>
#include <cstdint>

namespace asn1 {

/// The limit of the work that one TPKT may cause, or one captured segment where streams are not followed, in steps. A
/// step takes some nanoseconds: it decodes a value, skips an extension addition, or reads 32 of the bits that say which
/// additions are present. All messages in it share one Effort, because anyone can send a TPKT full of small messages.
/// No message decodes after the Effort is used up.
class Effort {
 public:
  /// The steps of any TPKT. The largest messages seen take a few hundred.
  static constexpr std::uint32_t kSteps = 5120;
  /// Further steps for messages that are described. They suffice for hundreds of channels in one Setup.
  static constexpr std::uint32_t kReserve = 20480;
  /// The cost of a message in addition to its values.
  static constexpr std::uint32_t kMessage = 16;

  /// Returns false when these steps use up the Effort.
  bool spend(std::uint32_t steps = 1) {
    if (steps > left_) left_ = 0;
    left_ -= std::min(steps, left_);
    return left_ != 0;
  }
  std::uint32_t left() const { return left_; }
  std::uint32_t spent() const { return kSteps + kReserve - left_ - reserve_; }

  /// Charges `steps` that are already spent to the reserve instead, as far as it goes.
  void chargeReserve(std::uint32_t steps) {
    steps = std::min(steps, reserve_);
    left_ += steps;
    reserve_ -= steps;
  }

 private:
  std::uint32_t left_ = kSteps;
  std::uint32_t reserve_ = kReserve;
};

}  // namespace asn1
