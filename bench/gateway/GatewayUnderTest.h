#pragma once

// One sorvik-gateway process of the benchmark: its configuration written for
// the plant (each controller one scan group of NAI1..NAI1000 as floats at
// 1 s), started with its metrics on a free port, and looked at from outside
// as an operator would: /proc for processor time and memory, /metrics for
// its cycles, overruns and scan lateness.
#include <QMap>
#include <QProcess>
#include <QStringList>
#include <QTemporaryDir>

struct GatewayReading {
    double cpuSeconds = 0; // user and system, so far
    double residentMb = 0;
    QMap<QString, double> metrics; // series (name with labels) -> value, summed over controllers
};

class GatewayUnderTest
{
public:
    ~GatewayUnderTest();
    // `poolThreads` 0: one thread per controller; else SORVIK_GATEWAY_POLL_THREADS.
    bool start(const QString &program, const QString &library, const QStringList &connections, quint16 brokerPort,
               int poolThreads, QString *why);
    // Waits until every controller has run `cycles` cycles (or the time is up).
    bool waitForCycles(int controllers, int cycles, int timeoutMs);
    GatewayReading read();
    // SIGTERM and wait for its orderly end; false if it had to be killed or failed.
    bool stop();
    QString name() const { return QStringLiteral("bench"); }

private:
    QTemporaryDir m_dir;
    QProcess m_process;
    quint16 m_metricsPort = 0;
};

// Lateness from two readings of the histogram: the cycles between them, and
// the share-quantile in ms by linear interpolation within its bucket.
double latenessQuantileMs(const GatewayReading &before, const GatewayReading &after, double share);
double latenessCycles(const GatewayReading &before, const GatewayReading &after);
