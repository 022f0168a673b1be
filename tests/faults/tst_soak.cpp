// A bounded soak: cycle after cycle, every block of a mixed read plan is
// polled, one tag is written and one planned block is written, while the
// controller's replies go wrong at random from a fixed seed. Every record is
// checked against the controller's memory at that moment: a record of status
// 0 holds exactly what the controller holds (zeros where a cut reply ended),
// every fault that takes the reply away gives a failing status, a failed
// block stays planned until a retry writes its bytes, and each call is one
// frame. Values change all the time, so a reply paired with the wrong
// request would show.
//
// Faults that make the drive hand on another request's reply by design (a
// late reply, a datagram sent twice) are left out here: the fault tests
// pin down exactly how far they shift the pairing.
//
// SORVIK_SOAK_CYCLES sets another number of cycles, for a longer soak by hand.

#include "FaultFixture.h"

#include <QtEndian>
#include <QtTest>

#include <cstdio>
#include <cstring>
#include <limits>
#include <random>

using namespace Induction;
using namespace FaultFixture;
using DriveTest::listOf;

namespace {

const QString kConnect = QStringLiteral("1");
constexpr quint32 kSeed = 0x50AC;
constexpr int kDefaultCycles = 2000;
const QString kLostLine = QStringLiteral("lib[Sorvik]返回的报文长度为0 ");

// What the drive is to make of the next reply: nothing (a failing status),
// or the first `kept` data bytes of it.
struct Outcome {
    bool fails = false;
    int kept = std::numeric_limits<int>::max();
};

// The read plan: bit blocks, word and pair blocks of every width, strings,
// and the tags that the writes below change, so that reads see new values.
const QList<SReadInfo> kReadTags = {
    {"DI1", TYPE_BOOL},     {"DI2", TYPE_BOOL},    {"DI5", TYPE_BOOL},     {"DI9", TYPE_BOOL},    {"DI24", TYPE_BOOL},
    {"DO30", TYPE_BOOL},    {"DO40", TYPE_BOOL},   {"DO43", TYPE_BOOL},    {"DO47", TYPE_BOOL},   {"NDI100", TYPE_BOOL},
    {"NDI300", TYPE_BOOL},  {"AI1", TYPE_INT32},   {"AI2", TYPE_FLOAT},    {"AI3", TYPE_INT16},   {"AI4", TYPE_UINT16},
    {"AI5", TYPE_UINT32},   {"AI6", TYPE_DOUBLE},  {"AI8", TYPE_UINT8},    {"AI9", TYPE_BOOL},    {"AI10", TYPE_INT32},
    {"AO20", TYPE_FLOAT},   {"AO21", TYPE_FLOAT},  {"AO22", TYPE_INT32},   {"AO24", TYPE_FLOAT},  {"LW17", TYPE_INT32},
    {"LW20", TYPE_INT32},   {"NAI10", TYPE_INT64}, {"NAI12", TYPE_UINT64}, {"NAI14", TYPE_FLOAT}, {"NAI15", TYPE_INT32},
    {"NAI60", TYPE_DOUBLE}, {"NAO40", TYPE_INT32}, {"NAO42", TYPE_UINT32}, {"NAO50", TYPE_FLOAT}, {"SA1", TYPE_INT16},
    {"SA3", TYPE_INT32},    {"SA40", TYPE_INT16},  {"SA50", TYPE_INT32},   {"LA5", TYPE_DOUBLE},  {"SI1", TYPE_STRING},
    {"SI4", TYPE_STRING},
};

// One-tag writes, one a cycle: a type that the write path lets into each area.
const QList<SReadInfo> kOneTagWrites = {
    {"LW20", TYPE_INT32}, {"AO20", TYPE_FLOAT},   {"NAO50", TYPE_FLOAT}, {"DO30", TYPE_BOOL},
    {"SA40", TYPE_INT16}, {"NAI60", TYPE_DOUBLE}, {"SI4", TYPE_STRING},
};

template <typename T> QByteArray littleEndian(T value)
{
    QByteArray bytes(int(sizeof(T)), '\0');
    qToLittleEndian(value, bytes.data());
    return bytes;
}

// A planned block's data as the bytes it puts on the wire: one a point for bits.
QByteArray wireBytes(const QVariant &data)
{
    QByteArray bytes;
    for (char byte : SorvikValues::listFrom<char>(data))
        bytes.append(byte);
    for (bool point : SorvikValues::listFrom<bool>(data))
        bytes.append(point ? '\1' : '\0');
    return bytes;
}

} // namespace

class TestSoak : public QObject
{
    Q_OBJECT

    SorvikSimulator m_sim;
    quint16 m_port = 0;
    CDriveBaseClass *m_drive = nullptr;
    std::mt19937 m_random{kSeed};
    QList<QList<SReadInfo>> m_readKeys;
    int m_calls = 0;
    int m_failedReads = 0;
    int m_mismatches = 0;

    int below(int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(m_random); }
    void mismatch(const QString &what);
    Outcome injectFault(bool isRead, int dataLength);
    void pollBlock(const QList<SReadInfo> &key);
    void checkRecord(const SReadInfo &info, const CLabelVariable &record, const QByteArray &data, int offset,
                     bool point);
    void writeOneTag();
    void writeOneBlock();
    bool validBlock(int area, int length) const;

private slots:
    void initTestCase();
    void soak();
};

void TestSoak::initTestCase()
{
    m_drive = connectedDrive(m_sim, &m_port);
    QVERIFY(m_drive);
    // A process image of random bytes everywhere the plan looks.
    for (const SReadInfo &info : kReadTags) {
        const Place place = placeOf(info.tag);
        QByteArray bytes(8, '\0');
        for (char &byte : bytes)
            byte = char(below(256));
        if (place.area == 28)
            bytes = "\3abc";
        else if (info.dataType == TYPE_BOOL)
            bytes = QByteArray(1, char(below(2))); // a point is 0 or 1
        m_sim.preset(place.area, place.address, bytes);
    }
    m_readKeys = m_drive->InductiveDrive_Read(kConnect, kReadTags);
    QVERIFY(m_drive->GetCannotInductiveDrive_Read(kConnect).isEmpty());
    // Every block must be one the one-tag path reads whole, so that each value
    // of a good reply is backed by bytes of the controller.
    for (const QList<SReadInfo> &key : qAsConst(m_readKeys)) {
        const SReadGroup group = m_drive->GetInductiveDrive_Read(kConnect, key);
        QVERIFY2(group.kind == 2 || validBlock(placeOf(group.areaText + group.start.toString()).area, group.length),
                 qPrintable(group.areaText + group.start.toString()));
    }
}

// Byte blocks go out as Int8 reads and writes, which the one-tag path cuts
// to whole elements of the area.
bool TestSoak::validBlock(int area, int length) const
{
    const int unit = area == 28 ? 256 : area == 14 ? 2 : 4;
    return length > 0 && length % unit == 0;
}

// Printed directly: the log of the run is captured.
void TestSoak::mismatch(const QString &what)
{
    ++m_mismatches;
    if (m_mismatches <= 20)
        std::fprintf(stderr, "soak mismatch: %s\n", qUtf8Printable(what));
}

// About one call in seven meets a fault. A reply that never comes costs
// ~350 ms, so those are one call in a thousand.
Outcome TestSoak::injectFault(bool isRead, int dataLength)
{
    const int draw = below(1000);
    Outcome outcome;
    if (draw < 1) {
        m_sim.setFaults(below(2) ? dropped() : cutTo(0)); // an empty datagram is no reply
        outcome.fails = true;
    } else if (draw < 30) {
        m_sim.setFaults(wrongIdentity());
        outcome.fails = isRead; // any reply counts for a write
    } else if (draw < 60) {
        const int cut = 1 + below(4 + dataLength);
        m_sim.setFaults(cutTo(cut));
        outcome.fails = isRead && cut < 2; // one byte is no identity
        outcome.kept = qMax(0, cut - 4);
    } else if (draw < 90) {
        m_sim.setFaults(padded());
    } else if (draw < 120) {
        m_sim.setFaults(overlong());
    } else if (draw < 150) {
        m_sim.setFaults(emptyDatagramFirst());
    } else {
        m_sim.setFaults(SimFaults());
    }
    ++m_calls;
    return outcome;
}

void TestSoak::pollBlock(const QList<SReadInfo> &key)
{
    const SReadGroup group = m_drive->GetInductiveDrive_Read(kConnect, key);
    const Place start = placeOf(group.areaText + group.start.toString());
    const bool bits = group.kind == 2;
    const Outcome outcome = injectFault(true, group.length);
    const QMap<SReadInfo, CLabelVariable> records = m_drive->BlockReading(kConnect, key);
    const QString block = group.areaText + group.start.toString();

    if (outcome.fails) {
        ++m_failedReads;
        bool failing = bits ? records.isEmpty() : records.size() == key.size();
        for (const CLabelVariable &record : records)
            failing = failing && record.status == 8;
        if (!failing)
            mismatch(QStringLiteral("block %1 after a lost reply: %2 records").arg(block).arg(records.size()));
        return;
    }
    if (records.keys() != key) {
        mismatch(QStringLiteral("block %1: %2 records of %3").arg(block).arg(records.size()).arg(key.size()));
        return;
    }
    // The data the drive got: the controller's bytes, zeros past a cut.
    QByteArray data = m_sim.memory(start.area, start.address, group.length);
    if (outcome.kept < data.size())
        data.replace(outcome.kept, data.size() - outcome.kept, QByteArray(data.size() - outcome.kept, '\0'));
    for (const SReadInfo &info : key) {
        const CLabelVariable record = records.value(info);
        if (record.status != 0 || record.time.isNull()) {
            mismatch(QStringLiteral("%1 has status %2 after a good reply").arg(info.tag).arg(record.status));
            continue;
        }
        checkRecord(info, record, data, placeOf(info.tag).address - start.address, bits);
    }
}

void TestSoak::checkRecord(const SReadInfo &info, const CLabelVariable &record, const QByteArray &data, int offset,
                           bool point)
{
    bool same = false;
    if (point) {
        same = SorvikValues::listFrom<bool>(record.value) == QList<bool>{data.at(offset) != 0};
    } else if (placeOf(info.tag).area == 28) {
        // The block's first byte is its head; the text runs to the first zero.
        const QByteArray text = data.mid(offset + 1, 255);
        same = SorvikValues::listFrom<QString>(record.value) ==
               QList<QString>{QString::fromUtf8(text.left(text.indexOf('\0') < 0 ? 255 : text.indexOf('\0')))};
    } else if (info.dataType == TYPE_BOOL) { // the lowest bit of the address in a word area
        same = SorvikValues::listFrom<bool>(record.value) == QList<bool>{(data.at(offset) & 1) != 0};
    } else if (info.dataType == TYPE_UINT8) {
        same = SorvikValues::listFrom<char>(record.value) == QList<char>{data.at(offset)};
    } else {
        SorvikValues::visitElementType(info.dataType, [&](auto element) {
            using T = typename decltype(element)::type;
            if constexpr (std::is_arithmetic_v<T>) {
                const QList<T> list = SorvikValues::listFrom<T>(record.value);
                // Bit for bit, so that a float is held exactly, NaN or not.
                same = list.size() == 1 && std::memcmp(&list.first(), data.constData() + offset, sizeof(T)) == 0;
            }
        });
    }
    if (!same)
        mismatch(QStringLiteral("%1 of type %2 differs from the controller's bytes %3")
                     .arg(info.tag)
                     .arg(info.dataType)
                     .arg(QString::fromLatin1(data.mid(offset, 8).toHex())));
}

// One tag with a new value; after a good reply the controller holds its bytes.
void TestSoak::writeOneTag()
{
    const SReadInfo target = kOneTagWrites.at(below(kOneTagWrites.size()));
    CLabelVariable label;
    QByteArray bytes;
    switch (target.dataType) {
    case TYPE_INT32: {
        const int value = int(m_random());
        label.value = listOf<int>({value});
        bytes = littleEndian(value);
        break;
    }
    case TYPE_FLOAT: {
        const float value = std::uniform_real_distribution<float>(-1e6f, 1e6f)(m_random);
        label.value = listOf<float>({value});
        bytes = littleEndian(value);
        break;
    }
    case TYPE_DOUBLE: {
        const double value = std::uniform_real_distribution<double>(-1e12, 1e12)(m_random);
        label.value = listOf<double>({value});
        bytes = littleEndian(value);
        break;
    }
    case TYPE_INT16: {
        const short value = short(m_random());
        label.value = listOf<short>({value});
        bytes = littleEndian(value);
        break;
    }
    case TYPE_BOOL: {
        const bool value = below(2) == 1;
        label.value = listOf<bool>({value});
        bytes = QByteArray(1, value ? '\1' : '\0');
        break;
    }
    default: { // a string: its length byte and text
        QString text;
        for (int i = below(40); i > 0; --i)
            text += QChar('a' + below(26));
        label.value = listOf<QString>({text});
        bytes = char(text.size()) + text.toLatin1();
        break;
    }
    }
    const Place place = placeOf(target.tag);
    const Outcome outcome = injectFault(false, 0); // a write reply has no data
    const CLabelVariable record = m_drive->WriteVariable(target.tag, DataType(target.dataType), label, 1);
    if (record.status != (outcome.fails ? 8 : 0))
        mismatch(QStringLiteral("write of %1 has status %2").arg(target.tag).arg(record.status));
    else if (record.status == 0 && m_sim.memory(place.area, place.address, bytes.size()) != bytes)
        mismatch(QStringLiteral("write of %1 is not held by the controller").arg(target.tag));
}

// One block of the write plan; when all are written, a new plan with new values.
void TestSoak::writeOneBlock()
{
    QMap<QList<SWriteInfo>, SWriteGroup> plan = m_drive->GetInductiveDrive_Write(kConnect);
    if (plan.isEmpty()) {
        QList<SWriteInfo> infos;
        for (int i = 21; i <= 24; ++i)
            infos << SWriteInfo{QStringLiteral("AO%1").arg(i), TYPE_FLOAT,
                                listOf<float>({std::uniform_real_distribution<float>(-1e3f, 1e3f)(m_random)})};
        for (int i = 40; i <= 42; ++i)
            infos << SWriteInfo{QStringLiteral("NAO%1").arg(i), TYPE_INT32, listOf<int>({int(m_random())})};
        for (int i = 40; i <= 47; ++i)
            infos << SWriteInfo{QStringLiteral("DO%1").arg(i), TYPE_BOOL, listOf<bool>({below(2) == 1})};
        infos << SWriteInfo{"LA5", TYPE_DOUBLE, listOf<double>({double(m_random()) / 7.0})}
              << SWriteInfo{"SA50", TYPE_INT32, listOf<int>({int(m_random())})};
        m_drive->InductiveDrive_Write(kConnect, infos);
        plan = m_drive->GetInductiveDrive_Write(kConnect);
    }
    const QList<SWriteInfo> key = plan.firstKey();
    const SWriteGroup planned = plan.first();
    const Place place = placeOf(planned.areaText + planned.start.toString());
    const QByteArray bytes = wireBytes(planned.data);
    if (planned.kind == 1 && !validBlock(place.area, planned.length))
        mismatch(QStringLiteral("block %1 of %2 bytes cannot be written whole").arg(place.area).arg(planned.length));

    const Outcome outcome = injectFault(false, 0);
    const QMap<SWriteInfo, CLabelVariable> results = m_drive->BlockWriting(kConnect, key);
    const int status = results.isEmpty() ? -1 : results.first().status;
    const bool stillPlanned = m_drive->GetInductiveDrive_Write(kConnect).contains(key);
    if (status != (outcome.fails ? 8 : 0) || stillPlanned != outcome.fails)
        mismatch(QStringLiteral("block write of %1%2: status %3, still planned %4")
                     .arg(planned.areaText, planned.start.toString())
                     .arg(status)
                     .arg(stillPlanned));
    else if (status == 0 && m_sim.memory(place.area, place.address, bytes.size()) != bytes)
        mismatch(
            QStringLiteral("block %1%2 is not held by the controller").arg(planned.areaText, planned.start.toString()));
    else if (status != 0 && wireBytes(m_drive->GetInductiveDrive_Write(kConnect, key).data) != bytes)
        mismatch(QStringLiteral("block %1%2 changed in the plan").arg(planned.areaText, planned.start.toString()));
}

void TestSoak::soak()
{
    const int cycles = qEnvironmentVariableIsSet("SORVIK_SOAK_CYCLES")
                           ? qEnvironmentVariableIntValue("SORVIK_SOAK_CYCLES")
                           : kDefaultCycles;
    m_sim.clearFrames();
    const int faultsBefore = m_sim.counters().faults;
    TestSupport::LogCapture log; // thousands of warnings: kept, counted, not printed

    for (int cycle = 0; cycle < cycles; ++cycle) {
        for (const QList<SReadInfo> &key : qAsConst(m_readKeys))
            pollBlock(key);
        writeOneTag();
        writeOneBlock();
    }
    m_sim.setFaults(SimFaults());

    const int lostLines = log.texts(QtWarningMsg).filter(kLostLine).size();
    if (lostLines != m_failedReads)
        mismatch(QStringLiteral("%1 failed reads, %2 warnings of a lost reply").arg(m_failedReads).arg(lostLines));
    const int frames = m_sim.frameCount();
    const int faults = m_sim.counters().faults - faultsBefore;
    std::printf("soak: cycles %d frames %d calls %d faults %d mismatches %d\n", cycles, frames, m_calls, faults,
                m_mismatches);
    std::fflush(stdout);
    QCOMPARE(frames, m_calls);
    QCOMPARE(m_mismatches, 0);
    QVERIFY(faults > cycles);
}

QTEST_GUILESS_MAIN(TestSoak)
#include "tst_soak.moc"
