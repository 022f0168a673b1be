#include "Connection.h"

#include "Console.h"

#include "host/CDriveBaseClass.h"
#include "link/LinkResult.h"
#include "sim/SimLiveValues.h"
#include "sim/SorvikSimulator.h"

#include <QHostAddress>

Connection::Connection(CDriveBaseClass *drive) : m_drive(drive) {}

Connection::~Connection()
{
    close();
}

bool Connection::open(const QString &connectText, const QString &simAddress, QString *why)
{
    m_text = connectText;
    m_used = true;
    if (m_text.isEmpty()) {
        m_simulator = std::make_unique<SorvikSimulator>();
        const quint16 port = m_simulator->startUdp(QHostAddress(simAddress), 0);
        if (port == 0) {
            *why = QStringLiteral("cannot start the embedded simulator on %1").arg(simAddress);
            return false;
        }
        m_liveValues = std::make_unique<SimLiveValues>(m_simulator.get());
        m_liveValues->start();
        m_text = QStringLiteral("%1:%2").arg(simAddress).arg(port);
        Console::error(QStringLiteral("no --connect: using the built-in demo controller on %1; nothing reaches a "
                                      "real controller")
                           .arg(m_text));
    }
    const int result = m_drive->ConnectDrive(m_text);
    if (result != LinkResult::Ok) {
        const bool udp = m_text.count(QLatin1Char(':')) == 1;
        *why = result == LinkResult::NoReply ? QStringLiteral("no answer to the handshake from %1").arg(m_text)
               : udp                         ? QStringLiteral("cannot open a UDP link to %1").arg(m_text)
                     : QStringLiteral("cannot open serial port %1").arg(m_text.section(QLatin1Char(','), 0, 0));
        return false;
    }
    m_open = true;
    return true;
}

void Connection::close()
{
    if (m_open)
        m_drive->DisConnectDrive();
    if (m_used)
        m_drive->DestroyFree(); // also after a failed handshake, which leaves the socket behind
    m_open = m_used = false;
    if (m_liveValues)
        m_liveValues->stop();
    if (m_simulator)
        m_simulator->stop();
    m_liveValues.reset();
    m_simulator.reset();
}
