#pragma once

#include <QElapsedTimer>
#include <QString>

class CDriveBaseClass;

// Keeps the pairing of requests and replies honest. The drive hands a reply
// that came after its request gave up to the next request, as if it were
// that one's own; so after any lost reply nothing read is trusted until the
// link has been closed, reopened and (over UDP) proved by the handshake. A
// link that cannot be reopened is tried again after a pause that grows.
class LinkKeeper
{
public:
    LinkKeeper(CDriveBaseClass *drive, const QString &connectText);

    // After each exchange: a reply lost (status 8), a closed link (9) or a
    // block that gave its tags nothing makes the link suspect.
    void noteStatus(int status);
    void noteLost();
    // Before each exchange: true when a request may go out now; resynchronises
    // first when a reply was lost. False while the link is down.
    bool ready();
    bool down() const { return m_down; }
    // Why a request was not sent, for the rows that stay unread.
    QString unreadReason() const;

private:
    bool reopen();

    CDriveBaseClass *m_drive;
    QString m_text;
    bool m_suspect = false;
    bool m_down = false;
    QElapsedTimer m_sinceAttempt;
    int m_pauseMs;
};
