#include "SimServer.h"

#include "SimCore.h"
#include "SimLog.h"
#include "SimPtyTransport.h"
#include "SimSerialTransport.h"
#include "SimUdpTransport.h"

#include <QTimer>

#include <limits>

SimServer::SimServer(SimCore *core) : m_core(core), m_delayTimer(new QTimer(this)), m_held(new QObject(this))
{
    m_delayTimer->setSingleShot(true);
    m_delayTimer->setTimerType(Qt::PreciseTimer);
    connect(m_delayTimer, &QTimer::timeout, this, [this] { sendDue(); });
    m_clock.start();
}

SimServer::~SimServer() = default;

SimTransport::FrameHandler SimServer::frameHandler()
{
    return [this](const QByteArray &frame, const SimTransport::Send &reply) { serve(frame, reply); };
}

quint16 SimServer::startUdp(const QHostAddress &address, quint16 port)
{
    m_udp = std::make_unique<SimUdpTransport>(frameHandler());
    const quint16 bound = m_udp->start(address, port);
    if (bound == 0)
        m_udp.reset();
    return bound;
}

QString SimServer::startPty()
{
    m_pty = std::make_unique<SimPtyTransport>(frameHandler());
    const QString path = m_pty->start();
    if (path.isEmpty())
        m_pty.reset();
    return path;
}

bool SimServer::startSerial(const QString &portName, int baud, int dataBits, int stopBits, const QString &parity)
{
    m_serial = std::make_unique<SimSerialTransport>(frameHandler());
    const bool started = m_serial->start(portName, baud, dataBits, stopBits, parity);
    if (!started)
        m_serial.reset();
    return started;
}

void SimServer::stop()
{
    m_delayTimer->stop();
    m_pending.clear();
    delete m_held; // late replies of a stopped server never leave
    m_held = new QObject(this);
    m_udp.reset();
    m_pty.reset();
    m_serial.reset();
}

void SimServer::sendUnsolicited(const QByteArray &raw)
{
    bool sent = false;
    for (SimTransport *transport : {static_cast<SimTransport *>(m_udp.get()), static_cast<SimTransport *>(m_pty.get()),
                                    static_cast<SimTransport *>(m_serial.get())})
        sent = (transport && transport->sendUnsolicited(raw)) || sent;
    if (!sent)
        qCWarning(lcSim, "nobody to send %d unsolicited bytes to", int(raw.size()));
}

void SimServer::serve(const QByteArray &frame, const SimTransport::Send &reply)
{
    SimOutcome outcome = m_core->take(frame);
    if (outcome.datagrams.isEmpty())
        return;
    if (outcome.holdMs > 0) {
        hold(std::move(outcome), reply);
        return;
    }
    if (outcome.delayMs <= 0 && m_pending.isEmpty()) {
        for (const QByteArray &datagram : qAsConst(outcome.datagrams))
            reply(datagram);
        return;
    }
    // Replies leave in the order of their requests, also when the delay is
    // shortened while some still wait.
    qint64 due = m_clock.elapsed() + outcome.delayMs;
    if (!m_pending.isEmpty())
        due = qMax(due, m_pending.last().dueMs);
    m_pending.append({due, std::move(outcome.datagrams), reply});
    sendDue();
}

void SimServer::sendDue()
{
    const qint64 now = m_clock.elapsed();
    while (!m_pending.isEmpty() && m_pending.first().dueMs <= now) {
        const Pending due = m_pending.takeFirst();
        for (const QByteArray &datagram : due.datagrams)
            due.send(datagram);
    }
    if (!m_pending.isEmpty())
        m_delayTimer->start(int(qMax<qint64>(0, m_pending.first().dueMs - now)));
}

void SimServer::hold(SimOutcome outcome, const SimTransport::Send &reply)
{
    auto *timer = new QTimer(m_held);
    timer->setSingleShot(true);
    timer->setTimerType(Qt::PreciseTimer);
    connect(timer, &QTimer::timeout, this, [timer, datagrams = std::move(outcome.datagrams), reply] {
        for (const QByteArray &datagram : datagrams)
            reply(datagram);
        timer->deleteLater();
    });
    timer->start(int(qMin<qint64>(std::numeric_limits<int>::max(), qint64(outcome.delayMs) + outcome.holdMs)));
}
