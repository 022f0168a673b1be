// The drive's log lines carry the whole tag text, whatever it holds: a NUL or
// an unpaired surrogate reaches the message handler unchanged, with the length
// and the frame behind it.

#include "drive/LibSorvik.h"

#include "DriveTestSupport.h"

#include <QtTest>

using DriveTest::listOf;

namespace {

// The drive's own lines as "debug: text" or "warning: text", in order.
QStringList driveLines(const TestSupport::LogCapture &log)
{
    QStringList lines;
    for (const TestSupport::LogLine &line : log.all())
        if (line.category == QLatin1String("default"))
            lines << (line.type == QtDebugMsg ? QStringLiteral("debug: ") : QStringLiteral("warning: ")) + line.text;
    return lines;
}

const QChar kNul(0);
const QChar kLoneSurrogate(0xD800);

} // namespace

class TestLogLines : public QObject
{
    Q_OBJECT

    SorvikSimulator m_sim;
    LibSorvik m_drive;
    QString m_peer; // "address:port" as the lines give it

    QString lastFrameHex() const { return QString::fromLatin1(m_sim.frames().value(m_sim.frameCount() - 1).toHex()); }

private slots:
    void initTestCase()
    {
        const quint16 port = DriveTest::connectTo(m_sim, m_drive);
        QVERIFY(port != 0);
        m_peer = DriveTest::udpText(port);
    }
    void init()
    {
        DriveTest::reset(m_sim);
        m_drive.DebugCmd(DEBUG_STOP);
    }

    // Warnings come also without debug. A tag text without a number reads element -1 (address ff ff ff).
    void readWarningsKeepTheTag_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<QStringList>("lines"); // PEER and TAG stand for the peer and the tag
        const QString identity = "warning: lib[Sorvik]返回的序号错误 PEER  TAG len = 2 msg : ";
        const QString empty = "warning: lib[Sorvik]返回的报文长度为0 PEER  TAG len = 2 msg : ";
        QTest::newRow("empty datagram, taken as none") << QByteArray("") << QStringList{empty};
        QTest::newRow("wrong identity") << TestSupport::hex("0102") << QStringList{identity + "0102", empty + "0102"};
    }

    void readWarningsKeepTheTag()
    {
        QFETCH(QByteArray, reply);
        QFETCH(QStringList, lines);
        m_sim.queueReply(reply);
        TestSupport::LogCapture log;
        const QString tag = QStringLiteral("HDS") + kNul;
        QCOMPARE(m_drive.ReadVariable(tag, TYPE_UINT16, 1).status, 8);
        QCOMPARE(lastFrameHex(), QStringLiteral("0101010013ffffff000200"));
        QCOMPARE(driveLines(log), lines.replaceInStrings("PEER", m_peer).replaceInStrings("TAG", tag));
    }

    void readDebugLinesKeepALoneSurrogate()
    {
        m_sim.presetTag("AI1=int32:42");
        m_drive.DebugCmd(DEBUG_START);
        TestSupport::LogCapture log;
        const QString tag = QStringLiteral("AI1") + kLoneSurrogate;
        QCOMPARE(m_drive.ReadVariable(tag, TYPE_INT32, 1).status, 0);
        QCOMPARE(driveLines(log),
                 (QStringList{"debug: lib[Sorvik]读命令 " + m_peer + "  " + tag + " len = 4 msg : " + lastFrameHex(),
                              "debug: lib[Sorvik]读响应 " + m_peer + "  " + tag + " len = 4 msg : 010100002a000000"}));
    }

    void lostReadWarningKeepsALoneSurrogate()
    {
        m_sim.setFaults([] {
            SimFaults silent;
            silent.silent = true;
            return silent;
        }());
        TestSupport::LogCapture log;
        const QString tag = QStringLiteral("AI1") + kLoneSurrogate + QStringLiteral("x");
        QCOMPARE(m_drive.ReadVariable(tag, TYPE_INT32, 1).status, 8);
        QCOMPARE(driveLines(log),
                 QStringList{"warning: lib[Sorvik]返回的报文长度为0 " + m_peer + "  " + tag + " len = 4 msg : "});
    }

    void writeDebugLinesKeepTheTag()
    {
        m_drive.DebugCmd(DEBUG_START);
        TestSupport::LogCapture log;
        const QString tag = QStringLiteral("LD") + kNul;
        m_sim.queueReply(TestSupport::hex("02010000")); // the simulator itself keeps silent on element -1
        CLabelVariable label;
        label.value = listOf<uchar>({5});
        QCOMPARE(m_drive.WriteVariable(tag, TYPE_UINT8, label).status, 0);
        QCOMPARE(lastFrameHex(), QStringLiteral("0201010016ffffff000800") + "0100010000000000");
        QCOMPARE(driveLines(log),
                 (QStringList{"debug: 写命令 " + m_peer + " tag=" + tag + "  len = 8 msg : " + lastFrameHex(),
                              "debug: 响应 " + m_peer + " tag=" + tag + "  len = 8 msg : 02010000"}));
    }

    void pointWritingKeepsTheTag()
    {
        m_drive.DebugCmd(DEBUG_START);
        TestSupport::LogCapture log;
        const QString tag = QStringLiteral("AO1") + kNul;
        Induction::SWriteInfo info;
        info.tag = tag;
        info.dataType = TYPE_FLOAT;
        info.value = listOf<float>({1.0f});
        QCOMPARE(m_drive.PointWriting(QStringLiteral("plc"), info).status, 0);
        QCOMPARE(lastFrameHex(), QStringLiteral("020101000a0000000004000000803f"));
        QCOMPARE(driveLines(log),
                 (QStringList{"debug: 写命令 " + m_peer + " tag=" + tag + "  len = 4 msg : " + lastFrameHex(),
                              "debug: 响应 " + m_peer + " tag=" + tag + "  len = 4 msg : 02010000"}));
    }
};

QTEST_GUILESS_MAIN(TestLogLines)
#include "tst_log_lines.moc"
