#pragma once

// The loopback addresses of one benchmark run. Every drive binds its socket
// to <peer address>:500, so each drive and its simulator get an address of
// their own: base, base + 1, ... The base comes from SORVIK_BENCH_HOST, so
// that a run beside the tests never meets their datagrams.

#include <QHostAddress>
#include <QtGlobal>

inline QHostAddress loopbackHost(int n)
{
    const QByteArray base = qgetenv("SORVIK_BENCH_HOST");
    QHostAddress first(base.isEmpty() ? QStringLiteral("127.0.9.1") : QString::fromLatin1(base));
    if (first.protocol() != QAbstractSocket::IPv4Protocol || !first.isLoopback())
        first = QHostAddress(QStringLiteral("127.0.9.1")); // never anywhere but this machine
    return QHostAddress(first.toIPv4Address() + quint32(n));
}
