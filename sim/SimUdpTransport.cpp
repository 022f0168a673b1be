#include "SimUdpTransport.h"

#include "SimLog.h"

#include <QNetworkDatagram>
#include <QPointer>
#include <QUdpSocket>

SimUdpTransport::SimUdpTransport(FrameHandler onFrame)
    : SimTransport(std::move(onFrame)), m_socket(new QUdpSocket(this))
{
    connect(m_socket, &QUdpSocket::readyRead, this, [this] { readPending(); });
}

quint16 SimUdpTransport::start(const QHostAddress &address, quint16 port)
{
    if (!m_socket->bind(address, port)) {
        qCWarning(lcSim, "cannot serve UDP on %s:%u: %s", qUtf8Printable(address.toString()), unsigned(port),
                  qUtf8Printable(m_socket->errorString()));
        return 0;
    }
    return m_socket->localPort();
}

void SimUdpTransport::readPending()
{
    QPointer<SimUdpTransport> self(this);
    while (self && m_socket->hasPendingDatagrams()) {
        const QNetworkDatagram datagram = m_socket->receiveDatagram();
        const QHostAddress peer = datagram.senderAddress();
        const quint16 peerPort = quint16(datagram.senderPort());
        m_lastPeer = peer;
        m_lastPeerPort = peerPort;
        deliver(datagram.data(), [self, peer, peerPort](const QByteArray &reply) {
            if (self)
                self->sendTo(reply, peer, peerPort);
        });
    }
}

bool SimUdpTransport::sendUnsolicited(const QByteArray &raw)
{
    if (m_lastPeerPort == 0)
        return false;
    sendTo(raw, m_lastPeer, m_lastPeerPort);
    return true;
}

void SimUdpTransport::sendTo(const QByteArray &bytes, const QHostAddress &address, quint16 port)
{
    qCDebug(lcSimFrames, "out %s", bytes.toHex().constData());
    if (m_socket->writeDatagram(bytes, address, port) != bytes.size())
        qCWarning(lcSim, "datagram of %d bytes to %s:%u not sent: %s", int(bytes.size()),
                  qUtf8Printable(address.toString()), unsigned(port), qUtf8Printable(m_socket->errorString()));
}
