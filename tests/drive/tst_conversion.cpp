// Reply bytes to values and values to payload bytes.

#include "drive/LibSorvik.h"

#include "DriveTestSupport.h"

#include <QtTest>

#include <limits>

using DriveTest::listOf;
using DriveTest::recordOf;
using TestSupport::hex;

class TestConversion : public QObject
{
    Q_OBJECT

    LibSorvik m_drive;

    // The decoder and encoder of each type, by type code from 1 to 12.
    QVariant decode(int type, const QByteArray &data, int count)
    {
        static const decltype(&LibSorvik::set_variant_bool) decoders[] = {
            &LibSorvik::set_variant_bool,   &LibSorvik::set_variant_Int8,   &LibSorvik::set_variant_UInt8,
            &LibSorvik::set_variant_Int16,  &LibSorvik::set_variant_UInt16, &LibSorvik::set_variant_Int32,
            &LibSorvik::set_variant_UInt32, &LibSorvik::set_variant_fload,  &LibSorvik::set_variant_Int64,
            &LibSorvik::set_variant_UInt64, &LibSorvik::set_variant_double, &LibSorvik::set_variant_string};
        return (m_drive.*decoders[type - 1])(data, count);
    }
    QByteArray encode(int type, const QVariant &value, int count)
    {
        static const decltype(&LibSorvik::Wset_variant_bool) encoders[] = {
            &LibSorvik::Wset_variant_bool,   &LibSorvik::Wset_variant_Int8,   &LibSorvik::Wset_variant_UInt8,
            &LibSorvik::Wset_variant_Int16,  &LibSorvik::Wset_variant_uInt16, &LibSorvik::Wset_variant_Int32,
            &LibSorvik::Wset_variant_UInt32, &LibSorvik::Wset_variant_float,  &LibSorvik::Wset_variant_Int64,
            &LibSorvik::Wset_variant_UInt64, &LibSorvik::Wset_variant_double, &LibSorvik::Wset_variant_string};
        QByteArray payload;
        (m_drive.*encoders[type - 1])(recordOf(value), count, &payload);
        return payload;
    }

private slots:
    void decoding_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<int>("count");
        QTest::addColumn<QVariant>("expected");

        QTest::newRow("Int16") << 4 << hex("3412ffff") << 2 << listOf<short>({4660, -1});
        QTest::newRow("UInt16") << 5 << hex("3412ffff") << 2 << listOf<ushort>({4660, 65535});
        QTest::newRow("Int32") << 6 << hex("2a000000") << 1 << listOf<int>({42});
        QTest::newRow("float") << 8 << hex("0000803f") << 1 << listOf<float>({1.0f});
        QTest::newRow("Int64 most significant first") << 9 << hex("0000000000000001") << 1 << listOf<qlonglong>({1});
        QTest::newRow("double") << 11 << hex("000000000000f03f") << 1 << listOf<double>({1.0});
        QTest::newRow("Int8") << 2 << hex("ff7f") << 2 << listOf<char>({char(-1), char(127)});
        QTest::newRow("bool any non-zero") << 1 << hex("0200ff") << 3 << listOf<bool>({true, false, true});
        QTest::newRow("Int32 half inside") << 6 << hex("010000000201") << 2 << listOf<int>({1, 0x0102});
        QTest::newRow("double no data") << 11 << QByteArray() << 2 << listOf<double>({0.0, 0.0});
        QTest::newRow("longer data ignored") << 4 << hex("010002000300") << 2 << listOf<short>({1, 2});
        QTest::newRow("count 0") << 6 << hex("2a000000") << 0 << listOf<int>({});
        QTest::newRow("negative count") << 12 << hex("0161") << -3 << listOf<QString>({});
        QTest::newRow("strings") << 12 << hex("03616263017a") << 2 << listOf<QString>({"abc", "z"});
        QTest::newRow("string then empties") << 12 << hex("0161") << 3 << listOf<QString>({"a", "", ""});
        QTest::newRow("string cut at NUL") << 12 << hex("03610062017a") << 2 << listOf<QString>({"a", "z"});
        QTest::newRow("empty string eats one byte") << 12 << hex("0002787901") << 2 << listOf<QString>({"", "xy"});
        QTest::newRow("string longer than data") << 12 << hex("056162") << 2 << listOf<QString>({"ab", ""});
        QTest::newRow("negative length byte") << 12 << hex("ff0161") << 2 << listOf<QString>({"", "a"});
    }
    void decoding()
    {
        QFETCH(int, type);
        QFETCH(QByteArray, data);
        QFETCH(int, count);
        QFETCH(QVariant, expected);
        COMPARE_VALUE(type, decode(type, data, count), expected);
    }
    void encoding_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<int>("count");
        QTest::addColumn<QByteArray>("payload");

        QTest::newRow("Int16") << 4 << listOf<short>({4660, -1}) << 2 << hex("3412ffff");
        QTest::newRow("UInt16") << 5 << listOf<ushort>({65535, 1}) << 2 << hex("ffff0100");
        QTest::newRow("Int32") << 6 << listOf<int>({42}) << 1 << hex("2a000000");
        QTest::newRow("float") << 8 << listOf<float>({1.0f}) << 1 << hex("0000803f");
        QTest::newRow("Int64 least significant first") << 9 << listOf<qlonglong>({1}) << 1 << hex("0100000000000000");
        QTest::newRow("UInt64") << 10 << listOf<qulonglong>({0x0102030405060708ull}) << 1 << hex("0807060504030201");
        QTest::newRow("double") << 11 << listOf<double>({1.0}) << 1 << hex("000000000000f03f");
        QTest::newRow("bool one byte each") << 1 << listOf<bool>({true, false, true}) << 3 << hex("010001");
        QTest::newRow("Int8") << 2 << listOf<char>({1, 2, 3}) << 3 << hex("010203");
        QTest::newRow("first element only") << 6 << listOf<int>({7, 8, 9}) << 1 << hex("07000000");
        QTest::newRow("count 0") << 6 << listOf<int>({7}) << 0 << QByteArray();
        QTest::newRow("other list type") << 6 << listOf<double>({7.0}) << 1 << QByteArray();
        QTest::newRow("single number") << 6 << QVariant(42) << 1 << QByteArray();
        QTest::newRow("short list gives what it holds") << 4 << listOf<short>({1}) << 3 << hex("0100");
        QTest::newRow("string") << 12 << listOf<QString>({"abc"}) << 1 << hex("03616263");
        QTest::newRow("empty string") << 12 << listOf<QString>({""}) << 1 << hex("00");
        QTest::newRow("Latin-1 text") << 12 << listOf<QString>({QString::fromUtf8("\xc3\xa9")}) << 1 << hex("01e9");
        QTest::newRow("outside Latin-1") << 12 << listOf<QString>({QString::fromUtf8("\xe2\x82\xac")}) << 1
                                         << hex("013f");
        QTest::newRow("last string wins") << 12 << listOf<QString>({"ab", "c"}) << 2 << hex("0163");
    }
    void encoding()
    {
        QFETCH(int, type);
        QFETCH(QVariant, value);
        QFETCH(int, count);
        QFETCH(QByteArray, payload);
        QCOMPARE(encode(type, value, count).toHex(), payload.toHex());
    }
    // A direct caller's huge count must neither exhaust memory nor take long;
    // every element that can hold data is still there.
    void hugeCountStaysBounded()
    {
        const QVariant value = m_drive.set_variant_double(hex("000000000000f03f"), std::numeric_limits<int>::max());
        const QList<double> list = value.value<QList<double>>();
        QVERIFY(!list.isEmpty());
        QCOMPARE(list.first(), 1.0);
        QVERIFY(list.size() <= (1 << 20) + 1);

        const QVariant strings = m_drive.set_variant_string(hex("0161"), std::numeric_limits<int>::max());
        QCOMPARE(strings.value<QList<QString>>().first(), QStringLiteral("a"));
    }
    // Lists are cut from one kept per type: a decode leaves nothing in it for the next.
    void aDecodeLeavesNothingBehind()
    {
        const int longest = 1467;
        QCOMPARE(m_drive.set_variant_UInt8(QByteArray(longest, '\x01'), longest).value<QList<uchar>>().count(1),
                 longest);
        QCOMPARE(m_drive.set_variant_UInt8(QByteArray(), longest).value<QList<uchar>>().count(0), longest);
        QCOMPARE(m_drive.set_variant_UInt8(QByteArray(), longest + 1).value<QList<uchar>>().count(0), longest + 1);
    }
};

QTEST_GUILESS_MAIN(TestConversion)
#include "tst_conversion.moc"
