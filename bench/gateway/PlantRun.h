#pragma once

// One measured run of the gateway on the plant, and the figures of its row.
#include <QString>
#include <QStringList>

class BenchBroker;
class PlantSimulators;

struct PlantFigures {
    int controllers = 0;
    int poolThreads = 0; // 0: one thread per controller
    int dead = 0;        // controllers of the N that never answer
    double tagsPerSecond = 0;
    double lateMedianMs = 0;
    double lateP99Ms = 0;
    double lateMaxMs = 0; // since the gateway started, its start-up included
    qint64 overruns = 0;
    double cpuPerSecond = 0;
    double residentMb = 0;
    double receiptMedianMs = 0;
    double receiptP99Ms = 0;
    qint64 missing = 0;
    QString failure; // the run did not come about
    bool cleanStop = true;

    // The goals, set for 200 controllers; beyond, processor and memory grow with N.
    QStringList missedGoals() const;
};

struct PlantSetup {
    QString gatewayProgram;
    QString library;
    int warmCycles = 2;
    int windowSeconds = 15;
};

// `dead` of the `controllers` are simulators that answer nothing.
PlantFigures runPlant(const PlantSetup &setup, PlantSimulators &sims, BenchBroker &broker, int controllers,
                      int poolThreads, int dead = 0);
