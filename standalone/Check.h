#pragma once

#include "capture/Sniffer.h"

/// Opens what the settings of a configured engine name and tells what will not work. The recorder is not asked. The
/// exit status of the program: 0 when all is good.
int check(Sniffer& engine);
