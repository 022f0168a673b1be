// Every command line of the README's sorvik-cli section, run in order with the built programs and this test's
// loopback address; a sorvik-sim line ending in & keeps running for the lines after it.

#include "CliTestSupport.h"

#include <QFile>
#include <QRegularExpression>
#include <QTest>

using namespace CliTest;

namespace {

struct Expectation {
    const char *command;
    int exitCode;       // -1: a simulator started in the background
    const char *output; // key text of stdout (CSV when piped, or what --format asks)
};

// Every example of the section, with what it must give.
const Expectation kExamples[] = {
    {"sorvik-cli info", 0, "drive,version,build,library\nSorvik,V1.8.4 202001027,v2.1.0 "},
    {"sorvik-cli read AI1:float AI3:int32 DI1:boolx8 SI1:string", 0, "SI1,string,0,ok,pump running,"},
    {"sorvik-cli poll AI1:float AI3:int32 DI1:bool SI3:string --cycles 3 --interval 500", 0, "\n3,AI1,float,0,ok,"},
    {"sorvik-cli plan AI1:float AI2:float AI3:int32 AI60:double DI1:bool DI4:bool Custom5:int16", 0,
     ",,,,refused,Custom5,int16,"},
    {"sorvik-sim --port 6000 --set AI1=int32:42 &", -1, "udp "},
    {"sorvik-cli --connect 127.0.0.1:6000 write AO1:floatx2=1.5,2.5 LW1:int32=-7 'SI4:string=\"hello, world\"'", 0,
     "SI4,string,0,ok,\"hello, world\","},
    {"sorvik-cli --connect 127.0.0.1:6000 read AO1:floatx2 LW1:int32 SI4:string AI1:int32", 0,
     "AO1,floatx2,0,ok,\"1.5,2.5\","},
    {"sorvik-cli --connect 127.0.0.1:6000 --file cli/demo-writes.csv write-plan", 0, "DO3,bool,0,ok,1,"},
    {"sorvik-cli --connect 127.0.0.1:6000 --format json write AO1:int32=5", 3,
     "\"status\":2,\"meaning\":\"type refused for the area\""},
    {"sorvik-sim --pty --set AI1=int32:42 &", -1, "pty /dev/pts/"},
    {"sorvik-cli --connect /dev/pts/3,9600,8,1,N read AI1:int32", 0, "AI1,int32,0,ok,42,"},
};

QStringList readmeExamples()
{
    QFile file(QStringLiteral(SORVIK_SOURCE_DIR "/README.md"));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    const QString text = QString::fromUtf8(file.readAll());
    const int begin = text.indexOf(QLatin1String("<!-- cli:begin -->"));
    const int end = text.indexOf(QLatin1String("<!-- cli:end -->"));
    QStringList commands;
    bool inShell = false;
    for (const QString &line : text.mid(begin, end - begin).split(QLatin1Char('\n'))) {
        if (line.startsWith(QLatin1String("```")))
            inShell = line == QLatin1String("```sh");
        else if (inShell &&
                 (line.startsWith(QLatin1String("sorvik-cli ")) || line.startsWith(QLatin1String("sorvik-sim "))))
            commands << line.trimmed();
    }
    return commands;
}

} // namespace

class CliReadme : public QObject
{
    Q_OBJECT

    // The line as the shell runs it here.
    QString localLine(QString line) const
    {
        line.replace(QLatin1String("127.0.0.1"), host());
        if (!m_ptyPath.isEmpty())
            line.replace(QRegularExpression(QStringLiteral("/dev/pts/[0-9]+")), m_ptyPath);
        // The demo controller goes on this test's address; --sim-address is
        // refused where no demo controller runs.
        const bool demo = !line.contains(QLatin1String("--connect")) && !line.contains(QLatin1String(" info")) &&
                          !line.contains(QLatin1String(" plan "));
        if (line.startsWith(QLatin1String("sorvik-cli ")))
            return QStringLiteral(SORVIK_CLI_FILE " %1")
                       .arg(demo ? QStringLiteral("--sim-address %1 ").arg(host()) : QString()) +
                   line.mid(11);
        if (line.contains(QLatin1String("--pty")))
            return QStringLiteral(SORVIK_SIM_FILE " ") + line.mid(11);
        return QStringLiteral(SORVIK_SIM_FILE " --address %1 ").arg(host()) + line.mid(11);
    }

private slots:
    void everyExampleIsKnown()
    {
        const QStringList commands = readmeExamples();
        QStringList known;
        for (const Expectation &example : kExamples)
            known << QString::fromUtf8(example.command);
        QCOMPARE(commands, known);
    }

    void examplesRun_data()
    {
        QTest::addColumn<QString>("command");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output");
        for (const Expectation &example : kExamples)
            QTest::newRow(example.command)
                << QString::fromUtf8(example.command) << example.exitCode << QString::fromUtf8(example.output);
    }
    void examplesRun()
    {
        QFETCH(QString, command);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        QString line = localLine(command);
        if (exitCode < 0) {
            line.chop(1); // the trailing &: this test keeps the process
            auto *sim = new QProcess(this);
            sim->start(QStringLiteral("sh"), {QStringLiteral("-c"), QStringLiteral("exec ") + line});
            QVERIFY(sim->waitForStarted());
            QTRY_VERIFY_WITH_TIMEOUT((sim->waitForReadyRead(50), sim->canReadLine()), 5000);
            const QString first = QString::fromUtf8(sim->readLine()).trimmed();
            QVERIFY2(first.startsWith(output), qPrintable(first));
            if (first.startsWith(QLatin1String("pty ")))
                m_ptyPath = first.mid(4);
            return;
        }
        QProcess shell;
        shell.setWorkingDirectory(QStringLiteral(SORVIK_SOURCE_DIR));
        shell.start(QStringLiteral("sh"), {QStringLiteral("-c"), line});
        QVERIFY(shell.waitForFinished(20000));
        const QString out = QString::fromUtf8(shell.readAllStandardOutput());
        QCOMPARE(shell.exitCode(), exitCode);
        QVERIFY2(out.contains(output), qPrintable(out));
    }

    void cleanupTestCase()
    {
        for (QProcess *sim : findChildren<QProcess *>()) {
            sim->terminate();
            sim->waitForFinished(3000);
        }
    }

private:
    QString m_ptyPath;
};

QTEST_GUILESS_MAIN(CliReadme)
#include "tst_cli_readme.moc"
