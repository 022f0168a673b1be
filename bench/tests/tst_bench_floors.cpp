// The floors do the drive's exchange and nothing else: the same request
// bytes on the wire, the same reply back, over UDP, a terminal and Modbus.

#include "Controllers.h"
#include "DriveLoader.h"
#include "Loopback.h"
#include "QtSerialClient.h"
#include "QtUdpClient.h"
#include "RawPtyClient.h"
#include "RawUdpClient.h"
#include "ReadFrame.h"

#include "host/CDriveBaseClass.h"

#ifdef SORVIK_HAVE_MODBUS
#include "ModbusPeer.h"
#endif

#include <QtTest>

namespace {
constexpr int kBytes = 160;
}

class BenchFloorsTest : public QObject
{
    Q_OBJECT

private:
    DriveLoader m_loader;
    // The reply the simulator gives to the 160-byte read of NAI1.
    static QByteArray expectedReply() { return QByteArray::fromHex("01010000") + BenchTags::naiFloats().left(kBytes); }

private slots:
    void initTestCase()
    {
        QString why;
        QVERIFY2(m_loader.load(QStringLiteral(SORVIK_LIBRARY_FILE), &why), qPrintable(why));
    }

    void floorRequestIsTheDrivesFrame()
    {
        UdpController controller(0);
        QString why;
        QVERIFY2(controller.start(&why), qPrintable(why));
        CDriveBaseClass *drive = connectedDrive(m_loader, controller.connectText(), &why);
        QVERIFY2(drive, qPrintable(why));
        controller.sim.clearFrames();
        const CLabelVariable record = drive->ReadVariable(BenchTags::naiTag(1), TYPE_FLOAT, kBytes / 4);
        releaseDrive(drive);
        QCOMPARE(record.status, 0);
        QCOMPARE(SorvikValues::listFrom<float>(record.value).value(39), 10.0f);
        QCOMPARE(controller.sim.frames(), QList<QByteArray>{readRequest(BenchTags::kNaiArea, 0, kBytes)});
    }

    void udpFloorsGetTheDrivesReply()
    {
        UdpController controller(1);
        QString why;
        QVERIFY2(controller.start(&why), qPrintable(why));
        const QByteArray request = readRequest(BenchTags::kNaiArea, 0, kBytes);
        RawUdpClient raw;
        QVERIFY(raw.open(controller.host, controller.host, controller.port));
        const int rawSize = raw.roundTrip(request);
        QCOMPARE(raw.reply(rawSize), expectedReply());
        QtUdpClient qt;
        QVERIFY(qt.open(controller.host, controller.host, controller.port));
        QCOMPARE(qt.roundTrip(request), expectedReply().size());
        QCOMPARE(qt.reply(), expectedReply());
        QCOMPARE(controller.sim.counters().reads, 2);
    }

    void udpFloorsReportALostReply()
    {
        UdpController controller(2);
        QString why;
        QVERIFY2(controller.start(&why), qPrintable(why));
        SimFaults silent;
        silent.silent = true;
        controller.sim.setFaults(silent);
        const QByteArray request = readRequest(BenchTags::kNaiArea, 0, kBytes);
        RawUdpClient raw;
        QVERIFY(raw.open(controller.host, controller.host, controller.port));
        QCOMPARE(raw.roundTrip(request), -1);
        QtUdpClient qt;
        QVERIFY(qt.open(controller.host, controller.host, controller.port));
        QCOMPARE(qt.roundTrip(request, 50), -1);
    }

    void terminalFloorsGetTheDrivesReply()
    {
        SorvikSimulator sim;
        const QString path = sim.startPty();
        QVERIFY(!path.isEmpty());
        sim.preset(BenchTags::kNaiArea, 0, BenchTags::naiFloats());
        const QByteArray request = readRequest(BenchTags::kNaiArea, 0, kBytes);
        RawPtyClient raw;
        QVERIFY(raw.open(path));
        const int size = raw.roundTrip(request, expectedReply().size());
        QCOMPARE(raw.reply(size), expectedReply());
        QCOMPARE(sim.frames(), QList<QByteArray>{request});

        SorvikSimulator other;
        const QString otherPath = other.startPty();
        other.preset(BenchTags::kNaiArea, 0, BenchTags::naiFloats());
        QtSerialClient qt;
        QVERIFY(qt.open(otherPath));
        QCOMPARE(qt.roundTrip(request, expectedReply().size()), expectedReply().size());
    }

    void modbusPeerReadsItsRegisters()
    {
#ifndef SORVIK_HAVE_MODBUS
        QSKIP("libmodbus was not found when this was built");
#else
        ModbusPeer peer;
        QString why;
        QVERIFY2(peer.start(loopbackHost(3).toString(), 80, &why), qPrintable(why));
        peer.setRegister(79, 0xBEEF);
        uint16_t registers[80] = {};
        QCOMPARE(peer.readRegisters(80, registers), 80);
        QCOMPARE(registers[79], uint16_t(0xBEEF));
        QCOMPARE(registers[0], uint16_t(0));
#endif
    }

    void addressesStayOnLoopback()
    {
        const QByteArray given = qgetenv("SORVIK_BENCH_HOST");
        qputenv("SORVIK_BENCH_HOST", "127.0.12.7");
        QCOMPARE(loopbackHost(2), QHostAddress(QStringLiteral("127.0.12.9")));
        qputenv("SORVIK_BENCH_HOST", "192.168.0.10");
        QCOMPARE(loopbackHost(0), QHostAddress(QStringLiteral("127.0.9.1")));
        qputenv("SORVIK_BENCH_HOST", "not an address");
        QCOMPARE(loopbackHost(1), QHostAddress(QStringLiteral("127.0.9.2")));
        qputenv("SORVIK_BENCH_HOST", given);
    }
};

QTEST_GUILESS_MAIN(BenchFloorsTest)
#include "tst_bench_floors.moc"
