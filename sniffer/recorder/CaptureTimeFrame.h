#pragma once

#include <endian.h>

#include <array>
#include <cstdint>
#include <cstring>

#include "base/CaptureStamp.h"
#include "recorder/FrameHeader.h"

namespace voip {

/// A frame that announces a late frame: the header of that frame with protocol 5, then its capture time in microseconds
/// since 1970, in network byte order.
class CaptureTimeFrame {
 public:
  static constexpr int kTimeLength = 8;  ///< bytes
  static constexpr int kLongest = FrameHeader::kIpv6Length + kTimeLength;
  static constexpr std::int64_t kLate = 20'000;  ///< microseconds; a late frame was captured longer ago

  static constexpr std::int64_t kNever = INT64_MIN;  ///< as lateSince(): no frame is late

  /// Returns a time in microseconds since 1970: a frame that was seen before it is late now. Any thread.
  static std::int64_t lateSince() { return CaptureStamp::now() - kLate; }

  /// Returns the length in bytes of the frame that announces `frame`.
  static int lengthFor(const std::uint8_t* frame) {
    return static_cast<int>(FrameHeader::lengthOf(frame)) + kTimeLength;
  }

  /// Announces a frame whose header is at `frame`. `seen` as in CaptureStamp: of a replayed frame the time of the
  /// replay, since the recorder compares it with the arrival of frames that are not late.
  void write(const std::uint8_t* frame, std::int64_t seen) {
    FrameHeader header = FrameHeader::of(frame);
    header.len = static_cast<u_short>(lengthFor(frame));
    header.protocol = FrameProtocol::CaptureTime;
    header.write(bytes_.data());
    const std::uint64_t time = htobe64(static_cast<std::uint64_t>(seen));
    std::memcpy(bytes_.data() + header.length(), &time, sizeof time);
  }

  /// Returns length() bytes, which this object owns.
  std::uint8_t* data() { return bytes_.data(); }

  /// Returns the length in bytes of what write() wrote last.
  int length() const { return lengthFor(bytes_.data()); }

 private:
  std::array<std::uint8_t, kLongest> bytes_;
};

}  // namespace voip
