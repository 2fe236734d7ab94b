#pragma once

#include <cstddef>
#include <cstdint>

// A view of octets that somebody else owns, usually a part of a packet. Copying it copies no octets; it is valid as
// long as the octets it was made from.
class PBYTEArray {
 public:
  constexpr PBYTEArray() = default;
  constexpr PBYTEArray(const uint8_t* octets, size_t size) : octets_(octets), size_(size) {}

  constexpr size_t GetSize() const { return size_; }
  constexpr bool IsEmpty() const { return size_ == 0; }
  constexpr const uint8_t* GetPointer() const { return octets_; }

  // `index` must be less than GetSize().
  constexpr uint8_t operator[](size_t index) const { return octets_[index]; }

  constexpr const uint8_t* begin() const { return octets_; }
  constexpr const uint8_t* end() const { return octets_ + size_; }

 private:
  const uint8_t* octets_ = nullptr;
  size_t size_ = 0;
};
