// What sorvik-cli prints: CSV that other tools and its own tag files read back, rows that leave as they complete,
// the write of tags the planner refuses, short answers, and the live table on a narrow terminal.

#include "CliTestSupport.h"

#include <QFile>
#include <QSocketNotifier>
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

class CliOutput : public QObject
{
    Q_OBJECT

private slots:
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

    // The planner takes no Custom tag into a block: it is written on its own, and the table says so.
    void writePlanWritesRefusedTagsOneAtATime()
    {
        Simulator sim;
        QVERIFY(sim.startUdp());
        const Run run =
            cli({"--connect", sim.connectText(), "--format", "json", "write-plan", "Custom5:int16=-3", "AO1:float=2"});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(members(run.out, "tag", {"tag", "status", "block"}),
                 QStringList({"\"Custom5\" 0 \"one at a time\"", "\"AO1\" 0 \"AO1+4 bytes\""}));
        QCOMPARE(
            member(cli({"--connect", sim.connectText(), "--format", "json", "read", "Custom5:int16"}).out, "value"),
            QStringLiteral("[-3]"));
    }

    // The drive rounds byte counts to whole elements of the area without a word; the CLI says it.
    void fewerElementsAreWarned()
    {
        Simulator sim;
        QVERIFY(sim.startUdp());
        const Run run = cli({"--connect", sim.connectText(), "read", "SA1:int8x5", "NAI1:uint8x1467", "AI1:int8x4"});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.err, QStringLiteral("sorvik-cli: SA1:int8x5: 4 of 5 elements came back\n"
                                         "sorvik-cli: NAI1:uint8x1467: 1464 of 1467 elements came back\n"));
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
};

QTEST_GUILESS_MAIN(CliOutput)
#include "tst_cli_output.moc"
