#include "QtUdpClient.h"

bool QtUdpClient::open(const QHostAddress &local, const QHostAddress &peer, quint16 port)
{
    m_peer = peer;
    m_port = port;
    return m_socket.bind(local, 0);
}

int QtUdpClient::roundTrip(const QByteArray &request, int timeoutMs)
{
    m_socket.writeDatagram(request.constData(), request.size(), m_peer, m_port);
    if (!m_socket.waitForReadyRead(timeoutMs))
        return -1;
    QHostAddress sender;
    quint16 senderPort = 0;
    m_reply.resize(int(qMax<qint64>(m_socket.pendingDatagramSize(), 0)));
    const qint64 got = m_socket.readDatagram(m_reply.data(), m_reply.size(), &sender, &senderPort);
    return got >= 0 ? int(got) : -1;
}
