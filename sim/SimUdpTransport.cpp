#include "SimUdpTransport.h"

#include "SimLog.h"

#include <QNetworkDatagram>
#include <QPointer>
#include <QUdpSocket>

namespace {

// The payload of one UDP datagram at most: 65535 less the IP and UDP heads.
constexpr int kLargestIpv4Datagram = 65507;
constexpr int kLargestIpv6Datagram = 65527;

} // namespace

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
        const QByteArray frame = datagram.data();
        deliver(frame, [self, peer, peerPort, frame](const QByteArray &reply) {
            if (self)
                self->sendTo(reply, peer, peerPort, &frame);
        });
    }
}

bool SimUdpTransport::sendUnsolicited(const QByteArray &raw)
{
    if (m_lastPeerPort == 0)
        return false;
    sendTo(raw, m_lastPeer, m_lastPeerPort, nullptr);
    return true;
}

void SimUdpTransport::sendTo(const QByteArray &bytes, const QHostAddress &address, quint16 port,
                             const QByteArray *request)
{
    // A read of a large part of Custom asks for more than a datagram holds. A
    // controller cannot answer it either, so it stays silent and says why,
    // rather than trying and failing to send.
    const int largest =
        address.protocol() == QAbstractSocket::IPv6Protocol ? kLargestIpv6Datagram : kLargestIpv4Datagram;
    if (bytes.size() > largest) {
        if (!request)
            qCInfo(lcSim, "%d unsolicited bytes not sent: more than one UDP datagram holds (%d bytes)",
                   int(bytes.size()), largest);
        else
            qCInfo(lcSim, "no reply to frame %s: a reply of %d bytes does not fit one UDP datagram (%d bytes at most)",
                   request->toHex().constData(), int(bytes.size()), largest);
        return;
    }
    qCDebug(lcSimFrames, "out %s", bytes.toHex().constData());
    if (m_socket->writeDatagram(bytes, address, port) != bytes.size())
        qCWarning(lcSim, "datagram of %d bytes to %s:%u not sent: %s", int(bytes.size()),
                  qUtf8Printable(address.toString()), unsigned(port), qUtf8Printable(m_socket->errorString()));
}
