// A bounded soak: every block of a mixed read plan polled, one tag and one planned block written,
// cycle after cycle, while replies go wrong at random from a fixed seed; every record is checked
// against the controller's memory of that moment. Late and doubled replies shift the pairing by
// design and are left to the reply fault tests. SORVIK_SOAK_CYCLES sets a longer soak by hand.

#include "FaultsTestSupport.h"

#include <QtEndian>
#include <QtTest>

#include <cstdio>
#include <cstring>
#include <limits>
#include <random>

using namespace FaultsTest;

namespace {

// What the drive is to make of the next reply: nothing, or its first `kept` data bytes.
struct Outcome {
    bool fails = false;
    int kept = std::numeric_limits<int>::max();
};

// Bit blocks, word and pair blocks of every width, strings, and the tags that the writes change.
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

} // namespace

class TestSoak : public QObject
{
    Q_OBJECT

    SorvikSimulator m_sim;
    quint16 m_port = 0;
    CDriveBaseClass *m_drive = nullptr;
    std::mt19937 m_random{0x50AC};
    QList<QList<SReadInfo>> m_readKeys;
    int m_calls = 0;
    int m_failedReads = 0;
    int m_mismatches = 0;

    int below(int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(m_random); }

    // Printed directly: the log of the run is captured.
    template <typename... Parts> void mismatch(const Parts &...parts)
    {
        QString text;
        ((QDebug(&text).noquote() << "soak mismatch:") << ... << parts);
        if (++m_mismatches <= 20)
            std::fprintf(stderr, "%s\n", qUtf8Printable(text));
    }

    // About one call in seven meets a fault; a reply that never comes costs ~350 ms, so one in a thousand.
    Outcome injectFault(bool isRead, int dataLength)
    {
        const int draw = below(1000);
        Outcome outcome;
        SimFaults faults;
        if (draw < 1) {
            faults = below(2) ? fault(&SimFaults::dropShare, 1.0) : fault(&SimFaults::truncateTo, 0);
            outcome.fails = true;
        } else if (draw < 30) {
            faults = fault(&SimFaults::wrongIdentityShare, 1.0);
            outcome.fails = isRead; // any reply counts for a write
        } else if (draw < 60) {
            const int cut = 1 + below(4 + dataLength);
            faults = fault(&SimFaults::truncateTo, cut);
            outcome.fails = isRead && cut < 2; // one byte is no identity
            outcome.kept = qMax(0, cut - 4);
        } else if (draw < 90) {
            faults = fault(&SimFaults::padReplies, true);
        } else if (draw < 120) {
            faults = fault(&SimFaults::overlongReplies, true);
        } else if (draw < 150) {
            faults = fault(&SimFaults::emptyDatagramFirst, true);
        }
        m_sim.setFaults(faults);
        ++m_calls;
        return outcome;
    }

    void pollBlock(const QList<SReadInfo> &key)
    {
        const SReadGroup group = m_drive->GetInductiveDrive_Read(kConnect, key);
        const Place start = placeOf(group);
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
                mismatch(block, "after a lost reply:", records.size(), "records");
            return;
        }
        if (records.keys() != key)
            return mismatch(block, records.size(), "records of", key.size());
        // The data the drive got: the controller's bytes, zeros past a cut.
        QByteArray data = m_sim.memory(start.area, start.address, group.length);
        if (outcome.kept < data.size())
            data.replace(outcome.kept, data.size() - outcome.kept, QByteArray(data.size() - outcome.kept, '\0'));
        for (const SReadInfo &info : key) {
            const CLabelVariable record = records.value(info);
            const int offset = placeOf(info.tag).address - start.address;
            if (record.status != 0 || record.time.isNull())
                mismatch(info.tag, "has status", record.status, "after a good reply");
            else if (!holds(info, record.value, data, offset, bits))
                mismatch(info.tag, "of type", info.dataType, "differs from the controller's bytes",
                         data.mid(offset, 8).toHex());
        }
    }

    bool holds(const SReadInfo &info, const QVariant &value, const QByteArray &data, int offset, bool point)
    {
        if (point)
            return SorvikValues::listFrom<bool>(value) == QList<bool>{data.at(offset) != 0};
        if (placeOf(info.tag).area == 28) { // the block's first byte is its head; the text runs to the first zero
            const QByteArray text = data.mid(offset + 1, 255);
            const int end = text.indexOf('\0');
            return SorvikValues::listFrom<QString>(value) ==
                   QList<QString>{QString::fromUtf8(text.left(end < 0 ? 255 : end))};
        }
        if (info.dataType == TYPE_BOOL) // the lowest bit of the address in a word area
            return SorvikValues::listFrom<bool>(value) == QList<bool>{(data.at(offset) & 1) != 0};
        if (info.dataType == TYPE_UINT8)
            return SorvikValues::listFrom<char>(value) == QList<char>{data.at(offset)};
        bool same = false;
        SorvikValues::visitElementType(info.dataType, [&](auto element) {
            using T = typename decltype(element)::type;
            if constexpr (std::is_arithmetic_v<T>) {
                const QList<T> list = SorvikValues::listFrom<T>(value);
                // Bit for bit, so that a float is held exactly, NaN or not.
                same = list.size() == 1 && std::memcmp(&list.first(), data.constData() + offset, sizeof(T)) == 0;
            }
        });
        return same;
    }

    // One tag with a new value; after a good reply the controller holds its bytes.
    void writeOneTag()
    {
        const SReadInfo target = kOneTagWrites.at(below(kOneTagWrites.size()));
        const int number = int(m_random());
        CLabelVariable label;
        QByteArray bytes;
        const auto set = [&](auto value) {
            label.value = QVariant::fromValue(QList<decltype(value)>{value});
            bytes = QByteArray(int(sizeof value), '\0');
            qToLittleEndian(value, bytes.data());
        };
        switch (target.dataType) {
        case TYPE_INT32: set(number); break;
        case TYPE_INT16: set(short(number)); break;
        case TYPE_BOOL: set(bool(number & 1)); break;
        case TYPE_FLOAT: set(std::uniform_real_distribution<float>(-1e6f, 1e6f)(m_random)); break;
        case TYPE_DOUBLE: set(std::uniform_real_distribution<double>(-1e12, 1e12)(m_random)); break;
        default: { // a string: its length byte and text
            QByteArray text;
            for (int i = below(40); i > 0; --i)
                text += char('a' + below(26));
            label.value = listOf<QString>({QString::fromLatin1(text)});
            bytes = char(text.size()) + text;
        }
        }
        const Place place = placeOf(target.tag);
        const Outcome outcome = injectFault(false, 0); // a write reply has no data
        const CLabelVariable record = m_drive->WriteVariable(target.tag, DataType(target.dataType), label, 1);
        if (record.status != (outcome.fails ? 8 : 0))
            mismatch("write of", target.tag, "has status", record.status);
        else if (record.status == 0 && m_sim.memory(place.area, place.address, bytes.size()) != bytes)
            mismatch("write of", target.tag, "is not held by the controller");
    }

    // One block of the write plan; a failed one stays planned with the same bytes. When all are written, new values.
    void writeOneBlock()
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
        const QString block = planned.areaText + planned.start.toString();
        const Place place = placeOf(planned);
        const QByteArray bytes = wireBytes(planned.data);

        const Outcome outcome = injectFault(false, 0);
        const QMap<SWriteInfo, CLabelVariable> results = m_drive->BlockWriting(kConnect, key);
        const int status = results.isEmpty() ? -1 : results.first().status;
        const bool stillPlanned = m_drive->GetInductiveDrive_Write(kConnect).contains(key);
        if (status != (outcome.fails ? 8 : 0) || stillPlanned != outcome.fails)
            mismatch("block write of", block, "status", status, "still planned", stillPlanned);
        else if (status == 0 && m_sim.memory(place.area, place.address, bytes.size()) != bytes)
            mismatch("block", block, "is not held by the controller");
        else if (status != 0 && wireBytes(m_drive->GetInductiveDrive_Write(kConnect, key).data) != bytes)
            mismatch("block", block, "changed in the plan");
    }

private slots:
    void initTestCase()
    {
        m_drive = connectedDrive(m_sim, &m_port);
        QVERIFY(m_drive);
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
    }

    void soak()
    {
        const int cycles =
            qEnvironmentVariableIsSet("SORVIK_SOAK_CYCLES") ? qEnvironmentVariableIntValue("SORVIK_SOAK_CYCLES") : 2000;
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
            mismatch(m_failedReads, "failed reads,", lostLines, "warnings of a lost reply");
        const int frames = m_sim.frameCount();
        const int faults = m_sim.counters().faults - faultsBefore;
        std::printf("soak: cycles %d frames %d calls %d faults %d mismatches %d\n", cycles, frames, m_calls, faults,
                    m_mismatches);
        std::fflush(stdout);
        QCOMPARE(frames, m_calls);
        QCOMPARE(m_mismatches, 0);
        QVERIFY(faults > cycles);
    }
};

QTEST_GUILESS_MAIN(TestSoak)
#include "tst_soak.moc"
