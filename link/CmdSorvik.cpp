// Transports of the link: the UDP socket with its handshake, the serial port
// with its silence timer, and the one blocking exchange both share.

#include "CmdSorvik.h"

#include "LinkLog.h"
#include "LinkResult.h"
#include "SorvikProtocol.h"

#include <QCoreApplication>
#include <QDebug>
#include <QElapsedTimer>
#include <QSerialPort>
#include <QTimer>
#include <QUdpSocket>

using namespace SorvikProtocol;

namespace {

// The rates a serial port is set to, each with the silence that ends a reply
// at it: that must outlast the gap between two characters, so only the slow
// rates need a longer one than the last set (0 keeps it).
struct SerialRate {
    int baud;
    int gapMs;
};
constexpr SerialRate kSerialRates[] = {{1200, 0},  {2400, 10}, {4800, 6},  {9600, 3},
                                       {19200, 0}, {38400, 0}, {57600, 0}, {115200, 0}};

} // namespace

CmdSorvik::CmdSorvik(QObject *parent) : QObject(parent) {}

CmdSorvik::~CmdSorvik()
{
    // Whatever DestroyFree leaves (a socket beside a serial port) goes with
    // the children, after this object's connections are already gone.
    DestroyFree();
}

int CmdSorvik::OpenUdp(QString host, int port)
{
    if (!m_udp) {
        m_udp = new QUdpSocket(this);
        connect(m_udp, &QUdpSocket::connected, this, &CmdSorvik::myconnected);
        connect(m_udp, &QUdpSocket::disconnected, this, &CmdSorvik::mydisconnected);
        connect(m_udp, &QUdpSocket::readyRead, this, &CmdSorvik::myreadyRead);
    }
    m_peerPort = port;
    if (!m_peerAddress.setAddress(host))
        return LinkResult::Failed;
    // A failed bind (address not local, port taken, a socket still bound from
    // an earlier open) is not an error: sending then goes out from the port
    // the socket already has or one the system picks.
    m_udp->bind(m_peerAddress, kLocalUdpPort);
    if (Handshake() != LinkResult::Proved) {
        CloseUdp();
        return LinkResult::NoReply;
    }
    return LinkResult::Ok;
}

int CmdSorvik::OpenSerial(QString portName, int baud, int dataBits, int stopBits, QString parity)
{
    if (!m_serial) {
        m_serial = new QSerialPort(this);
        connect(m_serial, &QSerialPort::readyRead, this, &CmdSorvik::serialreadyRead);
    }
    if (m_serial->isOpen()) {
        m_serial->clear(QSerialPort::AllDirections);
        m_serial->close();
    }
    m_serial->setPortName(portName);
    if (!m_serial->open(QIODevice::ReadWrite))
        return LinkResult::Failed;

    // At any other rate the port keeps the rate it has.
    for (const SerialRate &rate : kSerialRates) {
        if (rate.baud != baud)
            continue;
        if (rate.gapMs > 0)
            m_gapMs = rate.gapMs;
        m_serial->setBaudRate(baud, QSerialPort::AllDirections);
        break;
    }

    if (dataBits >= 5 && dataBits <= 8)
        m_serial->setDataBits(static_cast<QSerialPort::DataBits>(dataBits));

    switch (stopBits) {
    case 1: m_serial->setStopBits(QSerialPort::OneStop); break;
    case 2: m_serial->setStopBits(QSerialPort::TwoStop); break;
    case 3: m_serial->setStopBits(QSerialPort::OneAndHalfStop); break;
    default: break;
    }

    // The letters are tried in this order anywhere in the text, so "Even" means no parity.
    if (parity.contains(QLatin1Char('N'), Qt::CaseInsensitive))
        m_serial->setParity(QSerialPort::NoParity);
    else if (parity.contains(QLatin1Char('E'), Qt::CaseInsensitive))
        m_serial->setParity(QSerialPort::EvenParity);
    else if (parity.contains(QLatin1Char('O'), Qt::CaseInsensitive))
        m_serial->setParity(QSerialPort::OddParity);

    m_serial->setFlowControl(QSerialPort::NoFlowControl);

    if (!m_gapTimer) {
        m_gapTimer = new QTimer(this);
        m_gapTimer->setSingleShot(false);
        connect(m_gapTimer, &QTimer::timeout, this, &CmdSorvik::TimerTimeOut);
    }
    return LinkResult::Ok;
}

int CmdSorvik::Handshake()
{
    static const char request[kHandshakeSize] = {static_cast<char>(kHandshake0), static_cast<char>(kHandshake1)};
    QByteArray reply;
    if (Exchange(QByteArray::fromRawData(request, kHandshakeSize), kHandshakeSize, &reply, kExchangeLimitMs) !=
        LinkResult::Ok)
        return LinkResult::NotProved;
    // Bytes after the first two are of no concern.
    const bool proved = reply.size() >= kHandshakeSize && static_cast<quint8>(reply.at(0)) == kHandshake0 &&
                        static_cast<quint8>(reply.at(1)) == kHandshake1;
    return proved ? LinkResult::Proved : LinkResult::NotProved;
}

int CmdSorvik::Exchange(const QByteArray &request, int length, QByteArray *reply, int limitMs)
{
    // Never send bytes from beyond the request, whatever length is claimed.
    const int sendLength = qBound(0, length, request.size());
    if (m_udp) {
        m_udp->writeDatagram(request.constData(), sendLength, m_peerAddress, static_cast<quint16>(m_peerPort));
        m_udp->flush();
        m_udp->waitForBytesWritten(kUdpWriteWaitMs);
        m_udp->waitForReadyRead(kReadyReadWaitMs);
    } else if (m_serial) {
        m_serial->write(request.constData(), sendLength);
        m_serial->flush();
        m_serial->waitForBytesWritten(kSerialWriteWaitMs);
        m_serial->waitForReadyRead(kReadyReadWaitMs);
    }
    if (limitMs <= 0)
        return LinkResult::Failed;

    // The counter counts nominal ticks: the buffer is looked at before each tick only.
    qint64 waited = 0;
    for (;;) {
        if (!m_rxBuffer.isEmpty()) {
            if (reply)
                reply->append(m_rxBuffer);
            m_rxBuffer.clear();
            return LinkResult::Ok;
        }
        waited += kExchangeTickMs;
        WaitMs(kExchangeTickMs);
        if (waited >= limitMs)
            return LinkResult::Failed;
    }
}

void CmdSorvik::WaitMs(int ms)
{
    // Spins on the event loop without sleeping; a monotonic clock so that a
    // change of the wall clock cannot stretch or cut the wait.
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents);
}

int CmdSorvik::IsLinkOpen()
{
    if (m_serial)
        return m_serial->isOpen() ? LinkResult::Ok : LinkResult::NotOpen;
    return m_udp ? LinkResult::Ok : LinkResult::NotOpen;
}

int CmdSorvik::CloseUdp()
{
    if (!m_udp)
        return LinkResult::Ok; // nothing to close
    m_udp->close();
    if (m_udp->state() != QAbstractSocket::UnconnectedState)
        m_udp->waitForDisconnected(30000);
    return LinkResult::Ok;
}

int CmdSorvik::CloseSerial()
{
    if (!m_serial || !m_serial->isOpen())
        return LinkResult::Failed;
    m_serial->clear(QSerialPort::AllDirections);
    m_serial->close();
    return LinkResult::Ok;
}

int CmdSorvik::DeleteUdp()
{
    if (m_udp) {
        disconnect(m_udp, &QUdpSocket::connected, this, &CmdSorvik::myconnected);
        disconnect(m_udp, &QUdpSocket::disconnected, this, &CmdSorvik::mydisconnected);
        disconnect(m_udp, &QUdpSocket::readyRead, this, &CmdSorvik::myreadyRead);
        delete m_udp;
        m_udp = nullptr;
    }
    return LinkResult::Ok;
}

int CmdSorvik::DeleteSerial()
{
    if (m_serial) {
        disconnect(m_serial, &QSerialPort::readyRead, this, &CmdSorvik::serialreadyRead);
        delete m_serial;
        m_serial = nullptr;
    }
    if (m_gapTimer) {
        disconnect(m_gapTimer, &QTimer::timeout, this, &CmdSorvik::TimerTimeOut);
        delete m_gapTimer;
        m_gapTimer = nullptr;
    }
    return LinkResult::Ok;
}

int CmdSorvik::DestroyFree()
{
    // With both transports present only the serial pair goes; a second call
    // releases the socket.
    if (m_serial) {
        CloseSerial();
        DeleteSerial();
        return LinkResult::Released;
    }
    if (m_udp) {
        if (m_udp->state() != QAbstractSocket::UnconnectedState)
            CloseUdp();
        DeleteUdp();
        return LinkResult::Released;
    }
    return LinkResult::NothingHeld;
}

void CmdSorvik::myconnected() {}

void CmdSorvik::mydisconnected()
{
    if (!m_udp || m_udp->error() == QAbstractSocket::UnknownSocketError)
        return;
    // The error is named as Qt's debug stream names it, e.g. "QAbstractSocket::SocketTimeoutError".
    QString error;
    QDebug(&error).nospace().noquote() << m_udp->error();
    LinkLog::warning(QStringLiteral("lib[Sorvik]%1:%2 ").arg(m_peerAddress.toString(), QString::number(m_peerPort)) +
                     error);
}

void CmdSorvik::myreadyRead()
{
    if (!m_udp)
        return;
    // Each datagram replaces the buffer: of several pending only the last is
    // kept, and an empty one leaves the buffer empty. The sender is not
    // compared with the peer. The size of the next datagram is -1 when none
    // is pending, so it alone drives the loop: one look at the socket per
    // datagram and one at the end.
    QHostAddress sender;
    quint16 senderPort = 0;
    for (qint64 size = m_udp->pendingDatagramSize(); size >= 0; size = m_udp->pendingDatagramSize()) {
        m_rxBuffer.resize(static_cast<int>(size));
        const qint64 got = m_udp->readDatagram(m_rxBuffer.data(), m_rxBuffer.size(), &sender, &senderPort);
        if (got < 0) {
            // A failed read leaves nothing half-filled behind and cannot spin here.
            m_rxBuffer.clear();
            break;
        }
        if (got != size)
            m_rxBuffer.resize(static_cast<int>(got));
    }
}

void CmdSorvik::serialreadyRead()
{
    if (!m_gapTimer)
        return;
    m_gapTimer->stop();
    m_gapTimer->start(m_gapMs);
}

void CmdSorvik::TimerTimeOut()
{
    if (m_gapTimer && m_gapTimer->isActive())
        m_gapTimer->stop();
    if (m_serial)
        m_rxBuffer = m_serial->readAll();
}
