#include "SorvikSimulator.h"

#include "SimCore.h"
#include "SimServer.h"

#include <QThread>

class SorvikSimulator::Private
{
public:
    // Runs `work` on the simulator's thread and waits for it, since the
    // transports belong to that thread.
    template <typename Work> void onServerThread(Work work)
    {
        if (QThread::currentThread() == &thread)
            work();
        else
            QMetaObject::invokeMethod(server, work, Qt::BlockingQueuedConnection);
    }

    SimCore core;
    QThread thread;
    SimServer *server = nullptr;
};

SorvikSimulator::SorvikSimulator() : d(std::make_unique<Private>())
{
    d->server = new SimServer(&d->core);
    d->server->moveToThread(&d->thread);
    QObject::connect(&d->thread, &QThread::finished, d->server, &QObject::deleteLater);
    d->thread.setObjectName(QStringLiteral("SorvikSimulator"));
    d->thread.start();
}

SorvikSimulator::~SorvikSimulator()
{
    stop();
    d->thread.quit();
    d->thread.wait();
}

quint16 SorvikSimulator::startUdp(const QHostAddress &address, quint16 port)
{
    quint16 bound = 0;
    d->onServerThread([&] { bound = d->server->startUdp(address, port); });
    return bound;
}

QString SorvikSimulator::startPty()
{
    QString path;
    d->onServerThread([&] { path = d->server->startPty(); });
    return path;
}

bool SorvikSimulator::startSerial(const QString &portName, int baud, int dataBits, int stopBits, const QString &parity)
{
    bool started = false;
    d->onServerThread([&] { started = d->server->startSerial(portName, baud, dataBits, stopBits, parity); });
    return started;
}

void SorvikSimulator::stop()
{
    d->onServerThread([&] { d->server->stop(); });
}

void SorvikSimulator::preset(int area, int address, const QByteArray &bytes)
{
    d->core.preset(area, address, bytes);
}

QByteArray SorvikSimulator::memory(int area, int address, int length) const
{
    return d->core.memory(area, address, length);
}

bool SorvikSimulator::presetTag(const QString &assignment, QString *error)
{
    return d->core.presetTag(assignment, error);
}

bool SorvikSimulator::fillSelfDescribing(int controller)
{
    return d->core.fillSelfDescribing(controller);
}

void SorvikSimulator::clearMemory()
{
    d->core.clearMemory();
}

QList<QByteArray> SorvikSimulator::frames() const
{
    return d->core.frames();
}

int SorvikSimulator::frameCount() const
{
    return d->core.frameCount();
}

void SorvikSimulator::clearFrames()
{
    d->core.clearFrames();
}

SimCounters SorvikSimulator::counters() const
{
    return d->core.counters();
}

void SorvikSimulator::setFaults(const SimFaults &faults)
{
    d->core.setFaults(faults);
}

void SorvikSimulator::setHandshakeReply(const QByteArray &reply)
{
    d->core.setHandshakeReply(reply);
}

void SorvikSimulator::queueReply(const QByteArray &raw)
{
    d->core.queueReply(raw);
}

void SorvikSimulator::sendUnsolicited(const QByteArray &raw)
{
    d->onServerThread([&] { d->server->sendUnsolicited(raw); });
}
