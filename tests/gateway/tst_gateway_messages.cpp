// The rules of a data message that need no controller: how each value type
// is written, that a bad or unusable reading never carries a value, and the
// deadband.
#include "gateway/DataMessage.h"
#include "host/DataType.h"
#include "host/ValueLists.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include <limits>

Q_DECLARE_METATYPE(TagConfig)
Q_DECLARE_METATYPE(TagReading)

namespace {

TagConfig tag(int type, int count = 1)
{
    TagConfig t;
    t.name = QStringLiteral("t");
    t.tag = QStringLiteral("AI1");
    t.dataType = type;
    t.count = count;
    return t;
}

QJsonObject messageOf(const TagConfig &t, const TagReading &reading, DataStream *stream = nullptr)
{
    ScanGroupConfig group;
    group.name = QStringLiteral("g");
    group.tags = {t};
    DataStream own(QStringLiteral("gw"), QStringLiteral("plc"), group, 1000);
    DataStream *s = stream ? stream : &own;
    return QJsonDocument::fromJson(s->message(QDateTime::fromMSecsSinceEpoch(1500, Qt::UTC), {reading})).object();
}

} // namespace

class GatewayMessagesTest : public QObject
{
    Q_OBJECT

private slots:
    void valueAsJson_data();
    void valueAsJson();
    void badReadingsCarryNoValue_data();
    void badReadingsCarryNoValue();
    void deadbandLeavesOutSmallChanges();
};

void GatewayMessagesTest::valueAsJson_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("count");
    QTest::addColumn<QVariant>("list");
    QTest::addColumn<QJsonValue>("json");

    // A block read hands an unsigned byte over as a signed char.
    QTest::newRow("uint8 from a block") << int(TYPE_UINT8) << 1 << QVariant::fromValue(QList<char>{char(-1)})
                                        << QJsonValue(255);
    QTest::newRow("int8 from one tag") << int(TYPE_INT8) << 1 << QVariant::fromValue(QList<uchar>{200})
                                       << QJsonValue(-56);
    QTest::newRow("int64 exact") << int(TYPE_INT64) << 1 << QVariant::fromValue(QList<qlonglong>{-9007199254740991LL})
                                 << QJsonValue(-9007199254740991.0);
    QTest::newRow("int64 as text") << int(TYPE_INT64) << 1 << QVariant::fromValue(QList<qlonglong>{9007199254740993LL})
                                   << QJsonValue(QStringLiteral("9007199254740993"));
    QTest::newRow("uint64 max") << int(TYPE_UINT64) << 1
                                << QVariant::fromValue(QList<qulonglong>{std::numeric_limits<qulonglong>::max()})
                                << QJsonValue(QStringLiteral("18446744073709551615"));
    QTest::newRow("float nan") << int(TYPE_FLOAT) << 1
                               << QVariant::fromValue(QList<float>{std::numeric_limits<float>::quiet_NaN()})
                               << QJsonValue(QStringLiteral("nan"));
    QTest::newRow("string read alone") << int(TYPE_STRING) << 1 << QVariant::fromValue(QList<char>{'a', 'b', 0, 'c'})
                                       << QJsonValue(QStringLiteral("ab"));
    QTest::newRow("three of four") << int(TYPE_INT16) << 3 << QVariant::fromValue(QList<short>{1, 2, 3, 4})
                                   << QJsonValue(QJsonArray{1, 2, 3});
}

void GatewayMessagesTest::valueAsJson()
{
    QFETCH(int, type);
    QFETCH(int, count);
    QFETCH(QVariant, list);
    QFETCH(QJsonValue, json);
    const QJsonObject message = messageOf(tag(type, count), TagReading::good(list));
    QCOMPARE(message.value(QLatin1String("values")).toObject().value(QLatin1String("t")).toObject(),
             (QJsonObject{{"value", json}}));
    QVERIFY(message.value(QLatin1String("errors")).toObject().isEmpty());
}

void GatewayMessagesTest::badReadingsCarryNoValue_data()
{
    QTest::addColumn<TagConfig>("config");
    QTest::addColumn<TagReading>("reading");
    QTest::addColumn<QJsonObject>("error");

    QTest::newRow("no reply") << tag(TYPE_INT32) << TagReading::bad(8)
                              << QJsonObject{{"status", 8}, {"meaning", "no reply"}};
    QTest::newRow("own meaning") << tag(TYPE_INT32) << TagReading::bad(8, QStringLiteral("not trusted"))
                                 << QJsonObject{{"status", 8}, {"meaning", "not trusted"}};
    QTest::newRow("unknown status") << tag(TYPE_INT32) << TagReading::bad(77)
                                    << QJsonObject{{"status", 77}, {"meaning", "unknown status"}};
    // Status 0 but fewer elements than the tag counts: nothing is made up.
    QTest::newRow("short list") << tag(TYPE_INT32, 3) << TagReading::good(QVariant::fromValue(QList<int>{1, 2}))
                                << QJsonObject{{"status", 0}, {"meaning", "the reply held no value of this type"}};
    QTest::newRow("other type") << tag(TYPE_INT32) << TagReading::good(QVariant::fromValue(QList<float>{1}))
                                << QJsonObject{{"status", 0}, {"meaning", "the reply held no value of this type"}};
    QTest::newRow("no value at all") << tag(TYPE_INT32) << TagReading::good(QVariant())
                                     << QJsonObject{{"status", 0}, {"meaning", "the reply held no value of this type"}};
}

void GatewayMessagesTest::badReadingsCarryNoValue()
{
    QFETCH(TagConfig, config);
    QFETCH(TagReading, reading);
    QFETCH(QJsonObject, error);
    const QJsonObject message = messageOf(config, reading);
    QVERIFY(message.value(QLatin1String("values")).toObject().isEmpty());
    QCOMPARE(message.value(QLatin1String("errors")).toObject().value(QLatin1String("t")).toObject(), error);
}

// Within the deadband of the value last sent, a value is left out; a change
// of the deadband or more goes out, and so does the first good value after a
// bad one.
void GatewayMessagesTest::deadbandLeavesOutSmallChanges()
{
    TagConfig t = tag(TYPE_FLOAT);
    t.deadband = 0.5;
    ScanGroupConfig group;
    group.name = QStringLiteral("g");
    group.tags = {t};
    DataStream stream(QStringLiteral("gw"), QStringLiteral("plc"), group, 1000);
    auto sent = [&](const TagReading &reading) {
        const QJsonObject m = messageOf(t, reading, &stream);
        const QJsonObject values = m.value(QLatin1String("values")).toObject();
        return values.contains(QLatin1String("t")) ? values.value(QLatin1String("t")).toObject().value("value")
                                                   : QJsonValue(QJsonValue::Undefined);
    };
    auto value = [](float v) { return TagReading::good(QVariant::fromValue(QList<float>{v})); };
    QCOMPARE(sent(value(10)), QJsonValue(10));
    QCOMPARE(sent(value(10.25f)), QJsonValue(QJsonValue::Undefined));
    QCOMPARE(sent(value(10.5f)), QJsonValue(10.5));
    QCOMPARE(sent(value(10.75f)), QJsonValue(QJsonValue::Undefined));
    QCOMPARE(sent(TagReading::bad(8)), QJsonValue(QJsonValue::Undefined));
    QCOMPARE(sent(value(10.75f)), QJsonValue(10.75));
    QCOMPARE(stream.lastSeq(), 6);
}

QTEST_GUILESS_MAIN(GatewayMessagesTest)
#include "tst_gateway_messages.moc"
