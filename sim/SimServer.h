#pragma once

#include "SimTransport.h"

#include <QElapsedTimer>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QString>

#include <memory>

class QTimer;
class SimCore;
struct SimOutcome;
class SimPtyTransport;
class SimSerialTransport;
class SimUdpTransport;

// Lives on the simulator's thread: owns the transports, hands their frames to
// the core and sends what comes back, at once or after the set delay. Delayed
// replies wait in a queue served by a timer, so requests that come in the
// meantime are still taken and recorded. Late replies wait apart, each on a
// timer of its own, and leave whenever it runs out, after later replies.
class SimServer : public QObject
{
public:
    explicit SimServer(SimCore *core);
    ~SimServer() override;

    quint16 startUdp(const QHostAddress &address, quint16 port);
    QString startPty();
    bool startSerial(const QString &portName, int baud, int dataBits, int stopBits, const QString &parity);
    void stop();
    void sendUnsolicited(const QByteArray &raw);

private:
    struct Pending {
        qint64 dueMs;
        QList<QByteArray> datagrams;
        SimTransport::Send send;
    };

    SimTransport::FrameHandler frameHandler();
    void serve(const QByteArray &frame, const SimTransport::Send &reply);
    void sendDue();
    void hold(SimOutcome outcome, const SimTransport::Send &reply);

    SimCore *m_core;
    std::unique_ptr<SimUdpTransport> m_udp;
    std::unique_ptr<SimPtyTransport> m_pty;
    std::unique_ptr<SimSerialTransport> m_serial;
    QList<Pending> m_pending; // in the order of their requests
    QTimer *m_delayTimer;
    QObject *m_held; // parent of the timers of late replies
    QElapsedTimer m_clock;
};
