#pragma once

#include "capture/Sniffer.h"

/// Checks the devices, the filter, the recorder's address and the settings of a configured engine, without a connection
/// to the recorder. Prints each error on standard error and the result on standard output. Returns the exit status of
/// the program, 0 when there is no error.
int check(Sniffer& engine);

/// Prints the result for an engine that could not be configured, because no device was named and libpcap finds none.
int reportNoDefaultDevice();
