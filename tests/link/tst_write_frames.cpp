// Write frames byte for byte as the simulator receives them, and their log lines, which follow the exchange.

#include "LinkTestSupport.h"

using namespace LinkTest;

namespace {

QByteArray counting(int size)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i)
        bytes[i] = char(i);
    return bytes;
}

// Notes how many frames the simulator had seen when a write logged its command line.
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

    void frames_data()
    {
        QTest::addColumn<int>("function");
        QTest::addColumn<int>("area");
        QTest::addColumn<int>("index");
        QTest::addColumn<int>("count");
        QTest::addColumn<QByteArray>("payload");
        QTest::addColumn<QByteArray>("frame");
        auto row = [](const char *name, Function function, int area, int index, int count, const QByteArray &payload,
                      const QByteArray &frame) {
            QTest::newRow(name) << int(function) << area << index << count << payload << frame;
        };

        row("float 1.0 to AO3", WriteBytes, 10, 2, 4, hex("0000803f"), hex("020101000a000800000400 0000803f"));
        row("bool to DO2", WriteBits, 4, 1, 1, hex("01"), hex("020101000400010000010001"));
        row("Int8 5 to DO1", WriteBytes, 4, 0, 8, hex("05"), hex("0201010004000000000800 0100010000000000"));
        row("string abc to SI2", WriteBlock, 28, 1, 1, hex("03616263"), hex("020101001c000001000001 03616263"));
        row("256-byte block to SI2", WriteBlock, 28, 1, 256, counting(256),
            hex("020101001c000001010000") + counting(256));
        row("01 80 to a bit area", WriteBytes, 1, 0, 16, hex("0180"),
            hex("0201010001000000001000 0100000000000000 0000000000000001"));
        row("bits on a word area keep the index", WriteBits, 7, 5, 1, hex("01"), hex("020101000700050000010001"));
        row("SA counts pairs", WriteBytes, 14, 3, 2, hex("abcd"), hex("020101000e000600000200 abcd"));
        row("Custom counts bytes", WriteBytes, 29, 5, 2, hex("abcd"), hex("020101001d000500000200 abcd"));
        row("SI by bytes counts bytes", WriteBytes, 28, 1, 2, hex("abcd"), hex("020101001c000100000200 abcd"));
        row("index -1 times 4", WriteBytes, 7, -1, 4, hex("01020304"), hex("0201010007fffcff000400 01020304"));
        row("payload cut to the length", WriteBytes, 7, 0, 4, hex("01020304050607"),
            hex("0201010007000000000400 01020304"));
        row("short payload padded with zeros", WriteBytes, 7, 1, 8, hex("01020304"),
            hex("0201010007000400000800 0102030400000000"));
        row("short bits payload padded with zeros", WriteBits, 1, 0, 3, hex("01"),
            hex("0201010001000000000300 010000"));
        row("Int16 to a bit area carries no partial byte", WriteBytes, 1, 0, 2, hex("0300"),
            hex("0201010001000000000200"));
        // Fields carry the low bits of what they are given; nothing is refused here.
        row("negative length", WriteBytes, 7, 0, -4, hex("01"), hex("0201010007000000fffcff"));
        row("blocks beyond 24 bits", WriteBlock, 28, 0, 65536, hex("01"), hex("020101001c00000000000001"));
    }

    void frames()
    {
        QFETCH(int, function);
        QFETCH(int, area);
        QFETCH(int, index);
        QFETCH(int, count);
        QFETCH(QByteArray, payload);
        QFETCH(QByteArray, frame);
        m_pair.sim.queueReply(hex("ff")); // any reply is success; this one would fail a read
        QCOMPARE(call(m_pair.link, function, area, index, count, &payload, "T"), 0);
        QCOMPARE(m_pair.sim.frames(), QList<QByteArray>{frame});
    }

    void linesFollowTheExchange_data()
    {
        QTest::addColumn<int>("function");
        QTest::addColumn<bool>("answered");
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("response");
        const QString reply = "01010000aa333333";
        QTest::newRow("bytes") << int(WriteBytes) << true << "tag=AO3  len = 4 msg : 020101000a0008000004000000803f"
                               << "tag=AO3  len = 4 msg : " + reply;
        QTest::newRow("block") << int(WriteBlock) << true << "tag=AO3  len = 1024 msg : 020101000a0000020000040000803f"
                               << "tag=AO3  len = 1024 msg : 01010000aa" + QString(40, '3');
        QTest::newRow("bits") << int(WriteBits) << true << "Area=AO3  len = 4 msg : 020101000a0002000004000000803f"
                              << "Area=AO3  len = 4 msg : " + reply;
        QTest::newRow("bits, no reply") << int(WriteBits) << false
                                        << "Area=AO3  len = 4 msg : 020101000a0002000004000000803f"
                                        << "Area=AO3  len = 4 msg : ";
    }

    void linesFollowTheExchange()
    {
        QFETCH(int, function);
        QFETCH(bool, answered);
        QFETCH(QString, command);
        QFETCH(QString, response);
        m_pair.link.m_debug = true;
        if (answered)
            m_pair.sim.queueReply(hex("01010000aa") + QByteArray(20, '\x33')); // logged as cut to 4 + length
        else
            m_pair.silence();

        TestSupport::LogCapture log;
        g_sim = &m_pair.sim;
        g_framesAtCommandLine = -1;
        g_capture = qInstallMessageHandler(noteCommandLine);
        QByteArray payload = hex("0000803f");
        const int result = call(m_pair.link, function, 10, 2, 4, &payload, "AO3");
        qInstallMessageHandler(g_capture);

        QCOMPARE(result, answered ? 0 : -2);
        QCOMPARE(g_framesAtCommandLine, 1);
        const QString peer = peerText(m_pair.link);
        QCOMPARE(log.texts(QtDebugMsg),
                 QStringList({"写命令 " + peer + " " + command, "响应 " + peer + " " + response}));
        QVERIFY(log.texts(QtWarningMsg).isEmpty());
    }

private:
    UdpPair m_pair;
};

QTEST_GUILESS_MAIN(WriteFramesTest)
#include "tst_write_frames.moc"
