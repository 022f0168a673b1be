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
        QCOMPARE(m_drive.DebugCmd(DEBUG_STOP), QStringLiteral("StopDebug"));
    }

    // Warnings come also without debug. A tag text without a number reads element -1 (address ff ff ff).
    void readWarningsKeepTheTag_data()
    {
        QTest::addColumn<QString>("tag");
        QTest::addColumn<QByteArray>("reply");  // null: the controller stays silent
        QTest::addColumn<QStringList>("lines"); // PEER and TAG stand for the peer and the tag
        const QString identity = "warning: lib[Sorvik]返回的序号错误 PEER  TAG len = 2 msg : ";
        const QString empty = "warning: lib[Sorvik]返回的报文长度为0 PEER  TAG len = 2 msg : ";
        const QString nul = QStringLiteral("HDS") + kNul;
        QTest::newRow("empty datagram, taken as none") << nul << QByteArray("") << QStringList{empty};
        QTest::newRow("wrong identity") << nul << TestSupport::hex("0102")
                                        << QStringList{identity + "0102", empty + "0102"};
        QTest::newRow("lost, a lone surrogate")
            << QStringLiteral("HDS") + kLoneSurrogate + QStringLiteral("x") << QByteArray() << QStringList{empty};
    }
    void readWarningsKeepTheTag()
    {
        QFETCH(QString, tag);
        QFETCH(QByteArray, reply);
        QFETCH(QStringList, lines);
        if (reply.isNull()) {
            SimFaults silent;
            silent.silent = true;
            m_sim.setFaults(silent);
        } else {
            m_sim.queueReply(reply);
        }
        TestSupport::LogCapture log;
        QCOMPARE(m_drive.ReadVariable(tag, TYPE_UINT16, 1).status, 8);
        QCOMPARE(lastFrameHex(), QStringLiteral("0101010013ffffff000200"));
        QCOMPARE(driveLines(log), lines.replaceInStrings("PEER", m_peer).replaceInStrings("TAG", tag));
    }

    void readDebugLinesKeepALoneSurrogate()
    {
        m_sim.presetTag("AI1=int32:42");
        QCOMPARE(m_drive.DebugCmd(DEBUG_START), QStringLiteral("StartDebug"));
        TestSupport::LogCapture log;
        const QString tag = QStringLiteral("AI1") + kLoneSurrogate;
        QCOMPARE(m_drive.ReadVariable(tag, TYPE_INT32, 1).status, 0);
        QCOMPARE(driveLines(log),
                 (QStringList{"debug: lib[Sorvik]读命令 " + m_peer + "  " + tag + " len = 4 msg : " + lastFrameHex(),
                              "debug: lib[Sorvik]读响应 " + m_peer + "  " + tag + " len = 4 msg : 010100002a000000"}));
    }

    // One write through the one-tag path, one through the engine's point writing.
    void writeDebugLinesKeepTheTag_data()
    {
        QTest::addColumn<bool>("pointWriting");
        QTest::addColumn<QString>("tag");
        QTest::addColumn<QString>("frame");
        QTest::addColumn<int>("length");
        QTest::newRow("UInt8 to LD") << false << QStringLiteral("LD") + kNul << "0201010016ffffff0008000100010000000000"
                                     << 8;
        QTest::newRow("point writing") << true << QStringLiteral("AO1") + kNul << "020101000a0000000004000000803f" << 4;
    }
    void writeDebugLinesKeepTheTag()
    {
        QFETCH(bool, pointWriting);
        QFETCH(QString, tag);
        QFETCH(QString, frame);
        QFETCH(int, length);
        m_drive.DebugCmd(DEBUG_START);
        TestSupport::LogCapture log;
        m_sim.queueReply(TestSupport::hex("02010000")); // the simulator itself keeps silent on element -1
        const CLabelVariable record =
            pointWriting ? m_drive.PointWriting(QStringLiteral("plc"), {tag, TYPE_FLOAT, listOf<float>({1.0f})})
                         : m_drive.WriteVariable(tag, TYPE_UINT8, DriveTest::recordOf(listOf<uchar>({5})));
        QCOMPARE(record.status, 0);
        QCOMPARE(lastFrameHex(), frame);
        const QString head = QStringLiteral(" %1 tag=%2  len = %3 msg : ").arg(m_peer, tag).arg(length);
        QCOMPARE(driveLines(log), (QStringList{"debug: 写命令" + head + frame, "debug: 响应" + head + "02010000"}));
    }
};

QTEST_GUILESS_MAIN(TestLogLines)
#include "tst_log_lines.moc"
