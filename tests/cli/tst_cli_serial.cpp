// sorvik-cli over sorvik-sim's pseudo-terminal; each exchange takes at least 100 ms.

#include "CliTestSupport.h"

#include <QTest>

using namespace CliTest;

class CliSerial : public QObject
{
    Q_OBJECT

private slots:
    void writeThenPoll()
    {
        Simulator sim;
        QVERIFY(sim.startPty({"--set", "AI1=int32:42", "--set", "DI3=bool:1"}));
        QCOMPARE(cli({"--connect", sim.connectText(), "write", "AO2:float=-0.5"}).exitCode, 0);
        const Run run = cli({"--connect", sim.connectText(), "--format", "csv", "poll", "AO2:float", "AI1:int32",
                             "DI3:bool", "--cycles", "1"});
        QCOMPARE(run.exitCode, 0);
        const QStringList rows = run.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        QCOMPARE(rows.size(), 4);
        QVERIFY2(rows.at(1).startsWith(QLatin1String("1,AO2,float,0,ok,-0.5,")), qPrintable(run.out));
        QVERIFY2(rows.at(2).startsWith(QLatin1String("1,AI1,int32,0,ok,42,")), qPrintable(run.out));
        QVERIFY2(rows.at(3).startsWith(QLatin1String("1,DI3,bool,0,ok,1,")), qPrintable(run.out));
        // CSV keeps stdout one table: the cycle timing goes to stderr.
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
};

QTEST_GUILESS_MAIN(CliSerial)
#include "tst_cli_serial.moc"
