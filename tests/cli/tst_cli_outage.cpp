// Replies and controllers that get lost while sorvik-cli reads and polls, over loopback UDP and sorvik-sim's
// pseudo-terminals (where each exchange takes at least 100 ms): no value read under one tag that belongs to another
// (the simulator fills its memory so that every value names its area and element), no reply shown as such, and a
// controller that goes away and comes back, also behind a terminal name that stays while the terminal is replaced.

#include "CliTestSupport.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

using namespace CliTest;

namespace {

constexpr int kController = 7;

// What the simulator holds in a 4-byte word area for element n, as JSON text of a one-element list.
QString word(const QString &tag)
{
    static const QMap<QString, int> areas = {{"AI", 7}, {"NAI", 17}, {"HAI", 21}, {"LA", 23}, {"LW", 24}};
    const int digits = tag.indexOf(QRegularExpression(QStringLiteral("[0-9]")));
    const qint64 value =
        qint64(kController) * 10000000 + areas.value(tag.left(digits)) * 100000 + tag.mid(digits).toInt();
    return QStringLiteral("[%1]").arg(value);
}

} // namespace

class CliOutage : public QObject
{
    Q_OBJECT

    // Polls AI1 over `connectText`, stops `first`, waits for the lost line, starts the second controller with
    // `restart` and waits for the line that says it is back; gives the rows seen.
    QStringList lostAndBack(const QString &connectText, Simulator &first, const std::function<bool()> &restart)
    {
        QProcess poll;
        if (!startPoll(poll, {"--connect", connectText, "--format", "json", "poll", "AI1:int32", "--interval", "100"}))
            return {QStringLiteral("poll did not start")};
        first.stop();
        QString err;
        const bool lost =
            waitForError(poll, &err, QStringLiteral("controller lost: no good reply for 3 cycles"), 30000);
        const bool restarted = lost && restart();
        const bool back = restarted && waitForError(poll, &err, QStringLiteral("controller back after "), 60000);
        ::kill(pid_t(poll.processId()), SIGINT);
        poll.waitForFinished(10000);
        if (!back)
            return {QStringLiteral("lost %1, restarted %2, back %3: %4").arg(lost).arg(restarted).arg(back).arg(err)};
        // One line each way.
        if (err.count(QLatin1String("controller lost")) != 1 || err.count(QLatin1String("controller back")) != 1)
            return {err};
        return members(QString::fromUtf8(poll.readAllStandardOutput()), "tag", {"status", "value", "meaning"});
    }

    static void checkRows(const QStringList &rows)
    {
        QVERIFY2(rows.size() > 4, qPrintable(rows.join('\n')));
        QCOMPARE(rows.first(), QStringLiteral("0 [42] \"ok\""));
        QCOMPARE(rows.last(), QStringLiteral("0 [43] \"ok\""));
        QVERIFY2(rows.contains(QStringLiteral("null [] \"not read: the link is down, reopening\"")),
                 qPrintable(rows.join('\n')));
        for (const QString &row : rows)
            QVERIFY2(row.startsWith(QLatin1String("0 [4")) || row.contains(QLatin1String(" [] ")), qPrintable(row));
    }

private slots:
    // Over a serial line: a write, then one poll cycle. CSV keeps stdout one table: the cycle timing goes to stderr.
    void writeThenPoll()
    {
        Simulator sim;
        QVERIFY(sim.startPty({"--set", "AI1=int32:42", "--set", "DI3=bool:1"}));
        QCOMPARE(cli({"--connect", sim.connectText(), "write", "AO2:float=-0.5"}).exitCode, 0);
        const Run run = cli({"--connect", sim.connectText(), "--format", "csv", "poll", "AO2:float", "AI1:int32",
                             "DI3:bool", "--cycles", "1"});
        QCOMPARE(run.exitCode, 0);
        const QRegularExpression rows(QStringLiteral("^[^\n]*\n1,AO2,float,0,ok,-0.5,[^\n]*\n1,AI1,int32,0,ok,42,"
                                                     "[^\n]*\n1,DI3,bool,0,ok,1,[^\n]*\n$"));
        QVERIFY2(rows.match(run.out).hasMatch(), qPrintable(run.out));
        QVERIFY2(run.err.startsWith(QLatin1String("cycle 1: 3 requests in ")), qPrintable(run.err));
    }

    // A serial link has no handshake: a peer that went away shows as no reply.
    void silentLineIsNoReply()
    {
        Simulator sim;
        QVERIFY(sim.startPty({"--silent"}));
        const Run run = cli({"--connect", sim.connectText(), "read", "AI1:int32"});
        QCOMPARE(run.exitCode, 2);
        QVERIFY2(run.out.contains(QLatin1String("AI1,int32,8,no reply,,")), qPrintable(run.out));
        QCOMPARE(run.err, QStringLiteral("sorvik-cli: no reply from the controller\n"));
    }

    // The second reply comes late: the third read must not take it as its own, over UDP or a serial line.
    void readAfterLostReply_data()
    {
        QTest::addColumn<bool>("serial");
        QTest::newRow("udp") << false;
        QTest::newRow("pty") << true;
    }
    void readAfterLostReply()
    {
        QFETCH(bool, serial);
        Simulator sim;
        // A serial exchange gives up some 450 ms after its request.
        const QStringList options = {"--self-describing", QString::number(kController), "--late",
                                     serial ? "2:700" : "2:450"};
        QVERIFY(serial ? sim.startPty(options) : sim.startUdp(options));
        const Run run = cli({"--connect", sim.connectText(), "--format", "json", "read", "AI1:int32", "AI2:int32",
                             "AI3:int32", "LW4:int32"});
        QCOMPARE(run.exitCode, 4);
        QCOMPARE(members(run.out, "tag", {"tag", "status", "value"}),
                 QStringList({"\"AI1\" 0 [70700001]", "\"AI2\" 8 []", "\"AI3\" 0 [70700003]", "\"LW4\" 0 [72400004]"}));
    }

    // A share of replies held late over several cycles of blocks: every good value is the tag's own, every
    // failed one shows none, and a failed block says so.
    void pollNeverShowsAnotherTagsValue()
    {
        Simulator sim;
        QVERIFY(sim.startUdp(
            {"--self-describing", QString::number(kController), "--late-share", "0.3:450", "--seed", "11"}));
        const QStringList words = {"AI1", "AI3", "AI70", "NAI1", "NAI900", "LW2", "HAI4", "LA9"};
        QStringList tags;
        for (const QString &tag : words)
            tags << tag + QStringLiteral(":int32");
        tags << QStringLiteral("DI1:bool") << QStringLiteral("DI2:bool");
        const Run run = cli(QStringList{"--connect", sim.connectText(), "--format", "json", "poll", "--cycles", "4",
                                        "--interval", "0"} +
                                tags,
                            120000);
        QVERIFY(!run.crashed);
        int good = 0, failed = 0;
        for (const QString &row : members(run.out, "tag", {"tag", "status", "value", "meaning"})) {
            const QStringList fields = row.split(QLatin1Char(' '));
            const QString tag = fields.at(0).mid(1).chopped(1);
            if (fields.at(1) == QLatin1String("0")) {
                ++good;
                if (!tag.startsWith(QLatin1String("DI")))
                    QVERIFY2(fields.at(2) == word(tag), qPrintable(row));
            } else {
                ++failed;
                QVERIFY2(fields.at(2) == QLatin1String("[]"), qPrintable(row));
                QVERIFY2(row.contains(QLatin1String("failed)")) || row.contains(QLatin1String("not read")),
                         qPrintable(row));
            }
        }
        QCOMPARE(good + failed, 4 * tags.size());
        QVERIFY2(failed > 0 && good > 0, qPrintable(run.out));
    }

    void udpControllerComesBack()
    {
        Simulator first;
        QVERIFY(first.startUdp({"--set", "AI1=int32:42"}));
        const QString port = first.connectText().section(QLatin1Char(':'), 1);
        Simulator second;
        checkRows(lostAndBack(first.connectText(), first, [&] {
            return second.startUdp({"--port", port, "--set", "AI1=int32:43"});
        }));
    }

    // The port is reopened by its name; the terminal behind the name is new.
    void serialPortIsReopened()
    {
        QTemporaryDir dir;
        const QString name = dir.filePath(QStringLiteral("tty"));
        Simulator first;
        QVERIFY(first.startPty({"--set", "AI1=int32:42"}));
        QVERIFY(QFile::link(first.connectText().section(QLatin1Char(','), 0, 0), name));
        Simulator second;
        checkRows(lostAndBack(name + QStringLiteral(",9600,8,1,N"), first, [&] {
            return second.startPty({"--set", "AI1=int32:43"}) && QFile::remove(name) &&
                   QFile::link(second.connectText().section(QLatin1Char(','), 0, 0), name);
        }));
    }
};

QTEST_GUILESS_MAIN(CliOutage)
#include "tst_cli_outage.moc"
