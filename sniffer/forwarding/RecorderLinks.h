#pragma once

#include <atomic>
#include <memory>

#include "recorder/BaseConnection.h"
#include "recorder/FrameHeader.h"
#include "settings/Settings.h"
#include "statistics/Statistics.h"

namespace voip {

/// The recorder's addresses for media and for signalling, which may be the same. The texts are not copied and must
/// outlive the connections. Ports are in host order.
struct RecorderAddresses {
  const char* nameMedia = nullptr;  ///< IPv4 or IPv6 address
  int portMedia = 6000;
  const char* nameSig = nullptr;  ///< as `nameMedia`; null: signalling is sent with the media
  int portSig = 6000;
};

/// The connections to the recorder: one for all frames, or a second one for SIP. They are made and released by one
/// thread while no other sends or takes commands.
class RecorderLinks {
 public:
  RecorderLinks() = default;

  /// Closes and destroys the connections.
  ~RecorderLinks() { release(); }
  RecorderLinks(const RecorderLinks&) = delete;
  RecorderLinks& operator=(const RecorderLinks&) = delete;

  /// Makes the host of this process the recorder: uses the shared embedded connection, which is never destroyed and
  /// gets the settings of each run.
  void makeEmbedded(const Settings& settings);

  /// Makes connections over UDP when `transport` begins with "UDP" in any case, else over TCP. Begins to connect over
  /// TCP. The connections count in `statistics`, which must outlive them.
  void makeSockets(const char* transport, const RecorderAddresses& recorder, const Settings& settings,
                   Statistics& statistics);

  /// Takes ownership of connections made elsewhere; `signalling` may be null.
  void take(std::unique_ptr<BaseConnection> media, std::unique_ptr<BaseConnection> signalling);

  /// Returns the connection for media, which this object owns, or null before there is one. Any thread.
  BaseConnection* getMedia() const { return conMedia_; }

  /// Returns the connection for a frame with `protocol` in its header after a packet of class `packetClass`; this
  /// object owns it. Null when the class is none of SIP, RTP and H.323 and the frame is no heartbeat reply. Any thread.
  BaseConnection* forFrame(FrameProtocol packetClass, FrameProtocol protocol) const;

  /// Connects where no frame waits for it: see BaseConnection::keepConnected(). The lane's thread.
  LinkEvent keepConnected();

  /// Makes no new connection from now on. The lane's thread.
  void stopConnecting();

  /// Ends all waits in the connections, present and future. Any thread.
  void interrupt();

  /// Closes and destroys the connections; the shared embedded connection is only closed.
  void release();

  /// Closes the connections but keeps the objects.
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

  // Atomic, since interrupt() may be called while the connections are made.
  std::atomic<BaseConnection*> conMedia_ = nullptr;
  std::atomic<BaseConnection*> conSig_ = nullptr;  ///< null when signalling shares the media connection
};

}  // namespace voip
