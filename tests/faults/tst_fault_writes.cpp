// Writes of one tag and of planned blocks while the controller's replies go
// wrong on the wire. Any reply in time counts as taken; without one the write
// fails, a failed block stays in the plan, and its retry sends the very bytes
// that were planned, which the controller then holds.

#include "FaultFixture.h"

#include <QtTest>

using namespace Induction;
using namespace FaultFixture;
using DriveTest::listOf;
using TestSupport::hex;

namespace {

const QString kConnect = QStringLiteral("1");

QByteArray bytesOf(const QVariant &data)
{
    QByteArray bytes;
    for (char byte : SorvikValues::listFrom<char>(data))
        bytes.append(byte);
    for (bool point : SorvikValues::listFrom<bool>(data))
        bytes.append(point ? '\1' : '\0');
    return bytes;
}

} // namespace

class TestFaultWrites : public QObject
{
    Q_OBJECT

    SorvikSimulator m_sim;
    quint16 m_port = 0;
    CDriveBaseClass *m_drive = nullptr;

    static void faultRows();
    QList<QList<SWriteInfo>> planBlocks();
    void writeBlock(const QList<SWriteInfo> &key, int status);

private slots:
    void initTestCase();
    void init();
    void oneTagWrite_data() { faultRows(); }
    void oneTagWrite();
    void blockWrite_data() { faultRows(); }
    void blockWrite();
    void lateRepliesCrossBetweenReadsAndWrites();
    void controllerStoppedAndBack();
};

void TestFaultWrites::initTestCase()
{
    m_drive = connectedDrive(m_sim, &m_port);
    QVERIFY(m_drive);
}

void TestFaultWrites::init()
{
    m_sim.setFaults(SimFaults());
    m_sim.clearMemory();
    m_sim.clearFrames();
}

// The content of a write reply is not judged; only its absence fails a write.
void TestFaultWrites::faultRows()
{
    QTest::addColumn<SimFaults>("faults");
    QTest::addColumn<int>("status");

    QTest::newRow("dropped") << dropped() << 8;
    QTest::newRow("cut to nothing") << cutTo(0) << 8;
    QTest::newRow("wrong identity") << wrongIdentity() << 0;
    QTest::newRow("cut to one byte") << cutTo(1) << 0;
    QTest::newRow("over-long") << overlong() << 0;
    QTest::newRow("empty datagram first") << emptyDatagramFirst() << 0;
}

void TestFaultWrites::oneTagWrite()
{
    QFETCH(SimFaults, faults);
    QFETCH(int, status);
    m_sim.setFaults(faults);

    CLabelVariable label;
    label.value = listOf<int>({7, -7});
    const CLabelVariable record = m_drive->WriteVariable(QStringLiteral("LW3"), TYPE_INT32, label, 2);
    QCOMPARE(record.status, status);
    QCOMPARE(record.time.isNull(), status != 0);
    COMPARE_VALUE(TYPE_INT32, record.value, label.value); // what the caller gave stays
    QCOMPARE(m_sim.frameCount(), 1);                      // nothing is retried by itself

    if (status != 0) {
        m_sim.setFaults(SimFaults());
        QCOMPARE(m_drive->WriteVariable(QStringLiteral("LW3"), TYPE_INT32, record, 2).status, 0);
        QCOMPARE(m_sim.frames().at(1), m_sim.frames().at(0));
    }
    QCOMPARE(m_sim.memory(24, 8, 8), hex("07000000f9ffffff"));
}

// A byte block of three floats and a bit block of three points.
QList<QList<SWriteInfo>> TestFaultWrites::planBlocks()
{
    const QList<SWriteInfo> infos = {
        {"AO1", TYPE_FLOAT, listOf<float>({1.5f})}, {"AO2", TYPE_FLOAT, listOf<float>({-2.0f})},
        {"AO3", TYPE_FLOAT, listOf<float>({1e6f})}, {"DO1", TYPE_BOOL, listOf<bool>({true})},
        {"DO2", TYPE_BOOL, listOf<bool>({false})},  {"DO3", TYPE_BOOL, listOf<bool>({true})}};
    return m_drive->InductiveDrive_Write(kConnect, infos);
}

void TestFaultWrites::writeBlock(const QList<SWriteInfo> &key, int status)
{
    const SWriteGroup planned = m_drive->GetInductiveDrive_Write(kConnect, key);
    const Place place = placeOf(planned.areaText + planned.start.toString());
    const QByteArray bytes = bytesOf(planned.data);
    const int frames = m_sim.frameCount();

    const QMap<SWriteInfo, CLabelVariable> results = m_drive->BlockWriting(kConnect, key);
    QCOMPARE(results.size(), key.size());
    for (const CLabelVariable &record : results)
        QCOMPARE(record.status, status);
    QCOMPARE(m_sim.frameCount(), frames + 1);
    QCOMPARE(m_drive->GetInductiveDrive_Write(kConnect).contains(key), status != 0);

    if (status != 0) {
        m_sim.setFaults(SimFaults());
        m_sim.preset(place.area, place.address, QByteArray(bytes.size(), '\0')); // it may have taken the lost write
        QCOMPARE(m_drive->BlockWriting(kConnect, key).first().status, 0);
        QCOMPARE(m_sim.frames().last(), m_sim.frames().at(frames));
        QVERIFY(!m_drive->GetInductiveDrive_Write(kConnect).contains(key));
    }
    QCOMPARE(m_sim.memory(place.area, place.address, bytes.size()), bytes);
}

void TestFaultWrites::blockWrite()
{
    QFETCH(SimFaults, faults);
    QFETCH(int, status);
    const QList<QList<SWriteInfo>> keys = planBlocks();
    QCOMPARE(keys.size(), 2);
    for (const QList<SWriteInfo> &key : keys) {
        m_sim.setFaults(faults);
        writeBlock(key, status);
        if (QTest::currentTestFailed())
            return;
    }
    QCOMPARE(m_sim.memory(10, 0, 12), hex("0000c03f000000c000247449"));
}

// A write reply that comes late fails the next read, which finds another
// identity in it; a read reply that comes late is taken as the next write's.
void TestFaultWrites::lateRepliesCrossBetweenReadsAndWrites()
{
    CLabelVariable label;
    label.value = listOf<int>({5});
    m_sim.setFaults(late(500));
    QCOMPARE(m_drive->WriteVariable(QStringLiteral("LW1"), TYPE_INT32, label, 1).status, 8);
    QCOMPARE(m_sim.memory(24, 0, 4), hex("05000000")); // taken all the same: the caller cannot know

    m_sim.setFaults(silent());
    TestSupport::LogCapture log;
    QCOMPARE(m_drive->ReadVariable(QStringLiteral("LW1"), TYPE_INT32, 1).status, 8);
    const QStringList warnings = log.texts(QtWarningMsg);
    QCOMPARE(warnings.size(), 2);
    QVERIFY(warnings.at(0).startsWith(QStringLiteral("lib[Sorvik]返回的序号错误 ")));
    QVERIFY(warnings.at(0).endsWith(QStringLiteral("msg : 02010000")));

    m_sim.setFaults(late(500));
    QCOMPARE(m_drive->ReadVariable(QStringLiteral("LW1"), TYPE_INT32, 1).status, 8);
    m_sim.setFaults(silent());
    QCOMPARE(m_drive->WriteVariable(QStringLiteral("LW1"), TYPE_INT32, label, 1).status, 0);
    QCOMPARE(m_sim.frameCount(), 4);
}

// While the controller is away every write fails and every block stays
// planned; once it is back, the same drive writes them without reconnecting.
void TestFaultWrites::controllerStoppedAndBack()
{
    const QList<QList<SWriteInfo>> keys = planBlocks();
    m_sim.stop();
    CLabelVariable label;
    label.value = listOf<int>({5});
    QCOMPARE(m_drive->WriteVariable(QStringLiteral("LW1"), TYPE_INT32, label, 1).status, 8);
    for (const QList<SWriteInfo> &key : keys)
        QCOMPARE(m_drive->BlockWriting(kConnect, key).first().status, 8);
    QCOMPARE(m_drive->GetInductiveDrive_Write(kConnect).size(), keys.size());

    QCOMPARE(m_sim.startUdp(TestSupport::testHost(), m_port), m_port);
    for (const QList<SWriteInfo> &key : keys) {
        writeBlock(key, 0);
        if (QTest::currentTestFailed())
            return;
    }
    QVERIFY(m_drive->GetInductiveDrive_Write(kConnect).isEmpty());
}

QTEST_GUILESS_MAIN(TestFaultWrites)
#include "tst_fault_writes.moc"
