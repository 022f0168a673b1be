#pragma once

// Whether a controller's link is to be trusted, and how long to wait before
// the next attempt to reconnect it. A controller with no good reply for
// `lostAfterCycles` cycles is lost; it is back with the first cycle that has
// one. Between reconnection attempts the pause doubles from `firstPauseMs`
// up to `longestPauseMs`, each drawn with jitter so that many controllers
// lost at once (a switch restarting) do not all come back in step.
#include "GatewayConfig.h"

#include <QRandomGenerator>

class LinkSupervisor
{
public:
    enum class Change { None, Lost, Back };

    explicit LinkSupervisor(const ReconnectPolicy &policy, quint32 seed = QRandomGenerator::global()->generate());

    // One cycle ended, with at least one good reply or none.
    Change cycleEnded(bool goodReply);
    bool isLost() const { return m_lost; }
    bool wasOnline() const { return m_online; }

    // The pause before the next reconnection attempt: the n-th attempt after
    // the link was last good waits about firstPauseMs * 2^n, drawn between
    // three quarters and all of it, and never below firstPauseMs nor above
    // longestPauseMs.
    int nextPauseMs();
    int attempts() const { return m_attempts; }

private:
    ReconnectPolicy m_policy;
    QRandomGenerator m_random;
    int m_badCycles = 0;
    int m_attempts = 0;
    bool m_lost = false;
    bool m_online = false;
};
