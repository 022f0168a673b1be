#include "LinkKeeper.h"

#include "host/CDriveBaseClass.h"
#include "host/RecordStatus.h"
#include "link/LinkResult.h"
#include "programs/StopSignal.h"

#include <QThread>

#include <algorithm>

namespace {

// How long a reply may still come after its request gave up. The drive
// waits some 350 ms for a reply over UDP and 450 over a serial line; what
// comes later than this window after that is beyond what the link can tell
// apart from a fresh reply.
constexpr int kLateWindowMs = 1000;
constexpr int kFirstPauseMs = 1000;
constexpr int kLongestPauseMs = 30000;
// A reopened UDP link meets what the old one left in the drive's buffer in
// its handshake, which then fails; the next handshake is clean.
constexpr int kHandshakeTries = 2;

// Sleeps without running events: a late reply then stays in the socket or
// the port, and closing the link throws it away.
void sleepMs(int ms)
{
    QElapsedTimer clock;
    clock.start();
    while (!StopSignal::requested() && clock.elapsed() < ms)
        QThread::msleep(ulong(std::min<qint64>(20, ms - clock.elapsed())));
}

} // namespace

LinkKeeper::LinkKeeper(CDriveBaseClass *drive, const QString &connectText)
    : m_drive(drive), m_text(connectText), m_pauseMs(kFirstPauseMs)
{
}

void LinkKeeper::noteStatus(int status)
{
    if (status == RecordStatus::NoReply || status == RecordStatus::LinkNotOpen)
        m_suspect = true;
}

void LinkKeeper::noteLost()
{
    m_suspect = true;
}

bool LinkKeeper::ready()
{
    if (m_down) {
        if (m_sinceAttempt.elapsed() < m_pauseMs)
            return false;
        m_pauseMs = std::min(m_pauseMs * 2, kLongestPauseMs);
        return reopen();
    }
    if (!m_suspect)
        return true;
    sleepMs(kLateWindowMs);
    return reopen();
}

bool LinkKeeper::reopen()
{
    m_drive->DisConnectDrive();
    bool open = false;
    for (int i = 0; i < kHandshakeTries && !open && !StopSignal::requested(); ++i)
        open = m_drive->ConnectDrive(m_text) == LinkResult::Ok;
    m_sinceAttempt.start();
    if (!open) {
        if (!m_down)
            m_pauseMs = kFirstPauseMs;
        m_down = true;
        return false;
    }
    m_down = m_suspect = false;
    m_pauseMs = kFirstPauseMs;
    return true;
}

QString LinkKeeper::unreadReason() const
{
    return QStringLiteral("not read: the link is down, reopening");
}
