// Replies that come after their request gave up: sorvik-cli never shows a value read under one tag that belongs to
// another. The simulator fills its memory so that every value names its area and element.

#include "CliTestSupport.h"

#include <QTest>

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

QString unquoted(const QString &text)
{
    return text.mid(1).chopped(1);
}

} // namespace

class CliPairing : public QObject
{
    Q_OBJECT

private slots:
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
            const QString tag = unquoted(fields.at(0));
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
};

QTEST_GUILESS_MAIN(CliPairing)
#include "tst_cli_pairing.moc"
