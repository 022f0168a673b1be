#include "SimLog.h"

Q_LOGGING_CATEGORY(lcSim, "sorvik.sim")
Q_LOGGING_CATEGORY(lcSimFrames, "sorvik.sim.frames", QtInfoMsg)
