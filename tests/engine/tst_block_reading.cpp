// Block reading: one read per block, and the reply cut into one record per
// tag. The engine's read callback is served by a stand-in that answers like
// the one-tag path: a QList<char> for DataType 2, a QList<bool> for DataType 1.

#include "engine/CInductiveDrive.h"
#include "engine/ElementBytes.h"

#include <QElapsedTimer>
#include <QtTest>

using Induction::SReadInfo;
using Induction::SReadInfo_manual;

namespace {

const QString kConnect = QStringLiteral("10.0.0.9:6000");

struct ReadCall {
    QString connectPar;
    QString tag;
    int dataType;
    int count;
};

// Memory of one area and the reply that the one-tag path would make of it.
class Device
{
public:
    QByteArray bytes;     // byte blocks read from here, from the block start
    QList<bool> points;   // bit blocks read from here, from the block start
    int status = 0;       // anything but 0 answers without a value and a time
    int available = -1;   // elements that come back; -1 for all that were asked
    QVariant forcedValue; // a value of the wrong type, if set
    QList<ReadCall> calls;
    const QDateTime time = QDateTime(QDate(2024, 3, 1), QTime(12, 0, 5));

    void attach(CInductiveDrive &engine)
    {
        engine.m_readCallback = [this](const QString &connectPar, const QString &tag, DataType type, int count) {
            calls.append({connectPar, tag, type, count});
            return answer(tag, type, count);
        };
    }

    CLabelVariable answer(const QString &tag, DataType type, int count) const
    {
        CLabelVariable reply;
        reply.status = status;
        reply.statusAux = 7;
        reply.auxWord = 99;
        reply.auxText = QStringLiteral("aux");
        reply.tag = tag;
        reply.dataType = type;
        reply.length = count;
        if (status != 0)
            return reply;
        reply.time = time;
        const int n = available < 0 ? count : qMin(count, available);
        if (forcedValue.isValid())
            reply.value = forcedValue;
        else if (type == TYPE_BOOL)
            reply.value = QVariant::fromValue(points.mid(0, n));
        else
            reply.value = QVariant::fromValue(QList<char>(bytes.begin(), bytes.begin() + qMin(n, bytes.size())));
        return reply;
    }
};

// The value of a record as text, with its list type: "QList<short>:-2".
QString render(const QVariant &value)
{
    if (!value.isValid())
        return QStringLiteral("invalid");
    QStringList out;
    for (const QVariant &element : value.value<QSequentialIterable>())
        out << (element.userType() == QMetaType::Char ? QString::number(int(element.value<char>()))
                                                      : element.toString());
    return QLatin1String(value.typeName()) + ':' + out.join(',');
}

SReadInfo at(const QString &tag, int dataType)
{
    return {tag, dataType};
}

QList<SReadInfo> planOne(CInductiveDrive &engine, const QList<SReadInfo> &infos)
{
    const QList<QList<SReadInfo>> keys = engine.InductiveDrive_Read(kConnect, infos);
    return keys.size() == 1 ? keys.first() : QList<SReadInfo>();
}

QList<SReadInfo> manualOne(CInductiveDrive &engine, const QString &start, int length,
                           const QList<SReadItem_manual> &items)
{
    return engine.InductiveDrive_Read(kConnect, QList<SReadInfo_manual>{{start, length, items}}).value(0);
}

} // namespace

class TestBlockReading : public QObject
{
    Q_OBJECT

private slots:
    void workedBlock();
    void blockTagText_data();
    void blockTagText();
    void elements_data();
    void elements();
    void bitBlockGivesBoolsOfEveryType();
    void failedBlocks();
    void shortReplies();
    void valueOfTheWrongType();
    void nothingToRead();
    void oddPlacesAreSkippedOrZero();
    void planChangedDuringTheRead();
    void cuttingIsCheap();
};

void TestBlockReading::workedBlock()
{
    CInductiveDrive engine;
    Device device;
    device.attach(engine);
    ElementBytes::append<qint32>(device.bytes, -123456);
    device.bytes.append("\x01\x02\x03\x04", 4); // the hole of AI2
    ElementBytes::append<float>(device.bytes, 2.5f);
    const QList<SReadInfo> key = planOne(engine, {{"AI3", 8}, {"AI1", 6}, {"AI3", 4}});

    const QMap<SReadInfo, CLabelVariable> records = engine.BlockReading(kConnect, key);
    QCOMPARE(device.calls.size(), 1);
    QCOMPARE(device.calls[0].connectPar, kConnect);
    QCOMPARE(device.calls[0].tag, QStringLiteral("AI1"));
    QCOMPARE(device.calls[0].dataType, int(TYPE_INT8));
    QCOMPARE(device.calls[0].count, 12);

    QCOMPARE(records.keys(), key);
    const QStringList values{"QList<int>:-123456", "QList<short>:0",
                             "QList<float>:2.5"}; // AI3 as short: the low half of 2.5f
    for (int i = 0; i < key.size(); ++i) {
        const CLabelVariable &record = records[key[i]];
        QCOMPARE(record.tag, key[i].tag);
        QCOMPARE(record.dataType, key[i].dataType);
        QCOMPARE(record.length, 1);
        QCOMPARE(record.status, 0);
        QCOMPARE(record.time, device.time);
        QCOMPARE(record.auxText, QStringLiteral("aux"));
        QCOMPARE(record.statusAux, 7);
        QCOMPARE(record.auxWord, 99);
        QCOMPARE(render(record.value), values[i]);
    }
    // The plan stays, and every call is a fresh read.
    engine.BlockReading(kConnect, key);
    QCOMPARE(device.calls.size(), 2);
}

void TestBlockReading::blockTagText_data()
{
    QTest::addColumn<QList<SReadInfo>>("tags");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("dataType");
    QTest::addColumn<int>("count");

    QTest::newRow("leading zeros dropped") << QList<SReadInfo>{{"AI005", 6}} << "AI5" << 2 << 4;
    QTest::newRow("lower case kept") << QList<SReadInfo>{{"ai7", 8}, {"ai9", 6}} << "ai7" << 2 << 12;
    QTest::newRow("bit block") << QList<SReadInfo>{{"NDI40", 1}, {"NDI32", 6}} << "NDI32" << 1 << 9;
    QTest::newRow("string") << QList<SReadInfo>{{"SI1", 12}} << "SI1" << 2 << 256;
}

void TestBlockReading::blockTagText()
{
    QFETCH(QList<SReadInfo>, tags);
    QFETCH(QString, text);
    QFETCH(int, dataType);
    QFETCH(int, count);
    CInductiveDrive engine;
    Device device;
    device.attach(engine);
    engine.BlockReading(kConnect, planOne(engine, tags));
    QCOMPARE(device.calls.size(), 1);
    QCOMPARE(device.calls[0].tag, text);
    QCOMPARE(device.calls[0].dataType, dataType);
    QCOMPARE(device.calls[0].count, count);
}

void TestBlockReading::elements_data()
{
    QTest::addColumn<QString>("tag");
    QTest::addColumn<int>("dataType");
    QTest::addColumn<int>("offset");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("value");

    QTest::newRow("bool bit 0") << "AI1" << 1 << 0 << QByteArray::fromHex("01") << "QList<bool>:true";
    QTest::newRow("bool bit 9") << "AI1" << 1 << 9 << QByteArray::fromHex("fd02") << "QList<bool>:true";
    QTest::newRow("bool bit 8 clear") << "AI1" << 1 << 8 << QByteArray::fromHex("fffe") << "QList<bool>:false";
    QTest::newRow("int8") << "AI1" << 2 << 0 << QByteArray::fromHex("ff") << "QList<char>:-1";
    QTest::newRow("uint8 stays char") << "AI1" << 3 << 0 << QByteArray::fromHex("ff") << "QList<char>:-1";
    QTest::newRow("int16") << "AI1" << 4 << 0 << QByteArray::fromHex("feff") << "QList<short>:-2";
    QTest::newRow("int16 form 13") << "AI1" << 13 << 0 << QByteArray::fromHex("feff") << "QList<short>:-2";
    QTest::newRow("int16 form 14") << "AI1" << 14 << 0 << QByteArray::fromHex("0201") << "QList<short>:258";
    QTest::newRow("uint16") << "AI1" << 5 << 0 << QByteArray::fromHex("feff") << "QList<ushort>:65534";
    QTest::newRow("uint16 form 16") << "AI1" << 16 << 0 << QByteArray::fromHex("feff") << "QList<ushort>:65534";
    QTest::newRow("int32 at offset 1") << "AI1" << 6 << 1 << QByteArray::fromHex("0000000078563412")
                                       << "QList<int>:305419896";
    QTest::newRow("int32 form 20") << "AI1" << 20 << 0 << QByteArray::fromHex("ffffffff") << "QList<int>:-1";
    QTest::newRow("uint32") << "AI1" << 7 << 0 << QByteArray::fromHex("feffffff") << "QList<uint>:4294967294";
    QTest::newRow("uint32 form 22") << "AI1" << 22 << 0 << QByteArray::fromHex("01000000") << "QList<uint>:1";
    QTest::newRow("float") << "AI1" << 8 << 0 << QByteArray::fromHex("0000c03f") << "QList<float>:1.5";
    QTest::newRow("float form 36") << "AI1" << 36 << 0 << QByteArray::fromHex("000020c0") << "QList<float>:-2.5";
    QTest::newRow("int64") << "AI1" << 9 << 0 << QByteArray::fromHex("0100000000000080")
                           << "QList<qlonglong>:-9223372036854775807";
    QTest::newRow("int64 form 27") << "AI1" << 27 << 0 << QByteArray::fromHex("0200000000000000")
                                   << "QList<qlonglong>:2";
    QTest::newRow("uint64") << "AI1" << 10 << 0 << QByteArray::fromHex("ffffffffffffffff")
                            << "QList<qulonglong>:18446744073709551615";
    QTest::newRow("uint64 form 30") << "AI1" << 30 << 0 << QByteArray::fromHex("0300000000000000")
                                    << "QList<qulonglong>:3";
    QTest::newRow("double") << "AI1" << 11 << 0 << QByteArray::fromHex("000000000000f83f") << "QList<double>:1.5";
    QTest::newRow("double form 39") << "AI1" << 39 << 0 << QByteArray::fromHex("00000000000000c0")
                                    << "QList<double>:-2";
    QTest::newRow("string to zero") << "AI1[5]" << 12 << 0 << QByteArray("ab\0cd", 5) << "QList<QString>:ab";
    QTest::newRow("string fills size") << "AI1[3]" << 12 << 0 << QByteArray("abcdef") << "QList<QString>:abc";
    QTest::newRow("string UTF-8") << "AI1[4]" << 12 << 0 << QByteArray::fromHex("c3a9") << "QList<QString>:é";
    QTest::newRow("string at offset 1") << "SI1" << 12 << 1 << QByteArray("abcdxyz") << "QList<QString>:xyz";
    QTest::newRow("no element") << "AI1" << 41 << 0 << QByteArray::fromHex("ff") << "invalid";
}

// One tag in a manual byte block of AI, placed at `offset`.
void TestBlockReading::elements()
{
    QFETCH(QString, tag);
    QFETCH(int, dataType);
    QFETCH(int, offset);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, value);
    CInductiveDrive engine;
    Device device;
    device.attach(engine);
    device.bytes = bytes;
    const QMap<SReadInfo, CLabelVariable> records =
        engine.BlockReading(kConnect, manualOne(engine, "AI1", 16, {{tag, dataType, offset}}));
    QCOMPARE(records.size(), 1);
    QCOMPARE(render(records.first().value), value);
    QCOMPARE(records.first().dataType, dataType);
}

void TestBlockReading::bitBlockGivesBoolsOfEveryType()
{
    CInductiveDrive engine;
    Device device;
    device.attach(engine);
    device.points = {true, false, true};
    const QList<SReadInfo> key = planOne(engine, {{"DI5", 4}, {"DI6", 1}, {"DI7", 12}});
    const QMap<SReadInfo, CLabelVariable> records = engine.BlockReading(kConnect, key);
    QCOMPARE(device.calls[0].dataType, int(TYPE_BOOL));
    QCOMPARE(device.calls[0].count, 3);
    QCOMPARE(render(records[at("DI5", 4)].value), QStringLiteral("QList<bool>:true"));
    QCOMPARE(records[at("DI5", 4)].dataType, 4);
    QCOMPARE(render(records[at("DI6", 1)].value), QStringLiteral("QList<bool>:false"));
    QCOMPARE(render(records[at("DI7", 12)].value), QStringLiteral("QList<bool>:true"));
    QCOMPARE(records[at("DI7", 12)].length, 1);
}

void TestBlockReading::failedBlocks()
{
    CInductiveDrive engine;
    Device device;
    device.attach(engine);
    device.status = 8;
    const QList<SReadInfo> bytesKey = planOne(engine, {{"SI1", 12}});
    const QList<SReadInfo> wordKey = planOne(engine, {{"AI1", 6}, {"AI2", 1}, {"AI3", 41}, {"AI4", 0}});
    const QList<SReadInfo> bitsKey = planOne(engine, {{"DI1", 1}, {"DI2", 6}});

    // A failed byte block still gives every tag of known size, with the failing status.
    QMap<SReadInfo, CLabelVariable> records = engine.BlockReading(kConnect, wordKey);
    QCOMPARE(records.keys(), (QList<SReadInfo>{{"AI1", 6}, {"AI2", 1}, {"AI3", 41}}));
    QStringList values;
    for (const CLabelVariable &record : records) {
        QCOMPARE(record.status, 8);
        QVERIFY(record.time.isNull());
        values << render(record.value);
    }
    QCOMPARE(values, (QStringList{"QList<int>:0", "QList<bool>:false", "invalid"}));
    records = engine.BlockReading(kConnect, bytesKey);
    QCOMPARE(render(records[at("SI1", 12)].value), QStringLiteral("QList<QString>:"));
    QCOMPARE(records[at("SI1", 12)].status, 8);

    // A failed bit block shows as missing entries.
    device.status = 9;
    QVERIFY(engine.BlockReading(kConnect, bitsKey).isEmpty());
    QCOMPARE(device.calls.size(), 3);

    // One failure leaves the next read alone.
    device.status = 0;
    device.points = {true, true};
    QCOMPARE(engine.BlockReading(kConnect, bitsKey).size(), 2);
}

void TestBlockReading::shortReplies()
{
    CInductiveDrive engine;
    Device device;
    device.attach(engine);
    device.bytes = QByteArray::fromHex("01000000"
                                       "00000000"
                                       "0102"
                                       "0304");
    device.available = 10;
    QMap<SReadInfo, CLabelVariable> records = engine.BlockReading(kConnect, planOne(engine, {{"AI1", 6}, {"AI3", 6}}));
    QCOMPARE(render(records[at("AI1", 6)].value), QStringLiteral("QList<int>:1"));
    QCOMPARE(render(records[at("AI3", 6)].value), QStringLiteral("QList<int>:513")); // straddles the end: keeps 01 02
    QCOMPARE(records[at("AI3", 6)].status, 0);

    device.available = 2;
    device.points = {true, true, true};
    records = engine.BlockReading(kConnect, planOne(engine, {{"DO1", 1}, {"DO2", 1}, {"DO3", 1}}));
    QCOMPARE(records.keys(), (QList<SReadInfo>{{"DO1", 1}, {"DO2", 1}}));
}

void TestBlockReading::valueOfTheWrongType()
{
    CInductiveDrive engine;
    Device device;
    device.attach(engine);
    device.forcedValue = QVariant::fromValue(QList<int>{1, 2, 3});
    QMap<SReadInfo, CLabelVariable> records = engine.BlockReading(kConnect, planOne(engine, {{"AI1", 6}}));
    QCOMPARE(render(records[at("AI1", 6)].value), QStringLiteral("QList<int>:0"));
    QVERIFY(engine.BlockReading(kConnect, planOne(engine, {{"DI1", 1}})).isEmpty());
    device.forcedValue = QStringLiteral("text");
    QVERIFY(engine.BlockReading(kConnect, planOne(engine, {{"DI1", 1}})).isEmpty());
}

void TestBlockReading::nothingToRead()
{
    CInductiveDrive engine;
    Device device;
    const QList<SReadInfo> key = planOne(engine, {{"AI1", 6}, {"AI3", 8}});
    QVERIFY(engine.BlockReading(kConnect, key).isEmpty()); // no callback yet

    device.attach(engine);
    QVERIFY(engine.BlockReading(kConnect, {key[1], key[0]}).isEmpty());
    QVERIFY(engine.BlockReading(kConnect, {key[0]}).isEmpty());
    QVERIFY(engine.BlockReading("other", key).isEmpty());
    QVERIFY(engine.BlockReading(kConnect, manualOne(engine, "XY1", 4, {{"XY1", 6, 0}})).isEmpty()); // kind 0
    engine.DelInductiveDrive_Read(kConnect, key);
    QVERIFY(engine.BlockReading(kConnect, key).isEmpty());
    QVERIFY(device.calls.isEmpty());

    // A block without tags is read all the same.
    QVERIFY(engine.BlockReading(kConnect, manualOne(engine, "AI1", 4, {})).isEmpty());
    QCOMPARE(device.calls.size(), 1);
}

// Manual blocks are taken on trust: places outside the reply must neither
// crash nor shift data.
void TestBlockReading::oddPlacesAreSkippedOrZero()
{
    CInductiveDrive engine;
    Device device;
    device.attach(engine);
    device.bytes = QByteArray(8, '\x7f');
    device.points = {true};
    const QList<SReadItem_manual> items{{"AI1", 6, -1}, {"AI2", 6, 2147483647},     {"AI3", 1, 2147483647},
                                        {"AI4", 1, -8}, {"SI5[2000000000]", 12, 0}, {"AI6", 99, 0},
                                        {"AI7", -4, 0}};
    QMap<SReadInfo, CLabelVariable> records = engine.BlockReading(kConnect, manualOne(engine, "AI1", 8, items));
    QStringList values;
    for (auto record = records.cbegin(); record != records.cend(); ++record)
        values << record.key().tag + '=' + render(record.value().value);
    QCOMPARE(values, (QStringList{"AI2=QList<int>:0", "AI3=QList<bool>:false",
                                  "SI5[2000000000]=QList<QString>:\x7f\x7f\x7f\x7f\x7f\x7f\x7f\x7f"}));

    records =
        engine.BlockReading(kConnect, manualOne(engine, "DI1", 1, {{"DI1", 1, -1}, {"DI2", 1, 1}, {"DI3", 1, 0}}));
    QCOMPARE(records.keys(), QList<SReadInfo>{at("DI3", 1)});
}

void TestBlockReading::planChangedDuringTheRead()
{
    CInductiveDrive engine;
    Device device;
    const QList<SReadInfo> key = planOne(engine, {{"AI1", 6}, {"AI2", 6}});
    device.bytes = QByteArray::fromHex("0100000002000000");
    engine.m_readCallback = [&](const QString &, const QString &tag, DataType type, int count) {
        engine.DelInductiveDrive_Read(kConnect);
        return device.answer(tag, type, count);
    };
    QCOMPARE(engine.BlockReading(kConnect, key).size(), 2);
    QVERIFY(engine.GetInductiveDrive_Read(kConnect).isEmpty());
}

// Cutting a block of 40 floats must cost well under a microsecond per tag; the
// bound here is loose, for loaded machines and sanitizer builds.
void TestBlockReading::cuttingIsCheap()
{
    CInductiveDrive engine;
    QList<SReadInfo> infos;
    for (int n = 1; n <= 40; ++n)
        infos.append({QStringLiteral("AI%1").arg(n), TYPE_FLOAT});
    const QList<SReadInfo> key = planOne(engine, infos);
    QList<char> bytes;
    for (int i = 0; i < 160; ++i)
        bytes.append(char(i));
    CLabelVariable reply;
    reply.status = 0;
    reply.value = QVariant::fromValue(bytes);
    engine.m_readCallback = [&reply](const QString &, const QString &, DataType, int) { return reply; };

    const int rounds = 2000;
    QElapsedTimer timer;
    timer.start();
    int tags = 0;
    for (int i = 0; i < rounds; ++i)
        tags += engine.BlockReading(kConnect, key).size();
    const double perTag = double(timer.nsecsElapsed()) / tags;
    qInfo("%.0f ns per tag", perTag);
    QCOMPARE(tags, rounds * 40);
    QVERIFY2(perTag < 20000, qPrintable(QString::number(perTag)));
}

QTEST_GUILESS_MAIN(TestBlockReading)
#include "tst_block_reading.moc"
