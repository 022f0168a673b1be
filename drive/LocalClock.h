#pragma once

// The local time a record carries, as QDateTime::currentDateTime() gives it,
// at a fraction of its cost when reads follow each other closely.

#include <QDateTime>

#include <limits>

namespace LocalClock {

// currentDateTime() is fromMSecsSinceEpoch(currentMSecsSinceEpoch(),
// Qt::LocalTime), and the conversion to local time (a zone look-up and a
// mktime) costs more than the rest of a read beside the socket calls. Reads
// come tens of microseconds apart, so most fall in the millisecond of the one
// before: the value of that millisecond is kept, per thread, since a drive
// object may live on any thread. A change of zone shows from the next
// millisecond on instead of at once.
inline QDateTime now()
{
    struct Kept {
        qint64 msecs = std::numeric_limits<qint64>::min();
        QDateTime time;
    };
    thread_local Kept kept;
    const qint64 msecs = QDateTime::currentMSecsSinceEpoch();
    if (msecs != kept.msecs) {
        kept.time = QDateTime::fromMSecsSinceEpoch(msecs, Qt::LocalTime);
        kept.msecs = msecs;
    }
    return kept.time;
}

} // namespace LocalClock
