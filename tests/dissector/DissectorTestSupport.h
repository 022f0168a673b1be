#pragma once

// Writes datagrams between a drive and a controller as a capture file that
// tshark reads (raw IPv4, no link layer), and runs tshark with the dissector
// over it. Writing the file ourselves needs no capture privilege.

#include <QByteArray>
#include <QFile>
#include <QHostAddress>
#include <QList>
#include <QProcess>
#include <QStandardPaths>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>
#include <QtEndian>

namespace DissectorTest {

struct Datagram {
    bool toController;
    QByteArray payload;
    qint64 microseconds = 0; // since the start of the capture
};

struct Endpoints {
    QHostAddress drive{QStringLiteral("127.0.0.1")};
    quint16 drivePort = 500;
    QHostAddress controller{QStringLiteral("127.0.0.1")};
    quint16 controllerPort = 6123;
};

inline QByteArray be16(quint16 v)
{
    QByteArray b(2, 0);
    qToBigEndian(v, b.data());
    return b;
}

inline QByteArray be32(quint32 v)
{
    QByteArray b(4, 0);
    qToBigEndian(v, b.data());
    return b;
}

inline QByteArray le32(quint32 v)
{
    QByteArray b(4, 0);
    qToLittleEndian(v, b.data());
    return b;
}

// One IPv4/UDP packet; checksums are left 0, which UDP allows and tshark does not judge.
inline QByteArray packet(const Endpoints &e, const Datagram &d)
{
    const quint16 udpLength = quint16(8 + d.payload.size());
    const QHostAddress &src = d.toController ? e.drive : e.controller;
    const QHostAddress &dst = d.toController ? e.controller : e.drive;
    const quint16 srcPort = d.toController ? e.drivePort : e.controllerPort;
    const quint16 dstPort = d.toController ? e.controllerPort : e.drivePort;
    const QByteArray ip = QByteArray::fromHex("4500") + be16(quint16(20 + udpLength)) +
                          QByteArray::fromHex("000040004011") + be16(0) + be32(src.toIPv4Address()) +
                          be32(dst.toIPv4Address());
    return ip + be16(srcPort) + be16(dstPort) + be16(udpLength) + be16(0) + d.payload;
}

inline QByteArray file(const Endpoints &e, const QList<Datagram> &datagrams)
{
    constexpr quint32 kRawIp = 101;
    QByteArray out =
        le32(0xa1b2c3d4) + QByteArray::fromHex("02000400") + le32(0) + le32(0) + le32(65535) + le32(kRawIp);
    for (const Datagram &d : datagrams) {
        const QByteArray p = packet(e, d);
        out += le32(quint32(1 + d.microseconds / 1000000)) + le32(quint32(d.microseconds % 1000000)) +
               le32(quint32(p.size())) + le32(quint32(p.size())) + p;
    }
    return out;
}

struct Result {
    bool ran = false;
    int exitCode = -1;
    QStringList lines; // one per frame, fields joined by '|'
    QString errors;
};

// Runs tshark with the dissector over the datagrams and prints the given fields.
// Two passes, so that a request also shows the frame of its reply.
inline Result dissect(const QString &tshark, const Endpoints &e, const QList<Datagram> &datagrams,
                      const QStringList &fieldNames)
{
    Result result;
    QTemporaryDir dir;
    QFile capture(dir.filePath(QStringLiteral("session.pcap")));
    if (!dir.isValid() || !capture.open(QIODevice::WriteOnly)) {
        result.errors = QStringLiteral("cannot write the capture file");
        return result;
    }
    capture.write(file(e, datagrams));
    capture.close();

    QStringList arguments{QStringLiteral("-n"), QStringLiteral("-2"),
                          QStringLiteral("-X"), QStringLiteral("lua_script:") + QStringLiteral(SORVIK_DISSECTOR_FILE),
                          QStringLiteral("-o"), QStringLiteral("sorvik.port:%1").arg(e.controllerPort),
                          QStringLiteral("-r"), capture.fileName(),
                          QStringLiteral("-T"), QStringLiteral("fields"),
                          QStringLiteral("-E"), QStringLiteral("separator=|")};
    for (const QString &name : fieldNames)
        arguments << QStringLiteral("-e") << name;
    QProcess process;
    process.start(tshark, arguments);
    result.ran = process.waitForFinished(120000);
    result.exitCode = process.exitCode();
    result.errors = QString::fromUtf8(process.readAllStandardError());
    result.lines = QString::fromUtf8(process.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    return result;
}

} // namespace DissectorTest
