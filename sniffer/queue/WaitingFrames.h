#pragma once

#include <cstddef>

namespace voip {

/// Frames that wait for the thread that sends them to a recorder, as that thread and the command thread use them.
class WaitingFrames {
 public:
  /// Ends the wait of the sending thread, or its next one if it does not wait. Any thread.
  virtual void wake() = 0;

  /// Drops all waiting frames, including those of the batch that the sending thread has taken. Counts them and
  /// `others`, frames that the caller has dropped, as discarded, and logs their number at DEBUG. Any thread.
  virtual void clear(std::size_t others = 0) = 0;

  /// As clear(), but drops the whole batch. Sending thread.
  virtual void clearFromSender(std::size_t others = 0) = 0;

 protected:
  ~WaitingFrames() = default;
};

}  // namespace voip
