#pragma once

#include <algorithm>
#include <cstddef>

namespace voip {

/// The work that one call may do for TCP streams, so that no frame is delayed by what others have brought. Counted in
/// units of about 10 ns, not measured, so that the same frames always give the same result.
class Work {
 public:
  static constexpr std::size_t kSent = 300;        ///< a message that is sent to the recorder by itself
  static constexpr std::size_t kTpkt = 30;         ///< in addition to what NetworkSink::takeTpkt() returns
  static constexpr std::size_t kOctetsOfUnit = 8;  ///< octets that are copied; one that is searched is a unit

  explicit Work(std::size_t units) : left_(units) {}

  void spend(std::size_t units) { left_ -= std::min(left_, units); }
  bool isSpent() const { return left_ == 0; }

 private:
  std::size_t left_;
};

}  // namespace voip
