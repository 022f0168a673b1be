#pragma once

// The link's log lines: one string each, category "default", frames as
// lower-case hexadecimal text without separators.

#include <QByteArray>
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

inline void debug(const QString &text)
{
    qDebug("%s", qUtf8Printable(text));
}
inline void warning(const QString &text)
{
    qWarning("%s", qUtf8Printable(text));
}

} // namespace LinkLog
