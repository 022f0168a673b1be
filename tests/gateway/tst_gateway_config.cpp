// The configuration file: what it fills in, and every error with its place.

#include "ConfigLoader.h"
#include "host/DataType.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

namespace {

// The smallest file the gateway takes; the cases below add to it or break it.
const char kHead[] = "name = \"gw\"\n"                   // 1
                     "[buffer]\n"                        // 2
                     "path = \"queue.db\"\n"             // 3
                     "[[controllers]]\n"                 // 4
                     "name = \"plc1\"\n"                 // 5
                     "connection = \"127.0.0.2:6000\"\n" // 6
                     "[[controllers.groups]]\n"          // 7
                     "name = \"fast\"\n"                 // 8
                     "interval_ms = 500\n"               // 9
                     "[[controllers.groups.tags]]\n"     // 10
                     "name = \"flow\"\n"                 // 11
                     "tag = \"AI1\"\n"                   // 12
                     "type = \"float\"\n";               // 13

} // namespace

class TestGatewayConfig : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    QString file() const { return m_dir.filePath(QStringLiteral("gw.toml")); }

private slots:
    void fillsEveryKey()
    {
        QFile secret(m_dir.filePath(QStringLiteral("secret")));
        QVERIFY(secret.open(QIODevice::WriteOnly));
        secret.write("s3cret\n");
        secret.close();
        const QByteArray text =
            "name = \"north\" # comments are fine\n"
            "read_only = true\n"
            "heartbeat_ms = 2500\n"
            "metrics = { address = \"127.0.0.1:9100\" }\n"
            "broker = { host = \"10.0.0.5\", port = 8883, user = \"plant\", password_file = \"secret\", qos = 2, "
            "keepalive = 20 }\n"
            "buffer = { path = \"queue.db\", max_bytes = 2_000_000 }\n"
            "[[controllers]]\n"
            "name = \"plc1\"\n"
            "connection = \"127.0.0.2:6000\"\n"
            "reconnect = { lost_after_cycles = 5, first_pause_ms = 200, longest_pause_ms = 8000 }\n"
            "[[controllers.groups]]\n"
            "name = \"fast\"\n"
            "interval_ms = 250\n"
            "[[controllers.groups.tags]]\n"
            "name = \"level\"\n"
            "tag = \"AI_F3\"\n"
            "type = \"INT16\"\n"
            "count = 4\n"
            "unit = \"m\"\n"
            "scale = 0.01\n"
            "offset = -2\n"
            "deadband = 0.5\n"
            "writable = true\n"
            "[[controllers.groups]]\n"
            "name = \"slow\"\n"
            "interval_ms = 10000\n"
            "tags = [ { name = \"pump\", tag = \"SI2\", type = \"string\" } ]\n";
        GatewayConfig config;
        QStringList errors;
        QVERIFY2(ConfigLoader::parse(text, file(), &config, &errors), qPrintable(errors.join('\n')));
        QCOMPARE(config.name, QStringLiteral("north"));
        QVERIFY(config.readOnly);
        QCOMPARE(config.heartbeatMs, 2500);
        QCOMPARE(config.metricsAddress, QStringLiteral("127.0.0.1:9100"));
        QCOMPARE(config.broker.host, QStringLiteral("10.0.0.5"));
        QCOMPARE(config.broker.port, 8883);
        QCOMPARE(config.broker.keepaliveSeconds, 20);
        QCOMPARE(config.broker.password, QStringLiteral("s3cret"));
        QCOMPARE(config.broker.clientId, QStringLiteral("sorvik-gateway-north"));
        QCOMPARE(config.broker.qos, 2);
        QCOMPARE(config.buffer.path, m_dir.filePath(QStringLiteral("queue.db")));
        QCOMPARE(config.buffer.maxBytes, qint64(2000000));
        QCOMPARE(config.controllers.size(), 1);
        const ControllerConfig &plc1 = config.controllers.at(0);
        QCOMPARE(plc1.reconnect.lostAfterCycles, 5);
        QCOMPARE(plc1.reconnect.longestPauseMs, 8000);
        const TagConfig &level = plc1.groups.at(0).tags.at(0);
        QCOMPARE(level.dataType, int(TYPE_INT16));
        QCOMPARE(level.count, 4);
        QCOMPARE(level.scale.value_or(0), 0.01);
        QCOMPARE(level.offset.value_or(0), -2.0);
        QCOMPARE(level.deadband, 0.5);
        QVERIFY(level.writable);
        QCOMPARE(level.line, 14);
        const TagConfig &pump = plc1.groups.at(1).tags.at(0);
        QCOMPARE(pump.dataType, int(TYPE_STRING));
        QVERIFY(!pump.scale && !pump.offset && !pump.writable);
    }

    void reportsErrorsInPlace_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("error");

        const QByteArray head(kHead);
        // kHead with one text replaced.
        const auto with = [](const char *from, const char *to) { return QByteArray(kHead).replace(from, to); };
        QTest::newRow("syntax")
            << QByteArray("name = \"gw\n")
            << "1:11: Error while parsing string: unescaped control characters other than TAB (U+0009) are "
               "explicitly prohibited";
        QTest::newRow("unknown tag key") << head + "units = \"m\"\n"
                                         << "14:1: unknown key \"units\" in [[controllers.groups.tags]] (keys: name, "
                                            "tag, type, count, unit, scale, offset, deadband, writable)";
        QTest::newRow("no name") << QByteArray(kHead).mid(12) << "1:1: the gateway needs \"name\"";
        QTest::newRow("name not a level") << "name = \"a/b\"\n" + head.mid(12)
                                          << "1:8: \"a/b\" cannot be a topic level: it is empty, holds + # or /, or "
                                             "is one of status, heartbeat, write";
        QTest::newRow("no buffer") << QByteArray("name = \"gw\"\n") + head.mid(head.indexOf("[[controllers]]"))
                                   << "1:1: the gateway needs a [buffer] with its \"path\"";
        QTest::newRow("no controllers") << head.left(head.indexOf("[[controllers]]"))
                                        << "1:1: no controllers ([[controllers]])";
        QTest::newRow("count range") << head + "count = 0\n"
                                     << "14:9: \"count\" must be from 1 to 1467, not 0";
        QTest::newRow("count too long")
            << head + "count = 400\n"
            << "14:9: count 400 of float makes 1600 bytes; one request carries at most 1467";
        QTest::newRow("bytes cut off") << with("\"float\"", "\"uint8\"") + "count = 6\n"
                                       << "14:9: count 6 of uint8: byte types move whole elements of 4 bytes here: "
                                          "count must be a multiple of 4";
        QTest::newRow("string count") << with("\"float\"", "\"string\"") + "count = 2\n"
                                      << "14:9: a string tag is one text: \"count\" must be 1";
        QTest::newRow("unknown type") << with("\"float\"", "\"real\"")
                                      << "13:8: unknown type \"real\" (types: bool int8 uint8 int16 uint16 int32 "
                                         "uint32 float int64 uint64 double string)";
        QTest::newRow("tag zero") << with("\"AI1\"", "\"AI0\"")
                                  << "12:7: bad tag \"AI0\": element numbers count from 1";
        QTest::newRow("tag spread digits") << with("\"AI1\"", "\"AI3_7\"")
                                           << "12:7: bad tag \"AI3_7\": a tag is an area prefix and an element "
                                              "number, such as AI1 or DI_F12";
        QTest::newRow("tag no area") << with("\"AI1\"", "\"SO1\"")
                                     << "12:7: bad tag \"SO1\": \"SO\" is no area (AI, AI_F, AI_S, AO, AO_F, AO_S, "
                                        "Custom, DI, DI_F, DI_S, DO, DO_F, DO_S, HAI, HDP, HDS, LA, LD, LW, NAI, NAO, "
                                        "NDI, NDO, SA, SD, SI)";
        // 4194304 × 4 bytes is the first word address past 24 bits; 16777216 is the last Custom element.
        QTest::newRow("tag wraps address") << with("\"AI1\"", "\"AI4194305\"")
                                           << "12:7: bad tag \"AI4194305\": element 4194305 of AI lies beyond the "
                                              "24-bit address field (the last is 4194304)";
        QTest::newRow("custom wraps address") << with("\"AI1\"", "\"Custom16777217\"")
                                              << "12:7: bad tag \"Custom16777217\": element 16777217 of Custom lies "
                                                 "beyond the 24-bit address field (the last is 16777216)";
        QTest::newRow("scale of a bool") << with("\"float\"", "\"bool\"") + "scale = 2\n"
                                         << "14:9: \"scale\" applies to numbers, not to bool";
        QTest::newRow("scale zero") << QByteArray(kHead) + "scale = 0\n"
                                    << "14:9: \"scale\" must not be 0";
        QTest::newRow("scale infinite") << QByteArray(kHead) + "scale = inf\n"
                                        << "14:9: \"scale\" must be a finite number";
        QTest::newRow("negative deadband") << QByteArray(kHead) + "deadband = -1\n"
                                           << "14:12: \"deadband\" must not be negative";
        QTest::newRow("duplicate tag name")
            << QByteArray(kHead) + "[[controllers.groups]]\nname = \"slow\"\ninterval_ms = 5000\n"
                                   "[[controllers.groups.tags]]\nname = \"flow\"\ntag = \"AI2\"\ntype = \"float\"\n"
            << "18:8: duplicate tag name \"flow\" in this controller (first at line 10)";
        QTest::newRow("duplicate group name")
            << QByteArray(kHead) + "[[controllers.groups]]\nname = \"fast\"\ninterval_ms = 5000\n"
                                   "[[controllers.groups.tags]]\nname = \"b\"\ntag = \"AI2\"\ntype = \"float\"\n"
            << "15:8: duplicate group name \"fast\" in this controller (first at line 7)";
        const QByteArray second = "[[controllers]]\nname = \"plc1\"\nconnection = \"127.0.0.2:6001\"\n"
                                  "[[controllers.groups]]\nname = \"fast\"\ninterval_ms = 500\n"
                                  "[[controllers.groups.tags]]\nname = \"flow\"\ntag = \"AI1\"\ntype = \"float\"\n";
        QTest::newRow("duplicate controller and address")
            << QByteArray(kHead) + second
            << "15:8: duplicate controller name \"plc1\" (first at line 4)\n"
               "gw.toml:16:14: 127.0.0.2 is the address of the controller at line 4 already; each controller needs "
               "an address (or serial port) of its own";
        QTest::newRow("bad connection") << with("127.0.0.2:6000", "plc.local:6000")
                                        << "6:14: bad connection \"plc.local:6000\": \"plc.local\" is no IPv4 address; "
                                           "host names are not looked up";
        QTest::newRow("group without tags")
            << QByteArray(kHead).left(QByteArray(kHead).indexOf("[[controllers.groups.tags]]"))
            << "7:1: group \"fast\" has no tags ([[controllers.groups.tags]])";
        QTest::newRow("both passwords") << head +
                                               "[broker]\nuser = \"u\"\npassword = \"p\"\npassword_file = \"p.txt\"\n"
                                        << "17:17: both \"password\" and \"password_file\" are given; keep one";
        QTest::newRow("missing password file") << head + "[broker]\nuser = \"u\"\npassword_file = \"nothere\"\n"
                                               << "16:17: \"password_file\": cannot read %DIR%/nothere (no such file)";
        QTest::newRow("buffer folder missing") << QByteArray(kHead).replace("\"queue.db\"", "\"gone/queue.db\"")
                                               << "3:8: \"path\": the folder %DIR%/gone does not exist";
        QTest::newRow("pauses reversed")
            << QByteArray(kHead) + "[controllers.reconnect]\nfirst_pause_ms = 5000\nlongest_pause_ms = 1000\n"
            << "16:20: \"longest_pause_ms\" (1000) is shorter than \"first_pause_ms\" (5000)";
        QTest::newRow("metrics address") << head + "[metrics]\naddress = \"9100\"\n"
                                         << "15:11: bad address \"9100\": expected ADDRESS:PORT with an IP address, "
                                            "such as 127.0.0.1:9100 or [::1]:9100";
        // The errors say where the password is wrong, never what it is.
        QTest::newRow("password not echoed") << head + "[broker]\npassword = \"hunter2\"\nport = 0\n"
                                             << "16:8: \"port\" must be from 1 to 65535, not 0\n"
                                                "gw.toml:14:1: [broker] has a password but no \"user\"";
        QTest::newRow("several at once") << QByteArray(kHead).replace("500", "\"fast\"") + "writable = 1\n"
                                         << "9:15: \"interval_ms\" must be an integer, not a string\n"
                                            "gw.toml:14:12: \"writable\" must be true or false, not an integer";
    }

    void reportsErrorsInPlace()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, error);
        GatewayConfig config;
        QStringList errors;
        QVERIFY(!ConfigLoader::parse(text, file(), &config, &errors));
        const QString expected =
            QStringLiteral("gw.toml:") + QString(error).replace(QStringLiteral("%DIR%"), m_dir.path());
        QCOMPARE(errors.join('\n').replace(file() + ':', QStringLiteral("gw.toml:")), expected);
    }

    void missingFileIsOneLine()
    {
        GatewayConfig config;
        QStringList errors;
        QVERIFY(!ConfigLoader::load(m_dir.filePath(QStringLiteral("absent.toml")), &config, &errors));
        QCOMPARE(errors.size(), 1);
        QVERIFY2(errors.first().startsWith(m_dir.filePath(QStringLiteral("absent.toml")) + ": cannot read"),
                 qPrintable(errors.first()));
    }
};

QTEST_GUILESS_MAIN(TestGatewayConfig)
#include "tst_gateway_config.moc"
