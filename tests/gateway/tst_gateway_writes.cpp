// Write commands: every malformed or forbidden command refused with its
// reason before it reaches the drive, and the round trip of one that is
// allowed, to a simulated controller and back on the reply topic.
#include "RecordingSink.h"

#include "gateway/ControllerPoller.h"
#include "gateway/GatewayMetrics.h"
#include "gateway/Topics.h"
#include "gateway/WriteCommand.h"
#include "host/DataType.h"
#include "host/ValueLists.h"
#include "sim/SorvikSimulator.h"

#include <QJsonArray>
#include <QtEndian>
#include <QtTest>

namespace {

TagConfig tag(const QString &name, const QString &text, int type, bool writable = true, int count = 1)
{
    TagConfig t;
    t.name = name;
    t.tag = text;
    t.dataType = type;
    t.writable = writable;
    t.count = count;
    return t;
}

ControllerConfig plc(const QString &connection = QStringLiteral("127.0.0.1:1"))
{
    TagConfig scaled = tag(QStringLiteral("speed"), QStringLiteral("AI4"), TYPE_INT16);
    scaled.scale = 0.1;
    scaled.offset = 5;
    ScanGroupConfig group;
    group.name = QStringLiteral("g");
    group.intervalMs = 100;
    group.tags = {tag(QStringLiteral("setpoint"), QStringLiteral("LW1"), TYPE_INT32),
                  tag(QStringLiteral("measured"), QStringLiteral("AI2"), TYPE_INT32, false),
                  tag(QStringLiteral("small"), QStringLiteral("SA1"), TYPE_UINT16),
                  tag(QStringLiteral("on"), QStringLiteral("DO1"), TYPE_BOOL),
                  tag(QStringLiteral("label"), QStringLiteral("SI1"), TYPE_STRING),
                  tag(QStringLiteral("gain"), QStringLiteral("AI3"), TYPE_FLOAT),
                  tag(QStringLiteral("total"), QStringLiteral("NAO1"), TYPE_INT64),
                  tag(QStringLiteral("trio"), QStringLiteral("AI10"), TYPE_INT32, true, 3),
                  scaled};
    ControllerConfig c;
    c.name = QStringLiteral("plc");
    c.connection = connection;
    c.groups = {group};
    return c;
}

// The elements of a value list as text, whatever its element type.
QStringList listText(const QVariant &value)
{
    QStringList out;
    for (int type = TYPE_BOOL; type <= TYPE_STRING; ++type)
        SorvikValues::visitElementType(type, [&](auto e) {
            using T = typename decltype(e)::type;
            if (out.isEmpty() && value.userType() == qMetaTypeId<QList<T>>())
                for (const T &v : SorvikValues::listFrom<T>(value))
                    out << QVariant::fromValue(v).toString();
        });
    return out;
}

} // namespace

class GatewayWritesTest : public QObject
{
    Q_OBJECT

private slots:
    void refusedWithReason_data();
    void refusedWithReason();
    void acceptedAsTheTagsType_data();
    void acceptedAsTheTagsType();
    void roundTripThroughTheController();
};

void GatewayWritesTest::refusedWithReason_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<bool>("readOnly");
    QTest::addColumn<QString>("reason");
    QTest::addColumn<int>("kind");

    using Kind = WriteCommand::Kind;
    auto row = [](const char *name, Kind kind, const QByteArray &payload, const QString &reason,
                  bool readOnly = false) { QTest::newRow(name) << payload << readOnly << reason << int(kind); };
    row("too long", Kind::TooLarge,
        "{\"id\":1,\"tag\":\"setpoint\",\"value\":1,\"x\":\"" + QByteArray(5000, 'a') + "\"}",
        QStringLiteral("command longer than 4096 bytes"));
    row("malformed", Kind::MalformedJson,
        "{\"id\":1,\"tag\":", QStringLiteral("malformed JSON at byte 14: unterminated object"));
    row("not an object", Kind::MalformedJson, "[1,2]", QStringLiteral("not a JSON object"));
    row("no id", Kind::MalformedCommand, R"({"tag":"setpoint","value":1})",
        QStringLiteral("\"id\" missing or neither number nor text"));
    row("unknown key", Kind::MalformedCommand, R"({"id":1,"tag":"setpoint","value":1,"force":true})",
        QStringLiteral("unknown key \"force\""));
    row("tag not text", Kind::MalformedCommand, R"({"id":1,"tag":5,"value":1})",
        QStringLiteral("\"tag\" missing or not a text"));
    row("unknown tag", Kind::UnknownTag, R"({"id":1,"tag":"nosuch","value":1})", QStringLiteral("unknown tag"));
    row("not writable", Kind::NotWritable, R"({"id":1,"tag":"measured","value":1})",
        QStringLiteral("tag not writable"));
    row("read only", Kind::ReadOnly, R"({"id":1,"tag":"setpoint","value":1})",
        QStringLiteral("the gateway is read only"), true);
    row("no value", Kind::MalformedCommand, R"({"id":1,"tag":"setpoint"})", QStringLiteral("\"value\" missing"));
    row("null value", Kind::WrongType, R"({"id":1,"tag":"setpoint","value":null})",
        QStringLiteral("\"value\" must be one int32"));
    row("text for int", Kind::WrongType, R"({"id":1,"tag":"setpoint","value":"12a"})",
        QStringLiteral("\"value\" not a whole number for int32"));
    row("fraction for int", Kind::WrongType, R"({"id":1,"tag":"setpoint","value":1.5})",
        QStringLiteral("\"value\" not a whole number for int32"));
    row("int32 overflow", Kind::OutOfRange, R"({"id":1,"tag":"setpoint","value":2147483648})",
        QStringLiteral("\"value\" out of range for int32"));
    row("uint16 negative", Kind::OutOfRange, R"({"id":1,"tag":"small","value":-1})",
        QStringLiteral("\"value\" out of range for uint16"));
    row("number for bool", Kind::WrongType, R"({"id":1,"tag":"on","value":1})",
        QStringLiteral("\"value\" not true or false for bool"));
    row("non-ASCII text", Kind::NotAscii, R"({"id":1,"tag":"label","value":"Grüße"})",
        QStringLiteral("\"value\" text holds a character outside printable ASCII for string"));
    row("control character", Kind::NotAscii, R"({"id":1,"tag":"label","value":"a\nb"})",
        QStringLiteral("\"value\" text holds a character outside printable ASCII for string"));
    row("text too long", Kind::OutOfRange, "{\"id\":1,\"tag\":\"label\",\"value\":\"" + QByteArray(256, 'a') + "\"}",
        QStringLiteral("\"value\" text longer than 255 characters for string"));
    row("float overflow", Kind::OutOfRange, R"({"id":1,"tag":"gain","value":1e39})",
        QStringLiteral("\"value\" out of range for float"));
    row("int64 beyond 2^53", Kind::OutOfRange, R"({"id":1,"tag":"total","value":9007199254740993})",
        QStringLiteral("\"value\" beyond 2^53: give it as decimal text for int64"));
    row("array for one", Kind::WrongType, R"({"id":1,"tag":"setpoint","value":[1]})",
        QStringLiteral("\"value\" must be one int32"));
    row("short array", Kind::WrongType, R"({"id":1,"tag":"trio","value":[1,2]})",
        QStringLiteral("\"value\" must be an array of 3 int32"));
    row("bad element", Kind::WrongType, R"({"id":1,"tag":"trio","value":[1,true,3]})",
        QStringLiteral("\"value\"[1] not a number for int32"));
    // 70000 raw is beyond int16: engineering 7005 = 70000 * 0.1 + 5.
    row("scaled out of range", Kind::OutOfRange, R"({"id":1,"tag":"speed","value":7005})",
        QStringLiteral("\"value\" out of range for int16"));
    // Qt's parser would keep the last and lose the memory of the first.
    row("key twice", Kind::MalformedJson, R"({"id":1,"tag":"trio","value":[1,2,3],"val\u0075e":[4,5,6]})",
        QStringLiteral("key \"value\" given twice"));
    row("text for a scaled tag", Kind::WrongType, R"({"id":1,"tag":"speed","value":"7"})",
        QStringLiteral("\"value\" a scaled tag takes a number in engineering units, not text for int16"));
}

void GatewayWritesTest::refusedWithReason()
{
    QFETCH(QByteArray, payload);
    QFETCH(bool, readOnly);
    QFETCH(QString, reason);
    QFETCH(int, kind);
    const WriteCommand command = WriteCommand::parse(payload, plc(), readOnly);
    QCOMPARE(command.refusal, reason);
    QCOMPARE(WriteCommand::kindName(command.kind), WriteCommand::kindName(WriteCommand::Kind(kind)));
    QVERIFY(!command.value.isValid());
}

void GatewayWritesTest::acceptedAsTheTagsType_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QVariant>("value");
    QTest::newRow("int32") << QByteArray(R"({"id":"a","tag":"setpoint","value":-7})")
                           << QVariant::fromValue(QList<int>{-7});
    QTest::newRow("bool") << QByteArray(R"({"id":2,"tag":"on","value":true})")
                          << QVariant::fromValue(QList<bool>{true});
    QTest::newRow("text") << QByteArray(R"({"id":2,"tag":"label","value":"pump 2"})")
                          << QVariant::fromValue(QList<QString>{QStringLiteral("pump 2")});
    QTest::newRow("int64 as text") << QByteArray(R"({"id":2,"tag":"total","value":"9007199254740993"})")
                                   << QVariant::fromValue(QList<qlonglong>{9007199254740993LL});
    QTest::newRow("array") << QByteArray(R"({"id":2,"tag":"trio","value":[1,2,3]})")
                           << QVariant::fromValue(QList<int>{1, 2, 3});
    // Written in engineering units, as published: (17.3 - 5) / 0.1 = 123.
    QTest::newRow("scaled") << QByteArray(R"({"id":2,"tag":"speed","value":17.3})")
                            << QVariant::fromValue(QList<short>{123});
}

void GatewayWritesTest::acceptedAsTheTagsType()
{
    QFETCH(QByteArray, payload);
    QFETCH(QVariant, value);
    const WriteCommand command = WriteCommand::parse(payload, plc(), false);
    QVERIFY2(command.accepted(), qPrintable(command.refusal));
    QCOMPARE(command.value.userType(), value.userType());
    QCOMPARE(listText(command.value), listText(value));
}

// Through a poller to a simulated controller: the allowed write lands in its
// memory and is answered with status 0; the refused ones never reach it, are
// answered and counted, and each kind is logged once however often it comes.
void GatewayWritesTest::roundTripThroughTheController()
{
    SorvikSimulator sim;
    const QString address = controllerAddress(1);
    const quint16 port = sim.startUdp(QHostAddress(address));
    QVERIFY(port != 0);
    const ControllerConfig config = plc(QStringLiteral("%1:%2").arg(address).arg(port));
    const QString replies = Topics::writeReply(QStringLiteral("gw"), QStringLiteral("plc"));
    const QList<QByteArray> refused{R"({"id":41,"tag":"measured","value":5})",
                                    R"({"id":"x","tag":"setpoint","value":"many"})",
                                    R"({"id":1,"tag":"small","value":-1})",
                                    R"({"id":1,"tag":"label","value":"\u00e9"})",
                                    R"({"id":1,"tag":"nosuch","value":1})",
                                    "{\"id\":1,",
                                    QByteArray(5000, ' ')};

    RecordingSink sink;
    GatewayMetrics metrics;
    TestSupport::LogCapture log;
    ControllerPoller poller(config, QStringLiteral("gw"), QStringLiteral(SORVIK_LIBRARY_FILE), &sink, &metrics);
    poller.start();
    QTRY_VERIFY_WITH_TIMEOUT(sink.states().contains(QStringLiteral("online")), 20000);
    const int writesBefore = sim.counters().writes;
    for (int round = 0; round < 3; ++round)
        for (const QByteArray &payload : refused)
            poller.submitWrite(payload);
    poller.submitWrite(R"({"id":42,"tag":"setpoint","value":123456})");
    QTRY_COMPARE_WITH_TIMEOUT(sink.events().size(), 3 * refused.size() + 1, 20000);
    poller.stop();

    PollerOptions readOnly;
    readOnly.readOnly = true;
    ControllerPoller guarded(config, QStringLiteral("gw"), QStringLiteral(SORVIK_LIBRARY_FILE), &sink, &metrics,
                             readOnly);
    guarded.start();
    guarded.submitWrite(R"({"id":43,"tag":"setpoint","value":1})");
    QTRY_COMPARE_WITH_TIMEOUT(sink.events().size(), 3 * refused.size() + 2, 20000);
    guarded.stop();

    const QList<RecordingSink::Message> events = sink.events();
    for (const RecordingSink::Message &m : events)
        QCOMPARE(m.topic, replies);
    QCOMPARE(events.at(0).json, (QJsonObject{{"id", 41}, {"tag", "measured"}, {"refused", "tag not writable"}}));
    QCOMPARE(events.at(1).json.value(QLatin1String("id")).toString(), QStringLiteral("x"));
    for (int i = 0; i < 3 * refused.size(); ++i)
        QVERIFY2(events.at(i).json.contains(QLatin1String("refused")), qPrintable(QString::number(i)));
    QCOMPARE(events.at(3 * refused.size()).json,
             (QJsonObject{{"id", 42}, {"tag", "setpoint"}, {"status", 0}, {"meaning", "ok"}}));
    QCOMPARE(events.last().json,
             (QJsonObject{{"id", 43}, {"tag", "setpoint"}, {"refused", "the gateway is read only"}}));
    QCOMPARE(metrics.snapshot().value(QLatin1String("writesRefused")).toInt(), 3 * refused.size() + 1);

    QStringList warned;
    for (const TestSupport::LogLine &line : log.all())
        if (line.category == QLatin1String("sorvik.gateway.writes") && line.type == QtWarningMsg)
            warned << line.text.section(QLatin1Char('('), 1, 1).section(QLatin1Char(')'), 0, 0);
    QCOMPARE(warned, QStringList({"not writable", "wrong type", "out of range", "non-ASCII text", "unknown tag",
                                  "malformed JSON", "too large", "read only"}));

    QCOMPARE(sim.counters().writes, writesBefore + 1);
    QCOMPARE(qFromLittleEndian<qint32>(sim.memory(24, 0, 4).constData()), 123456); // LW1
}

QTEST_GUILESS_MAIN(GatewayWritesTest)
#include "tst_gateway_writes.moc"
