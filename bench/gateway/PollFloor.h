#pragma once

// The floor of the plant load: the same drives polling the same planned
// blocks on the same schedule, each on a thread of its own, with no message
// built and nothing sent on. What the gateway costs beyond it is its north
// side (values into JSON, MQTT, the queue) and its bookkeeping.
#include <QStringList>

#include <vector>

class DriveLoader;

struct FloorFigures {
    double tagsPerSecond = 0;
    std::vector<double> latenessMs;
    int overruns = 0;
    double cpuPerSecond = 0; // processor time of the reading threads alone
    QString failure;         // empty when every drive connected
};

// `warmCycles` cycles first, then `windowCycles` measured, at 1 s.
FloorFigures measureFloor(const DriveLoader &loader, const QStringList &connections, int warmCycles, int windowCycles);
