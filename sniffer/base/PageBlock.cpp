#include "base/PageBlock.h"

#include <sys/mman.h>

#include <new>

namespace voip {

PageBlock::PageBlock(std::size_t capacity) : capacity_(capacity) {
  void* pages = mmap(nullptr, capacity, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (pages == MAP_FAILED) throw std::bad_alloc();
  memory_ = static_cast<std::uint8_t*>(pages);
}

PageBlock::~PageBlock() {
  munmap(memory_, capacity_);
}

}  // namespace voip
