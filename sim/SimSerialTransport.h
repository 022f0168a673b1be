#pragma once

#include "SimStreamTransport.h"

#include <QString>

class QSerialPort;

// A real serial port, set up by the same five fields a serial connection names.
class SimSerialTransport : public SimStreamTransport
{
public:
    explicit SimSerialTransport(FrameHandler onFrame);

    // False, with a log line saying why, when a field is not understood or the port does not open.
    bool start(const QString &portName, int baud, int dataBits, int stopBits, const QString &parity);

protected:
    void write(const QByteArray &bytes) override;

private:
    QSerialPort *m_port;
};
