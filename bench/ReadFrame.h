#pragma once

// The read request of the wire protocol, built here by hand for the floors,
// which must send what the drive sends without going through it.

#include "link/SorvikProtocol.h"

#include <QByteArray>

inline QByteArray readRequest(int area, qint32 address, qint32 length)
{
    using namespace SorvikProtocol;
    QByteArray frame(kRequestHeadSize, '\0');
    frame[0] = char(kReadFunction);
    frame[1] = char(kRequestByte1);
    frame[2] = char(kRequestByte2);
    frame[3] = char(kRequestByte3);
    frame[kOffsetArea] = char(area);
    put24(frame.data() + kOffsetAddress, address);
    put24(frame.data() + kOffsetLength, length);
    return frame;
}
