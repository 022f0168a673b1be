// Faults on a serial line, through a pseudo-terminal: a controller that falls
// silent and comes back, replies of another identity, a reply that comes
// after its request gave up, and a terminal that vanishes under the drive.
// Every exchange here costs at least 100 ms, so the cases are few.

#include "FaultFixture.h"

#include <QtTest>

using namespace FaultFixture;
using DriveTest::listOf;

namespace {

QString serialText(const QString &path)
{
    return path + QStringLiteral(",9600,8,1,N");
}

} // namespace

class TestFaultSerial : public QObject
{
    Q_OBJECT

    SorvikSimulator m_sim;
    CDriveBaseClass *m_drive = nullptr;

    CLabelVariable readLw(int number) { return m_drive->ReadVariable(QStringLiteral("LW%1").arg(number), TYPE_INT32); }

private slots:
    void initTestCase();
    void init();
    void silentAndBack();
    void wrongIdentity();
    void lateReplyAnswersTheNextRequest();
    void terminalVanishesAndReconnect();
};

void TestFaultSerial::initTestCase()
{
    const QString path = m_sim.startPty();
    QVERIFY(!path.isEmpty());
    m_drive = newDrive();
    QCOMPARE(m_drive->ConnectDrive(serialText(path)), 0);
}

void TestFaultSerial::init()
{
    m_sim.setFaults(SimFaults());
    QVERIFY(m_sim.presetTag(QStringLiteral("LW1=int32:11,22")));
    m_sim.clearFrames();
}

void TestFaultSerial::silentAndBack()
{
    m_sim.setFaults(silent());
    CLabelVariable label;
    label.value = listOf<int>({33});
    QCOMPARE(readLw(1).status, 8);
    QCOMPARE(m_drive->WriteVariable(QStringLiteral("LW2"), TYPE_INT32, label).status, 8);

    m_sim.setFaults(SimFaults());
    QCOMPARE(m_drive->WriteVariable(QStringLiteral("LW2"), TYPE_INT32, label).status, 0);
    const CLabelVariable back = readLw(2);
    QCOMPARE(back.status, 0);
    COMPARE_VALUE(TYPE_INT32, back.value, listOf<int>({33}));
    QCOMPARE(m_sim.frameCount(), 4);
}

void TestFaultSerial::wrongIdentity()
{
    m_sim.setFaults(FaultFixture::wrongIdentity());
    QCOMPARE(readLw(1).status, 8);
    CLabelVariable label;
    label.value = listOf<int>({44});
    QCOMPARE(m_drive->WriteVariable(QStringLiteral("LW2"), TYPE_INT32, label).status, 0); // any reply counts
}

// The late bytes wait in the port and are collected during the next exchange.
void TestFaultSerial::lateReplyAnswersTheNextRequest()
{
    m_sim.setFaults(late(600)); // past the ~450 ms that a serial request waits
    QCOMPARE(readLw(1).status, 8);
    m_sim.setFaults(silent());
    const CLabelVariable shifted = readLw(2);
    QCOMPARE(shifted.status, 0);
    COMPARE_VALUE(TYPE_INT32, shifted.value, listOf<int>({11}));

    m_sim.setFaults(SimFaults());
    const CLabelVariable paired = readLw(2);
    QCOMPARE(paired.status, 0);
    COMPARE_VALUE(TYPE_INT32, paired.value, listOf<int>({22}));
}

// Nothing reconnects by itself: requests fail while the terminal is gone, and
// a new connection text brings the same drive back.
void TestFaultSerial::terminalVanishesAndReconnect()
{
    m_sim.stop();
    QCOMPARE(readLw(1).status, 8);

    const QString path = m_sim.startPty();
    QVERIFY(!path.isEmpty());
    QCOMPARE(m_drive->ConnectDrive(serialText(path)), 0);
    const CLabelVariable back = readLw(1);
    QCOMPARE(back.status, 0);
    COMPARE_VALUE(TYPE_INT32, back.value, listOf<int>({11}));
}

QTEST_GUILESS_MAIN(TestFaultSerial)
#include "tst_fault_serial.moc"
