#include "LinkSupervisor.h"

#include <QtGlobal>

LinkSupervisor::LinkSupervisor(const ReconnectPolicy &policy, quint32 seed) : m_policy(policy), m_random(seed) {}

LinkSupervisor::Change LinkSupervisor::cycleEnded(bool goodReply)
{
    if (goodReply) {
        m_badCycles = 0;
        m_attempts = 0;
        const bool back = m_lost || !m_online;
        m_lost = false;
        m_online = true;
        return back ? Change::Back : Change::None;
    }
    ++m_badCycles;
    if (!m_lost && m_badCycles >= qMax(1, m_policy.lostAfterCycles)) {
        m_lost = true;
        m_online = false;
        return Change::Lost;
    }
    return Change::None;
}

int LinkSupervisor::nextPauseMs()
{
    const qint64 first = qMax(1, m_policy.firstPauseMs);
    const qint64 longest = qMax<qint64>(first, m_policy.longestPauseMs);
    qint64 pause = first;
    for (int i = 0; i < m_attempts && pause < longest; ++i)
        pause *= 2;
    pause = qMin(pause, longest);
    ++m_attempts;
    const qint64 drawn = pause * 3 / 4 + qint64(m_random.bounded(quint32(pause / 4 + 1)));
    return int(qBound(first, drawn, longest));
}
