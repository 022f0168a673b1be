#pragma once

// Checks everything the subscriber receives from the gateway against what
// the run did: every good value is the one at its tag's own address, every
// stream runs in order by (boot, seq) with repeats only of numbers already
// seen, every number is delivered, counted dropped, or was the uncommitted
// tail of a gateway that was killed, every row the queue held at a kill is
// delivered after the restart, and each controller's status follows the
// kills of its simulator. Times are ms since the epoch.
#include "ChaosPlan.h"
#include "ChaosSubscriber.h"

#include <QHash>
#include <QMap>
#include <QSet>

class InvariantChecker
{
public:
    // A row of the offline queue, read from its file.
    struct QueuedRow {
        QString topic;
        QByteArray payload;
    };

    explicit InvariantChecker(const ChaosPlan &plan);

    // One run of the gateway: started, then killed or stopped.
    void gatewayStarted(qint64 atMs, bool countedPhase);
    void gatewayKilled(qint64 atMs, const QList<QueuedRow> &held);
    void gatewayStopping(qint64 atMs);
    void gatewayStopped(const QList<QueuedRow> &left);

    void take(const ChaosSubscriber::Message &message);
    // The controller says lost (or reconnecting), or online, within (after,
    // by]. With `unlessSinceMs`, online is due only if it said anything else
    // since then: a controller back before the gateway noticed stays online.
    void expectLost(int controller, qint64 afterMs, qint64 byMs);
    void expectOnline(int controller, qint64 afterMs, qint64 byMs, const QString &because, qint64 unlessSinceMs = 0);
    // The broker was away: statuses could not arrive meanwhile, so the
    // checks not yet due wait as long again.
    void postpone(qint64 ms);
    void tick(qint64 nowMs);
    // The accounting of every sequence number; after the last run.
    void finish();

    void fail(const QString &what);
    int failures() const { return m_failures; }

    qint64 lastGatewayMessageMs() const { return m_lastGatewayMessage; }
    QHash<QString, qint64> lastDataMs() const { return m_lastData; }

    qint64 messages = 0;
    qint64 values = 0;
    qint64 duplicates = 0;
    qint64 uncommitted = 0;
    qint64 dropped = 0;
    qint64 cutValues = 0;     // counted phase: values from controllers cutting replies short
    qint64 doubledValues = 0; // counted phase: values from controllers sending replies twice
    qint64 mismatches = 0;    // among those

private:
    struct Run {
        qint64 startMs = 0;
        qint64 killedMs = 0;   // 0: not killed
        qint64 stoppingMs = 0; // 0: not stopped by a signal
        bool counted = false;
        qint64 dropped = 0;
        qint64 cycles = -1; // of the heartbeat after the stop began
    };
    struct Arrival {
        qint64 first = 0;
        qint64 last = 0;
    };
    struct Stream {
        qint64 lastBoot = 0;
        qint64 lastSeq = 0;
        QHash<qint64, QMap<qint64, Arrival>> arrivals; // boot -> seq -> arrivals
    };
    struct Held {
        QString topic;
        qint64 boot = 0;
        qint64 seq = 0;
        qint64 sinceMs = 0; // delivered after this, or never replayed (0)
    };
    struct Expectation {
        int controller = 0;
        bool online = false;
        qint64 afterMs = 0;
        qint64 byMs = 0;
        QString because;
        qint64 unlessSinceMs = 0;
    };

    int runOfBoot(qint64 boot) const;
    int runAt(qint64 ms) const;
    void takeData(const QString &controller, const QString &group, const ChaosSubscriber::Message &message);
    QList<Held> parseRows(const QList<QueuedRow> &rows, qint64 sinceMs);
    bool evaluate(const Expectation &expectation);

    const ChaosPlan &m_plan;
    QHash<QString, int> m_controllerByName;
    QList<Run> m_runs;
    QHash<QString, Stream> m_streams;
    QList<Held> m_held;
    QHash<int, QList<QPair<qint64, QString>>> m_statuses; // controller -> (arrival, state)
    QList<Expectation> m_expectations;
    QHash<QString, qint64> m_lastData;
    qint64 m_lastGatewayMessage = 0;
    int m_failures = 0;
};
