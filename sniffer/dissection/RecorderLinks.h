#pragma once

#include <atomic>
#include <memory>

#include "BaseConnection.h"
#include "FrameHeader.h"
#include "LinkObserver.h"
#include "Settings.h"

/// Where the recorder is: two addresses, which may be the same one. The texts are not copied.
struct RecorderAddresses {
  const char* nameMedia = nullptr;  ///< dotted IPv4 address
  int portMedia = 6000;
  const char* nameSig = nullptr;  ///< null: signalling goes with the media
  int portSig = 6000;
};

class TcpConnection;

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
  /// over TCP. `observer` is told what becomes of them.
  void makeSockets(const char* transport, const RecorderAddresses& recorder, const Settings& settings,
                   LinkObserver& observer);

  /// Takes over connections made elsewhere; `signalling` may be null.
  void take(std::unique_ptr<BaseConnection> media, std::unique_ptr<BaseConnection> signalling);

  BaseConnection* getMedia() const { return conMedia; }
  BaseConnection* getSignalling() const { return conSig; }

  /// The connection for a frame with `protocol` in its header while packets of class `packetClass` are forwarded; null
  /// when it is neither signalling, media nor a heartbeat's answer.
  BaseConnection* forFrame(FrameProtocol packetClass, FrameProtocol protocol) const;

  /// From now on nothing waits in a connection. Any thread.
  void interrupt();

  /// Closes both and lets go of them.
  void release();

  /// Closes both and keeps the objects.
  void close();

 private:
  /// What goes into every connection to a socket.
  struct Manner {
    const Settings& settings;
    LinkObserver& observer;

    BaseConnection* newUdp(const char* host, int port) const;
    TcpConnection* newTcp(const char* host, int port) const;
  };

  void makeUdp(const RecorderAddresses& recorder, const Manner& manner);
  void makeTcp(const RecorderAddresses& recorder, const Manner& manner);

  // Atomic, since a stop may come while they are being made.
  std::atomic<BaseConnection*> conMedia = nullptr;  ///< owned, unless it is the shared embedded connection
  std::atomic<BaseConnection*> conSig = nullptr;    ///< owned; null when signalling shares the media connection
};
