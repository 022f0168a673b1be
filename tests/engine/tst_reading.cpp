// Reading tag lists: one read per tag, strings as raw bytes under their canonical text; or one read per
// planned block, the reply cut into one record per tag.

#include "engine/CInductiveDrive.h"
#include "protocol/ElementBytes.h"

#include "DataRows.h"
#include "EngineTestSupport.h"

#include <QtTest>

using Induction::SReadInfo;
using Induction::SReadInfo_manual;

namespace {

const QString kConnect = QStringLiteral("10.0.0.9:6000");

// Memory of one area, answered like the one-tag path: QList<char> for DataType 2, QList<bool> for 1.
struct Device : EngineTest::ReadPath {
    QByteArray bytes;
    QList<bool> points;
    int status = 0;       // anything but 0 answers without a value and a time
    QVariant forcedValue; // a value of the wrong type, if set
    const QDateTime time = QDateTime(QDate(2024, 3, 1), QTime(12, 0, 5));

    explicit Device(CInductiveDrive &engine) : ReadPath(engine)
    {
        answer = [this](const QString &tag, DataType type, int count) { return reply(tag, type, count); };
    }
    CLabelVariable reply(const QString &tag, DataType type, int count) const
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
        const int n = qMin(count, bytes.size());
        if (forcedValue.isValid())
            reply.value = forcedValue;
        else if (type == TYPE_BOOL)
            reply.value = QVariant::fromValue(points.mid(0, count));
        else
            reply.value = QVariant::fromValue(QList<char>(bytes.begin(), bytes.begin() + n));
        return reply;
    }
};

QList<SReadInfo> planOne(CInductiveDrive &engine, const QString &tags)
{
    const QList<QList<SReadInfo>> keys = engine.InductiveDrive_Read(kConnect, EngineTest::readInfos(tags));
    return keys.size() == 1 ? keys.first() : QList<SReadInfo>();
}

QList<SReadInfo> manualOne(CInductiveDrive &engine, const QString &start, int length,
                           const QList<SReadItem_manual> &items)
{
    return engine.InductiveDrive_Read(kConnect, QList<SReadInfo_manual>{{start, length, items}}).value(0);
}

struct Element {
    const char *tag;
    int type, offset;
    const char *hex, *value;
};

const QString kSerial = QStringLiteral("COM3,9600,8,1,N");

// Answers with the count of reads so far; SO and tags of no area fail with 3.
struct Recorder : EngineTest::ReadPath {
    explicit Recorder(CInductiveDrive &engine) : ReadPath(engine)
    {
        answer = [this](const QString &tag, DataType type, int count) {
            CLabelVariable reply;
            reply.status = tag.startsWith(QLatin1String("SO")) || tag.startsWith(QLatin1String("UNKNOW")) ? 3 : 0;
            reply.tag = tag;
            reply.dataType = type;
            reply.length = count;
            reply.value = QVariant::fromValue(QList<int>{calls.size()});
            return reply;
        };
    }
};

// A string tag and the tag and count it is read under.
struct StringRoad {
    const char *tag, *readTag;
    int count;
};

} // namespace

Q_DECLARE_METATYPE(Element)
Q_DECLARE_METATYPE(StringRoad)

class TestReading : public QObject
{
    Q_OBJECT

private slots:
    // Non-string types go out as written, count 1; without a callback the record is fresh.
    void otherTypesGoOutAsWritten()
    {
        CInductiveDrive engine;
        const SReadInfo ai5{"AI5", 6};
        QVERIFY(engine.PointReading(kSerial, ai5).status == 1 && !engine.PointReading(kSerial, ai5).value.isValid());
        QCOMPARE(engine.PointReading(kSerial, QList<SReadInfo>{ai5}, 0).value(ai5).status, 1);
        Recorder device(engine);
        const QList<SReadInfo> infos{{"AI5", 6}, {"ai5", 6}, {"Custom5", 4}, {"AI005", 41}, {"AI5", -1}, {"AI5", 42}};
        for (const SReadInfo &info : infos) {
            const CLabelVariable record = engine.PointReading(kSerial, info);
            QCOMPARE(device.calls.last(), QStringLiteral("%1 %2 1").arg(info.tag).arg(info.dataType));
            QCOMPARE(record.tag, info.tag); // the record comes back unchanged
            QCOMPARE(record.value.value<QList<int>>(), QList<int>{device.calls.size()});
        }
        QCOMPARE(device.connects.first(), kSerial);
        QVERIFY(engine.m_stringPoints.isEmpty());
    }

    // The size is known only for SI and SO.
    void stringTagGoesOutUnderItsCanonicalText_data()
    {
        const StringRoad rows[] = {{"SI5", "SI5", 256},    {"SI005", "SI5", 256}, {"si5", "SI5", -1},
                                   {"SO5", "SO5", 256},    {"AI5", "AI5", -1},    {"AI5[20]", "UNKNOW-1", 20},
                                   {"XY1", "UNKNOW-1", -1}};
        TestSupport::addRows(rows, [](const StringRoad &r) { return QString(r.tag); });
    }
    void stringTagGoesOutUnderItsCanonicalText()
    {
        QFETCH(StringRoad, row);
        CInductiveDrive engine;
        Recorder device(engine);
        const CLabelVariable record = engine.PointReading(kSerial, SReadInfo{row.tag, TYPE_STRING});
        QCOMPARE(device.calls, QStringList{QStringLiteral("%1 2 %2").arg(row.readTag).arg(row.count)});
        // The record is that of a byte read: nothing is turned into text here.
        QVERIFY(record.tag == row.readTag && record.dataType == TYPE_INT8);
        const SStringPoint point = engine.m_stringPoints[kSerial][SReadInfo{row.tag, TYPE_STRING}];
        QVERIFY(point.tag == row.readTag && point.dataType == TYPE_INT8 && point.length == row.count);
    }

    void stringCacheIsPerConnectionAndTrusted()
    {
        CInductiveDrive engine;
        Recorder device(engine);
        const SReadInfo si{"SI005", TYPE_STRING};
        engine.PointReading(kSerial, si);
        engine.PointReading("other", si);
        QVERIFY(engine.m_stringPoints.size() == 2 && engine.m_stringPoints[kSerial].size() == 1);
        // A made entry is used as it stands; a blank one is made anew.
        engine.m_stringPoints[kSerial][si].tag = QStringLiteral("SI9");
        engine.PointReading(kSerial, si);
        engine.m_stringPoints[kSerial][si] = SStringPoint();
        engine.PointReading(kSerial, si);
        QCOMPARE(device.calls.mid(2), (QStringList{"SI9 2 256", "SI5 2 256"}));
        engine.DelInductiveDrive_Read(kSerial); // no removal touches it
        engine.DelCannotInductiveDrive_Read(kSerial);
        QCOMPARE(engine.m_stringPoints[kSerial].size(), 1);
    }

    // One failure stops nothing; the pause follows every tag, the last one too.
    void listReadsEveryEntryInOrderAndPauses()
    {
        CInductiveDrive engine;
        Recorder device(engine);
        QVERIFY(engine.PointReading(kSerial, QList<SReadInfo>(), 10000).isEmpty());
        QVERIFY(device.calls.isEmpty());

        const QList<SReadInfo> infos{{"DI2", 1}, {"SO5", 12}, {"AI1", 8}, {"DI2", 1}};
        QElapsedTimer timer;
        timer.start();
        const QMap<SReadInfo, CLabelVariable> records = engine.PointReading(kSerial, infos, 40);
        QVERIFY2(timer.elapsed() >= 155, qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(device.calls, (QStringList{"DI2 1 1", "SO5 2 256", "AI1 8 1", "DI2 1 1"}));
        for (int i = 1; i < 4; ++i)
            QVERIFY(device.times[i] - device.times[i - 1] >= 38);
        QCOMPARE(records.size(), 3);
        QCOMPARE(records[infos[0]].value.value<QList<int>>(), QList<int>{4}); // the later read stands
        QCOMPARE(records[infos[1]].status, 3);                                // a failure keeps its entry
    }

    // AI1 takes bytes 0 to 3, AI3 bytes 8 to 11; the hole of AI2 is dropped.
    void workedBlock()
    {
        CInductiveDrive engine;
        Device device(engine);
        ElementBytes::append<qint32>(device.bytes, -123456);
        device.bytes.append("\x01\x02\x03\x04", 4);
        ElementBytes::append<float>(device.bytes, 2.5f);
        const QList<SReadInfo> key = planOne(engine, "AI3/8 AI1/6 AI3/4");

        const QMap<SReadInfo, CLabelVariable> records = engine.BlockReading(kConnect, key);
        QCOMPARE(device.calls, QStringList{"AI1 2 12"});
        QCOMPARE(device.connects, QStringList{kConnect});
        // AI3 as short: the low half of 2.5f.
        QCOMPARE(EngineTest::describe(records),
                 (QStringList{"AI1/6=QList<int>:-123456", "AI3/4=QList<short>:0", "AI3/8=QList<float>:2.5"}));
        for (auto record = records.cbegin(); record != records.cend(); ++record) {
            QCOMPARE(record->tag, record.key().tag);
            QCOMPARE(record->dataType, record.key().dataType);
            QCOMPARE(record->length, 1);
            QCOMPARE(record->status, 0);
            QCOMPARE(record->time, device.time);
            QVERIFY(record->auxText == "aux" && record->statusAux == 7 && record->auxWord == 99);
        }
        // The plan stays, and every call is a fresh read.
        engine.BlockReading(kConnect, key);
        QCOMPARE(device.calls.size(), 2);
    }

    // One tag in a manual byte block of AI, cut from the bytes of the reply.
    void elements_data()
    {
        const Element rows[] = {{"AI1", 1, 9, "fd02", "QList<bool>:true"},
                                {"AI1", 1, 8, "fffe", "QList<bool>:false"},
                                {"AI1", 2, 0, "ff", "QList<char>:-1"},
                                {"AI1", 3, 0, "ff", "QList<char>:-1"},
                                {"AI1", 4, 0, "feff", "QList<short>:-2"},
                                {"AI1", 14, 0, "0201", "QList<short>:258"},
                                {"AI1", 5, 0, "feff", "QList<ushort>:65534"},
                                {"AI1", 16, 0, "feff", "QList<ushort>:65534"},
                                {"AI1", 6, 1, "0000000078563412", "QList<int>:305419896"},
                                {"AI1", 20, 0, "ffffffff", "QList<int>:-1"},
                                {"AI1", 7, 0, "feffffff", "QList<uint>:4294967294"},
                                {"AI1", 22, 0, "01000000", "QList<uint>:1"},
                                {"AI1", 8, 0, "0000c03f", "QList<float>:1.5"},
                                {"AI1", 36, 0, "000020c0", "QList<float>:-2.5"},
                                {"AI1", 9, 0, "0100000000000080", "QList<qlonglong>:-9223372036854775807"},
                                {"AI1", 27, 0, "0200000000000000", "QList<qlonglong>:2"},
                                {"AI1", 10, 0, "ffffffffffffffff", "QList<qulonglong>:18446744073709551615"},
                                {"AI1", 30, 0, "0300000000000000", "QList<qulonglong>:3"},
                                {"AI1", 11, 0, "000000000000f83f", "QList<double>:1.5"},
                                {"AI1", 39, 0, "00000000000000c0", "QList<double>:-2"},
                                {"AI1[5]", 12, 0, "6162006364", "QList<QString>:ab"},
                                {"AI1[3]", 12, 0, "616263646566", "QList<QString>:abc"},
                                {"AI1[4]", 12, 0, "c3a9", "QList<QString>:é"},
                                {"SI1", 12, 1, "6162636478797a", "QList<QString>:xyz"},
                                {"AI1", 41, 0, "ff", "invalid"}};
        TestSupport::addRows(rows, [](const Element &r) {
            return QStringLiteral("%1/%2@%3 %4").arg(r.tag).arg(r.type).arg(r.offset).arg(r.hex);
        });
    }
    void elements()
    {
        QFETCH(Element, row);
        CInductiveDrive engine;
        Device device(engine);
        device.bytes = QByteArray::fromHex(row.hex);
        const QMap<SReadInfo, CLabelVariable> records =
            engine.BlockReading(kConnect, manualOne(engine, "AI1", 16, {{row.tag, row.type, row.offset}}));
        QCOMPARE(EngineTest::describe(records),
                 QStringList{QStringLiteral("%1/%2=%3").arg(row.tag).arg(row.type).arg(QString::fromUtf8(row.value))});
    }

    void bitBlockGivesBoolsOfEveryType()
    {
        CInductiveDrive engine;
        Device device(engine);
        device.points = {true, false, true};
        const QMap<SReadInfo, CLabelVariable> records =
            engine.BlockReading(kConnect, planOne(engine, "DI5/4 DI6/1 DI7/12"));
        QCOMPARE(device.calls, QStringList{"DI5 1 3"});
        QCOMPARE(EngineTest::describe(records),
                 (QStringList{"DI5/4=QList<bool>:true", "DI6/1=QList<bool>:false", "DI7/12=QList<bool>:true"}));
        QCOMPARE(records.first().dataType, 4);
        QCOMPARE(records.last().length, 1);
    }

    // A failed byte block gives every sized tag zero and the status; a failed bit block nothing.
    void failedOrWrongReplies()
    {
        CInductiveDrive engine;
        Device device(engine);
        device.status = 8;
        const QMap<SReadInfo, CLabelVariable> records =
            engine.BlockReading(kConnect, planOne(engine, "AI1/6 AI2/1 AI3/41 AI4/0 AI5/12"));
        QCOMPARE(EngineTest::describe(records),
                 (QStringList{"AI1/6=QList<int>:0", "AI2/1=QList<bool>:false", "AI3/41=invalid"}));
        for (const CLabelVariable &record : records)
            QVERIFY(record.status == 8 && record.time.isNull());
        QCOMPARE(EngineTest::describe(engine.BlockReading(kConnect, planOne(engine, "SI1/12"))),
                 QStringList{"SI1/12=QList<QString>:"});
        QVERIFY(engine.BlockReading(kConnect, planOne(engine, "DI1/1 DI2/6")).isEmpty());

        device.status = 0;
        device.forcedValue = QVariant::fromValue(QList<int>{1, 2, 3});
        QCOMPARE(EngineTest::describe(engine.BlockReading(kConnect, planOne(engine, "AI1/6"))),
                 QStringList{"AI1/6=QList<int>:0"});
        QVERIFY(engine.BlockReading(kConnect, planOne(engine, "DI1/1")).isEmpty());
        device.forcedValue = QStringLiteral("text");
        QVERIFY(engine.BlockReading(kConnect, planOne(engine, "DI1/1")).isEmpty());
    }

    void nothingToRead()
    {
        CInductiveDrive engine;
        const QList<SReadInfo> key = planOne(engine, "AI1/6 AI3/8");
        QVERIFY(engine.BlockReading(kConnect, key).isEmpty()); // no callback yet

        Device device(engine);
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

    // Manual blocks are taken on trust: places outside the reply must neither crash nor shift data.
    void oddPlacesAreSkippedOrZero()
    {
        CInductiveDrive engine;
        Device device(engine);
        device.bytes = QByteArray(8, '\x7f');
        device.points = {true};
        const QList<SReadItem_manual> items{{"AI1", 6, -1}, {"AI2", 6, 2147483647},     {"AI3", 1, 2147483647},
                                            {"AI4", 1, -8}, {"SI5[2000000000]", 12, 0}, {"AI6", 99, 0},
                                            {"AI7", -4, 0}};
        QCOMPARE(EngineTest::describe(engine.BlockReading(kConnect, manualOne(engine, "AI1", 8, items))),
                 (QStringList{"AI2/6=QList<int>:0", "AI3/1=QList<bool>:false",
                              "SI5[2000000000]/12=QList<QString>:\x7f\x7f\x7f\x7f\x7f\x7f\x7f\x7f"}));
        const QList<SReadItem_manual> points{{"DI1", 1, -1}, {"DI2", 1, 1}, {"DI3", 1, 0}};
        QCOMPARE(engine.BlockReading(kConnect, manualOne(engine, "DI1", 1, points)).keys(),
                 (QList<SReadInfo>{{"DI3", 1}}));
    }

    void planRemovedDuringTheRead()
    {
        CInductiveDrive engine;
        Device device(engine);
        const QList<SReadInfo> key = planOne(engine, "AI1/6 AI2/6");
        device.bytes = QByteArray::fromHex("0100000002000000");
        device.answer = [&](const QString &tag, DataType type, int count) {
            engine.DelInductiveDrive_Read(kConnect);
            return device.reply(tag, type, count);
        };
        QCOMPARE(engine.BlockReading(kConnect, key).size(), 2);
        QVERIFY(engine.GetInductiveDrive_Read(kConnect).isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestReading)
#include "tst_reading.moc"
