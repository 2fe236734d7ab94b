#include "H323Parser.h"
