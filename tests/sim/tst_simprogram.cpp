// sorvik-sim as a program: its presets and options, the frames it logs, its summary, and its refusals.

#include "TestSupport.h"

#include <QNetworkDatagram>
#include <QProcess>
#include <QTemporaryFile>
#include <QUdpSocket>
#include <QtTest>

using TestSupport::hex;

#ifndef SORVIK_SIM_FILE
#define SORVIK_SIM_FILE SORVIK_BINARY_DIR "/sim/sorvik-sim"
#endif

namespace {

// One reply to `frame` from a UDP simulator at "udp ADDRESS:PORT".
QByteArray exchangeUdp(const QString &where, const QByteArray &frame, int waitMs = 1000)
{
    const QStringList hostPort = where.mid(4).split(':');
    QUdpSocket socket;
    if (hostPort.size() != 2 || !socket.bind(TestSupport::testHost(), 0))
        return "<no socket>";
    socket.writeDatagram(frame, QHostAddress(hostPort[0]), quint16(hostPort[1].toUInt()));
    return socket.waitForReadyRead(waitMs) ? socket.receiveDatagram().data() : "<no reply>";
}

// The replies to `frames`, sent one after the other, in the order they come.
QList<QByteArray> exchangeAllUdp(const QString &where, const QList<QByteArray> &frames, int waitMs = 2000)
{
    const QStringList hostPort = where.mid(4).split(':');
    QUdpSocket socket;
    if (hostPort.size() != 2 || !socket.bind(TestSupport::testHost(), 0))
        return {"<no socket>"};
    for (const QByteArray &frame : frames)
        socket.writeDatagram(frame, QHostAddress(hostPort[0]), quint16(hostPort[1].toUInt()));
    QList<QByteArray> got;
    while (got.size() < frames.size() && socket.waitForReadyRead(waitMs))
        while (socket.hasPendingDatagrams())
            got << socket.receiveDatagram().data();
    return got;
}

} // namespace

class TestSimProgram : public QObject
{
    Q_OBJECT

    QProcess m_process;
    QTemporaryFile m_badPresets;

    // Starts the program on the loopback address and gives its first line of output.
    QString start(const QStringList &arguments)
    {
        m_process.start(SORVIK_SIM_FILE, QStringList{"--address", TestSupport::testHost().toString()} + arguments);
        while (m_process.waitForStarted(2000) && !m_process.canReadLine() && m_process.waitForReadyRead(2000)) {
        }
        return QString::fromUtf8(m_process.readLine()).trimmed();
    }

    QString stopAndTakeStderr()
    {
        m_process.terminate();
        if (!m_process.waitForFinished(2000) || m_process.exitStatus() != QProcess::NormalExit ||
            m_process.exitCode() != 0)
            return QStringLiteral("<did not end cleanly>");
        return QString::fromUtf8(m_process.readAllStandardError());
    }

private slots:
    void initTestCase()
    {
        if (!QFile::exists(SORVIK_SIM_FILE))
            QSKIP("sorvik-sim is not built");
        QVERIFY(m_badPresets.open());
        m_badPresets.write("AI1=int32:1\n# next one is wrong\nAI2=int32\n");
        m_badPresets.close();
    }
    void cleanup()
    {
        m_process.kill();
        m_process.waitForFinished(1000);
    }

    void servesUdpUntilTerminated()
    {
        QTemporaryFile presets;
        QVERIFY(presets.open());
        presets.write("# a comment\n\nAI1=int32:42\n  DI2=bool:1  \n");
        presets.close();
        const QString where = start(
            {"--preset-file", presets.fileName(), "--set", "AI2=float:1.5", "--set", "AI1=int16:7", "--log-frames"});
        QVERIFY2(where.startsWith("udp " + TestSupport::testHost().toString() + ":"), qPrintable(where));
        QCOMPARE(exchangeUdp(where, hex("0401")), hex("0401"));
        // --set comes after the file, so AI1 is overwritten in its low half only.
        QCOMPARE(exchangeUdp(where, hex("0101010007000000000800")).toHex(), QByteArray("01010000070000000000c03f"));
        QCOMPARE(exchangeUdp(where, hex("0101010001000000000300")).toHex(), QByteArray("01010000000100"));
        QCOMPARE(exchangeUdp(where, hex("02010100070000000001002a")).toHex(), QByteArray("02010000"));

        const QStringList lines = stopAndTakeStderr().split('\n', Qt::SkipEmptyParts);
        QVERIFY(lines.contains("sorvik.sim.frames: in  0401"));
        QVERIFY(lines.contains("sorvik.sim.frames: out 01010000070000000000c03f"));
        QCOMPARE(lines.value(lines.size() - 1), QString("frames 4 handshakes 1 reads 2 writes 1 invalid 0 faults 0"));
    }

    void faultOption()
    {
        const QString where = start({"--set", "AI1=uint8:255", "--truncate", "3"});
        QCOMPARE(exchangeUdp(where, hex("0101010007000000000100")), hex("010100"));
        QVERIFY(stopAndTakeStderr().endsWith("faults 1\n"));
    }

    // The first read is held; the second read and the handshake, not counted, overtake it.
    void lateOption()
    {
        const QString where = start({"--set", "AI1=uint8:17,34", "--late", "1:300", "--late", "3:0"});
        QCOMPARE(exchangeAllUdp(where, {hex("0401"), hex("0101010007000000000100"), hex("0101010007000100000100")}),
                 (QList<QByteArray>{hex("0401"), hex("0101000022"), hex("0101000011")}));
        QVERIFY(stopAndTakeStderr().endsWith("faults 1\n"));
    }

    void lateShareOption()
    {
        const QString where = start({"--late-share", "1:200"});
        QCOMPARE(exchangeAllUdp(where, {hex("0101010007000000000100"), hex("0401")}),
                 (QList<QByteArray>{hex("0401"), hex("0101000000")}));
    }

    // The fill, with presets over it; a quoted comma stays in its string; --live leaves presets alone.
    void memoryOptions()
    {
        const QString where = start({"--self-describing", "7", "--set", "AI2=int32:5", "--set", "SI4=string:\"a, b\"",
                                     "--live", "--set", "AI1=int32:42"});
        // AI1 preset over the demo's level, AI2 over the fill, AI4 the demo's temperature, AI5 the fill.
        const QByteArray ai = exchangeUdp(where, hex("0101010007000000001400")).toHex();
        QCOMPARE(ai.left(24), QByteArray("01010000") + "2a000000" + "05000000");
        QVERIFY2(ai.mid(32, 8) != "e4cb3604", ai.constData());
        QCOMPARE(ai.mid(40), QByteArray("e5cb3604"));
        QCOMPARE(exchangeUdp(where, hex("010101001c000003000600")).toHex(), QByteArray("01010000") + "04612c206200");
        QTest::qWait(250); // the demo writes again every 100 ms
        QCOMPARE(exchangeUdp(where, hex("0101010007000000000400")).toHex(), QByteArray("010100002a000000"));
    }

    void badUsage_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("error");
        QTest::newRow("unknown option") << QStringList{"--bogus"} << "Unknown option 'bogus'.";
        QTest::newRow("positional") << QStringList{"now"} << "unexpected argument \"now\"";
        QTest::newRow("bad port") << QStringList{"--port", "65536"}
                                  << "--port wants a whole number from 0 to 65535, not \"65536\"";
        QTest::newRow("bad share") << QStringList{"--drop", "half"} << "--drop wants a share from 0 to 1, not \"half\"";
        QTest::newRow("bad preset") << QStringList{"--set", "AI1=int8:300"} << "AI1=int8:300: \"300\" is no int8 value";
        QTest::newRow("two transports") << QStringList{"--pty", "--serial", "x,9600,8,1,N"}
                                        << "choose one of --pty, --serial and UDP (--address, --port)";
        QTest::newRow("serial fields") << QStringList{"--serial", "ttyS0,fast,8,1,N"}
                                       << "--serial wants name,baud,databits,stopbits,parity, not \"ttyS0,fast,8,1,N\"";
        QTest::newRow("late 0") << QStringList{"--late", "0:5"}
                                << "--late wants N (from 1):MS with MS from 0 to 3600000, not \"0:5\"";
        QTest::newRow("late without ms") << QStringList{"--late", "3"}
                                         << "--late wants N (from 1):MS with MS from 0 to 3600000, not \"3\"";
        QTest::newRow("late share above 1")
            << QStringList{"--late-share", "1.5:10"}
            << "--late-share wants SHARE (0 to 1):MS with MS from 0 to 3600000, not \"1.5:10\"";
        QTest::newRow("controller 200") << QStringList{"--self-describing", "200"}
                                        << "--self-describing wants a whole number from 0 to 199, not \"200\"";
        QTest::newRow("open quote") << QStringList{"--set", "SI1=string:\"a"}
                                    << "SI1=string:\"a: a quote is not closed";
        QTest::newRow("preset file") << QStringList{"--preset-file", "FILE"}
                                     << "FILE:3: AI2=int32: expected TAG=TYPE:VALUE";
    }

    void badUsage()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, error);
        arguments.replaceInStrings("FILE", m_badPresets.fileName());
        m_process.start(SORVIK_SIM_FILE, arguments);
        QVERIFY(m_process.waitForFinished(2000));
        QCOMPARE(m_process.exitCode(), 1);
        QCOMPARE(QString::fromUtf8(m_process.readAllStandardError()),
                 "sorvik-sim: " + error.replace("FILE", m_badPresets.fileName()) + "\n");
        QVERIFY(m_process.readAllStandardOutput().isEmpty());
    }

    void versionIsTheProjects()
    {
        m_process.start(SORVIK_SIM_FILE, {"--version"});
        QVERIFY(m_process.waitForFinished(2000));
        QCOMPARE(m_process.exitCode(), 0);
        QCOMPARE(m_process.readAllStandardOutput(), QByteArray("sorvik-sim 1.8.4\n"));
    }
};

QTEST_GUILESS_MAIN(TestSimProgram)
#include "tst_simprogram.moc"
