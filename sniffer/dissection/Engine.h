#pragma once

namespace voip {

/// The engine that drives the dissector, as far as the dissector uses it. The engine is in a higher module, so it
/// implements this interface.
class Engine {
 public:
  /// Returns the transport to the recorder as configured: "TCP" or "UDP". The engine owns the text.
  virtual const char* getServerProtocol() const = 0;

  /// True when the recorder is the process that hosts the sniffer.
  virtual bool getEmbedded() const = 0;

  /// True after a stop of the engine, until its next start. Any thread.
  virtual bool hasEnded() const = 0;

 protected:
  ~Engine() = default;
};

}  // namespace voip
