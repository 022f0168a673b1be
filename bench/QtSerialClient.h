#pragma once

// The Qt calls a serial exchange of the link is bound to, and nothing else:
// write, flush, waitForBytesWritten(100), waitForReadyRead(300), then the
// bytes read until the whole reply is in. It shows what of a serial read's
// time those calls take by themselves.

#include <QByteArray>
#include <QSerialPort>
#include <QString>

class QtSerialClient
{
public:
    bool open(const QString &portName);
    // The bytes of the reply read until `expected` came or 500 ms passed.
    int roundTrip(const QByteArray &request, int expected);

private:
    QSerialPort m_port;
    QByteArray m_reply;
};
