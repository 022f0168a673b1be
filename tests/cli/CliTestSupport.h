#pragma once

// Runs the built sorvik-cli and sorvik-sim as a user would, over loopback sockets and pseudo-terminals.

#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <QTest>

namespace CliTest {

struct Run {
    int exitCode = -1;
    bool crashed = false;
    QString out;
    QString err;
};

// This program's own loopback address from CTest, as text.
inline QString host()
{
    const QByteArray address = qgetenv("SORVIK_TEST_HOST");
    return address.isEmpty() ? QStringLiteral("127.0.0.1") : QString::fromLatin1(address);
}

// The embedded simulator of the CLI on this program's own loopback address.
inline QStringList embedded()
{
    return {QStringLiteral("--sim-address"), host()};
}

inline Run run(const QString &program, const QStringList &arguments, int timeoutMs = 20000)
{
    QProcess process;
    process.start(program, arguments);
    Run result;
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        result.crashed = true;
    }
    result.crashed = result.crashed || process.exitStatus() != QProcess::NormalExit;
    result.exitCode = process.exitCode();
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

inline Run cli(const QStringList &arguments, int timeoutMs = 20000)
{
    return run(QStringLiteral(SORVIK_CLI_FILE), arguments, timeoutMs);
}

// A sorvik-sim process; the endpoint on its first stdout line becomes the connection text.
class Simulator
{
public:
    ~Simulator() { stop(); }

    bool startUdp(const QStringList &extra = {}) { return start({"--address", host(), "--port", "0"}, extra, {}); }
    bool startPty(const QStringList &extra = {}) { return start({"--pty"}, extra, ",9600,8,1,N"); }
    const QString &connectText() const { return m_endpoint; }
    // Ends it as a stop signal does; gives its stderr, or a note that it did not end cleanly.
    QString stop()
    {
        if (m_process.state() == QProcess::NotRunning)
            return {};
        m_process.terminate();
        if (!m_process.waitForFinished(3000)) {
            m_process.kill();
            m_process.waitForFinished(3000);
        }
        if (m_process.exitStatus() != QProcess::NormalExit || m_process.exitCode() != 0)
            return QStringLiteral("<did not end cleanly>");
        return QString::fromUtf8(m_process.readAllStandardError());
    }

private:
    bool start(const QStringList &arguments, const QStringList &extra, const QString &serialTail)
    {
        m_process.start(QStringLiteral(SORVIK_SIM_FILE), arguments + extra);
        QElapsedTimer clock;
        clock.start();
        while (m_process.waitForStarted(5000) && !m_process.canReadLine() && clock.elapsed() < 5000)
            m_process.waitForReadyRead(100);
        const QStringList first = QString::fromUtf8(m_process.readLine()).trimmed().split(QLatin1Char(' '));
        m_endpoint = first.value(1) + serialTail;
        return first.size() == 2;
    }

    QProcess m_process;
    QString m_endpoint;
};

// Starts a poll and waits until its first cycle is out.
inline bool startPoll(QProcess &poll, const QStringList &arguments)
{
    poll.start(QStringLiteral(SORVIK_CLI_FILE), arguments);
    QElapsedTimer clock;
    clock.start();
    while (poll.waitForStarted(5000) && !poll.peek(1 << 16).contains("\"timing\"") && clock.elapsed() < 5000)
        poll.waitForReadyRead(50);
    return poll.peek(1 << 16).contains("\"timing\"");
}

// Waits until the stderr of `process`, gathered in *err, holds `text`.
inline bool waitForError(QProcess &process, QString *err, const QString &text, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    while (!err->contains(text) && clock.elapsed() < timeoutMs && process.state() != QProcess::NotRunning) {
        process.waitForReadyRead(100);
        *err += QString::fromUtf8(process.readAllStandardError());
    }
    *err += QString::fromUtf8(process.readAllStandardError());
    return err->contains(text);
}

// The raw JSON text of a member of a one-line object (raw keeps 64-bit numbers exact).
inline QString member(const QString &line, const QString &name)
{
    const QString text = QStringLiteral("\"(?:[^\"\\\\]|\\\\.)*\"");
    const QRegularExpression pattern(QStringLiteral("\"%1\":(%2|\\[(?:%2|[^\\]\"])*\\]|\\{(?:%2|[^}\"])*\\}|[^,}\\]]*)")
                                         .arg(QRegularExpression::escape(name), text));
    return pattern.match(line).captured(1);
}

// For each JSON line of `out` with the member `key`: the named members, joined by spaces.
inline QStringList members(const QString &out, const QString &key, const QStringList &names)
{
    QStringList texts;
    for (const QString &line : out.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        if (!line.contains(QLatin1Char('"') + key + QStringLiteral("\":")))
            continue;
        QStringList values;
        for (const QString &name : names)
            values << member(line, name);
        texts << values.join(QLatin1Char(' '));
    }
    return texts;
}

} // namespace CliTest
