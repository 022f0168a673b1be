#pragma once

#include <QHostAddress>
#include <QTcpServer>

// A loopback TCP port nobody listens on just now.
inline quint16 freePort()
{
    QTcpServer probe;
    return probe.listen(QHostAddress::LocalHost, 0) ? probe.serverPort() : 0;
}
