#pragma once

#include "capture/Sniffer.h"

/// Tells on standard error why devices of a set-up engine could not be opened and what to do: which capability is
/// missing and how to give it, or which devices there are.
void explainDownDevices(const Sniffer& engine);

/// Prints libpcap's devices with their descriptions and addresses. False when there is no list.
bool listDevices();
