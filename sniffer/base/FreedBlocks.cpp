#include "base/FreedBlocks.h"

#include <cstdlib>

namespace voip {

void FreedBlocks::join() {
  constexpr std::size_t kLarge = 4096;
  void* volatile block = std::malloc(kLarge);  // volatile: otherwise the compiler removes both calls
  std::free(block);
  count_ = 0;
}

}  // namespace voip
