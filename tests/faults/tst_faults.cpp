// Faults met by a live drive. Reads and writes, of one tag and of planned
// blocks, while the controller's replies go wrong on the wire, over UDP and a
// serial line: each fault ends in the status and data that the drive promises,
// and a late reply shifts the pairing exactly as far as it must. Then calls that
// a careless host makes: none may crash, hang or put undefined bytes on the
// wire, and each says what it refused.

#include "FaultsTestSupport.h"

#include <QtEndian>
#include <QtTest>

#include <limits>

using namespace FaultsTest;

namespace {

// LW1..LW4 and DI1..DI16. Every data byte differs from zero, so that a lost byte shows.
const QByteArray kWordBytes = hex("44332211 feffffff 88776655 efcdab7f");
const QByteArray kPoints = hex("01010001010100010101010001010101");

// The words that the first `kept` bytes give, zeros past them: what a cut reply leaves.
QList<int> wordsKept(int kept)
{
    const QByteArray bytes = kWordBytes.left(kept) + QByteArray(qMax(0, kWordBytes.size() - kept), '\0');
    QList<int> words;
    for (int i = 0; i < bytes.size(); i += 4)
        words << qFromLittleEndian<qint32>(bytes.constData() + i);
    return words;
}

const QList<int> kWords = wordsKept(16);

// A byte block of three floats and a bit block of three points.
const QList<SWriteInfo> kWrites = {
    {"AO1", TYPE_FLOAT, listOf<float>({1.5f})}, {"AO2", TYPE_FLOAT, listOf<float>({-2.0f})},
    {"AO3", TYPE_FLOAT, listOf<float>({1e6f})}, {"DO1", TYPE_BOOL, listOf<bool>({true})},
    {"DO2", TYPE_BOOL, listOf<bool>({false})},  {"DO3", TYPE_BOOL, listOf<bool>({true})}};

} // namespace

class TestFaults : public QObject
{
    Q_OBJECT

    SorvikSimulator m_sim;
    quint16 m_port = 0;
    CDriveBaseClass *m_drive = nullptr;
    QList<SReadInfo> m_wordKey, m_pointKey;

    QPair<int, int> readLw(int number) { return readInt(m_drive, QStringLiteral("LW%1").arg(number)); }
    int writeLw1(int value)
    {
        return m_drive->WriteVariable(QStringLiteral("LW1"), TYPE_INT32, recordOf(listOf<int>({value}))).status;
    }

    // A failed block stays planned, and its retry sends the very frame that failed.
    void writeBlock(const QList<SWriteInfo> &key, int status)
    {
        const SWriteGroup planned = m_drive->GetInductiveDrive_Write(kConnect, key);
        const Place place = placeOf(planned);
        const QByteArray bytes = wireBytes(planned.data);
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

private slots:
    void initTestCase()
    {
        m_drive = connectedDrive(m_sim, &m_port);
        QVERIFY(m_drive);
        QList<SReadInfo> tags;
        for (int i = 1; i <= 4; ++i)
            tags << SReadInfo{QStringLiteral("LW%1").arg(i), TYPE_INT32};
        for (int i = 1; i <= 16; ++i)
            tags << SReadInfo{QStringLiteral("DI%1").arg(i), TYPE_BOOL};
        const QList<QList<SReadInfo>> keys = m_drive->InductiveDrive_Read(kConnect, tags);
        QCOMPARE(keys.size(), 2);
        m_pointKey = keys.at(0);
        m_wordKey = keys.at(1);
        QCOMPARE(m_drive->GetInductiveDrive_Read(kConnect, m_wordKey).length, kWordBytes.size());
    }

    void init()
    {
        DriveTest::reset(m_sim);
        m_sim.preset(24, 0, kWordBytes);
        m_sim.preset(1, 0, kPoints);
    }

    // Data bytes of a read reply that arrive; a short reply is no error, what is missing
    // reads as zero. Only a missing reply fails a write: its content is not judged.
    void everyRoad_data()
    {
        QTest::addColumn<SimFaults>("faults");
        QTest::addColumn<int>("readStatus");
        QTest::addColumn<int>("kept");
        QTest::addColumn<int>("writeStatus");
        QTest::newRow("dropped") << fault(&SimFaults::dropShare, 1.0) << 8 << 0 << 8;
        QTest::newRow("wrong identity") << fault(&SimFaults::wrongIdentityShare, 1.0) << 8 << 0 << 0;
        QTest::newRow("cut to nothing") << fault(&SimFaults::truncateTo, 0) << 8 << 0 << 8; // no reply at all
        QTest::newRow("cut to one byte") << fault(&SimFaults::truncateTo, 1) << 8 << 0 << 0;
        QTest::newRow("cut to the head") << fault(&SimFaults::truncateTo, 4) << 0 << 0 << 0;
        QTest::newRow("cut inside LW2") << fault(&SimFaults::truncateTo, 4 + 6) << 0 << 6 << 0;
        QTest::newRow("padded to 1472") << fault(&SimFaults::padReplies, true) << 0 << 16 << 0;
        QTest::newRow("over-long") << fault(&SimFaults::overlongReplies, true) << 0 << 16 << 0;
        QTest::newRow("empty datagram first") << fault(&SimFaults::emptyDatagramFirst, true) << 0 << 16 << 0;
    }

    void everyRoad()
    {
        QFETCH(SimFaults, faults);
        QFETCH(int, readStatus);
        QFETCH(int, kept);
        QFETCH(int, writeStatus);
        m_sim.setFaults(faults);
        const QList<int> words = wordsKept(readStatus == 0 ? kept : 0);

        TestSupport::LogCapture log;
        const CLabelVariable one = m_drive->ReadVariable(QStringLiteral("LW1"), TYPE_INT32, kWords.size());
        QCOMPARE(one.status, readStatus);
        QCOMPARE(one.time.isNull(), readStatus != 0);
        QCOMPARE(SorvikValues::listFrom<int>(one.value), readStatus == 0 ? words : QList<int>());
        const QStringList warnings = log.texts(QtWarningMsg);
        QVERIFY(readStatus == 0 ? warnings.isEmpty() : warnings.value(warnings.size() - 1).startsWith(kLostLine));

        // A failed byte block still gives every tag a record: the status tells, never the value.
        const QMap<SReadInfo, CLabelVariable> records = m_drive->BlockReading(kConnect, m_wordKey);
        QCOMPARE(records.keys(), m_wordKey);
        for (int i = 0; i < m_wordKey.size(); ++i) {
            const CLabelVariable record = records.value(m_wordKey.at(i));
            QCOMPARE(record.status, readStatus);
            QCOMPARE(record.time.isNull(), readStatus != 0);
            COMPARE_VALUE(TYPE_INT32, record.value, listOf<int>({words.at(i)}));
        }

        // A failed bit block shows as missing entries.
        const QMap<SReadInfo, CLabelVariable> points = m_drive->BlockReading(kConnect, m_pointKey);
        QCOMPARE(points.size(), readStatus == 0 ? kPoints.size() : 0);
        for (int i = 0; i < points.size(); ++i) {
            const CLabelVariable record = points.value({QStringLiteral("DI%1").arg(i + 1), TYPE_BOOL});
            QCOMPARE(record.status, 0);
            COMPARE_VALUE(TYPE_BOOL, record.value, listOf<bool>({i < kept && kPoints.at(i)}));
        }
        QCOMPARE(m_sim.frameCount(), 3); // nothing is retried

        const CLabelVariable written =
            m_drive->WriteVariable(QStringLiteral("LW9"), TYPE_INT32, recordOf(listOf<int>({7, -7})), 2);
        QCOMPARE(written.status, writeStatus);
        QCOMPARE(written.time.isNull(), writeStatus != 0);
        COMPARE_VALUE(TYPE_INT32, written.value, listOf<int>({7, -7})); // what the caller gave stays
        QCOMPARE(m_sim.frameCount(), 4);
        if (writeStatus != 0) {
            m_sim.setFaults(SimFaults());
            QCOMPARE(m_drive->WriteVariable(QStringLiteral("LW9"), TYPE_INT32, written, 2).status, 0);
            QCOMPARE(m_sim.frames().at(4), m_sim.frames().at(3));
        }
        QCOMPARE(m_sim.memory(24, 32, 8), hex("07000000f9ffffff"));

        const QList<QList<SWriteInfo>> keys = m_drive->InductiveDrive_Write(kConnect, kWrites);
        QCOMPARE(keys.size(), 2);
        for (const QList<SWriteInfo> &key : keys) {
            m_sim.setFaults(faults);
            writeBlock(key, writeStatus);
            if (QTest::currentTestFailed())
                return;
        }
        QCOMPARE(m_sim.memory(10, 0, 12), hex("0000c03f000000c000247449"));
        QCOMPARE(m_sim.memory(4, 0, 3), hex("010001"));
    }

    // Nothing drains the socket before a request: a reply that comes after its request
    // gave up is taken by the next one, until a request goes unanswered.
    void lateRepliesAnswerTheNextRequest()
    {
        const SimFaults late = fault(&SimFaults::delayMs, 500); // past the ~350 ms a request waits
        const SimFaults silent = fault(&SimFaults::silent, true);
        m_sim.setFaults(late);
        QCOMPARE(readLw(1).first, 8);
        m_sim.setFaults(silent);
        QCOMPARE(readLw(2), qMakePair(0, kWords.at(0)));
        m_sim.setFaults(SimFaults());
        QCOMPARE(readLw(2), qMakePair(0, kWords.at(1)));

        // A late write reply fails the next read, which finds another identity in it.
        m_sim.setFaults(late);
        QCOMPARE(writeLw1(5), 8);
        QCOMPARE(m_sim.memory(24, 0, 4), hex("05000000")); // taken all the same: the caller cannot know
        m_sim.setFaults(silent);
        TestSupport::LogCapture log;
        QCOMPARE(readLw(1).first, 8);
        const QStringList warnings = log.texts(QtWarningMsg);
        QCOMPARE(warnings.size(), 2);
        QVERIFY(warnings.at(0).startsWith(QStringLiteral("lib[Sorvik]返回的序号错误 ")));
        QVERIFY(warnings.at(0).endsWith(QStringLiteral("msg : 02010000")));
        QVERIFY(warnings.at(1).startsWith(kLostLine));

        // A late read reply is taken as the next write's.
        m_sim.setFaults(late);
        QCOMPARE(readLw(1).first, 8);
        m_sim.setFaults(silent);
        QCOMPARE(writeLw1(6), 0);
        QTRY_COMPARE(m_sim.frameCount(), 7); // the write was answered before the simulator may have taken it
    }

    // A reply sent twice: the copy is taken by the next read, which then gets its
    // own value or the one of the read just before, never anything older.
    void extraDatagramsShiftByOneAtMost()
    {
        m_sim.setFaults(fault(&SimFaults::extraDatagram, true));
        const int reads = 12;
        for (int i = 0; i < reads; ++i) {
            const QPair<int, int> got = readLw(i % 2 + 1);
            QVERIFY2(got.first == 0 &&
                         (got.second == kWords.at(i % 2) || (i > 0 && got.second == kWords.at((i + 1) % 2))),
                     qPrintable(QStringLiteral("%1 %2").arg(got.first).arg(got.second)));
        }
        // The last read may take the copy before its own request has reached the simulator.
        QTRY_COMPARE(m_sim.frameCount(), reads);

        // The shift outlasts the fault: it ends only when a request goes unanswered.
        m_sim.setFaults(fault(&SimFaults::silent, true));
        readLw(3);
        m_sim.setFaults(SimFaults());
        QCOMPARE(readLw(4), qMakePair(0, kWords.at(3)));
    }

    // While the controller is away (its port unreachable) reads and writes fail and blocks stay planned;
    // once it is back, the same drive and plans go on without a new connection.
    void controllerStoppedAndBack()
    {
        const QList<QList<SWriteInfo>> keys = m_drive->InductiveDrive_Write(kConnect, kWrites);
        m_sim.stop();
        QCOMPARE(readLw(1).first, 8);
        QCOMPARE(m_drive->BlockReading(kConnect, m_wordKey).first().status, 8);
        QCOMPARE(writeLw1(5), 8);
        QCOMPARE(m_drive->BlockWriting(kConnect, keys.first()).first().status, 8);

        QCOMPARE(m_sim.startUdp(TestSupport::testHost(), m_port), m_port);
        QCOMPARE(readLw(1), qMakePair(0, kWords.at(0)));
        QCOMPARE(m_drive->BlockReading(kConnect, m_pointKey).size(), kPoints.size());
        for (const QList<SWriteInfo> &key : keys) {
            writeBlock(key, 0);
            if (QTest::currentTestFailed())
                return;
        }
        QVERIFY(m_drive->GetInductiveDrive_Write(kConnect).isEmpty());
    }

    // A serial line through a pseudo-terminal: any reply counts for a write, and late bytes wait in the
    // port to be taken by the next exchange. Every exchange costs at least 100 ms, so the cases are few.
    void serialLine()
    {
        SorvikSimulator sim;
        const QString path = sim.startPty();
        CDriveBaseClass *drive = newDrive();
        QVERIFY(!path.isEmpty() && drive->ConnectDrive(path + QStringLiteral(",9600,8,1,N")) == 0);
        QVERIFY(sim.presetTag(QStringLiteral("LW1=int32:11,22")));
        const auto writeLw2 = [&](int value) {
            return drive->WriteVariable(QStringLiteral("LW2"), TYPE_INT32, recordOf(listOf<int>({value}))).status;
        };
        sim.setFaults(fault(&SimFaults::silent, true));
        QCOMPARE(readInt(drive, "LW1").first, 8);
        QCOMPARE(writeLw2(33), 8);
        sim.setFaults(fault(&SimFaults::wrongIdentityShare, 1.0));
        QCOMPARE(readInt(drive, "LW1").first, 8);
        QCOMPARE(writeLw2(33), 0);
        sim.setFaults(SimFaults());
        QCOMPARE(readInt(drive, "LW2"), qMakePair(0, 33));
        QCOMPARE(sim.frameCount(), 5);

        sim.setFaults(fault(&SimFaults::delayMs, 600)); // past the ~450 ms that a serial request waits
        QCOMPARE(readInt(drive, "LW1").first, 8);
        sim.setFaults(fault(&SimFaults::silent, true));
        QCOMPARE(readInt(drive, "LW2"), qMakePair(0, 11));
        sim.setFaults(SimFaults());
        QCOMPARE(readInt(drive, "LW2"), qMakePair(0, 33));
    }

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

QTEST_GUILESS_MAIN(TestFaults)
#include "tst_faults.moc"
