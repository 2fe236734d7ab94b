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
  static constexpr int kLength = FrameHeader::kLength + 8;  ///< bytes
  static constexpr std::int64_t kLate = 20'000;             ///< microseconds; a late frame was captured longer ago

  static constexpr std::int64_t kNever = INT64_MIN;  ///< as lateSince(): no frame is late

  /// Returns the time in microseconds since 1970 before which a frame must have been seen to be late now. Any thread.
  static std::int64_t lateSince() { return CaptureStamp::now() - kLate; }

  /// Announces a frame with a 15-byte header at `frame`, captured at `captured`.
  void write(const std::uint8_t* frame, std::int64_t captured) {
    FrameHeader header = FrameHeader::of(frame);
    header.len = kLength;
    header.protocol = FrameProtocol::CaptureTime;
    header.write(bytes_.data());
    const std::uint64_t time = htobe64(static_cast<std::uint64_t>(captured));
    std::memcpy(bytes_.data() + FrameHeader::kLength, &time, sizeof time);
  }

  /// Returns kLength bytes, which this object owns.
  std::uint8_t* data() { return bytes_.data(); }

 private:
  std::array<std::uint8_t, kLength> bytes_;
};

}  // namespace voip
