// Faults on a serial line, through a pseudo-terminal. Every exchange here
// costs at least 100 ms, so the cases are few.

#include "FaultsTestSupport.h"

#include <QtTest>

using namespace FaultsTest;

class TestFaultSerial : public QObject
{
    Q_OBJECT

    SorvikSimulator m_sim;
    CDriveBaseClass *m_drive = nullptr;

    QPair<int, int> readLw(int number) { return readInt(m_drive, QStringLiteral("LW%1").arg(number)); }
    int writeLw2(int value)
    {
        return m_drive->WriteVariable(QStringLiteral("LW2"), TYPE_INT32, recordOf(listOf<int>({value}))).status;
    }
    bool connectToPty()
    {
        const QString path = m_sim.startPty();
        return !path.isEmpty() && m_drive->ConnectDrive(path + QStringLiteral(",9600,8,1,N")) == 0;
    }

private slots:
    void initTestCase()
    {
        m_drive = newDrive();
        QVERIFY(connectToPty());
    }
    void init()
    {
        m_sim.setFaults(SimFaults());
        QVERIFY(m_sim.presetTag(QStringLiteral("LW1=int32:11,22")));
        m_sim.clearFrames();
    }

    void silentOrForeignAndBack()
    {
        m_sim.setFaults(fault(&SimFaults::silent, true));
        QCOMPARE(readLw(1).first, 8);
        QCOMPARE(writeLw2(33), 8);
        m_sim.setFaults(fault(&SimFaults::wrongIdentityShare, 1.0));
        QCOMPARE(readLw(1).first, 8);
        QCOMPARE(writeLw2(33), 0); // any reply counts

        m_sim.setFaults(SimFaults());
        QCOMPARE(readLw(2), qMakePair(0, 33));
        QCOMPARE(m_sim.frameCount(), 5);
    }

    // The late bytes wait in the port and are collected during the next exchange.
    void lateReplyAnswersTheNextRequest()
    {
        m_sim.setFaults(fault(&SimFaults::delayMs, 600)); // past the ~450 ms that a serial request waits
        QCOMPARE(readLw(1).first, 8);
        m_sim.setFaults(fault(&SimFaults::silent, true));
        QCOMPARE(readLw(2), qMakePair(0, 11));

        m_sim.setFaults(SimFaults());
        QCOMPARE(readLw(2), qMakePair(0, 22));
    }

    // Nothing reconnects by itself: requests fail while the terminal is gone,
    // and a new connection text brings the same drive back.
    void terminalVanishesAndReconnect()
    {
        m_sim.stop();
        QCOMPARE(readLw(1).first, 8);
        QVERIFY(connectToPty());
        QCOMPARE(readLw(1), qMakePair(0, 11));
    }
};

QTEST_GUILESS_MAIN(TestFaultSerial)
#include "tst_fault_serial.moc"
