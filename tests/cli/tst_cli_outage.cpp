// Controllers that go away and come back while sorvik-cli polls them, over UDP and over a pseudo-terminal whose
// name stays while the terminal behind it is replaced.

#include "CliTestSupport.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

using namespace CliTest;

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
