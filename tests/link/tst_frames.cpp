// Read and write frames byte for byte as the simulator receives them, the unpacking of replies, and the log
// lines of both, which follow the exchange.

#include "LinkTestSupport.h"

using namespace LinkTest;

namespace {

QByteArray stringBlock(const QByteArray &head)
{
    return head + QByteArray(256 - head.size(), '\x77');
}

// A read queues `data` as the reply and must hand on `output`; a write sends `data` as its payload.
struct Frame {
    const char *name;
    Function function;
    int area, index, count;
    QByteArray data, frame, output = {};
};

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

Q_DECLARE_METATYPE(Frame)

class FramesTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(m_pair.start()); }
    void init() { m_pair.reset(); }

    void frames_data()
    {
        const QByteArray ok = hex("01010000");
        const Frame rows[] = {
            {"read bool DI5 x3", ReadBits, 1, 4, 3, ok + hex("010001"), hex("0101010001000400000300"), hex("010001")},
            {"read Int8 DO4 x2, bits packed", ReadBytes, 4, 3, 16, ok + hex("0100000000000000 0101000000000001"),
             hex("0101010004000300001000"), hex("0183")},
            {"read string SI2", ReadStrings, 28, 1, 1, ok + stringBlock(hex("03616263")), hex("010101001c000001000001"),
             hex("03616263")},
            {"read bit area, length below 8", ReadBytes, 1, 0, 4, ok + hex("01010101"), hex("0101010001000000000400")},
            {"read index -1 times 4", ReadBytes, 7, -1, 4, ok + hex("2a000000"), hex("0101010007fffcff000400"),
             hex("2a000000")},
            {"read short reply filled with zeros", ReadBytes, 7, 0, 4, hex("0101"), hex("0101010007000000000400"),
             hex("00000000")},
            {"read longer reply, rest ignored", ReadBits, 1, 0, 2, ok + hex("010101"), hex("0101010001000000000200"),
             hex("0101")},
            {"read negative length byte skips a block", ReadStrings, 28, 0, 3,
             ok + stringBlock(hex("024142")) + stringBlock(hex("c8")) + stringBlock(hex("0143")),
             hex("010101001c000000000003"), hex("0241420143")},
            {"read empty text, block past the end", ReadStrings, 28, 0, 2, ok + stringBlock(hex("00")),
             hex("010101001c000000000002"), hex("0000")},
            // Fields carry the low bits of what they are given; nothing is refused here.
            {"read negative count", ReadBits, 1, 0, -1, ok, hex("0101010001000000ffffff")},
            {"read area beyond a byte", ReadBytes, 263, 0, 4, ok + hex("2a000000"), hex("0101010007000000000400"),
             hex("2a000000")},
            {"write 01 80 to a bit area", WriteBytes, 1, 0, 16, hex("0180"),
             hex("0201010001000000001000 0100000000000000 0000000000000001")},
            {"write bits on a word area keep the index", WriteBits, 7, 5, 1, hex("01"),
             hex("020101000700050000010001")},
            {"write SA counts pairs", WriteBytes, 14, 3, 2, hex("abcd"), hex("020101000e000600000200 abcd")},
            {"write Custom counts bytes", WriteBytes, 29, 5, 2, hex("abcd"), hex("020101001d000500000200 abcd")},
            {"write SI by bytes counts bytes", WriteBytes, 28, 1, 2, hex("abcd"), hex("020101001c000100000200 abcd")},
            {"write index -1 times 4", WriteBytes, 7, -1, 4, hex("01020304"), hex("0201010007fffcff000400 01020304")},
            {"write payload cut to the length", WriteBytes, 7, 0, 4, hex("01020304050607"),
             hex("0201010007000000000400 01020304")},
            {"write short payload padded with zeros", WriteBytes, 7, 1, 8, hex("01020304"),
             hex("0201010007000400000800 0102030400000000")},
            {"write short bits payload padded with zeros", WriteBits, 1, 0, 3, hex("01"),
             hex("0201010001000000000300 010000")},
            {"write Int16 to a bit area carries no partial byte", WriteBytes, 1, 0, 2, hex("0300"),
             hex("0201010001000000000200")},
            {"write negative length", WriteBytes, 7, 0, -4, hex("01"), hex("0201010007000000fffcff")},
            {"write blocks beyond 24 bits", WriteBlock, 28, 0, 65536, hex("01"), hex("020101001c00000000000001")}};
        TestSupport::addRows(rows);
    }
    void frames()
    {
        QFETCH(Frame, row);
        const bool read = row.function < WriteBits;
        m_pair.sim.queueReply(read ? row.data : hex("ff")); // any reply is success for a write; this one fails a read
        QByteArray data = read ? hex("ee") : row.data;      // a read appends to what the array holds
        QCOMPARE(call(m_pair.link, row.function, row.area, row.index, row.count, &data, "T"), 0);
        QCOMPARE(m_pair.sim.frames(), QList<QByteArray>{row.frame});
        if (read)
            QCOMPARE(data, hex("ee") + row.output);
    }

    void readLogLines_data()
    {
        QTest::addColumn<QByteArray>("reply"); // empty: the controller stays silent
        QTest::addColumn<QByteArray>("logged");
        QTest::addColumn<QStringList>("warnings"); // none: the read succeeds
        const QByteArray good = hex("010100002a000000"), padding(1472 - good.size(), '\x33'), beyond = hex("555555");
        const QString foreign = "lib[Sorvik]返回的序号错误", empty = "lib[Sorvik]返回的报文长度为0";
        QTest::newRow("padded to 1472") << good + padding << good << QStringList();
        QTest::newRow("beyond 1472 stays") << good + padding + beyond << good + beyond << QStringList();
        QTest::newRow("01 02") << hex("0102000011") << hex("0102000011") << QStringList{foreign, empty};
        QTest::newRow("02 01") << hex("0201000011") << hex("0201000011") << QStringList{foreign, empty};
        QTest::newRow("one byte") << hex("01") << hex("01") << QStringList{foreign, empty};
        QTest::newRow("no reply") << QByteArray() << QByteArray() << QStringList{empty};
    }
    void readLogLines()
    {
        QFETCH(QByteArray, reply);
        QFETCH(QByteArray, logged);
        QFETCH(QStringList, warnings);
        if (reply.isEmpty())
            m_pair.silence();
        else
            m_pair.sim.queueReply(reply);
        m_pair.link.m_debug = true;
        TestSupport::LogCapture log;
        QByteArray out = hex("ee");
        QCOMPARE(m_pair.link.ReadBytes(7, 0, 4, &out, "AI1"), warnings.isEmpty() ? 0 : -2);
        QCOMPARE(out, hex(warnings.isEmpty() ? "ee2a000000" : "ee"));
        const QString head = " " + peerText(m_pair.link) + "  AI1 len = 4 msg : ";
        QCOMPARE(log.texts(QtDebugMsg), QStringList({"lib[Sorvik]读命令" + head + "0101010007000000000400",
                                                     "lib[Sorvik]读响应" + head + logged.toHex()}));
        for (QString &warning : warnings)
            warning += head + logged.toHex();
        QCOMPARE(log.texts(QtWarningMsg), warnings);
    }

    void writeLinesFollowTheExchange_data()
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
    void writeLinesFollowTheExchange()
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

QTEST_GUILESS_MAIN(FramesTest)
#include "tst_frames.moc"
