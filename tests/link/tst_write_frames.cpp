// Write frames byte for byte as the simulator receives them, and the log
// lines of writes, which follow the exchange.

#include "LinkFixture.h"

using namespace LinkFixture;
using TestSupport::hex;

namespace {

enum Writer { Bits, Bytes, Block };

int writeWith(CmdSorvik &link, int writer, int area, int index, int count, const QByteArray &payload,
              const QString &tag)
{
    switch (writer) {
    case Bits: return link.WriteBits(area, index, count, payload, tag);
    case Bytes: return link.WriteBytes(area, index, count, payload, tag);
    default: return link.WriteBlock(area, index, count, payload, tag);
    }
}

QByteArray counting(int size)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i)
        bytes[i] = char(i);
    return bytes;
}

// Notes how many frames the simulator had seen when the command line of a
// write was logged, then hands the line on to the capture.
SorvikSimulator *g_sim = nullptr;
int g_framesAtCommandLine = -1;
QtMessageHandler g_capture = nullptr;
void noteCommandLine(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (text.startsWith(QStringLiteral("写命令")))
        g_framesAtCommandLine = g_sim->frameCount();
    g_capture(type, context, text);
}

} // namespace

class WriteFramesTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(m_pair.start()); }
    void init() { m_pair.reset(); }

    void frames_data();
    void frames();
    void linesFollowTheExchange_data();
    void linesFollowTheExchange();
    void noReply();
    void oddRequestsKeepTheirLowBits_data();
    void oddRequestsKeepTheirLowBits();

private:
    UdpPair m_pair;
};

void WriteFramesTest::frames_data()
{
    QTest::addColumn<int>("writer");
    QTest::addColumn<int>("area");
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("count");
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QByteArray>("frame");

    QTest::newRow("float 1.0 to AO3") << int(Bytes) << 10 << 2 << 4 << hex("0000803f")
                                      << hex("020101000a000800000400"
                                             "0000803f");
    QTest::newRow("bool to DO2") << int(Bits) << 4 << 1 << 1 << hex("01") << hex("020101000400010000010001");
    QTest::newRow("Int8 5 to DO1") << int(Bytes) << 4 << 0 << 8 << hex("05")
                                   << hex("0201010004000000000800"
                                          "0100010000000000");
    QTest::newRow("string abc to SI2") << int(Block) << 28 << 1 << 1 << hex("03616263")
                                       << hex("020101001c000001000001"
                                              "03616263");
    QTest::newRow("256-byte block to SI2")
        << int(Block) << 28 << 1 << 256 << counting(256) << hex("020101001c000001010000") + counting(256);
    QTest::newRow("01 80 to a bit area") << int(Bytes) << 1 << 0 << 16 << hex("0180")
                                         << hex("0201010001000000001000"
                                                "0100000000000000"
                                                "0000000000000001");
    QTest::newRow("bits on a word area keep the index")
        << int(Bits) << 7 << 5 << 1 << hex("01") << hex("020101000700050000010001");
    QTest::newRow("SA counts pairs") << int(Bytes) << 14 << 3 << 2 << hex("abcd")
                                     << hex("020101000e000600000200"
                                            "abcd");
    QTest::newRow("Custom counts bytes") << int(Bytes) << 29 << 5 << 2 << hex("abcd")
                                         << hex("020101001d000500000200"
                                                "abcd");
    QTest::newRow("SI by bytes counts bytes") << int(Bytes) << 28 << 1 << 2 << hex("abcd")
                                              << hex("020101001c000100000200"
                                                     "abcd");
    QTest::newRow("index -1 times 4") << int(Bytes) << 7 << -1 << 4 << hex("01020304")
                                      << hex("0201010007fffcff000400"
                                             "01020304");
    QTest::newRow("payload cut to the length") << int(Bytes) << 7 << 0 << 4 << hex("01020304050607")
                                               << hex("0201010007000000000400"
                                                      "01020304");
    QTest::newRow("short payload padded with zeros") << int(Bytes) << 7 << 1 << 8 << hex("01020304")
                                                     << hex("0201010007000400000800"
                                                            "0102030400000000");
    QTest::newRow("short bits payload padded with zeros") << int(Bits) << 1 << 0 << 3 << hex("01")
                                                          << hex("0201010001000000000300"
                                                                 "010000");
    QTest::newRow("Int16 to a bit area carries no partial byte") << int(Bytes) << 1 << 0 << 2 << hex("0300")
                                                                  << hex("0201010001000000000200");
}

void WriteFramesTest::frames()
{
    QFETCH(int, writer);
    QFETCH(int, area);
    QFETCH(int, index);
    QFETCH(int, count);
    QFETCH(QByteArray, payload);
    QFETCH(QByteArray, frame);
    // Any reply is success; this one would fail a read.
    m_pair.sim.queueReply(hex("ff"));
    QCOMPARE(writeWith(m_pair.link, writer, area, index, count, payload, "T"), 0);
    QCOMPARE(m_pair.sim.frames(), QList<QByteArray>{frame});
}

void WriteFramesTest::linesFollowTheExchange_data()
{
    QTest::addColumn<int>("writer");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("response");
    QTest::newRow("bytes") << int(Bytes) << "写命令 %1 tag=AO3  len = 4 msg : 020101000a0008000004000000803f"
                           << "响应 %1 tag=AO3  len = 4 msg : 01010000aa333333";
    QTest::newRow("block") << int(Block) << "写命令 %1 tag=AO3  len = 1024 msg : 020101000a0000020000040000803f"
                           << "响应 %1 tag=AO3  len = 1024 msg : 01010000aa" + QString(40, '3');
    QTest::newRow("bits") << int(Bits) << "写命令 %1 Area=AO3  len = 4 msg : 020101000a0002000004000000803f"
                          << "响应 %1 Area=AO3  len = 4 msg : 01010000aa333333";
}

void WriteFramesTest::linesFollowTheExchange()
{
    QFETCH(int, writer);
    QFETCH(QString, command);
    QFETCH(QString, response);
    m_pair.link.m_debug = true;
    m_pair.sim.queueReply(hex("01010000aa") + QByteArray(20, '\x33')); // logged as cut to 4 + length

    TestSupport::LogCapture log;
    g_sim = &m_pair.sim;
    g_framesAtCommandLine = -1;
    g_capture = qInstallMessageHandler(noteCommandLine);
    const int result = writeWith(m_pair.link, writer, 10, 2, 4, hex("0000803f"), "AO3");
    qInstallMessageHandler(g_capture);

    QCOMPARE(result, 0);
    QCOMPARE(g_framesAtCommandLine, 1);
    const QString peer = peerText(m_pair.link);
    QCOMPARE(log.texts(QtDebugMsg), QStringList({command.arg(peer), response.arg(peer)}));
    QVERIFY(log.texts(QtWarningMsg).isEmpty());
}

void WriteFramesTest::noReply()
{
    SimFaults silent;
    silent.silent = true;
    m_pair.sim.setFaults(silent);
    m_pair.link.m_debug = true;
    TestSupport::LogCapture log;
    QCOMPARE(m_pair.link.WriteBits(4, 1, 1, hex("01"), "DO2"), -2);
    const QString peer = peerText(m_pair.link);
    QCOMPARE(log.texts(QtDebugMsg), QStringList({"写命令 " + peer + " Area=DO2  len = 1 msg : 020101000400010000010001",
                                                 "响应 " + peer + " Area=DO2  len = 1 msg : "}));
    QVERIFY(log.texts(QtWarningMsg).isEmpty());
}

void WriteFramesTest::oddRequestsKeepTheirLowBits_data()
{
    QTest::addColumn<int>("writer");
    QTest::addColumn<int>("area");
    QTest::addColumn<int>("count");
    QTest::addColumn<QByteArray>("frame");
    QTest::newRow("negative length") << int(Bytes) << 7 << -4 << hex("0201010007000000fffcff");
    QTest::newRow("blocks beyond 24 bits") << int(Block) << 28 << 65536 << hex("020101001c00000000000001");
}

// Fields carry the low bits of what they are given; nothing is refused here.
void WriteFramesTest::oddRequestsKeepTheirLowBits()
{
    QFETCH(int, writer);
    QFETCH(int, area);
    QFETCH(int, count);
    QFETCH(QByteArray, frame);
    writeWith(m_pair.link, writer, area, 0, count, hex("01"), "X1");
    QCOMPARE(m_pair.sim.frames(), QList<QByteArray>{frame});
}

QTEST_GUILESS_MAIN(WriteFramesTest)
#include "tst_write_frames.moc"
