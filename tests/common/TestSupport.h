#pragma once

// Shared by the test programs: the loopback address of this program, and a
// capture of the log lines that the code under test writes.

#include "DataRows.h"

#include <QByteArray>
#include <QHostAddress>
#include <QList>
#include <QMutex>
#include <QMutexLocker>
#include <QString>
#include <QStringList>
#include <QtGlobal>

namespace TestSupport {

// The loopback address this test program talks over (set per program by CTest).
inline QHostAddress testHost()
{
    const QByteArray host = qgetenv("SORVIK_TEST_HOST");
    return QHostAddress(host.isEmpty() ? QStringLiteral("127.0.0.1") : QString::fromLatin1(host));
}

struct LogLine {
    QtMsgType type;
    QString category;
    QString text;
};

// Collects every message while it lives; the previous handler comes back after it.
class LogCapture
{
public:
    LogCapture()
    {
        QMutexLocker lock(&mutex());
        lines().clear();
        m_previous = qInstallMessageHandler(&LogCapture::handler);
    }
    ~LogCapture() { qInstallMessageHandler(m_previous); }

    QList<LogLine> all() const
    {
        QMutexLocker lock(&mutex());
        return lines();
    }
    // Lines of one type in the "default" category, the drive's own.
    QStringList texts(QtMsgType type) const
    {
        QMutexLocker lock(&mutex());
        QStringList out;
        for (const LogLine &line : lines())
            if (line.type == type && line.category == QLatin1String("default"))
                out << line.text;
        return out;
    }
    void clear()
    {
        QMutexLocker lock(&mutex());
        lines().clear();
    }

private:
    static QList<LogLine> &lines()
    {
        static QList<LogLine> captured;
        return captured;
    }
    static QMutex &mutex()
    {
        static QMutex m;
        return m;
    }
    static void handler(QtMsgType type, const QMessageLogContext &context, const QString &text)
    {
        QMutexLocker lock(&mutex());
        lines().append({type, QString::fromLatin1(context.category ? context.category : ""), text});
    }
    QtMessageHandler m_previous = nullptr;
};

inline QByteArray hex(const char *text)
{
    return QByteArray::fromHex(text);
}

} // namespace TestSupport
