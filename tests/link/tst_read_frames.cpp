// Read frames byte for byte as the simulator receives them, the unpacking of replies, and their log lines.

#include "LinkTestSupport.h"

using namespace LinkTest;

namespace {

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

    void frames_data()
    {
        QTest::addColumn<int>("function");
        QTest::addColumn<int>("area");
        QTest::addColumn<int>("index");
        QTest::addColumn<int>("count");
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<QByteArray>("output");
        auto row = [](const char *name, Function function, int area, int index, int count, const QByteArray &reply,
                      const char *request, const QByteArray &output) {
            QTest::newRow(name) << int(function) << area << index << count << reply << hex(request) << output;
        };

        row("Int32 AI_F3", ReadBytes, 8, 2, 4, hex("01010000 2a000000"), "0101010008000800000400", hex("2a000000"));
        row("Int32 NAO1000 x2", ReadBytes, 18, 999, 8, hex("01010000 0102030405060708"), "0101010012009c0f000800",
            hex("0102030405060708"));
        row("bool DI5 x3", ReadBits, 1, 4, 3, hex("01010000 010001"), "0101010001000400000300", hex("010001"));
        row("Int8 DO4 x2, bits packed", ReadBytes, 4, 3, 16, hex("01010000 0100000000000000 0101000000000001"),
            "0101010004000300001000", hex("0183"));
        row("string SI2", ReadStrings, 28, 1, 1, hex("01010000") + stringBlock(hex("03616263")),
            "010101001c000001000001", hex("03616263"));
        row("bit area, length below 8", ReadBytes, 1, 0, 4, hex("01010000 01010101"), "0101010001000000000400", {});
        row("index -1 times 4", ReadBytes, 7, -1, 4, hex("01010000 2a000000"), "0101010007fffcff000400",
            hex("2a000000"));
        row("short reply filled with zeros", ReadBytes, 7, 0, 4, hex("0101"), "0101010007000000000400",
            hex("00000000"));
        row("longer reply, rest ignored", ReadBits, 1, 0, 2, hex("01010000 010101"), "0101010001000000000200",
            hex("0101"));
        row("negative length byte skips a block", ReadStrings, 28, 0, 3,
            hex("01010000") + stringBlock(hex("024142")) + stringBlock(hex("c8")) + stringBlock(hex("0143")),
            "010101001c000000000003", hex("0241420143"));
        row("empty text, block past the end", ReadStrings, 28, 0, 2, hex("01010000") + stringBlock(hex("00")),
            "010101001c000000000002", hex("0000"));
        // Fields carry the low bits of what they are given; nothing is refused here.
        row("negative count", ReadBits, 1, 0, -1, hex("01010000"), "0101010001000000ffffff", {});
        row("area beyond a byte", ReadBytes, 263, 0, 4, hex("01010000 2a000000"), "0101010007000000000400",
            hex("2a000000"));
    }

    void frames()
    {
        QFETCH(int, function);
        QFETCH(int, area);
        QFETCH(int, index);
        QFETCH(int, count);
        QFETCH(QByteArray, reply);
        QFETCH(QByteArray, request);
        QFETCH(QByteArray, output);
        m_pair.sim.queueReply(reply);
        QByteArray out = hex("ee"); // data is appended to what the array holds
        QCOMPARE(call(m_pair.link, function, area, index, count, &out, "T"), 0);
        QCOMPARE(m_pair.sim.frames(), QList<QByteArray>{request});
        QCOMPARE(out, hex("ee") + output);
    }

    void logLines_data()
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

    void logLines()
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

private:
    UdpPair m_pair;
};

QTEST_GUILESS_MAIN(ReadFramesTest)
#include "tst_read_frames.moc"
