#pragma once

// sorvik-gateway's build still names this file and its .cpp; the stop
// signals live in programs/. Both go when the gateway links sorvik_programs.
#include "programs/StopSignal.h"
