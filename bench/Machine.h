#pragma once

// What the table says of the machine it was measured on.

#include <QString>
#include <QtGlobal>

namespace Machine {
QString cpuModel();    // "model name" of /proc/cpuinfo
int cores();           // processors online
QString loadAverage(); // the one-minute load of /proc/loadavg
// Busy and total time of all cores so far, from /proc/stat, in its ticks;
// waiting for a hypervisor counts as busy, as the core was not ours.
struct CoreTicks {
    qint64 busy = 0;
    qint64 total = 0;
};
CoreTicks coreTicks();
} // namespace Machine
