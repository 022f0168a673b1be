#include "Outcome.h"

#include "Console.h"
#include "host/RecordStatus.h"
#include "programs/ExitCode.h"

void Outcome::addStatus(int status)
{
    ++m_total;
    if (status == RecordStatus::Ok)
        ++m_ok;
    // NotDone on a record here means no value came back for the tag: a bit
    // block whose read failed gives its tags no entry at all.
    else if (status == RecordStatus::NotDone || status == RecordStatus::NoReply || status == RecordStatus::LinkNotOpen)
        ++m_silent;
}

void Outcome::addUnread()
{
    ++m_total;
    ++m_silent;
}

void Outcome::addRefused()
{
    ++m_total;
}

int Outcome::exitCode() const
{
    if (m_ok == m_total)
        return ExitOk;
    if (m_ok > 0)
        return ExitPartlyFailed;
    return m_silent == m_total ? ExitNoConnection : ExitFailed;
}

QString Outcome::failureLine() const
{
    if (m_ok == m_total)
        return QString();
    if (m_ok == 0 && m_silent == m_total)
        return QStringLiteral("no reply from the controller");
    return QStringLiteral("%1 of %2 tags failed").arg(m_total - m_ok).arg(m_total);
}

int Outcome::finish() const
{
    const QString line = failureLine();
    if (!line.isEmpty())
        Console::error(line);
    return exitCode();
}
