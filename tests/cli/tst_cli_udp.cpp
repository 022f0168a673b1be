// sorvik-cli against sorvik-sim over loopback UDP: values, refusals, plans, polls and exit statuses.

#include "CliTestSupport.h"

#include <QTest>

#include <csignal>

using namespace CliTest;

class CliUdp : public QObject
{
    Q_OBJECT

    QStringList at(const QStringList &arguments) const
    {
        return QStringList{QStringLiteral("--connect"), m_sim.connectText(), QStringLiteral("--format"),
                           QStringLiteral("json")} +
               arguments;
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_sim.startUdp(
            {"--set", "AI1=int32:42", "--set", "AI3=float:1.5", "--set", "DI5=bool:1", "--set", "Custom5=int16:-3"}));
    }

    // Each value goes out and comes back alike, at the edges of its type.
    void roundTrip_data()
    {
        QTest::addColumn<QString>("write");
        QTest::addColumn<QString>("read");
        QTest::addColumn<QString>("value");
        auto row = [](const char *write, const char *read, const char *value) {
            QTest::newRow(write) << QString(write) << QString(read) << QString(value);
        };
        row("AO1:floatx2=1.5,-2.25", "AO1:floatx2", "[1.5,-2.25]");
        row("AO5:float=0.1", "AO5:float", "[0.1]"); // shortest text
        row("LW1:int32=-2147483648", "LW1:int32", "[-2147483648]");
        row("LW3:uint32=4294967295", "LW3:uint32", "[4294967295]");
        row("SA1:int16x2=-32768,32767", "SA1:int16x2", "[-32768,32767]");
        row("SA5:uint16=0xffff", "SA5:uint16", "[65535]");
        row("SA9:int8x2=-128,127", "SA9:int8x2", "[-128,127]");
        row("SA11:uint8x2=255,0", "SA11:uint8x2", "[255,0]");
        // 64-bit integers go out least and come back most significant byte first: all bytes alike.
        row("LW5:int64=-1", "LW5:int64", "[-1]");
        row("LW7:uint64=72340172838076673", "LW7:uint64", "[72340172838076673]");
        row("LA1:double=2.5e-300", "LA1:double", "[2.5e-300]");
        row("DO1:boolx3=1,false,true", "DO1:boolx3", "[true,false,true]");
        row("SI4:string=\"hello, world\"", "SI4:string", "[\"hello, world\"]");
    }
    void roundTrip()
    {
        QFETCH(QString, write);
        QFETCH(QString, read);
        QFETCH(QString, value);
        const Run written = cli(at({"write", write}));
        QCOMPARE(written.exitCode, 0);
        QCOMPARE(member(written.out, "status"), QStringLiteral("0"));
        const Run back = cli(at({"read", read}));
        QCOMPARE(back.exitCode, 0);
        QCOMPARE(member(back.out, "value"), value);
        QCOMPARE(member(back.out, "meaning"), QStringLiteral("\"ok\""));
    }

    // int32 outside LW is refused with status 2; exit 3 when all failed, 4 when some did.
    void refusedTypeShowsItsStatus_data()
    {
        QTest::addColumn<QStringList>("writes");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("says");
        QTest::newRow("all refused") << QStringList{"AO1:int32=5"} << 3 << "1 of 1 tags failed";
        QTest::newRow("some refused") << QStringList{"AO2:float=1", "AO1:int32=5"} << 4 << "1 of 2 tags failed";
    }
    void refusedTypeShowsItsStatus()
    {
        QFETCH(QStringList, writes);
        QFETCH(int, exitCode);
        QFETCH(QString, says);
        const Run run = cli(at(QStringList{"write"} + writes));
        QCOMPARE(run.exitCode, exitCode);
        QVERIFY(members(run.out, "tag", {"tag", "status", "meaning", "time"})
                    .contains("\"AO1\" 2 \"type refused for the area\" null"));
        QCOMPARE(run.err, QStringLiteral("sorvik-cli: %1\n").arg(says));
    }

    // Adjacent floats share one request; a block the drive cannot send is named as left over.
    void writePlanReportsWhatIsLeft()
    {
        const Run run = cli(at({"write-plan", "AO11:float=7", "AO12:float=8", "DO11:bool=1", "AO_F1:int32=5"}));
        QCOMPARE(run.exitCode, 4);
        QCOMPARE(members(run.out, "tag", {"tag", "status", "value", "block"}),
                 QStringList({"\"AO11\" 0 [7] \"AO11+8 bytes\"", "\"AO12\" 0 [8] \"AO11+8 bytes\"",
                              "\"DO11\" 0 [true] \"DO11+1 points\"", "\"AO_F1\" 4 [] \"AO_F1+4 bytes\""}));
        QCOMPARE(members(run.out, "left", {"block"}), QStringList{"\"AO_F1+4 bytes\""});
        const Run back = cli(at({"read", "AO11:floatx2", "DO11:bool"}));
        QCOMPARE(back.exitCode, 0);
        QCOMPARE(members(back.out, "tag", {"value"}), QStringList({"[7,8]", "[true]"}));
    }

    // Blocks, offsets and refused tags as the drive plans them; no controller needed.
    void planShowsBlocks()
    {
        const Run run = cli({"plan", "--format", "json", "AI1:int32", "AI3:float", "AI60:double", "DI5:bool",
                             "DI7:bool", "AI40000:int32"});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(members(run.out, "tag", {"block", "area", "start", "length", "kind", "tag", "offset"}),
                 QStringList({"1 \"DI\" \"5\" 3 \"points\" \"DI5\" 0", "1 \"DI\" \"5\" 3 \"points\" \"DI7\" 2",
                              "2 \"AI\" \"1\" 12 \"bytes\" \"AI1\" 0", "2 \"AI\" \"1\" 12 \"bytes\" \"AI3\" 2",
                              "3 \"AI\" \"60\" 8 \"bytes\" \"AI60\" 0",
                              "null null null null \"refused\" \"AI40000\" null"}));
        QCOMPARE(members(run.out, "summary", {"requests", "refused"}), QStringList{"4 1"});
    }

    // Each cycle reads the blocks and the refused tag one by one.
    void pollReadsBlocksAndPoints()
    {
        const Run run = cli(
            at({"poll", "AI1:int32", "AI3:float", "DI5:bool", "Custom5:int16", "--cycles", "2", "--interval", "0"}));
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(members(run.out, "timing", {"requests"}), QStringList({"3", "3"}));
        QCOMPARE(members(run.out, "tag", {"cycle", "value"}).mid(4),
                 QStringList({"2 [42]", "2 [1.5]", "2 [true]", "2 [-3]"}));
    }

    void pollStopsOnCtrlC()
    {
        QProcess poll;
        QVERIFY(startPoll(poll, at({"poll", "AI1:int32", "--interval", "100"})));
        ::kill(pid_t(poll.processId()), SIGINT);
        QVERIFY(poll.waitForFinished(5000));
        QCOMPARE(poll.exitStatus(), QProcess::NormalExit);
        QCOMPARE(poll.exitCode(), 0);
        QVERIFY(poll.readAllStandardOutput().contains("{\"summary\":{\"cycles\":"));
    }

private:
    Simulator m_sim;
};

QTEST_GUILESS_MAIN(CliUdp)
#include "tst_cli_udp.moc"
