#pragma once

// The floor of every UDP figure: one request and one reply through plain
// POSIX calls, a send and a blocking receive on a connected socket.

#include <QByteArray>
#include <QHostAddress>

class RawUdpClient
{
public:
    RawUdpClient() = default;
    ~RawUdpClient();
    RawUdpClient(const RawUdpClient &) = delete;
    RawUdpClient &operator=(const RawUdpClient &) = delete;

    // Binds to `local` (a port the system picks) and connects to the peer.
    bool open(const QHostAddress &local, const QHostAddress &peer, quint16 port);
    // The size of the reply, or -1 when none came within 300 ms.
    int roundTrip(const QByteArray &request);
    QByteArray reply(int size) const { return QByteArray(m_buffer, size); }

private:
    int m_fd = -1;
    char m_buffer[2048];
};
