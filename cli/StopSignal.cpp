// Compiled by sorvik-gateway alone (see StopSignal.h); sorvik-cli links sorvik_programs.
#include "programs/StopSignal.cpp"
