#pragma once

// The south side of one controller: its own drive object on a thread of its
// own, reading the controller's scan groups on their intervals, publishing a
// data message per group and cycle, supervising the link and carrying out
// write commands between cycles.
//
// One thread per controller. The drive blocks its caller for every exchange
// (up to about half a second when a reply does not come) and may only be used
// on the thread that made it, so controllers that shared a thread would wait
// for each other's dead links. A thread that waits costs next to nothing;
// 20 controllers of 1000 float tags each at 1 s kept well inside their
// schedule this way on two cores (see the gateway's scale notes).
#include "GatewayConfig.h"

#include <QObject>
#include <QThread>

class GatewayMetrics;
class GatewaySink;
class PollerWorker;

struct PollerOptions {
    bool readOnly = false; // the gateway's read_only switch: every write is refused
    qint64 bootMs = 0;     // the gateway's start in ms since the epoch; 0: now
    // How long a reply may still be on its way after the drive gave up on it.
    // The drive gives up about 550 ms after sending; a reply later than that
    // plus this window is no longer expected on a plant network, and the
    // window is added to the cycle after each loss, so it stays short.
    int lateWindowMs = 1000;
};

class ControllerPoller : public QObject
{
    Q_OBJECT
public:
    // `libraryFile` is the drive library main has loaded; the poller takes
    // the factory from it and makes its drive on its own thread.
    ControllerPoller(const ControllerConfig &controller, const QString &gateway, const QString &libraryFile,
                     GatewaySink *sink, GatewayMetrics *metrics, const PollerOptions &options = {},
                     QObject *parent = nullptr);
    ~ControllerPoller() override;

    void start();
    // Finishes the running cycle (or write), closes the link and ends the thread.
    void stop();
    // Any thread: {"id":…,"tag":NAME,"value":…}, carried out between cycles;
    // the outcome goes to the controller's write reply topic.
    void submitWrite(const QByteArray &payload);

    QString controller() const { return m_name; }

private:
    QString m_name;
    QThread m_thread;
    PollerWorker *m_worker = nullptr;
};
