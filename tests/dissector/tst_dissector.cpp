// The Wireshark dissector decodes every frame kind of a session: it reads a
// capture file written here and is checked field by field through tshark.

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

namespace {

constexpr quint16 kControllerPort = 6123;
constexpr quint16 kDrivePort = 500;

QByteArray u16(quint16 v)
{
    QByteArray b(2, 0);
    qToBigEndian(v, b.data());
    return b;
}

QByteArray le32(quint32 v)
{
    QByteArray b(4, 0);
    qToLittleEndian(v, b.data());
    return b;
}

// One raw IPv4/UDP packet on loopback.
QByteArray packet(bool toController, const QByteArray &payload)
{
    const quint16 udpLength = quint16(8 + payload.size());
    QByteArray ip = QByteArray::fromHex("4500") + u16(quint16(20 + udpLength)) + QByteArray::fromHex("000040004011")
                    + u16(0) + QByteArray::fromHex("7f0000017f000001");
    const quint16 src = toController ? kDrivePort : kControllerPort;
    const quint16 dst = toController ? kControllerPort : kDrivePort;
    return ip + u16(src) + u16(dst) + u16(udpLength) + u16(0) + payload;
}

QByteArray capture(const QList<QPair<bool, QByteArray>> &frames)
{
    QByteArray file = le32(0xa1b2c3d4) + QByteArray::fromHex("02000400") + le32(0) + le32(0) + le32(65535)
                      + le32(101); // raw IP
    quint32 second = 1;
    for (const auto &frame : frames) {
        const QByteArray p = packet(frame.first, frame.second);
        file += le32(second++) + le32(0) + le32(quint32(p.size())) + le32(quint32(p.size())) + p;
    }
    return file;
}

} // namespace

class TestDissector : public QObject
{
    Q_OBJECT

private slots:
    void decodesEveryFrameKind();
};

void TestDissector::decodesEveryFrameKind()
{
    const QString tshark = QStandardPaths::findExecutable(QStringLiteral("tshark"));
    if (tshark.isEmpty())
        QSKIP("tshark is not installed");

    const QByteArray stringBlock = QByteArray::fromHex("03616263") + QByteArray(252, '\0');
    const QList<QPair<bool, QByteArray>> frames = {
        {true, QByteArray::fromHex("0401")},
        {false, QByteArray::fromHex("0401")},
        {true, QByteArray::fromHex("0101010008000800000400")},
        {false, QByteArray::fromHex("010100002a000000")},
        {true, QByteArray::fromHex("010101001c000001000001")},
        {false, QByteArray::fromHex("01010000") + stringBlock},
        {true, QByteArray::fromHex("020101000a0008000004000000803f")},
        {false, QByteArray::fromHex("02010000")},
        {true, QByteArray::fromHex("020101001c00000100000103616263")},
        {false, QByteArray::fromHex("02010000")},
        {true, QByteArray::fromHex("0101010012009c0f000800")},
    };

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QFile file(dir.filePath(QStringLiteral("session.pcap")));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(capture(frames));
    file.close();

    QProcess process;
    process.start(tshark, {QStringLiteral("-n"), QStringLiteral("-X"),
                           QStringLiteral("lua_script:") + QStringLiteral(SORVIK_DISSECTOR_FILE), QStringLiteral("-o"),
                           QStringLiteral("sorvik.port:%1").arg(kControllerPort), QStringLiteral("-r"), file.fileName(),
                           QStringLiteral("-T"), QStringLiteral("fields"), QStringLiteral("-E"),
                           QStringLiteral("separator=|"), QStringLiteral("-e"), QStringLiteral("sorvik.kind"),
                           QStringLiteral("-e"), QStringLiteral("sorvik.prefix"), QStringLiteral("-e"),
                           QStringLiteral("sorvik.address"), QStringLiteral("-e"), QStringLiteral("sorvik.length"),
                           QStringLiteral("-e"), QStringLiteral("sorvik.data"), QStringLiteral("-e"),
                           QStringLiteral("sorvik.string.text")});
    QVERIFY(process.waitForFinished(60000));
    const QString errors = QString::fromUtf8(process.readAllStandardError());
    QCOMPARE(process.exitCode(), 0);
    const QStringList lines = QString::fromUtf8(process.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    QVERIFY2(!errors.contains(QStringLiteral("Lua")), qPrintable(errors));

    const QStringList expected = {
        "Handshake request|||||",
        "Handshake reply|||||",
        "Read request|AI_F|8|4||",
        "Read reply|AI_F|8|4|2a000000|",
        "Read request|SI|256|256||",
        "Read reply|SI|256|256|" + QString::fromLatin1(stringBlock.toHex()) + "|abc",
        "Write request|AO|8|4|0000803f|",
        "Write reply|||||",
        "Write request|SI|256|256|03616263|abc",
        "Write reply|||||",
        "Read request|NAO|3996|8||",
    };
    QCOMPARE(lines.size(), expected.size());
    for (int i = 0; i < expected.size(); ++i)
        QCOMPARE(lines.at(i), expected.at(i));
}

QTEST_GUILESS_MAIN(TestDissector)
#include "tst_dissector.moc"
