// The drive object: construction, identity, debug switch and connection.

#include "LibSorvik.h"

#include "../link/LinkResult.h"

#include <QDate>
#include <QLocale>
#include <QStringList>
#include <QTime>

#include <functional>

namespace {

const int kVersionMajor = 2;
const int kVersionMinor = 1;
const int kVersionPatch = 0;

// The parts of a connection text: address and port, or port, baud rate, data
// bits, stop bits and parity.
const int kUdpParts = 2;
const int kSerialParts = 5;

// The compiler's date text, "Aug 19 2024", as 2024-08-19. The parse format
// is "MMM dd yyyy", which the version texts of all builds share: on the
// first nine days of a month it finds no date and the text stays empty.
QString buildDate()
{
    QString text = QStringLiteral(__DATE__);
    text.replace(QLatin1String("  "), QLatin1String(" "));
    return QLocale(QLocale::English).toDate(text, QStringLiteral("MMM dd yyyy")).toString(QStringLiteral("yyyy-MM-dd"));
}

QString buildTime()
{
    return QTime::fromString(QStringLiteral(__TIME__), QStringLiteral("hh:mm:ss")).toString(QStringLiteral("hh:mm:ss"));
}

} // namespace

LibSorvik::LibSorvik() : QObject(nullptr), CDriveBaseClass()
{
    using namespace std::placeholders;
    m_engine.m_readCallback = std::bind(&LibSorvik::ReadForEngine, this, _1, _2, _3, _4);
    m_engine.m_writeCallback = std::bind(&LibSorvik::WriteForEngine, this, _1, _2, _3, _4, _5);
}

QString LibSorvik::getDriveName()
{
    return QStringLiteral("Sorvik");
}

QString LibSorvik::getversion_number()
{
    return QStringLiteral("V1.8.4 202001027");
}

QString LibSorvik::DebugCmd(EDebugCmdType cmd)
{
    switch (cmd) {
    case DEBUG_START: m_cmd.m_debug = true; return QStringLiteral("StartDebug");
    case DEBUG_STOP: m_cmd.m_debug = false; return QStringLiteral("StopDebug");
    case DEBUG_VERSION:
        return QStringLiteral("v%1.%2.%3 %4 %5")
            .arg(kVersionMajor)
            .arg(kVersionMinor)
            .arg(kVersionPatch)
            .arg(buildDate(), buildTime());
    case DEBUG_DRIVE_NAME: return getDriveName();
    }
    return QString();
}

int LibSorvik::ConnectDrive(QString text)
{
    const QStringList udp = text.split(QLatin1Char(':'), Qt::KeepEmptyParts, Qt::CaseSensitive);
    if (udp.size() == kUdpParts) {
        m_udpHost = udp.at(0);
        m_udpPort = udp.at(1).toUInt(nullptr, 10);
        return m_cmd.OpenUdp(m_udpHost, static_cast<int>(m_udpPort));
    }
    const QStringList serial = text.split(QLatin1Char(','), Qt::KeepEmptyParts, Qt::CaseSensitive);
    if (serial.size() == kSerialParts) {
        m_portName = serial.at(0);
        m_baudRate = serial.at(1).toInt(nullptr, 10);
        m_dataBits = serial.at(2).toInt(nullptr, 10);
        m_stopBits = serial.at(3).toInt(nullptr, 10);
        m_parity = serial.at(4);
        return m_cmd.OpenSerial(m_portName, m_baudRate, m_dataBits, m_stopBits, m_parity);
    }
    return LinkResult::Failed;
}

void LibSorvik::SetConnectPar(QString text)
{
    m_connectPar = text.toUInt(nullptr, 10);
}

int LibSorvik::DisConnectDrive()
{
    // The stored members outlive DestroyFree, which deletes the transport
    // they name: then there is nothing to close, and the answer is Failed.
    if (m_udpPort > 0) {
        if (!m_cmd.m_udp)
            return LinkResult::Failed;
        m_cmd.CloseUdp();
        return LinkResult::Ok;
    }
    if (m_baudRate > 0 && m_dataBits != 0 && m_stopBits != 0) {
        if (!m_cmd.m_serial)
            return LinkResult::Failed;
        return m_cmd.CloseSerial();
    }
    return LinkResult::Failed;
}

int LibSorvik::DestroyFree()
{
    return m_cmd.DestroyFree();
}

void LibSorvik::SetDataInfo(const QString &, const QList<DataInfo::SDataInfo> &) {}
