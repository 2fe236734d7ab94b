#pragma once

#include <string>

#include "capture/Sniffer.h"

/// A device that could not be opened.
struct DownDevice {
  std::string text;       ///< the reason, and what to do
  bool privilegeMissing;  ///< the reason is the missing capability (see explainPrivilege())
};

/// Returns the diagnosis of device i, which is down.
DownDevice diagnose(const Sniffer& engine, int i);

/// Prints on standard error which devices of an engine do not exist, which exist instead, and which capability is
/// missing. The log has the other reasons.
void explainDownDevices(const Sniffer& engine);

/// Prints on standard error how to give the program the capability that capturing needs.
void explainPrivilege();

/// Prints the devices that libpcap finds, with their descriptions and addresses. Returns false when it cannot list
/// them.
bool listDevices();
