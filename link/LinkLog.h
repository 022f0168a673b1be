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

// A request that cannot be put into a frame without losing bits is refused
// with this warning; `what` is "read" or "write".
inline QString refusedLine(const char *what, const QHostAddress &peer, int port, const QString &tag, int area,
                           qint64 length)
{
    return QStringLiteral("lib[Sorvik]%1 refused %2:%3  %4 area = %5 len = %6: does not fit a frame")
        .arg(QLatin1String(what), peer.toString(), QString::number(port), tag, QString::number(area),
             QString::number(length));
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
