#include "TestSupport.h"

#include <QNetworkDatagram>
#include <QProcess>
#include <QSerialPort>
#include <QTemporaryFile>
#include <QUdpSocket>
#include <QtTest>

using TestSupport::hex;

namespace {

#ifdef SORVIK_SIM_FILE
QString program()
{
    return QStringLiteral(SORVIK_SIM_FILE);
}
#else
QString program()
{
    return QStringLiteral(SORVIK_BINARY_DIR "/sim/sorvik-sim");
}
#endif

// One reply to `frame` from a UDP simulator at "udp ADDRESS:PORT".
QByteArray exchangeUdp(const QString &where, const QByteArray &frame, int waitMs = 1000)
{
    const QStringList hostPort = where.mid(4).split(':');
    QUdpSocket socket;
    if (hostPort.size() != 2 || !socket.bind(TestSupport::testHost(), 0))
        return "<no socket>";
    socket.writeDatagram(frame, QHostAddress(hostPort[0]), quint16(hostPort[1].toUInt()));
    if (!socket.waitForReadyRead(waitMs))
        return "<no reply>";
    return socket.receiveDatagram().data();
}

} // namespace

class TestSimProgram : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void servesUdpUntilTerminated();
    void servesAPseudoTerminal();
    void faultOptions_data();
    void faultOptions();
    void badUsage_data();
    void badUsage();
    void presetFileErrorsNameTheLine();

private:
    // Starts the program and gives its first line of output.
    QString start(const QStringList &arguments);
    QString stopAndTakeStderr();

    QProcess m_process;
};

void TestSimProgram::initTestCase()
{
    if (!QFile::exists(program()))
        QSKIP("sorvik-sim is not built");
}

void TestSimProgram::cleanup()
{
    m_process.kill();
    m_process.waitForFinished(1000);
}

QString TestSimProgram::start(const QStringList &arguments)
{
    m_process.start(program(), arguments);
    if (!m_process.waitForStarted(2000))
        return QString();
    while (!m_process.canReadLine() && m_process.waitForReadyRead(2000)) {
    }
    return QString::fromUtf8(m_process.readLine()).trimmed();
}

QString TestSimProgram::stopAndTakeStderr()
{
    m_process.terminate();
    if (!m_process.waitForFinished(2000) || m_process.exitStatus() != QProcess::NormalExit || m_process.exitCode() != 0)
        return QStringLiteral("<did not end cleanly>");
    return QString::fromUtf8(m_process.readAllStandardError());
}

void TestSimProgram::servesUdpUntilTerminated()
{
    QTemporaryFile presets;
    QVERIFY(presets.open());
    presets.write("# a comment\n\nAI1=int32:42\n  DI2=bool:1  \n");
    presets.close();

    const QString host = TestSupport::testHost().toString();
    const QString where = start({"--address", host, "--preset-file", presets.fileName(), "--set", "AI2=float:1.5",
                                 "--set", "AI1=int16:7", "--log-frames"});
    QVERIFY2(where.startsWith("udp " + host + ":"), qPrintable(where));
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

void TestSimProgram::servesAPseudoTerminal()
{
    const QString where = start({"--pty", "--set", "SI1=string:ok"});
    QVERIFY2(where.startsWith("pty /dev/"), qPrintable(where));
    QSerialPort port(where.mid(4));
    QVERIFY(port.open(QIODevice::ReadWrite));
    port.write(hex("010101001c000000000300"));
    QByteArray reply;
    while (reply.size() < 7 && port.waitForReadyRead(1000))
        reply += port.readAll();
    QCOMPARE(reply.toHex(), QByteArray("01010000026f6b"));
    QCOMPARE(stopAndTakeStderr(), QString("frames 1 handshakes 0 reads 1 writes 0 invalid 0 faults 0\n"));
}

void TestSimProgram::faultOptions_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QByteArray>("reply");

    QTest::newRow("truncate") << QStringList{"--truncate", "3"} << hex("010100");
    QTest::newRow("silent") << QStringList{"--silent"} << QByteArray("<no reply>");
}

void TestSimProgram::faultOptions()
{
    QFETCH(QStringList, options);
    QFETCH(QByteArray, reply);

    const QString where =
        start(QStringList{"--address", TestSupport::testHost().toString(), "--set", "AI1=uint8:255"} + options);
    const int waitMs = reply.startsWith('<') ? 100 : 1000;
    QCOMPARE(exchangeUdp(where, hex("0101010007000000000100"), waitMs).toHex(), reply.toHex());
    QVERIFY(stopAndTakeStderr().endsWith("faults 1\n"));
}

void TestSimProgram::badUsage_data()
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
}

void TestSimProgram::badUsage()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, error);

    m_process.start(program(), arguments);
    QVERIFY(m_process.waitForFinished(2000));
    QCOMPARE(m_process.exitCode(), 1);
    QCOMPARE(QString::fromUtf8(m_process.readAllStandardError()), "sorvik-sim: " + error + "\n");
    QVERIFY(m_process.readAllStandardOutput().isEmpty());
}

void TestSimProgram::presetFileErrorsNameTheLine()
{
    QTemporaryFile presets;
    QVERIFY(presets.open());
    presets.write("AI1=int32:1\n# next one is wrong\nAI2=int32\n");
    presets.close();

    m_process.start(program(), {"--preset-file", presets.fileName()});
    QVERIFY(m_process.waitForFinished(2000));
    QCOMPARE(m_process.exitCode(), 1);
    QCOMPARE(QString::fromUtf8(m_process.readAllStandardError()),
             "sorvik-sim: " + presets.fileName() + ":3: AI2=int32: expected TAG=TYPE:VALUE\n");
}

QTEST_GUILESS_MAIN(TestSimProgram)
#include "tst_simprogram.moc"
