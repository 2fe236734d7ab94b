#pragma once

namespace voip {

/// What the dissector has to know of the engine that drives it. The engine is above it, so it is seen through this.
class Engine {
 public:
  /// The transport to the recorder as the settings have it, "TCP" or "UDP".
  virtual const char* getServerProtocol() const = 0;

  /// True when the recorder is the process that hosts the sniffer.
  virtual bool getEmbedded() const = 0;

  /// True from the stop of the engine on, until the next start. Any thread.
  virtual bool hasEnded() const = 0;

 protected:
  ~Engine() = default;
};

}  // namespace voip
