#include "QtSerialClient.h"

#include <QElapsedTimer>

bool QtSerialClient::open(const QString &portName)
{
    m_port.setPortName(portName);
    if (!m_port.open(QIODevice::ReadWrite))
        return false;
    m_port.setBaudRate(QSerialPort::Baud115200);
    m_port.setDataBits(QSerialPort::Data8);
    m_port.setStopBits(QSerialPort::OneStop);
    m_port.setParity(QSerialPort::NoParity);
    m_port.setFlowControl(QSerialPort::NoFlowControl);
    return true;
}

int QtSerialClient::roundTrip(const QByteArray &request, int expected)
{
    m_port.write(request);
    m_port.flush();
    m_port.waitForBytesWritten(100);
    m_port.waitForReadyRead(300);
    m_reply = m_port.readAll();
    QElapsedTimer clock;
    clock.start();
    while (m_reply.size() < expected && clock.elapsed() < 500 && m_port.waitForReadyRead(50))
        m_reply += m_port.readAll();
    return m_reply.size();
}
