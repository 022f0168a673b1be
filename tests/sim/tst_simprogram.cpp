// sorvik-sim as a program: its presets and options, the frames it logs, its summary, and its refusals.

#include "TestSupport.h"
#include "tests/cli/CliTestSupport.h"

#include <QNetworkDatagram>
#include <QTemporaryFile>
#include <QUdpSocket>
#include <QtTest>

using CliTest::Simulator;
using TestSupport::hex;

namespace {

// The replies to `frames`, sent at once to the UDP controller at "ADDRESS:PORT", in the order they come.
QList<QByteArray> exchange(const Simulator &sim, const QList<QByteArray> &frames)
{
    const QStringList hostPort = sim.connectText().split(':');
    QUdpSocket socket;
    if (hostPort.size() != 2 || !socket.bind(TestSupport::testHost(), 0))
        return {"<no socket>"};
    for (const QByteArray &frame : frames)
        socket.writeDatagram(frame, QHostAddress(hostPort[0]), quint16(hostPort[1].toUInt()));
    QList<QByteArray> got;
    while (got.size() < frames.size() && socket.waitForReadyRead(2000))
        while (socket.hasPendingDatagrams())
            got << socket.receiveDatagram().data();
    return got;
}

QByteArray exchange(const Simulator &sim, const QByteArray &frame)
{
    return exchange(sim, QList<QByteArray>{frame}).value(0, "<no reply>");
}

} // namespace

class TestSimProgram : public QObject
{
    Q_OBJECT

    QTemporaryFile m_badPresets;

private slots:
    void initTestCase()
    {
        if (!QFile::exists(SORVIK_SIM_FILE))
            QSKIP("sorvik-sim is not built");
        QVERIFY(m_badPresets.open());
        m_badPresets.write("AI1=int32:1\n# next one is wrong\nAI2=int32\n");
        m_badPresets.close();
    }

    void servesUdpUntilTerminated()
    {
        QTemporaryFile presets;
        QVERIFY(presets.open());
        presets.write("# a comment\n\nAI1=int32:42\n  DI2=bool:1  \n");
        presets.close();
        Simulator sim;
        QVERIFY(sim.startUdp(
            {"--preset-file", presets.fileName(), "--set", "AI2=float:1.5", "--set", "AI1=int16:7", "--log-frames"}));
        QVERIFY2(sim.connectText().startsWith(CliTest::host() + ":"), qPrintable(sim.connectText()));
        // --set comes after the file, so AI1 is overwritten in its low half only.
        QCOMPARE(
            exchange(sim, {hex("0401"), hex("0101010007000000000800"), hex("0101010001000000000300"),
                           hex("02010100070000000001002a")}),
            (QList<QByteArray>{hex("0401"), hex("01010000070000000000c03f"), hex("01010000000100"), hex("02010000")}));

        const QStringList lines = sim.stop().split('\n', Qt::SkipEmptyParts);
        QVERIFY(lines.contains("sorvik.sim.frames: in  0401"));
        QVERIFY(lines.contains("sorvik.sim.frames: out 01010000070000000000c03f"));
        QCOMPARE(lines.value(lines.size() - 1), QString("frames 4 handshakes 1 reads 2 writes 1 invalid 0 faults 0"));
    }

    void faultOptions_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QList<QByteArray>>("frames");
        QTest::addColumn<QList<QByteArray>>("replies");
        const QByteArray ai1 = hex("0101010007000000000100"), ai2 = hex("0101010007000100000100");
        QTest::newRow("truncate") << QStringList{"--set", "AI1=uint8:255", "--truncate", "3"} << QList<QByteArray>{ai1}
                                  << QList<QByteArray>{hex("010100")};
        // The first read is held; the second read and the handshake, not counted, overtake it.
        QTest::newRow("late") << QStringList{"--set", "AI1=uint8:17,34", "--late", "1:300", "--late", "3:0"}
                              << QList<QByteArray>{hex("0401"), ai1, ai2}
                              << QList<QByteArray>{hex("0401"), hex("0101000022"), hex("0101000011")};
        QTest::newRow("late share") << QStringList{"--late-share", "1:200"} << QList<QByteArray>{ai1, hex("0401")}
                                    << QList<QByteArray>{hex("0401"), hex("0101000000")};
    }

    void faultOptions()
    {
        QFETCH(QStringList, options);
        QFETCH(QList<QByteArray>, frames);
        QFETCH(QList<QByteArray>, replies);
        Simulator sim;
        QVERIFY(sim.startUdp(options));
        QCOMPARE(exchange(sim, frames), replies);
        QVERIFY(sim.stop().endsWith("faults 1\n"));
    }

    // The fill, with presets over it; a quoted comma stays in its string; --live leaves presets alone.
    void memoryOptions()
    {
        Simulator sim;
        QVERIFY(sim.startUdp({"--self-describing", "7", "--set", "AI2=int32:5", "--set", "SI4=string:\"a, b\"",
                              "--live", "--set", "AI1=int32:42", "--set", "DI2=bool:1"}));
        // AI1 preset over the demo's level, AI2 over the fill, AI4 the demo's temperature, AI5 the fill.
        const QByteArray ai = exchange(sim, hex("0101010007000000001400")).toHex();
        QCOMPARE(ai.left(24), QByteArray("01010000") + "2a000000" + "05000000");
        QVERIFY2(ai.mid(32, 8) != "e4cb3604", ai.constData());
        QCOMPARE(ai.mid(40), QByteArray("e5cb3604"));
        QCOMPARE(exchange(sim, hex("010101001c000003000600")).toHex(), QByteArray("01010000") + "04612c206200");
        QTest::qWait(250); // the demo writes again every 100 ms, a bit area too
        QCOMPARE(exchange(sim, QList<QByteArray>{hex("0101010007000000000400"), hex("0101010001000100000100")}),
                 (QList<QByteArray>{hex("010100002a000000"), hex("0101000001")}));
    }

    void usage_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("says");
        const auto row = [](const char *name, const QStringList &arguments, const QString &error) {
            QTest::newRow(name) << arguments << 1 << "sorvik-sim: " + error + "\n";
        };
        QTest::newRow("version") << QStringList{"--version"} << 0 << "sorvik-sim 1.8.4\n";
        row("unknown option", {"--bogus"}, "Unknown option 'bogus'.");
        row("positional", {"now"}, "unexpected argument \"now\"");
        row("bad port", {"--port", "65536"}, "--port wants a whole number from 0 to 65535, not \"65536\"");
        row("bad share", {"--drop", "half"}, "--drop wants a share from 0 to 1, not \"half\"");
        row("bad preset", {"--set", "AI1=int8:300"}, "AI1=int8:300: \"300\" is no int8 value");
        row("two transports", {"--pty", "--serial", "x,9600,8,1,N"},
            "choose one of --pty, --serial and UDP (--address, --port)");
        row("serial fields", {"--serial", "ttyS0,fast,8,1,N"},
            "--serial wants name,baud,databits,stopbits,parity, not \"ttyS0,fast,8,1,N\"");
        row("late 0", {"--late", "0:5"}, "--late wants N (from 1):MS with MS from 0 to 3600000, not \"0:5\"");
        row("late without ms", {"--late", "3"}, "--late wants N (from 1):MS with MS from 0 to 3600000, not \"3\"");
        row("late share above 1", {"--late-share", "1.5:10"},
            "--late-share wants SHARE (0 to 1):MS with MS from 0 to 3600000, not \"1.5:10\"");
        row("controller 200", {"--self-describing", "200"},
            "--self-describing wants a whole number from 0 to 199, not \"200\"");
        row("open quote", {"--set", "SI1=string:\"a"}, "SI1=string:\"a: a quote is not closed");
        row("preset file", {"--preset-file", "FILE"}, "FILE:3: AI2=int32: expected TAG=TYPE:VALUE");
    }

    // Data on stdout, a refusal as one line on stderr.
    void usage()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, says);
        const CliTest::Run run =
            CliTest::run(SORVIK_SIM_FILE, arguments.replaceInStrings("FILE", m_badPresets.fileName()));
        QCOMPARE(run.exitCode, exitCode);
        QCOMPARE(run.out + run.err, says.replace("FILE", m_badPresets.fileName()));
    }
};

QTEST_GUILESS_MAIN(TestSimProgram)
#include "tst_simprogram.moc"
