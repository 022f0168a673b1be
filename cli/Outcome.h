#pragma once

#include <QString>

// Tallies what came of every tag of a command and gives the exit status.
class Outcome
{
public:
    void addStatus(int status);
    // A tag that was never sent: refused by the planner or left out.
    void addRefused();
    // A tag left unread while the link was down: counts as no reply.
    void addUnread();

    int exitCode() const;
    // One line for stderr when something failed, empty otherwise.
    QString failureLine() const;
    // Says the failure line on stderr, if any, and gives the exit status.
    int finish() const;

private:
    int m_total = 0;
    int m_ok = 0;
    int m_silent = 0; // no reply, link closed, or no value for the tag
};
