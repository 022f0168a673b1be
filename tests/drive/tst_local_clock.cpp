// The local time records carry: the very value currentDateTime() gives, kept
// no longer than its millisecond.

#include "drive/LocalClock.h"

#include <QtTest>

class TestLocalClock : public QObject
{
    Q_OBJECT

    // The clock's time, taken at the start of a millisecond, falls between
    // the two readings of the system clock around it.
    LocalClock m_clock;

    QDateTime checkedInNextMillisecond()
    {
        const qint64 start = QDateTime::currentMSecsSinceEpoch();
        qint64 before = start;
        while (before == start)
            before = QDateTime::currentMSecsSinceEpoch();
        const QDateTime time = m_clock.now();
        const qint64 after = QDateTime::currentMSecsSinceEpoch();
        const qint64 at = time.toMSecsSinceEpoch();
        if (at < before || at > after)
            qWarning("clock at %lld, outside %lld..%lld", at, before, after);
        return at >= before && at <= after ? time : QDateTime();
    }

private slots:
    void cleanup() { qunsetenv("TZ"); }

    void givesWhatCurrentDateTimeGives()
    {
        for (int i = 0; i < 3; ++i) {
            const QDateTime kept = checkedInNextMillisecond();
            QVERIFY(kept.isValid());
            const QDateTime fresh = QDateTime::fromMSecsSinceEpoch(kept.toMSecsSinceEpoch(), Qt::LocalTime);
            QCOMPARE(kept.timeSpec(), Qt::LocalTime);
            QCOMPARE(kept.toString(Qt::ISODateWithMs), fresh.toString(Qt::ISODateWithMs));
        }
    }

    // A time kept from another zone would stand hours away from the system clock.
    void followsTheZoneFromTheNextMillisecond()
    {
        qputenv("TZ", "UTC0");
        QVERIFY(checkedInNextMillisecond().isValid());
        qputenv("TZ", "EAST-9");
        const QDateTime east = checkedInNextMillisecond();
        QVERIFY(east.isValid());
        QCOMPARE(east.offsetFromUtc(), 9 * 3600);
    }
};

QTEST_GUILESS_MAIN(TestLocalClock)
#include "tst_local_clock.moc"
