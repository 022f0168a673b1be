#pragma once

// A chaos run of the gateway: a real broker, one simulator per controller on
// a loopback address of its own, the real gateway, and a subscriber whose
// messages the InvariantChecker judges, while simulators, the broker and the
// gateway are killed and restarted at the plan's times. A watchdog fails the
// run when the gateway hangs or ends by itself.
#include "ChaosPlan.h"
#include "ChaosSubscriber.h"
#include "InvariantChecker.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>

#include <memory>
#include <vector>

class ChaosSoak
{
public:
    struct Programs {
        QString gateway;
        QString simulator;
        QString mosquitto;
    };

    ChaosSoak(const ChaosPlan &plan, const Programs &programs);
    ~ChaosSoak();

    // Runs the plan; the exit status: 0 no invariant failed, 2 a part did
    // not start, 4 invariants failed.
    int run();

private:
    struct Process {
        QString name;
        std::unique_ptr<QProcess> process;
        bool expectedDown = true;
        qint64 upSinceMs = 0;
    };

    int freeBlock() const;
    bool startBroker();
    bool restartBroker(qint64 downMs);
    void killBroker();
    bool startSimulator(int k, bool counted);
    void killSimulator(int k);
    bool startGateway(bool counted);
    void killGateway();
    void stopGateway();
    QList<InvariantChecker::QueuedRow> readQueue(const QString &copyName);
    void launch(Process &p, const QString &program, const QStringList &arguments, const QString &log);
    void kill(Process &p);
    void expectAllOnline(qint64 afterMs, qint64 boundMs, const QString &because);

    // Runs events, hands what arrived to the checker and keeps watch.
    void waitMs(qint64 ms);
    void watch();
    void log(const QString &text);

    ChaosPlan m_plan;
    Programs m_programs;
    QTemporaryDir m_dir;
    QElapsedTimer m_clock;
    InvariantChecker m_checker;
    std::unique_ptr<ChaosSubscriber> m_subscriber;
    Process m_broker;
    Process m_gateway;
    std::vector<Process> m_simulators;
    int m_brokerPort = 0;
    qint64 m_brokerKilledMs = 0; // 0: not killed, or up again
    bool m_countedPhase = false;
    bool m_hangSaid = false;
    QSet<QString> m_stallSaid;
    int m_kills[3] = {0, 0, 0}; // simulators, broker, gateway
};
