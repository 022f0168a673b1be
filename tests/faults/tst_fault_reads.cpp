// Reads of one tag and of planned blocks while the controller's replies go
// wrong on the wire: each fault ends in the status and the data that the
// drive promises, and a late reply shifts the pairing exactly as far as it must.

#include "FaultFixture.h"

#include <QtEndian>
#include <QtTest>

using namespace Induction;
using namespace FaultFixture;
using DriveTest::listOf;

namespace {

const QString kConnect = QStringLiteral("1");

// LW1..LW4 as one-tag reads and as one byte block of 16 bytes; DI1..DI16 as
// one bit block of 16 points. Every data byte differs from zero, so that a
// lost byte shows.
const QList<int> kWords = {0x11223344, -2, 0x55667788, 0x7fabcdef};
const QList<bool> kPoints = {true, true, false, true,  true, true, false, true,
                             true, true, true,  false, true, true, true,  true};
constexpr int kWordBytes = 16;

// The values that `count` data bytes of a reply give: zeros past the bytes that came.
QList<int> wordsFrom(int kept)
{
    QList<int> words;
    for (int i = 0; i < kWords.size(); ++i) {
        quint32 word = 0;
        for (int k = 0; k < 4; ++k)
            if (4 * i + k < kept)
                word |= (quint32(kWords.at(i)) >> (8 * k) & 0xFF) << (8 * k);
        words << int(word);
    }
    return words;
}

} // namespace

class TestFaultReads : public QObject
{
    Q_OBJECT

    SorvikSimulator m_sim;
    quint16 m_port = 0;
    CDriveBaseClass *m_drive = nullptr;
    QList<SReadInfo> m_wordKey;
    QList<SReadInfo> m_pointKey;

    static void faultRows();

private slots:
    void initTestCase();
    void init();
    void oneTagRead_data() { faultRows(); }
    void oneTagRead();
    void byteBlock_data() { faultRows(); }
    void byteBlock();
    void bitBlock_data() { faultRows(); }
    void bitBlock();
    void lateReplyAnswersTheNextRequest();
    void extraDatagramsShiftByOneAtMost();
    void controllerStoppedAndBack();
};

void TestFaultReads::initTestCase()
{
    m_drive = connectedDrive(m_sim, &m_port);
    QVERIFY(m_drive);
    QList<SReadInfo> words, points;
    for (int i = 1; i <= kWords.size(); ++i)
        words << SReadInfo{QStringLiteral("LW%1").arg(i), TYPE_INT32};
    for (int i = 1; i <= kPoints.size(); ++i)
        points << SReadInfo{QStringLiteral("DI%1").arg(i), TYPE_BOOL};
    const QList<QList<SReadInfo>> keys = m_drive->InductiveDrive_Read(kConnect, words + points);
    QCOMPARE(keys.size(), 2);
    m_pointKey = keys.at(0);
    m_wordKey = keys.at(1);
    QCOMPARE(m_drive->GetInductiveDrive_Read(kConnect, m_wordKey).length, kWordBytes);
}

void TestFaultReads::init()
{
    m_sim.setFaults(SimFaults());
    QString values;
    for (int word : kWords)
        values += QString::number(word) + QLatin1Char(',');
    QVERIFY(m_sim.presetTag(QStringLiteral("LW1=int32:") + values.chopped(1)));
    QString points;
    for (bool point : kPoints)
        points += point ? QStringLiteral("1,") : QStringLiteral("0,");
    QVERIFY(m_sim.presetTag(QStringLiteral("DI1=bool:") + points.chopped(1)));
    m_sim.clearFrames();
}

// A fault, the status the caller sees, and how many data bytes of the reply
// arrive (-1 all of them). Short replies are no error: what is missing reads as zero.
void TestFaultReads::faultRows()
{
    QTest::addColumn<SimFaults>("faults");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("kept");

    QTest::newRow("dropped") << dropped() << 8 << 0;
    QTest::newRow("wrong identity") << wrongIdentity() << 8 << 0;
    QTest::newRow("cut to nothing") << cutTo(0) << 8 << 0; // an empty datagram is no reply
    QTest::newRow("cut to one byte") << cutTo(1) << 8 << 0;
    QTest::newRow("cut to the head") << cutTo(4) << 0 << 0;
    QTest::newRow("cut inside the second element") << cutTo(4 + 6) << 0 << 6;
    QTest::newRow("padded to 1472") << padded() << 0 << -1;
    QTest::newRow("over-long") << overlong() << 0 << -1;
    QTest::newRow("empty datagram first") << emptyDatagramFirst() << 0 << -1;
}

void TestFaultReads::oneTagRead()
{
    QFETCH(SimFaults, faults);
    QFETCH(int, status);
    QFETCH(int, kept);
    m_sim.setFaults(faults);
    TestSupport::LogCapture log;

    const CLabelVariable record = m_drive->ReadVariable(QStringLiteral("LW1"), TYPE_INT32, kWords.size());
    QCOMPARE(record.status, status);
    QCOMPARE(m_sim.frameCount(), 1); // nothing is retried
    if (status == 0) {
        QVERIFY(!record.time.isNull());
        QVERIFY(log.texts(QtWarningMsg).isEmpty());
        COMPARE_VALUE(TYPE_INT32, record.value, QVariant::fromValue(kept < 0 ? kWords : wordsFrom(kept)));
    } else {
        QVERIFY(record.time.isNull());
        QVERIFY(!record.value.isValid());
        QVERIFY(!log.texts(QtWarningMsg).isEmpty());
        QVERIFY(log.texts(QtWarningMsg).last().startsWith(QStringLiteral("lib[Sorvik]返回的报文长度为0 ")));
    }
}

void TestFaultReads::byteBlock()
{
    QFETCH(SimFaults, faults);
    QFETCH(int, status);
    QFETCH(int, kept);
    m_sim.setFaults(faults);

    // A failed byte block still gives every tag a record: the status tells, never the value.
    const QMap<SReadInfo, CLabelVariable> records = m_drive->BlockReading(kConnect, m_wordKey);
    QCOMPARE(m_sim.frameCount(), 1);
    QCOMPARE(records.keys(), m_wordKey);
    const QList<int> words = status != 0 ? wordsFrom(0) : kept < 0 ? kWords : wordsFrom(kept);
    for (int i = 0; i < m_wordKey.size(); ++i) {
        const CLabelVariable record = records.value(m_wordKey.at(i));
        QCOMPARE(record.status, status);
        QCOMPARE(record.time.isNull(), status != 0);
        COMPARE_VALUE(TYPE_INT32, record.value, listOf<int>({words.at(i)}));
    }
}

void TestFaultReads::bitBlock()
{
    QFETCH(SimFaults, faults);
    QFETCH(int, status);
    QFETCH(int, kept);
    m_sim.setFaults(faults);

    // A failed bit block shows as missing entries.
    const QMap<SReadInfo, CLabelVariable> records = m_drive->BlockReading(kConnect, m_pointKey);
    QCOMPARE(m_sim.frameCount(), 1);
    if (status != 0) {
        QVERIFY(records.isEmpty());
        return;
    }
    QCOMPARE(records.size(), kPoints.size());
    for (int i = 0; i < kPoints.size(); ++i) {
        const CLabelVariable record = records.value({QStringLiteral("DI%1").arg(i + 1), TYPE_BOOL});
        QCOMPARE(record.status, 0);
        COMPARE_VALUE(TYPE_BOOL, record.value, listOf<bool>({(kept < 0 || i < kept) && kPoints.at(i)}));
    }
}

// Nothing drains the socket before a request: a reply that comes after its
// request gave up is taken by the next request, whatever that one asked.
// The pairing comes right again once a request goes unanswered.
void TestFaultReads::lateReplyAnswersTheNextRequest()
{
    m_sim.setFaults(late(500)); // past the ~350 ms that a request waits, inside the next one
    QCOMPARE(m_drive->ReadVariable(QStringLiteral("LW1"), TYPE_INT32, 1).status, 8);

    m_sim.setFaults(silent()); // the second request gets no reply of its own
    const CLabelVariable shifted = m_drive->ReadVariable(QStringLiteral("LW2"), TYPE_INT32, 1);
    QCOMPARE(shifted.status, 0);
    COMPARE_VALUE(TYPE_INT32, shifted.value, listOf<int>({kWords.at(0)}));

    m_sim.setFaults(SimFaults());
    const CLabelVariable paired = m_drive->ReadVariable(QStringLiteral("LW2"), TYPE_INT32, 1);
    QCOMPARE(paired.status, 0);
    COMPARE_VALUE(TYPE_INT32, paired.value, listOf<int>({kWords.at(1)}));
    QCOMPARE(m_sim.frameCount(), 3);
}

// A reply sent twice: the copy that lands after its request was served is
// taken by the next one. Each read then gets its own value or the one of the
// read just before, never anything older, and every read is answered.
void TestFaultReads::extraDatagramsShiftByOneAtMost()
{
    SimFaults twice;
    twice.extraDatagram = true;
    m_sim.setFaults(twice);
    const int reads = 12;
    for (int i = 0; i < reads; ++i) {
        const int own = i % 2, previous = (i + 1) % 2;
        const CLabelVariable record = m_drive->ReadVariable(QStringLiteral("LW%1").arg(own + 1), TYPE_INT32, 1);
        QCOMPARE(record.status, 0);
        const int value = SorvikValues::listFrom<int>(record.value).value(0);
        QVERIFY2(value == kWords.at(own) || (i > 0 && value == kWords.at(previous)),
                 qPrintable(QString::number(value)));
    }
    // The last read may take the copy before its own request has reached the simulator.
    QTRY_COMPARE(m_sim.frameCount(), reads);

    // The shift outlasts the fault: it ends only when a request goes unanswered.
    m_sim.setFaults(silent());
    m_drive->ReadVariable(QStringLiteral("LW3"), TYPE_INT32, 1);
    m_sim.setFaults(SimFaults());
    const CLabelVariable record = m_drive->ReadVariable(QStringLiteral("LW4"), TYPE_INT32, 1);
    QCOMPARE(record.status, 0);
    COMPARE_VALUE(TYPE_INT32, record.value, listOf<int>({kWords.at(3)}));
}

// A controller that goes away answers nothing, whatever the host does; when
// it is back, the same drive and plan go on without a new connection.
void TestFaultReads::controllerStoppedAndBack()
{
    m_sim.stop();
    QCOMPARE(m_drive->ReadVariable(QStringLiteral("LW1"), TYPE_INT32, 1).status, 8);
    const QMap<SReadInfo, CLabelVariable> lost = m_drive->BlockReading(kConnect, m_wordKey);
    QCOMPARE(lost.size(), m_wordKey.size());
    QCOMPARE(lost.first().status, 8);
    QVERIFY(m_drive->BlockReading(kConnect, m_pointKey).isEmpty());

    QCOMPARE(m_sim.startUdp(TestSupport::testHost(), m_port), m_port);
    const CLabelVariable back = m_drive->ReadVariable(QStringLiteral("LW1"), TYPE_INT32, 1);
    QCOMPARE(back.status, 0);
    COMPARE_VALUE(TYPE_INT32, back.value, listOf<int>({kWords.at(0)}));
    QCOMPARE(m_drive->BlockReading(kConnect, m_pointKey).size(), kPoints.size());
}

QTEST_GUILESS_MAIN(TestFaultReads)
#include "tst_fault_reads.moc"
