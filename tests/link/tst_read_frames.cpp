// Read frames byte for byte as the simulator receives them, the unpacking of
// replies, and the log lines of reads.

#include "LinkFixture.h"

using namespace LinkFixture;
using TestSupport::hex;

namespace {

enum Reader { Bits, Bytes, Strings };

int readWith(CmdSorvik &link, int reader, int area, int index, int count, QByteArray *out, const QString &tag)
{
    switch (reader) {
    case Bits: return link.ReadBits(area, index, count, out, tag);
    case Bytes: return link.ReadBytes(area, index, count, out, tag);
    default: return link.ReadStrings(area, index, count, out, tag);
    }
}

QByteArray stringBlock(const QByteArray &head)
{
    return head + QByteArray(256 - head.size(), '\x77');
}

} // namespace

class ReadFramesTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(m_pair.start()); }
    void init() { m_pair.reset(); }

    void frames_data();
    void frames();
    void paddedReplyIsCut_data();
    void paddedReplyIsCut();
    void wrongIdentity_data();
    void wrongIdentity();
    void lostReply();
    void oddRequestsKeepTheirLowBits_data();
    void oddRequestsKeepTheirLowBits();

private:
    UdpPair m_pair;
};

void ReadFramesTest::frames_data()
{
    QTest::addColumn<int>("reader");
    QTest::addColumn<int>("area");
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("presetAddress");
    QTest::addColumn<QByteArray>("preset");
    QTest::addColumn<QByteArray>("scriptedReply"); // answers instead of the memory when set
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("output");

    const QByteArray none;
    QTest::newRow("Int32 AI_F3") << int(Bytes) << 8 << 2 << 4 << 8 << hex("2a000000") << none
                                 << hex("0101010008000800000400") << hex("2a000000");
    QTest::newRow("Int32 NAO1000 x2") << int(Bytes) << 18 << 999 << 8 << 3996 << hex("0102030405060708") << none
                                      << hex("0101010012009c0f000800") << hex("0102030405060708");
    QTest::newRow("bool DI5 x3") << int(Bits) << 1 << 4 << 3 << 4 << hex("010001") << none
                                 << hex("0101010001000400000300") << hex("010001");
    QTest::newRow("Int8 DO4 x2, bits packed")
        << int(Bytes) << 4 << 3 << 16 << 3 << hex("01000000000000000101000000000001") << none
        << hex("0101010004000300001000") << hex("0183");
    QTest::newRow("string SI2") << int(Strings) << 28 << 1 << 1 << 256 << hex("03616263") << none
                                << hex("010101001c000001000001") << hex("03616263");
    QTest::newRow("bit area, length below 8")
        << int(Bytes) << 1 << 0 << 4 << 0 << hex("01010101") << none << hex("0101010001000000000400") << QByteArray();
    QTest::newRow("index -1 times 4") << int(Bytes) << 7 << -1 << 4 << 0 << none << hex("010100002a000000")
                                      << hex("0101010007fffcff000400") << hex("2a000000");
    QTest::newRow("short reply filled with zeros")
        << int(Bytes) << 7 << 0 << 4 << 0 << none << hex("0101") << hex("0101010007000000000400") << hex("00000000");
    QTest::newRow("longer reply, rest ignored") << int(Bits) << 1 << 0 << 2 << 0 << none << hex("01010000010101")
                                                << hex("0101010001000000000200") << hex("0101");
    QTest::newRow("negative length byte skips a block")
        << int(Strings) << 28 << 0 << 3 << 0 << none
        << hex("01010000") + stringBlock(hex("024142")) + stringBlock(hex("c8")) + stringBlock(hex("0143"))
        << hex("010101001c000000000003") << hex("0241420143");
    QTest::newRow("empty text, block past the end")
        << int(Strings) << 28 << 0 << 2 << 0 << none << hex("01010000") + stringBlock(hex("00"))
        << hex("010101001c000000000002") << hex("0000");
}

void ReadFramesTest::frames()
{
    QFETCH(int, reader);
    QFETCH(int, area);
    QFETCH(int, index);
    QFETCH(int, count);
    QFETCH(int, presetAddress);
    QFETCH(QByteArray, preset);
    QFETCH(QByteArray, scriptedReply);
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, output);

    if (!preset.isEmpty())
        m_pair.sim.preset(area, presetAddress, preset);
    if (!scriptedReply.isEmpty())
        m_pair.sim.queueReply(scriptedReply);

    QByteArray out = hex("ee"); // data is appended to what the array holds
    QCOMPARE(readWith(m_pair.link, reader, area, index, count, &out, "T"), 0);
    QCOMPARE(m_pair.sim.frames(), QList<QByteArray>{request});
    QCOMPARE(out, hex("ee") + output);
}

void ReadFramesTest::paddedReplyIsCut_data()
{
    QTest::addColumn<int>("extra");
    QTest::addColumn<QByteArray>("loggedReply");
    QTest::newRow("padded to 1472") << 0 << hex("010100002a000000");
    QTest::newRow("beyond 1472 stays") << 3 << hex("010100002a000000") + QByteArray(3, '\x55');
}

void ReadFramesTest::paddedReplyIsCut()
{
    QFETCH(int, extra);
    QFETCH(QByteArray, loggedReply);
    QByteArray reply = hex("010100002a000000");
    reply += QByteArray(1472 - reply.size(), '\x33') + QByteArray(extra, '\x55');
    m_pair.sim.queueReply(reply);
    m_pair.link.m_debug = true;

    TestSupport::LogCapture log;
    QByteArray out;
    QCOMPARE(m_pair.link.ReadBytes(7, 0, 4, &out, "AI1"), 0);
    QCOMPARE(out, hex("2a000000"));
    const QString peer = peerText(m_pair.link);
    QCOMPARE(log.texts(QtDebugMsg),
             QStringList({"lib[Sorvik]读命令 " + peer + "  AI1 len = 4 msg : 0101010007000000000400",
                          "lib[Sorvik]读响应 " + peer + "  AI1 len = 4 msg : " + loggedReply.toHex()}));
    QVERIFY(log.texts(QtWarningMsg).isEmpty());
}

void ReadFramesTest::wrongIdentity_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("01 02") << hex("0102000011");
    QTest::newRow("02 01") << hex("0201000011");
    QTest::newRow("one byte") << hex("01");
}

void ReadFramesTest::wrongIdentity()
{
    QFETCH(QByteArray, reply);
    m_pair.sim.queueReply(reply);
    TestSupport::LogCapture log;
    QByteArray out = hex("ee");
    QCOMPARE(m_pair.link.ReadBits(1, 0, 1, &out, "DI1"), -2);
    QCOMPARE(out, hex("ee"));
    const QString tail = " " + peerText(m_pair.link) + "  DI1 len = 1 msg : " + reply.toHex();
    QCOMPARE(log.texts(QtWarningMsg),
             QStringList({"lib[Sorvik]返回的序号错误" + tail, "lib[Sorvik]返回的报文长度为0" + tail}));
}

void ReadFramesTest::lostReply()
{
    SimFaults silent;
    silent.silent = true;
    m_pair.sim.setFaults(silent);
    m_pair.link.m_debug = true;
    TestSupport::LogCapture log;
    QByteArray out = hex("ee");
    QCOMPARE(m_pair.link.ReadStrings(28, 0, 2, &out, "SI1"), -2);
    QCOMPARE(out, hex("ee"));
    const QString peer = peerText(m_pair.link);
    QCOMPARE(log.texts(QtDebugMsg),
             QStringList({"lib[Sorvik]读命令 " + peer + "  SI1 len = 512 msg : 010101001c000000000002",
                          "lib[Sorvik]读响应 " + peer + "  SI1 len = 512 msg : "}));
    QCOMPARE(log.texts(QtWarningMsg), QStringList{"lib[Sorvik]返回的报文长度为0 " + peer + "  SI1 len = 512 msg : "});
}

void ReadFramesTest::oddRequestsKeepTheirLowBits_data()
{
    QTest::addColumn<int>("reader");
    QTest::addColumn<int>("area");
    QTest::addColumn<int>("count");
    QTest::addColumn<QByteArray>("frame");
    QTest::newRow("negative count") << int(Bits) << 1 << -1 << hex("0101010001000000ffffff");
    QTest::newRow("area beyond a byte") << int(Bytes) << 263 << 4 << hex("0101010007000000000400");
}

// Fields carry the low bits of what they are given; nothing is refused here.
void ReadFramesTest::oddRequestsKeepTheirLowBits()
{
    QFETCH(int, reader);
    QFETCH(int, area);
    QFETCH(int, count);
    QFETCH(QByteArray, frame);
    QByteArray out;
    readWith(m_pair.link, reader, area, 0, count, &out, "X1");
    QCOMPARE(m_pair.sim.frames(), QList<QByteArray>{frame});
}

QTEST_GUILESS_MAIN(ReadFramesTest)
#include "tst_read_frames.moc"
