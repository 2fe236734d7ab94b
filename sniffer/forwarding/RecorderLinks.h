#pragma once

#include <atomic>
#include <memory>

#include "recorder/BaseConnection.h"
#include "recorder/FrameHeader.h"
#include "settings/Settings.h"
#include "statistics/Statistics.h"

namespace voip {

/// Where the recorder is: two addresses, which may be the same. The texts are not copied.
struct RecorderAddresses {
  const char* nameMedia = nullptr;  ///< dotted IPv4 address
  int portMedia = 6000;
  const char* nameSig = nullptr;  ///< null: signalling goes with the media
  int portSig = 6000;
};

/// The connections to the recorder: one for everything, or a second one for SIP.
class RecorderLinks {
 public:
  RecorderLinks() = default;
  ~RecorderLinks() { release(); }
  RecorderLinks(const RecorderLinks&) = delete;
  RecorderLinks& operator=(const RecorderLinks&) = delete;

  /// The recorder is the host of this process.
  void makeEmbedded();

  /// The recorder is at the end of sockets: over UDP when `transport` begins with these three letters in any case, else
  /// over TCP. The connections count in `statistics`, which must outlive them.
  void makeSockets(const char* transport, const RecorderAddresses& recorder, const Settings& settings,
                   Statistics& statistics);

  /// Takes over connections made elsewhere; `signalling` may be null.
  void take(std::unique_ptr<BaseConnection> media, std::unique_ptr<BaseConnection> signalling);

  /// Null before there are connections.
  BaseConnection* getMedia() const { return conMedia_; }

  /// The connection for a frame with `protocol` in its header while packets of class `packetClass` are forwarded; null
  /// when it is neither signalling, media nor a heartbeat reply.
  BaseConnection* forFrame(FrameProtocol packetClass, FrameProtocol protocol) const;

  /// From now on nothing waits in a connection. Any thread.
  void interrupt();

  /// Closes both and destroys them.
  void release();

  /// Closes both and keeps the objects.
  void close();

 private:
  using Owned = std::unique_ptr<BaseConnection, void (*)(BaseConnection*)>;

  static void destroy(BaseConnection* connection) { delete connection; }
  static void leave(BaseConnection*) {}  ///< the shared embedded connection stays

  void setMedia(Owned connection);
  void setSignalling(Owned connection);
  void makeUdp(const RecorderAddresses& recorder, const Settings& settings, Statistics& statistics);
  void makeTcp(const RecorderAddresses& recorder, const Settings& settings, Statistics& statistics);

  Owned media_{nullptr, leave};
  Owned signalling_{nullptr, leave};

  // Atomic, since a stop may come while they are being made.
  std::atomic<BaseConnection*> conMedia_ = nullptr;
  std::atomic<BaseConnection*> conSig_ = nullptr;  ///< null when signalling shares the media connection
};

}  // namespace voip
