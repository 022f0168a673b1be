#pragma once

// The floor that the link cannot go below: the Qt calls an exchange must make
// on its socket, and nothing else. writeDatagram, waitForReadyRead, then the
// size and the datagram with its sender, as the link takes them.

#include <QByteArray>
#include <QHostAddress>
#include <QUdpSocket>

class QtUdpClient
{
public:
    // Binds to `local` (a port the system picks); the peer is named per datagram.
    bool open(const QHostAddress &local, const QHostAddress &peer, quint16 port);
    // The size of the reply, or -1 when none came within `timeoutMs`.
    int roundTrip(const QByteArray &request, int timeoutMs = 300);
    const QByteArray &reply() const { return m_reply; }

private:
    QUdpSocket m_socket;
    QHostAddress m_peer;
    quint16 m_port = 0;
    QByteArray m_reply;
};
