// Calls that a careless host makes on a live drive: none may crash, hang or
// put undefined bytes on the wire, and each says what it refused.

#include "FaultsTestSupport.h"

#include <QtTest>

#include <limits>

using namespace FaultsTest;

class TestFaultGuards : public QObject
{
    Q_OBJECT

    SorvikSimulator m_sim;
    quint16 m_port = 0;
    CDriveBaseClass *m_drive = nullptr;

private slots:
    void initTestCase()
    {
        m_drive = connectedDrive(m_sim, &m_port);
        QVERIFY(m_drive);
    }
    void init() { DriveTest::reset(m_sim); }

    // After DestroyFree there is no transport: every road answers "link not
    // open", plans stay, and a new ConnectDrive picks everything up again.
    void releasedLinkRefusesUntilReconnected()
    {
        const QList<SReadInfo> reads =
            m_drive->InductiveDrive_Read(kConnect, QList<SReadInfo>{{"AI1", TYPE_INT32}}).first();
        const QList<SWriteInfo> writes =
            m_drive->InductiveDrive_Write(kConnect, {{"AO1", TYPE_FLOAT, listOf<float>({2.5f})}}).first();
        QCOMPARE(m_drive->DestroyFree(), 0);
        QCOMPARE(m_drive->DisConnectDrive(), -1);
        QCOMPARE(m_drive->DisConnectDrive(), -1);
        QCOMPARE(m_drive->DestroyFree(), 1);

        QCOMPARE(m_drive->ReadVariable(QStringLiteral("AI1"), TYPE_INT32).status, 9);
        QCOMPARE(m_drive->WriteVariable(QStringLiteral("LW1"), TYPE_INT32, recordOf(listOf<int>({1}))).status, 9);
        QCOMPARE(m_drive->BlockReading(kConnect, reads).first().status, 9);
        QCOMPARE(m_drive->BlockWriting(kConnect, writes).first().status, 9);
        QCOMPARE(m_sim.frameCount(), 0);

        QCOMPARE(m_drive->ConnectDrive(DriveTest::udpText(m_port)), 0);
        QCOMPARE(m_drive->BlockReading(kConnect, reads).first().status, 0);
        QCOMPARE(m_drive->BlockWriting(kConnect, writes).first().status, 0);
        QCOMPARE(m_sim.memory(10, 0, 4), hex("00002040"));
    }

    // A negative pause would turn into a wait of days (and the test into a time-out) if taken as unsigned.
    void negativePausesAreNone()
    {
        for (int interval : {-1, std::numeric_limits<int>::min()}) {
            m_sim.clearFrames();
            const QMap<SReadInfo, CLabelVariable> read =
                m_drive->PointReading(kConnect, {{"AI1", TYPE_INT32}, {"AI2", TYPE_INT32}}, interval);
            const QMap<SWriteInfo, CLabelVariable> written = m_drive->PointWriting(
                kConnect, {{"LW1", TYPE_INT32, listOf<int>({1})}, {"LW2", TYPE_INT32, listOf<int>({2})}}, interval);
            QCOMPARE(read.size(), 2);
            QCOMPARE(read.first().status, 0);
            QCOMPARE(written.size(), 2);
            QCOMPARE(written.last().status, 0);
            QCOMPARE(m_sim.frameCount(), 4);
        }
    }

    // Fewer elements than the count asks for would leave the end of the frame
    // undefined: refused as a length on every road, nothing sent.
    void valueListsShorterThanTheirCount()
    {
        const SWriteInfo empty{"LW1", TYPE_INT32, listOf<int>({})};
        QCOMPARE(m_drive->WriteVariable(QStringLiteral("LW1"), TYPE_INT32, recordOf(listOf<int>({1, 2})), 3).status, 4);
        QCOMPARE(m_drive->WriteVariable(QStringLiteral("LW1"), TYPE_INT32, recordOf(empty.value)).status, 4);
        QCOMPARE(m_drive->PointWriting(kConnect, empty).status, 4);
        QVERIFY(m_drive->InductiveDrive_Write(kConnect, {empty}).isEmpty());
        QCOMPARE(m_drive->GetCannotInductiveDrive_Write(kConnect), QList<SWriteInfo>{empty});
        QCOMPARE(m_sim.frameCount(), 0);
    }

    // Values a host reads and then divides: a zero divisor gives 0 for
    // integers and NaN or an infinity for floats, never a trap.
    void divisionOfReadValuesByZero()
    {
        QVERIFY(m_sim.presetTag(QStringLiteral("LW1=int32:-2147483648,7,-1,0")));
        const CLabelVariable dividends = m_drive->ReadVariable(QStringLiteral("LW1"), TYPE_INT32, 2);
        const CLabelVariable divisors = m_drive->ReadVariable(QStringLiteral("LW3"), TYPE_INT32, 2);
        // The smallest int divided by -1 wraps around to itself.
        QCOMPARE(SorvikValues::listFrom<int>((dividends / divisors).value), QList<int>({-2147483647 - 1, 0}));
        const CLabelVariable floats = m_drive->ReadVariable(QStringLiteral("AO1"), TYPE_FLOAT, 1);
        QVERIFY(qIsNaN(SorvikValues::listFrom<float>((floats / floats).value).value(0)));
    }
};

QTEST_GUILESS_MAIN(TestFaultGuards)
#include "tst_fault_guards.moc"
