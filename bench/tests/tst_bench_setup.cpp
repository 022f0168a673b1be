// The set-up the rows share: the controller stand-ins, connected drives and
// what the table says of the machine.

#include "Controllers.h"
#include "DriveLoader.h"
#include "Loopback.h"
#include "Machine.h"

#include "host/CDriveBaseClass.h"

#include <QThread>
#include <QtTest>

#include <cstring>

class BenchSetupTest : public QObject
{
    Q_OBJECT

private:
    DriveLoader m_loader;

private slots:
    void initTestCase()
    {
        QString why;
        QVERIFY2(m_loader.load(QStringLiteral(SORVIK_LIBRARY_FILE), &why), qPrintable(why));
    }

    void naiFloatsAreAQuarterOfTheirNumber()
    {
        const QByteArray bytes = BenchTags::naiFloats();
        QCOMPARE(bytes.size(), BenchTags::kFloatCount * 4);
        float last = 0;
        std::memcpy(&last, bytes.constData() + bytes.size() - 4, 4);
        QCOMPARE(last, 250.0f);
        QCOMPARE(BenchTags::naiTag(1000), QStringLiteral("NAI1000"));
    }

    void controllerServesItsOwnAddress()
    {
        UdpController controller(0);
        QString why;
        QVERIFY2(controller.start(&why), qPrintable(why));
        QCOMPARE(controller.host, loopbackHost(0));
        QCOMPARE(controller.connectText(),
                 QStringLiteral("%1:%2").arg(loopbackHost(0).toString()).arg(controller.port));
        QCOMPARE(controller.sim.memory(BenchTags::kNaiArea, 0, 8), BenchTags::naiFloats().left(8));
    }

    void aDriveWithoutAControllerSaysWhy()
    {
        UdpController controller(1);
        QString why;
        QVERIFY2(controller.start(&why), qPrintable(why));
        const QString text = controller.connectText();
        controller.sim.stop(); // nobody answers the handshake now
        QVERIFY(!connectedDrive(m_loader, text, &why));
        QCOMPARE(why, QStringLiteral("ConnectDrive(%1) answered -2").arg(text));
        releaseDrive(nullptr); // harmless
    }

    void aConnectedDriveReadsTheFloats()
    {
        UdpController controller(2);
        QString why;
        QVERIFY2(controller.start(&why), qPrintable(why));
        CDriveBaseClass *drive = connectedDrive(m_loader, controller.connectText(), &why);
        QVERIFY2(drive, qPrintable(why));
        const CLabelVariable record = drive->ReadVariable(BenchTags::naiTag(3), TYPE_FLOAT, 2);
        releaseDrive(drive);
        QCOMPARE(record.status, 0);
        QCOMPARE(SorvikValues::listFrom<float>(record.value), (QList<float>{0.75f, 1.0f}));
        // Released: its address and port are free for the next drive.
        CDriveBaseClass *again = connectedDrive(m_loader, controller.connectText(), &why);
        QVERIFY2(again, qPrintable(why));
        releaseDrive(again);
    }

    void machineFacts()
    {
        QVERIFY(Machine::cores() >= 1);
        QVERIFY(!Machine::cpuModel().isEmpty());
        bool number = false;
        Machine::loadAverage().toDouble(&number);
        QVERIFY(number);
        const Machine::CoreTicks before = Machine::coreTicks();
        QThread::msleep(50);
        const Machine::CoreTicks after = Machine::coreTicks();
        QVERIFY(after.total > before.total);
        QVERIFY(after.busy >= before.busy);
        QVERIFY(after.busy - before.busy <= after.total - before.total);
    }
};

QTEST_GUILESS_MAIN(BenchSetupTest)
#include "tst_bench_setup.moc"
