#pragma once

// The south side of one controller: its own drive object on a thread of its
// own, reading the controller's scan groups on their intervals, publishing a
// data message per group and cycle, supervising the link and carrying out
// write commands between cycles.
//
// One thread per controller by default. The drive blocks its caller for every exchange
// (about half a second when a reply does not come, a second for a handshake
// that fails twice) and may only be used on the thread that made it, so
// controllers that shared a thread would wait for each other's dead links.
// Measured with 20 controllers of 1000 float tags (25 blocks) at 1 s on two
// busy cores for a minute: a thread each took 6.8 % of one core with no start
// late; a pool of 4 threads took 5.5 % but started up to 49 ms late, and with
// two controllers dead their thread mates fell seconds behind, while a thread
// each kept every live controller on time. At 200 controllers a pool of 4
// or one thread saved no processor time, and with two of 50 controllers
// silent their pool mates started up to 0.7 s late (one thread: 1.1 s) while
// a thread each kept them within 4 ms. A waiting thread costs next to
// nothing; the few hundred a plant needs are well within a process.
// For measurements, SORVIK_GATEWAY_POLL_THREADS=k puts every poller of the
// process on a shared pool of k threads instead; each drive still stays on the
// thread that made it.
#include "GatewayConfig.h"

#include <QObject>
#include <QSemaphore>
#include <QThread>

#include <memory>

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
    std::shared_ptr<QThread> m_thread;
    bool m_pooled = false;
    bool m_started = false;
    QSemaphore m_finished;
    PollerWorker *m_worker = nullptr;
};
