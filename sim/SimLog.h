#pragma once

#include <QLoggingCategory>

// The simulator's own log categories, apart from the drive's "default" lines.
// "sorvik.sim" says what was refused and why; "sorvik.sim.frames" carries the
// hexadecimal text of every frame and is off unless enabled by a filter rule.
Q_DECLARE_LOGGING_CATEGORY(lcSim)
Q_DECLARE_LOGGING_CATEGORY(lcSimFrames)
