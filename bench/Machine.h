#pragma once

// What the table says of the machine it was measured on.

#include <QString>

namespace Machine {
QString cpuModel();    // "model name" of /proc/cpuinfo
int cores();           // processors online
QString loadAverage(); // the one-minute load of /proc/loadavg
} // namespace Machine
