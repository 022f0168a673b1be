#pragma once

// Writes datagrams between a drive and a controller as a capture file that
// tshark reads (raw IPv4, no link layer), and runs tshark with the dissector
// over it. Writing the file ourselves needs no capture privilege.

#include <QByteArray>
#include <QDataStream>
#include <QFile>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace DissectorTest {

struct Datagram {
    bool toController;
    QByteArray payload;
    qint64 microseconds = 0; // since the start of the capture
};

// The ports of a real session, whatever a test could bind: the drive's port
// 500 (where other dissectors may claim datagrams) and a controller's.
constexpr quint16 kDrivePort = 500;
constexpr quint16 kControllerPort = 6123;

// A pcap file of IPv4/UDP packets on 127.0.0.1; checksums are left 0, which
// UDP allows and tshark does not judge.
inline QByteArray capture(const QList<Datagram> &datagrams)
{
    constexpr quint32 kRawIp = 101, kLoopback = 0x7f000001;
    QByteArray file;
    QDataStream out(&file, QIODevice::WriteOnly);
    out.setByteOrder(QDataStream::LittleEndian);
    out << quint32(0xa1b2c3d4) << quint16(2) << quint16(4) << quint32(0) << quint32(0) << quint32(65535) << kRawIp;
    for (const Datagram &d : datagrams) {
        QByteArray packet;
        QDataStream ip(&packet, QIODevice::WriteOnly); // network byte order
        const quint16 udpLength = quint16(8 + d.payload.size());
        ip << quint16(0x4500) << quint16(20 + udpLength) << quint16(0) << quint16(0x4000) << quint16(0x4011)
           << quint16(0) << kLoopback << kLoopback;
        ip << (d.toController ? kDrivePort : kControllerPort) << (d.toController ? kControllerPort : kDrivePort)
           << udpLength << quint16(0);
        packet += d.payload;
        out << quint32(1 + d.microseconds / 1000000) << quint32(d.microseconds % 1000000) << quint32(packet.size())
            << quint32(packet.size());
        out.writeRawData(packet.constData(), packet.size());
    }
    return file;
}

struct Result {
    bool ok = false;   // tshark ran to its end without an error of the dissector
    QStringList lines; // one per frame, fields joined by '|'
    QString errors;
};

// Runs tshark with the dissector over the datagrams and prints the given fields.
// Two passes, so that a request also shows the frame of its reply.
inline Result dissect(const QString &tshark, const QList<Datagram> &datagrams, const QStringList &fieldNames)
{
    Result result;
    QTemporaryDir dir;
    QFile file(dir.filePath(QStringLiteral("session.pcap")));
    if (!dir.isValid() || !file.open(QIODevice::WriteOnly)) {
        result.errors = QStringLiteral("cannot write the capture file");
        return result;
    }
    file.write(capture(datagrams));
    file.close();

    QStringList arguments{QStringLiteral("-n"), QStringLiteral("-2"),
                          QStringLiteral("-X"), QStringLiteral("lua_script:" SORVIK_DISSECTOR_FILE),
                          QStringLiteral("-o"), QStringLiteral("sorvik.port:%1").arg(kControllerPort),
                          QStringLiteral("-r"), file.fileName(),
                          QStringLiteral("-T"), QStringLiteral("fields"),
                          QStringLiteral("-E"), QStringLiteral("separator=|")};
    for (const QString &name : fieldNames)
        arguments << QStringLiteral("-e") << name;
    QProcess process;
    process.start(tshark, arguments);
    const bool ran = process.waitForFinished(120000);
    result.errors = QString::fromUtf8(process.readAllStandardError());
    result.ok = ran && process.exitCode() == 0 && !result.errors.contains(QStringLiteral("Lua"));
    result.lines = QString::fromUtf8(process.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    return result;
}

} // namespace DissectorTest
