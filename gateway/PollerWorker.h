#pragma once

// Everything of one controller that runs on its poller's thread: the drive
// object, the schedule of its scan groups, the link's trust and the writes.
// Only requestStop and enqueueWrite may be called from other threads.
#include "ControllerPoller.h"
#include "DataMessage.h"
#include "GroupPlan.h"
#include "LinkSupervisor.h"

#include <QElapsedTimer>
#include <QMutex>
#include <QObject>
#include <QTimer>

#include <atomic>
#include <memory>
#include <vector>

class CDriveBaseClass;
struct WriteCommand;

class PollerWorker : public QObject
{
    Q_OBJECT
public:
    PollerWorker(const ControllerConfig &controller, const QString &gateway, const QString &libraryFile,
                 GatewaySink *sink, GatewayMetrics *metrics, const PollerOptions &options);
    ~PollerWorker() override;

    void requestStop();
    void enqueueWrite(const QByteArray &payload);

public slots:
    void begin();

signals:
    void finished();

private:
    struct Group {
        ScanGroupConfig config;
        GroupPlan plan;
        std::unique_ptr<DataStream> stream;
        QString topic;
        QList<QList<int>> blockTags; // per block, the indexes of the group's tags it carries
        QList<QList<int>> pointTags; // per tag read alone, the indexes of the names it carries
        qint64 nextDue = 0;          // on m_clock
        bool scheduled = false;      // the first start follows the first connection, not the schedule
    };
    enum class Mode { Running, Waiting };

    void step();
    void runDue();
    void arm();
    void shutdown();
    void runCycle(Group &group);
    bool readGroup(Group &group, std::vector<TagReading> *readings, bool *lostReply);
    void reconnect();
    void runWrites();
    void answerWrite(const WriteCommand &command);
    void waitThen(qint64 pauseMs, int status, const QString &meaning);
    void publishState(const QString &state, const QString &reason);
    bool makeDrive(QString *why);

    ControllerConfig m_config;
    QString m_gateway;
    QString m_libraryFile;
    GatewaySink *m_sink;
    GatewayMetrics *m_metrics;
    PollerOptions m_options;
    LinkSupervisor m_supervisor;

    CDriveBaseClass *m_drive = nullptr;
    std::vector<Group> m_groups;
    QElapsedTimer m_clock;
    QTimer *m_timer;

    Mode m_mode = Mode::Waiting;
    qint64 m_wakeAt = 0;  // when a Waiting link is connected again, on m_clock
    int m_waitStatus = 9; // what the tags of cycles while Waiting report
    QString m_waitMeaning;
    bool m_resyncPending = false; // the link must be resynchronised before it is trusted again
    bool m_lateWindow = false;    // the wait is the late window after a lost reply
    bool m_everConnected = false;
    QString m_lastFailure; // the latest bad outcome, for the lost status

    bool m_busy = false; // inside step: timers and posted calls that fire in the drive's nested waits only re-arm
    bool m_done = false;
    std::atomic<bool> m_stop{false};
    QMutex m_writesLock;
    QList<QByteArray> m_writes;
};
