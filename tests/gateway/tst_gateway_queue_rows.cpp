// A row of the offline queue that cannot go out as it was stored (damaged, or
// put there by something else) leaves the queue with a warning; the messages
// around it still go, in order.
#include "TestSupport.h"

#include "gateway/OfflineBuffer.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

class GatewayQueueRowsTest : public QObject
{
    Q_OBJECT

private slots:
    void rowsThatCannotGoOutAreDropped()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("queue.db"));
        OfflineBuffer buffer(path, 1 << 20);
        QString error;
        QVERIFY2(buffer.open(&error), qPrintable(error));
        int dropped = 0;
        QVERIFY(buffer.append(QStringLiteral("sorvik/gw/c1/g"), "{\"seq\":1}", &dropped));
        buffer.close();
        {
            // Left between two runs, as another program or a damaged page would.
            QSqlDatabase other = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("other"));
            other.setDatabaseName(path);
            QVERIFY(other.open());
            QSqlQuery insert(other);
            // A wildcard in the topic, the topic as bytes, a number.
            for (const char *topic : {"'sorvik/gw/+/g'", "x'736f7276696b2f67772f63312f67'", "7"})
                QVERIFY(insert.exec(QStringLiteral("INSERT INTO queue (topic, payload) VALUES (%1, x'7b7d')")
                                        .arg(QLatin1String(topic))));
        }
        QSqlDatabase::removeDatabase(QStringLiteral("other"));
        QVERIFY2(buffer.open(&error), qPrintable(error));
        QVERIFY(buffer.append(QStringLiteral("sorvik/gw/c1/g"), "{\"seq\":2}", &dropped));

        TestSupport::LogCapture log;
        // A batch of damaged rows alone is not the end of the queue.
        const QList<OfflineBuffer::Entry> first = buffer.after(1, 3);
        QCOMPARE(first.size(), 1);
        QCOMPARE(first.at(0).payload, QByteArray("{\"seq\":2}"));
        QCOMPARE(buffer.after(0, 10).size(), 2);
        QCOMPARE(buffer.count(), 2);
        QCOMPARE(buffer.bytes(), 2 * qint64(sizeof("sorvik/gw/c1/g{\"seq\":1}") - 1));
        int warnings = 0;
        for (const TestSupport::LogLine &line : log.all())
            warnings += line.type == QtWarningMsg && line.text.contains(QLatin1String(" dropped, its "));
        QCOMPARE(warnings, 3);
    }
};

QTEST_GUILESS_MAIN(GatewayQueueRowsTest)
#include "tst_gateway_queue_rows.moc"
