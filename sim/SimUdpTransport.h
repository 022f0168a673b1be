#pragma once

#include "SimTransport.h"

#include <QHostAddress>

class QUdpSocket;

// One datagram is one frame; a reply goes to the address and port it came from.
class SimUdpTransport : public SimTransport
{
public:
    explicit SimUdpTransport(FrameHandler onFrame);

    // The bound port, or 0 when the address and port cannot be bound.
    quint16 start(const QHostAddress &address, quint16 port);
    bool sendUnsolicited(const QByteArray &raw) override;

private:
    void readPending();
    // `request` is the frame being answered, null for unsolicited bytes.
    void sendTo(const QByteArray &bytes, const QHostAddress &address, quint16 port, const QByteArray *request);

    QUdpSocket *m_socket;
    QHostAddress m_lastPeer;
    quint16 m_lastPeerPort = 0;
};
