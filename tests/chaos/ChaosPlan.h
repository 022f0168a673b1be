#pragma once

// What a chaos run does, drawn once from its seed: the controllers (their
// tags, scan groups and simulated faults), the gateway's configuration, and
// the times at which simulators, the broker and the gateway are killed.
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>

struct ChaosTag {
    QString name;
    QString tag; // the drive's tag text, e.g. "NAI17"
    QString type;
    int count = 1;
    double scale = 0; // 0: not scaled
    double offset = 0;

    // Whether a good value entry of a data message holds what a simulator
    // with the self-describing memory of controller `id` holds at this tag.
    bool matches(int id, const QJsonValue &entry, QString *why) const;
};

struct ChaosGroup {
    QString name;
    int intervalMs = 300;
    QList<ChaosTag> tags;
};

struct ChaosController {
    int id = 0; // the simulator's self-describing id
    QString name;
    QString address;     // given by the soak: a loopback address nobody else serves on
    QStringList faults;  // the simulator's fault options in the checked phase
    QStringList counted; // those of the counted phase; empty: none there
    QList<ChaosGroup> groups;
    const ChaosTag *tag(const QString &group, const QString &name) const;
};

struct ChaosEvent {
    enum Kind { KillSimulators, KillBroker, KillGateway, KillGatewayWithoutBroker };
    Kind kind = KillSimulators;
    qint64 atMs = 0;        // from the start of the checked phase
    qint64 downMs = 0;      // until the restart
    QList<int> controllers; // indexes, for KillSimulators
};

struct ChaosPlan {
    quint32 seed = 1;
    int seconds = 60;
    qint64 checkedMs = 0; // the checked phase; the counted phase follows
    QList<ChaosController> controllers;
    QList<ChaosEvent> events;

    // Reconnection of every controller, and the bounds the checks allow.
    static constexpr int kLostAfterCycles = 3;
    static constexpr int kFirstPauseMs = 300;
    static constexpr int kLongestPauseMs = 1000;
    qint64 lostBoundMs() const;   // from a kill of its simulator to the controller's loss
    qint64 onlineBoundMs() const; // from a restart to the controller online again
    int longestIntervalMs() const;

    static ChaosPlan make(quint32 seed, int seconds, int controllers);
    QString gatewayConfig(int brokerPort, const QString &queuePath) const;
};
