#pragma once

// The local time a record carries, as QDateTime::currentDateTime() gives it,
// at a fraction of its cost when reads follow each other closely.

#include <QDateTime>

#include <limits>

// currentDateTime() is fromMSecsSinceEpoch(currentMSecsSinceEpoch(),
// Qt::LocalTime), and the conversion to local time (a zone look-up and a
// mktime) costs more than the rest of a read beside the socket calls. Reads
// come tens of microseconds apart, so most fall in the millisecond of the one
// before: the value of that millisecond is kept. Each drive object keeps its
// own, as it is used on one thread only; no thread-local storage, which a
// library loaded and unloaded at run time would have to tear down per thread.
// A change of zone shows from the next millisecond on instead of at once.
class LocalClock
{
public:
    QDateTime now()
    {
        const qint64 msecs = QDateTime::currentMSecsSinceEpoch();
        if (msecs != m_msecs) {
            m_time = QDateTime::fromMSecsSinceEpoch(msecs, Qt::LocalTime);
            m_msecs = msecs;
        }
        return m_time;
    }

private:
    qint64 m_msecs = std::numeric_limits<qint64>::min();
    QDateTime m_time;
};
