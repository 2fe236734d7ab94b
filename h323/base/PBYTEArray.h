#pragma once

#include <cstddef>
#include <cstdint>

/// A view of octets, usually of a part of a packet. The view does not own the octets: a copy of it copies no octets,
/// and it is valid as long as they are.
class PBYTEArray {
 public:
  constexpr PBYTEArray() = default;
  constexpr PBYTEArray(const std::uint8_t* octets, std::size_t size) : octets_(octets), size_(size) {}

  constexpr std::size_t GetSize() const { return size_; }
  constexpr bool IsEmpty() const { return size_ == 0; }
  constexpr const std::uint8_t* GetPointer() const { return octets_; }

  /// `index` must be less than GetSize().
  constexpr std::uint8_t operator[](std::size_t index) const { return octets_[index]; }

  constexpr const std::uint8_t* begin() const { return octets_; }
  constexpr const std::uint8_t* end() const { return octets_ + size_; }

 private:
  const std::uint8_t* octets_ = nullptr;
  std::size_t size_ = 0;
};
