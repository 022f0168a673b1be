#pragma once

// A link connected over loopback UDP to a simulator, and small probes the link tests share.

#include "TestSupport.h"
#include "link/CmdSorvik.h"
#include "sim/SorvikSimulator.h"

#include <QElapsedTimer>
#include <QThread>
#include <QUdpSocket>
#include <QtTest>

namespace LinkTest {

using TestSupport::hex;

// The six frame functions, so that one table drives several; reads append to *data, writes send it.
enum Function { ReadBits, ReadBytes, ReadStrings, WriteBits, WriteBytes, WriteBlock };

inline int call(CmdSorvik &link, int function, int area, int index, int count, QByteArray *data, const QString &tag)
{
    switch (function) {
    case ReadBits: return link.ReadBits(area, index, count, data, tag);
    case ReadBytes: return link.ReadBytes(area, index, count, data, tag);
    case ReadStrings: return link.ReadStrings(area, index, count, data, tag);
    case WriteBits: return link.WriteBits(area, index, count, *data, tag);
    case WriteBytes: return link.WriteBytes(area, index, count, *data, tag);
    default: return link.WriteBlock(area, index, count, *data, tag);
    }
}

// QObject::receivers is protected; a member pointer taken through a derived class is not.
struct ReceiverProbe : QObject {
    using QObject::receivers;
};
inline int receiversOf(const QObject *sender, const char *signal)
{
    return (sender->*&ReceiverProbe::receivers)(signal);
}

// Waits, without running events, until a datagram lies in the link's socket.
inline bool waitForPendingDatagram(CmdSorvik &link, int timeoutMs = 2000)
{
    QElapsedTimer clock;
    clock.start();
    while (!link.m_udp->hasPendingDatagrams()) {
        if (clock.elapsed() > timeoutMs)
            return false;
        QThread::msleep(2);
    }
    return true;
}

inline QString peerText(const CmdSorvik &link)
{
    return QStringLiteral("%1:%2").arg(link.m_peerAddress.toString()).arg(link.m_peerPort);
}

// One simulator and one link proved by the handshake.
class UdpPair
{
public:
    bool start()
    {
        const quint16 port = sim.startUdp(TestSupport::testHost());
        return port != 0 && link.OpenUdp(TestSupport::testHost().toString(), port) == 0;
    }
    void reset()
    {
        sim.setFaults(SimFaults());
        sim.clearMemory();
        sim.clearFrames();
        link.m_debug = false;
        link.m_rxBuffer.clear();
    }
    void silence()
    {
        SimFaults silent;
        silent.silent = true;
        sim.setFaults(silent);
    }

    SorvikSimulator sim;
    CmdSorvik link;
};

} // namespace LinkTest
