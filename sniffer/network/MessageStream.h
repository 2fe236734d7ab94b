#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "network/MessageFraming.h"
#include "network/NetworkSink.h"
#include "network/WebSocketFraming.h"
#include "network/Work.h"

namespace voip {

/// Cuts the octets of one direction of a TCP stream into messages and passes them on: SIP, SIP over WebSocket, or
/// TPKTs. The first octets of the stream decide which. When these were not captured, the octets of the first segment
/// that begins with a message decide.
///
/// After a loss the known length of the damaged message gives the start of the next one. When the loss goes beyond the
/// damaged message, the stream is out of step until a message is recognised: a TPKT at the start of a segment or
/// followed by another one, a start line with a header field after it, a WebSocket frame that begins with a start line.
/// The sender of the octets before a loss may be another one than that of the octets after it. So a segment that begins
/// with a message decides again what the stream is, until a message ends where the next one should begin. One thread.
class MessageStream {
 public:
  enum class Kind : std::uint8_t { kUndecided, kForeign, kTpkt, kSip, kHandshake, kWebSocket };

  /// The sink of the messages, and their addresses and capture time.
  struct Context {
    NetworkSink& sink;
    const FlowEnds& ends;
    std::int64_t captured;                ///< capture time of the octets
    std::vector<std::uint8_t>& unmasked;  ///< memory that is reused
    Work& work;                           ///< of the present call
  };

  /// Returns false when no message begins with these octets, the first ones captured of a stream.
  static bool mayBeginWith(Octets octets);

  /// `isFromStart`: the next octets are the first ones of the connection.
  void start(bool isFromStart);

  /// Takes the next octets and returns their number, or a smaller one when the work is spent: the caller gives the
  /// others again, before anything else. Deals with some octets unless the work is spent before. `isFront`: the octets
  /// begin as their segment does.
  std::size_t take(Octets octets, bool isFront, const Context& context);

  /// `count` octets before the next ones are lost.
  void lose(std::uint64_t count);

  Kind kind() const { return kind_; }

  /// True when nothing is known about the stream and nothing is kept.
  bool isBlank() const { return kind_ == Kind::kUndecided && !isFromStart_ && kept_ == nullptr; }

  /// Returns the memory of the incomplete message, in bytes.
  std::size_t memoryUsed() const;

 private:
  /// The data that a stream keeps from one segment to the next; most streams keep none.
  struct Kept {
    std::vector<std::uint8_t> partial;   ///< the incomplete message
    std::vector<std::uint8_t> assembly;  ///< the frames so far of a WebSocket message in several frames
  };

  static Kind kindOf(Octets octets, bool isFromStart);
  static bool isMessageAt(Octets octets);

  /// Where takeMessages() ended: at an incomplete message, or because the work is spent.
  struct End {
    std::size_t at;
    bool isSpent;
  };

  std::size_t takeFresh(Octets octets, bool isFront, const Context& context);
  std::size_t takeAfterPartial(Octets octets, const Context& context);
  End takeMessages(Octets octets, std::size_t old, std::size_t known, bool isFront, const Context& context);
  Cut cut(Octets octets, std::size_t known, bool isFront, const Context& context);
  std::optional<Cut> decide(Octets octets, std::size_t known);
  std::optional<Cut> findStep(Octets octets, std::size_t known, bool isFront, Work& work);
  Found find(Octets octets, bool isFront) const;
  Cut cutInStep(Octets octets, std::size_t known, WebSocketFrame& frame);
  void decideAgain();
  void loseStep();
  void passOn(Octets message, const Context& context);
  void takeFrame(Octets octets, const WebSocketFrame& frame, const Context& context);
  void refuse(std::uint64_t length, const Context& context) const;

  Kept& kept();
  void tidy();

  std::unique_ptr<Kept> kept_;
  std::uint32_t skip_ = 0;    ///< future octets that are no message
  std::uint32_t wanted_ = 0;  ///< length of the incomplete message; 0: unknown
  Kind kind_ = Kind::kUndecided;
  std::uint8_t failures_ = 0;  ///< grows when no message begins where one should, and falls with each message
  bool isFromStart_ = false;
  bool isInStep_ = false;      ///< a message begins with the next octet that is not skipped
  bool isUnsure_ = false;      ///< no message has been found since a loss
  bool isAssembling_ = false;  ///< a WebSocket message has begun
};

}  // namespace voip
