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
    void readingAsJson_data();
    void readingAsJson();
    void deadbandLeavesOutSmallChanges();
};

// A good reading goes under "values" as JSON of its type; a bad or unusable
// one under "errors" with status and meaning, never with a value.
void GatewayMessagesTest::readingAsJson_data()
{
    QTest::addColumn<TagConfig>("config");
    QTest::addColumn<TagReading>("reading");
    QTest::addColumn<QString>("under");
    QTest::addColumn<QJsonObject>("entry");

    const auto value = [](const char *name, int type, int count, const QVariant &list, const QJsonValue &json) {
        QTest::newRow(name) << tag(type, count) << TagReading::good(list) << "values" << QJsonObject{{"value", json}};
    };
    const auto error = [](const char *name, const TagConfig &config, const TagReading &reading, int status,
                          const char *meaning) {
        QTest::newRow(name) << config << reading << "errors" << QJsonObject{{"status", status}, {"meaning", meaning}};
    };
    // A block read hands an unsigned byte over as a signed char.
    value("uint8 from a block", TYPE_UINT8, 1, QVariant::fromValue(QList<char>{char(-1)}), 255);
    value("int8 from one tag", TYPE_INT8, 1, QVariant::fromValue(QList<uchar>{200}), -56);
    value("int64 exact", TYPE_INT64, 1, QVariant::fromValue(QList<qlonglong>{-9007199254740991LL}),
          -9007199254740991.0);
    value("int64 as text", TYPE_INT64, 1, QVariant::fromValue(QList<qlonglong>{9007199254740993LL}),
          QStringLiteral("9007199254740993"));
    value("uint64 max", TYPE_UINT64, 1, QVariant::fromValue(QList<qulonglong>{std::numeric_limits<qulonglong>::max()}),
          QStringLiteral("18446744073709551615"));
    value("float nan", TYPE_FLOAT, 1, QVariant::fromValue(QList<float>{std::numeric_limits<float>::quiet_NaN()}),
          QStringLiteral("nan"));
    value("string read alone", TYPE_STRING, 1, QVariant::fromValue(QList<char>{'a', 'b', 0, 'c'}),
          QStringLiteral("ab"));
    value("three of four", TYPE_INT16, 3, QVariant::fromValue(QList<short>{1, 2, 3, 4}), QJsonArray{1, 2, 3});

    error("no reply", tag(TYPE_INT32), TagReading::bad(8), 8, "no reply");
    error("own meaning", tag(TYPE_INT32), TagReading::bad(8, QStringLiteral("not trusted")), 8, "not trusted");
    error("unknown status", tag(TYPE_INT32), TagReading::bad(77), 77, "unknown status");
    // Status 0 but fewer elements than the tag counts, or another type: nothing is made up.
    const char *noValue = "the reply held no value of this type";
    error("short list", tag(TYPE_INT32, 3), TagReading::good(QVariant::fromValue(QList<int>{1, 2})), 0, noValue);
    error("other type", tag(TYPE_INT32), TagReading::good(QVariant::fromValue(QList<float>{1})), 0, noValue);
    error("no value at all", tag(TYPE_INT32), TagReading::good(QVariant()), 0, noValue);
}

void GatewayMessagesTest::readingAsJson()
{
    QFETCH(TagConfig, config);
    QFETCH(TagReading, reading);
    QFETCH(QString, under);
    QFETCH(QJsonObject, entry);
    const QJsonObject message = messageOf(config, reading);
    QCOMPARE(message.value(under).toObject(), (QJsonObject{{"t", entry}}));
    const QString other = under == QLatin1String("values") ? QStringLiteral("errors") : QStringLiteral("values");
    QVERIFY(message.value(other).toObject().isEmpty());
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
