// One tag written from record to wire, and read back through the simulator.

#include "drive/LibSorvik.h"

#include "DriveTestSupport.h"

#include <QtTest>

#include <limits>

using DriveTest::listOf;
using DriveTest::recordOf;
using TestSupport::hex;

namespace {

QByteArray counting(int size)
{
    QByteArray bytes;
    for (int i = 0; i < size; ++i)
        bytes.append(char(i));
    return bytes;
}

template <typename T> QVariant filled(int size, T value)
{
    return QVariant::fromValue(QList<T>(QVector<T>(size, value).toList()));
}

struct Frame {
    const char *name, *tag;
    int type;
    QVariant value;
    int count;
    QByteArray frame;
};
struct RoundTrip {
    const char *name, *tag;
    int type;
    QVariant value, readBack; // readBack invalid: the value itself
};
struct Failed {
    const char *name, *tag;
    int type;
    QVariant value;
    int count, status;
};

} // namespace

Q_DECLARE_METATYPE(Frame)
Q_DECLARE_METATYPE(RoundTrip)
Q_DECLARE_METATYPE(Failed)

class TestOneTagWrite : public QObject
{
    Q_OBJECT

    SorvikSimulator m_sim;
    LibSorvik m_drive;

private slots:
    void initTestCase() { QVERIFY(DriveTest::connectTo(m_sim, m_drive) != 0); }
    void init() { DriveTest::reset(m_sim); }

    void frameOnTheWire_data()
    {
        const QByteArray ramp = counting(256);
        const Frame rows[] = {
            {"float AO3", "AO3", 8, listOf<float>({1.0f}), 1, hex("020101000a0008000004000000803f")},
            {"bool DO2", "DO2", 1, listOf<bool>({true}), 1, hex("020101000400010000010001")},
            {"Int8 spread on DO1", "DO1", 2, listOf<char>({5}), 1, hex("02010100040000000008000100010000000000")},
            {"string SI2", "SI2", 12, listOf<QString>({"abc"}), 1, hex("020101001c00000100000103616263")},
            {"block of SI2", "SI2", 2, QVariant::fromValue(QList<char>(ramp.begin(), ramp.end())), 256,
             hex("020101001c000001010000") + ramp},
            {"block sends its whole payload", "SI1", 3, filled<uchar>(300, 7), 300,
             hex("020101001c000000010000") + QByteArray(300, 7)},
            {"one long string, whatever its size", "SI1", 12, listOf<QString>({QString(300, 'x')}), 1,
             hex("020101001c0000000000012c") + QByteArray(300, 'x')},
            {"bool to SI1 by bits", "SI1", 1, listOf<bool>({true}), 1, hex("020101001c00000000010001")},
            {"Int8 to AI1, cut to words", "AI1", 2, listOf<char>({1, 2, 3, 4, 5, 6, 7}), 7,
             hex("020101000700000000040001020304")},
            {"string outside area SI", "AI2", 12, listOf<QString>({"abc"}), 1, hex("020101000700040000010003")},
            // Several strings in area SI take one full block each; elsewhere they are packed and cut by the length.
            {"two strings to SI1", "SI1", 12, listOf<QString>({"ab", "c"}), 2,
             hex("020101001c000000000002") + hex("026162") + QByteArray(253, 0) + hex("0163") + QByteArray(254, 0)},
            {"three strings to NAI1", "NAI1", 12, listOf<QString>({"ab", "", "c"}), 3,
             hex("0201010011000000000300026162")},
            // The three-argument form writes one element.
            {"three-argument form", "LW1", 6, listOf<int>({42, 43, 44}), -1, hex("02010100180000000004002a000000")}};
        TestSupport::addRows(rows);
    }
    void frameOnTheWire()
    {
        QFETCH(Frame, row);
        const CLabelVariable record =
            row.count < 0 ? m_drive.WriteVariable(row.tag, DataType(row.type), recordOf(row.value))
                          : m_drive.WriteVariable(row.tag, DataType(row.type), recordOf(row.value), row.count);
        QCOMPARE(record.status, 0);
        QCOMPARE(record.length, qMax(row.count, 1));
        QCOMPARE(m_sim.frames(), QList<QByteArray>{row.frame});
    }

    void roundTrip_data()
    {
        const QVariant same;
        const RoundTrip rows[] = {
            {"bool on a bit area", "DO1", 1, listOf<bool>({true, false, true}), same},
            {"bool on a word area", "AI7", 1, listOf<bool>({true, false, true}), same},
            {"Int8 on a bit area", "NDI9", 2, listOf<char>({5, char(-125)}), same},
            {"Int8 on a word area", "AI3", 2, listOf<char>({-128, -2, 0, 127}), same},
            {"UInt8 on a pair area", "SA2", 3, listOf<uchar>({0, 128, 255, 7}), same},
            {"UInt8 block", "SI2", 3, filled<uchar>(256, 0xA5), same},
            {"Int16", "AI4", 4, listOf<short>({-32768, -1, 32767}), same},
            {"UInt16 on Custom", "Custom3", 5, listOf<ushort>({0, 40000, 65535}), same},
            {"Int32", "LW2", 6, listOf<int>({std::numeric_limits<int>::min(), -1, 123456789}), same},
            {"UInt32", "LW9", 7, listOf<uint>({0u, 0x80000000u, 0xFFFFFFFFu}), same},
            {"float AO", "AO2", 8, listOf<float>({-1.5f, 3.25e10f, std::numeric_limits<float>::denorm_min()}), same},
            // The 64-bit integers go out least significant byte first and come back most significant first.
            {"Int64", "HAI1", 9, listOf<qlonglong>({1}), listOf<qlonglong>({qlonglong(1) << 56})},
            {"UInt64", "NAI2", 10, listOf<qulonglong>({0x0102030405060708ull}),
             listOf<qulonglong>({0x0807060504030201ull})},
            {"double", "AO_F1", 11, listOf<double>({-0.1, 1e300, std::numeric_limits<double>::lowest()}), same},
            {"strings", "SI3", 12, listOf<QString>({"ab", "", "cd"}), same}};
        TestSupport::addRows(rows);
    }
    void roundTrip()
    {
        QFETCH(RoundTrip, row);
        int count = 0;
        SorvikValues::visitElementType(row.type, [&](auto element) {
            count = SorvikValues::listFrom<typename decltype(element)::type>(row.value).size();
        });
        const QDateTime before = QDateTime::currentDateTime();
        const CLabelVariable written = m_drive.WriteVariable(row.tag, DataType(row.type), recordOf(row.value), count);
        QCOMPARE(written.status, 0);
        QVERIFY(written.time >= before);
        QVERIFY(written.tag == row.tag && written.length == count && written.dataType == row.type);
        COMPARE_VALUE(row.type, written.value, row.value);

        const CLabelVariable read = m_drive.ReadVariable(row.tag, DataType(row.type), count);
        QCOMPARE(read.status, 0);
        COMPARE_VALUE(row.type, read.value, row.readBack.isValid() ? row.readBack : row.value);
    }

    // Against a silent controller: every field that came in stays but the status,
    // and a refused write sends nothing.
    void failedWrite_data()
    {
        const Failed rows[] = {
            {"no area wins over count", "xy1", 6, listOf<int>({1}), -1, 3},
            {"negative count wins over type", "AI1", 0, listOf<int>({1}), -1, 4},
            {"type 0", "AI1", 0, listOf<int>({1}), 1, 2},
            {"float to LW", "LW1", 8, listOf<float>({1}), 1, 2},
            {"Int32 to AO", "AO1", 6, listOf<int>({1}), 1, 2},
            {"count 0", "LW1", 6, listOf<int>({1}), 0, 4},
            {"type 13", "AI1", 13, listOf<short>({1}), 1, 4},
            {"too long", "LW1", 6, filled<int>(367, 1), 367, 4},
            {"huge count", "LW1", 6, listOf<int>({1}), 2147483647, 4},
            // A value that is no list of the type's elements, or one shorter than count, would send undefined bytes.
            {"other list type", "AI1", 4, listOf<int>({1}), 1, 2},
            {"bare number", "LW1", 6, QVariant(5), 1, 2},
            {"short list", "AI1", 4, listOf<short>({1, 2}), 3, 4},
            {"empty string list", "SI1", 12, listOf<QString>({}), 1, 4},
            {"string too long for its block of several", "SI1", 12, listOf<QString>({QString(300, 'x'), "y"}), 2, 4},
            // The wide types pass the type check in every area, so they reach the silent controller.
            {"Int64 to DI", "DI1", 9, listOf<qlonglong>({-1}), 1, 8},
            {"UInt64 to SI", "SI1", 10, listOf<qulonglong>({1}), 1, 8},
            {"double to LW", "LW1", 11, listOf<double>({1}), 1, 8}};
        TestSupport::addRows(rows);
    }
    void failedWrite()
    {
        QFETCH(Failed, row);
        SimFaults silent;
        silent.silent = true;
        m_sim.setFaults(silent);
        CLabelVariable label = recordOf(row.value);
        label.status = 0; // a status that came in never survives
        label.statusAux = 10;
        label.auxWord = 77;
        label.auxText = QStringLiteral("kept");
        label.time = QDateTime(QDate(2001, 2, 3), QTime(4, 5, 6));
        const CLabelVariable record = m_drive.WriteVariable(row.tag, DataType(row.type), label, row.count);
        QCOMPARE(record.status, row.status);
        QVERIFY(record.tag == row.tag && record.dataType == row.type && record.length == row.count);
        QVERIFY(record.time == label.time && record.statusAux == 10 && record.auxWord == 77 &&
                record.auxText == "kept");
        QCOMPARE(record.value.userType(), row.value.userType());
        if (row.type >= TYPE_BOOL && row.type <= TYPE_STRING && row.value.isValid())
            COMPARE_VALUE(row.type, record.value, row.value);
        QCOMPARE(m_sim.frameCount(), row.status == 8 ? 1 : 0);
    }
};

QTEST_GUILESS_MAIN(TestOneTagWrite)
#include "tst_one_tag_write.moc"
