#pragma once

// The link's log lines: one string each, category "default", frames as
// lower-case hexadecimal text without separators.

#include <QByteArray>
#include <QDebug>
#include <QHostAddress>
#include <QString>
#include <QtGlobal>

namespace LinkLog {

// Fills a line of the form "...%1:%2 ...%3 ...%4 ...%5" in one pass, so that a
// tag holding "%1" or the like is printed as it stands.
inline QString frameLine(const QString &pattern, const QHostAddress &peer, int port, const QString &tag, qint64 length,
                         const QByteArray &frame)
{
    return pattern.arg(peer.toString(), QString::number(port), tag, QString::number(length),
                       QString::fromLatin1(frame.toHex()));
}

// The line goes to the message handler as the one QString it is: a tag that
// holds a NUL or an unpaired surrogate must not cut the line short or turn
// into "?" on its way through a C string.
inline void debug(const QString &text)
{
    qDebug().nospace().noquote() << text;
}
inline void warning(const QString &text)
{
    qWarning().nospace().noquote() << text;
}

} // namespace LinkLog
