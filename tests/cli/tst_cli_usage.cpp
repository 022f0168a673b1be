// The command line of sorvik-cli: refusals, help, and the embedded simulator.

#include "CliTestSupport.h"

#include <QFile>
#include <QLibraryInfo>
#include <QTemporaryDir>
#include <QTest>

using namespace CliTest;

class CliUsage : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

private slots:
    void initTestCase()
    {
        QFile file(m_dir.filePath(QStringLiteral("bad.csv")));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("# demo\nAI1,int32\n\nAI2,int3\n");
    }

    // Every bad input: one clear line on stderr, nothing on stdout, and its exit status.
    void refusals_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("says");

        auto row = [](const char *name, const QStringList &arguments, int exitCode, const char *says) {
            QTest::newRow(name) << arguments << exitCode << QString::fromUtf8(says);
        };
        row("unknown option", {"--frobnicate", "info"}, 1, "Unknown option 'frobnicate'");
        row("no command", {}, 1, "no command given");
        row("unknown command", {"fetch", "AI1:int32"}, 1, "unknown command \"fetch\"");
        row("no tags", {"read"}, 1, "read needs tags");
        row("info with tags", {"info", "AI1:int32"}, 1, "info takes no tags");
        row("unknown type", {"read", "AI1:int33"}, 1, "unknown type \"int33\"");
        row("no type", {"read", "AI1"}, 1, "expected TAG:TYPE");
        row("no area", {"read", "XY1:int32"}, 1, "\"XY\" is no area");
        row("lower-case area", {"read", "ai1:int32"}, 1, "area prefixes are written AI");
        row("element 0", {"read", "AI0:int32"}, 1, "element numbers count from 1");
        row("length suffix", {"plan", "SI1[20]:string"}, 1, "bad tag \"SI1[20]\"");
        row("count 0", {"read", "AI1:int32x0"}, 1, "a count runs from 1 to 1467");
        row("count too large", {"read", "AI1:int32x1468"}, 1, "a count runs from 1 to 1467");
        row("count on plan", {"plan", "AI1:int32x2"}, 1, "taken by read and write only");
        row("negative count", {"read", "AI1:floatx-1"}, 1, "bad count \"-1\"");
        row("six strings", {"read", "SI1:stringx6"}, 1, "at most 5 strings fit one reply");
        // Element numbers whose wire address passes the 24 bits of the frame would reach element 1.
        row("wrapping write", {"write", "LW4194305:int32=-5"}, 1, "beyond the 24-bit address field");
        row("wrapping read", {"read", "AI4194305:int32"}, 1, "beyond the 24-bit address field");
        row("wrapping bit", {"read", "DI16777217:bool"}, 1, "beyond the 24-bit address field");
        row("wrapping end", {"read", "AI4194304:int32x2"}, 1, "ends at wire address 16777219");
        row("wrapping string", {"read", "SI65537:string"}, 1, "beyond the 24-bit address field");
        row("wide type on bits", {"read", "DI1:int16"}, 1, "DI is a bit area");
        row("values without count", {"write", "AO1:float=1,5"}, 1, "2 values for one element");
        row("count and values differ", {"write", "AO1:floatx3=1,5"}, 1, "the count says 3 elements but 2 values");
        row("bytes cut to pairs", {"write", "SA1:int8x5=1,2,3,4,5"}, 1, "5 values would go out as 4");
        row("string not ASCII", {"write", "SI1:string=Gr\u00fc\u00dfe"}, 1, "ASCII text");
        row("empty connect", {"--connect=", "read", "AI1:int32"}, 1, "--connect is given an empty text");
        row("blank connect", {"--connect", "  ", "read", "AI1:int32"}, 1, "--connect is given an empty text");
        row("cycles on read", {"--cycles", "2", "read", "AI1:int32"}, 1, "--cycles means nothing for read");
        row("interval on write", {"--interval", "5", "write", "LW1:int32=1"}, 1, "--interval means nothing for write");
        row("sim address with connect", {"--connect", host() + ":9", "--sim-address", host(), "read", "AI1:int32"}, 1,
            "--sim-address means nothing for read");
        row("connect on plan", {"--connect", host() + ":9", "plan", "AI1:int32"}, 1,
            "--connect means nothing for plan");
        row("debug on info", {"--debug", "info"}, 1, "--debug means nothing for info");
        row("value on read", {"read", "AI1:int32=5"}, 1, "only reads");
        row("value missing", {"write", "AO1:float"}, 1, "a value is missing");
        row("int8 too large", {"write", "SA1:int8=128"}, 1, "\"128\" is no int8 value (-128 to 127)");
        row("uint8 negative", {"write", "SA1:uint8=-1"}, 1, "\"-1\" is no uint8 value");
        row("int32 fraction", {"write", "LW1:int32=1.5"}, 1, "\"1.5\" is no int32 value");
        row("uint64 too large", {"write", "LW1:uint64=18446744073709551616"}, 1, "is no uint64 value");
        row("int64 too small", {"write", "LW1:int64=-9223372036854775809"}, 1, "is no int64 value");
        row("bool word", {"write", "DO1:bool=yes"}, 1, "\"yes\" is no bool value");
        row("float overflow", {"write", "AO1:float=1e39"}, 1, "\"1e39\" is no float value");
        row("hex garbage", {"write", "SA1:uint16=0xfg"}, 1, "is no uint16 value");
        row("inner blank", {"write", "SA1:int16=1 2"}, 1, "is no int16 value");
        row("string too long", {"write", "SI1:string=" + QString(128, QLatin1Char('x'))}, 1, "is no string value");
        row("string not Latin-1", {"write", "SI1:string=caf\u00e9\u20ac"}, 1, "is no string value");
        row("two strings", {"write", "SI1:string=a,b"}, 1, "one text per write");
        row("unclosed quote", {"write", "SI1:string=\"abc"}, 1, "a quote is not closed");
        row("write-plan list", {"write-plan", "AO1:float=1,2"}, 1, "write-plan takes one value per tag");
        row("write-plan twice", {"write-plan", "AO1:float=1", "AO1:float=2"}, 1, "AO1:float is given twice");
        row("bad format", {"--format", "xml", "info"}, 1, "--format wants table, csv or json");
        row("bad cycles", {"--cycles", "-3", "poll", "AI1:int32"}, 1, "--cycles wants");
        row("bad interval", {"--interval", "soon", "poll", "AI1:int32"}, 1, "--interval wants");
        row("sim not loopback", {"--sim-address", "10.0.0.1", "read", "AI1:int32"}, 1, "wants a loopback address");
        row("host name", {"--connect", "localhost:6000", "read", "AI1:int32"}, 1, "host names are not looked up");
        row("bad port", {"--connect", "127.0.0.1:70000", "read", "AI1:int32"}, 1, "no port from 1 to 65535");
        row("bad baud", {"--connect", "/dev/ttyS9,9601,8,1,N", "read", "AI1:int32"}, 1, "baud rate \"9601\"");
        row("bad parity", {"--connect", "/dev/ttyS9,9600,8,1,X", "read", "AI1:int32"}, 1, "parity \"X\"");
        row("neither form", {"--connect", "127.0.0.1", "read", "AI1:int32"}, 1, "expected ADDRESS:PORT");
        row("no tag file", {"--file", "/nonexistent/tags.csv", "read"}, 1, "cannot read tag file");
        row("bad tag file line", {"--file", "DIR/bad.csv", "plan"}, 1, "DIR/bad.csv:4: unknown type \"int3\"");
        row("no library", {"--library", "/nonexistent/libSorvik.so", "info"}, 1, "not found");
        row("not a library", {"--library", SORVIK_SOURCE_DIR "/README.md", "info"}, 1, "cannot load drive library");
        row("no drive inside",
            {"--library", QLibraryInfo::location(QLibraryInfo::LibrariesPath) + "/libQt5Core.so.5", "info"}, 1,
            "is no Sorvik drive: it exports no getSharedLibrary");
        // Nobody answers on the discard port of this program's loopback address.
        row("no controller", {"--connect", host() + ":9", "read", "AI1:int32"}, 2, "no answer to the handshake");
        row("no serial port", {"--connect", "/dev/nonexistent-tty,9600,8,1,N", "read", "AI1:int32"}, 2,
            "cannot open serial port /dev/nonexistent-tty");
    }
    void refusals()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, says);
        says.replace("DIR", m_dir.path());
        const Run run = cli(arguments.replaceInStrings("DIR", m_dir.path()));
        QVERIFY(!run.crashed);
        QCOMPARE(run.exitCode, exitCode);
        QCOMPARE(run.out, QString());
        QCOMPARE(run.err.count(QLatin1Char('\n')), 1);
        QVERIFY2(run.err.startsWith(QLatin1String("sorvik-cli: ")), qPrintable(run.err));
        QVERIFY2(run.err.contains(says), qPrintable(run.err));
    }

    void helpListsCommandsAndExitStatuses()
    {
        const Run run = cli({"--help"});
        QCOMPARE(run.exitCode, 0);
        for (const char *text : {"write-plan TAG:TYPE=VALUE", "poll TAG:TYPE", "--connect", "--format",
                                 "2 no connection or no reply", "4 some tags failed"})
            QVERIFY2(run.out.contains(QLatin1String(text)), text);
        QCOMPARE(cli({"--version"}).out, QStringLiteral("sorvik-cli 1.8.4\n"));
    }

    // Without --connect the embedded simulator runs a live process: a counter moves, the demo texts are there.
    void embeddedSimulatorIsLive()
    {
        const Run run = cli(embedded() + QStringList{"poll", "AI3:int32", "SI2:string", "--cycles", "2", "--interval",
                                                     "300", "--format", "json"});
        QCOMPARE(run.exitCode, 0);
        const QStringList values = members(run.out, "tag", {"value"}); // AI3 and SI2, twice
        QCOMPARE(values.size(), 4);
        QVERIFY2(values.at(2).mid(1).chopped(1).toLongLong() > values.at(0).mid(1).chopped(1).toLongLong(),
                 qPrintable(run.out));
        QCOMPARE(values.at(3), QStringLiteral("[\"Sorvik demo plant\"]"));
    }

    // The drive's failure lines stay quiet unless asked for; --debug shows every frame. The demo controller
    // always says that it serves.
    void debugShowsFrames()
    {
        const Run quiet = cli(embedded() + QStringList{"read", "AI3:int32"});
        QCOMPARE(quiet.exitCode, 0);
        QVERIFY2(QRegularExpression(QStringLiteral("^sorvik-cli: no --connect: using the built-in demo controller on "
                                                   "%1:[0-9]+; nothing reaches a real controller\n$")
                                        .arg(QRegularExpression::escape(host())))
                     .match(quiet.err)
                     .hasMatch(),
                 qPrintable(quiet.err));
        const Run loud = cli(embedded() + QStringList{"--debug", "read", "AI3:int32"});
        QCOMPARE(loud.exitCode, 0);
        // Area 7, byte address 8, 4 bytes; 24-bit fields go high, low, middle byte.
        QVERIFY2(loud.err.contains(QLatin1String("0101010007000800000400")), qPrintable(loud.err));
    }
};

QTEST_GUILESS_MAIN(CliUsage)
#include "tst_cli_usage.moc"
