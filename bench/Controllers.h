#pragma once

// The controller stand-ins of the rows and the drives connected to them.

#include "protocol/SorvikAreas.h"
#include "sim/SorvikSimulator.h"

#include <QByteArray>
#include <QHostAddress>
#include <QString>

class CDriveBaseClass;
class DriveLoader;

namespace BenchTags {
constexpr int kNaiArea = SorvikProtocol::codeOf("NAI"); // a word area of 4-byte addresses
constexpr int kFloatCount = 1000;                       // NAI1 to NAI1000 hold floats

inline QString naiTag(int number)
{
    return QStringLiteral("NAI%1").arg(number);
}
// The NAI memory: float i at NAI<i>, the value i / 4.
QByteArray naiFloats();
} // namespace BenchTags

// A simulator serving UDP on a loopback address of its own (loopbackHost of
// `hostIndex`), with the NAI floats preset.
class UdpController
{
public:
    explicit UdpController(int hostIndex);
    bool start(QString *why);
    QString connectText() const;

    QHostAddress host;
    quint16 port = 0;
    SorvikSimulator sim;
};

// A drive of the loaded library connected by `text`; null with a reason in *why.
CDriveBaseClass *connectedDrive(const DriveLoader &loader, const QString &text, QString *why);
// Closes the drive's transport and frees it, so that its address can be bound again.
void releaseDrive(CDriveBaseClass *drive);
