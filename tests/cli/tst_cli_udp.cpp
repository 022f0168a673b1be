// sorvik-cli against sorvik-sim over loopback UDP: values, refusals, plans, polls and exit statuses; and what it
// prints: CSV that other tools and its own tag files read back, rows that leave as they complete, short answers, and
// the live table on a narrow terminal.

#include "CliTestSupport.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

using namespace CliTest;

namespace {

// A pseudo-terminal of `columns` columns; the CLI writes to its slave, the test reads its master.
struct Terminal {
    int master = -1;
    QString slave;
    explicit Terminal(int columns)
    {
        master = ::posix_openpt(O_RDWR | O_NOCTTY);
        if (master < 0 || ::grantpt(master) != 0 || ::unlockpt(master) != 0)
            return;
        slave = QString::fromLocal8Bit(::ptsname(master));
        winsize size{};
        size.ws_row = 50;
        size.ws_col = static_cast<unsigned short>(columns);
        ::ioctl(master, TIOCSWINSZ, &size);
        ::fcntl(master, F_SETFL, O_NONBLOCK);
    }
    ~Terminal()
    {
        if (master >= 0)
            ::close(master);
    }
    QByteArray drain() const
    {
        QByteArray all;
        char buffer[4096];
        for (ssize_t n; (n = ::read(master, buffer, sizeof buffer)) > 0;)
            all.append(buffer, int(n));
        return all;
    }
};

// Runs the CLI with stdout on the terminal; gives what reached it.
QByteArray onTerminal(Terminal &terminal, const QStringList &arguments)
{
    QProcess process;
    process.setStandardOutputFile(terminal.slave, QIODevice::Append);
    process.start(QStringLiteral(SORVIK_CLI_FILE), arguments);
    QByteArray seen;
    while (!process.waitForFinished(50))
        seen += terminal.drain();
    return seen + terminal.drain();
}

} // namespace

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

    // int32 outside LW is refused with status 2; exit 4 when some tags failed (3 when all did: the README's example).
    void refusedTypeShowsItsStatus()
    {
        const Run run = cli(at({"write", "AO2:float=1", "AO1:int32=5"}));
        QCOMPARE(run.exitCode, 4);
        QVERIFY(members(run.out, "tag", {"tag", "status", "meaning", "time"})
                    .contains("\"AO1\" 2 \"type refused for the area\" null"));
        QCOMPARE(run.err, QStringLiteral("sorvik-cli: 1 of 2 tags failed\n"));
    }

    // Adjacent floats share one request; a block the drive cannot send is named as left over; the planner takes no
    // Custom tag into a block: it is written on its own, and the table says so.
    void writePlanReportsWhatIsLeft()
    {
        const Run run =
            cli(at({"write-plan", "AO11:float=7", "AO12:float=8", "DO11:bool=1", "AO_F1:int32=5", "Custom7:int16=-4"}));
        QCOMPARE(run.exitCode, 4);
        QCOMPARE(members(run.out, "tag", {"tag", "status", "value", "block"}),
                 QStringList({"\"AO11\" 0 [7] \"AO11+8 bytes\"", "\"AO12\" 0 [8] \"AO11+8 bytes\"",
                              "\"DO11\" 0 [true] \"DO11+1 points\"", "\"AO_F1\" 4 [] \"AO_F1+4 bytes\"",
                              "\"Custom7\" 0 [-4] \"one at a time\""}));
        QCOMPARE(members(run.out, "left", {"block"}), QStringList{"\"AO_F1+4 bytes\""});
        const Run back = cli(at({"read", "AO11:floatx2", "DO11:bool", "Custom7:int16"}));
        QCOMPARE(back.exitCode, 0);
        QCOMPARE(members(back.out, "tag", {"value"}), QStringList({"[7,8]", "[true]", "[-4]"}));
    }

    // The drive rounds byte counts to whole elements of the area without a word; the CLI says it.
    void fewerElementsAreWarned()
    {
        const Run run = cli({"--connect", m_sim.connectText(), "read", "SA1:int8x5", "NAI1:uint8x1467", "AI1:int8x4"});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.err, QStringLiteral("sorvik-cli: SA1:int8x5: 4 of 5 elements came back\n"
                                         "sorvik-cli: NAI1:uint8x1467: 1464 of 1467 elements came back\n"));
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

    // Quotes doubled, no backslash escapes; the CSV of read, header and all, writes the same values elsewhere.
    void csvFeedsBackIntoWrite()
    {
        Simulator from, to;
        QVERIFY(from.startUdp());
        QVERIFY(to.startUdp());
        QCOMPARE(cli({"--connect", from.connectText(), "write", "AO1:floatx2=1.5,-2", "LW2:int32=7",
                      "SI4:string=\"say \"\"hi\"\", a\\b\""})
                     .exitCode,
                 0);
        const QStringList tags = {"AO1:floatx2", "LW2:int32", "SI4:string"};
        const Run read = cli(QStringList{"--connect", from.connectText(), "--format", "csv", "read"} + tags);
        QCOMPARE(read.exitCode, 0);
        QVERIFY2(read.out.contains(QLatin1String("\nAO1,floatx2,0,ok,\"1.5,-2\",")), qPrintable(read.out));
        QVERIFY2(read.out.contains(QLatin1String("SI4,string,0,ok,\"say \"\"hi\"\", a\\b\",")), qPrintable(read.out));

        QTemporaryDir dir;
        const QString file = dir.filePath(QStringLiteral("read.csv"));
        QFile csv(file);
        QVERIFY(csv.open(QIODevice::WriteOnly));
        csv.write(read.out.toUtf8());
        csv.close();
        const Run written = cli({"--connect", to.connectText(), "--file", file, "write"});
        QCOMPARE(written.exitCode, 0);
        const Run back = cli(QStringList{"--connect", to.connectText(), "--format", "json", "read"} + tags);
        QCOMPARE(members(back.out, "tag", {"value"}), QStringList({"[1.5,-2]", "[7]", "[\"say \\\"hi\\\", a\\\\b\"]"}));
    }

    // Ctrl-C in the middle of a read keeps the rows already read.
    void readKeepsWhatWasReadOnCtrlC()
    {
        Simulator sim;
        QVERIFY(sim.startUdp({"--delay", "200", "--set", "AI1=int32:42"}));
        QProcess read;
        read.start(QStringLiteral(SORVIK_CLI_FILE),
                   {"--connect", sim.connectText(), "--format", "csv", "read", "AI1:int32", "AI2:int32", "AI3:int32",
                    "AI4:int32", "AI5:int32", "AI6:int32", "AI7:int32", "AI8:int32"});
        QTRY_VERIFY_WITH_TIMEOUT(read.peek(1 << 16).contains("AI1,int32,0,ok,42,"), 10000);
        ::kill(pid_t(read.processId()), SIGINT);
        QVERIFY(read.waitForFinished(10000));
        QCOMPARE(read.exitStatus(), QProcess::NormalExit);
        QCOMPARE(read.exitCode(), 4);
        QVERIFY(read.readAllStandardOutput().startsWith("tag,type,status,meaning,value,time\nAI1,int32,0,ok,42,"));
        QVERIFY(read.readAllStandardError().contains("sorvik-cli: stopped: "));
    }

    // In place on a wide terminal; on a narrow one, where rows would wrap, each cycle goes below the last.
    void pollRedrawsOnlyWhereRowsFit_data()
    {
        QTest::addColumn<int>("columns");
        QTest::addColumn<bool>("inPlace");
        QTest::newRow("200 columns") << 200 << true;
        QTest::newRow("60 columns") << 60 << false;
    }
    void pollRedrawsOnlyWhereRowsFit()
    {
        QFETCH(int, columns);
        QFETCH(bool, inPlace);
        Simulator sim;
        QVERIFY(sim.startUdp({"--set", "SI1=string:a text that makes the row wider than sixty columns"}));
        Terminal terminal(columns);
        QVERIFY(!terminal.slave.isEmpty());
        const QByteArray seen = onTerminal(terminal, {"--connect", sim.connectText(), "poll", "SI1:string", "AI1:int32",
                                                      "--cycles", "3", "--interval", "0"});
        QCOMPARE(seen.count("cycle "), 3);
        QCOMPARE(seen.contains("\x1b["), inPlace);
    }

private:
    Simulator m_sim;
};

QTEST_GUILESS_MAIN(CliUdp)
#include "tst_cli_udp.moc"
