#include "SimSerialTransport.h"

#include "SimLog.h"

#include <QSerialPort>

namespace {

bool stopBitsFrom(int stopBits, QSerialPort::StopBits *out)
{
    switch (stopBits) {
    case 1: *out = QSerialPort::OneStop; return true;
    case 2: *out = QSerialPort::TwoStop; return true;
    case 3: *out = QSerialPort::OneAndHalfStop; return true;
    default: return false;
    }
}

// The simulator is stricter than the drive here: one of N, E, O, S, M, or the
// word, in any case; a text that could mean two things is refused.
bool parityFrom(const QString &text, QSerialPort::Parity *out)
{
    const QString t = text.trimmed().toLower();
    const struct {
        const char *letter;
        const char *word;
        QSerialPort::Parity parity;
    } kParities[] = {{"n", "none", QSerialPort::NoParity},
                     {"e", "even", QSerialPort::EvenParity},
                     {"o", "odd", QSerialPort::OddParity},
                     {"s", "space", QSerialPort::SpaceParity},
                     {"m", "mark", QSerialPort::MarkParity}};
    for (const auto &p : kParities)
        if (t == QLatin1String(p.letter) || t == QLatin1String(p.word)) {
            *out = p.parity;
            return true;
        }
    return false;
}

// Three characters of silence, at 11 bits each, end a frame.
int silenceMsFor(int baud)
{
    return (3 * 11 * 1000 + baud - 1) / baud + 1;
}

} // namespace

SimSerialTransport::SimSerialTransport(FrameHandler onFrame)
    : SimStreamTransport(std::move(onFrame)), m_port(new QSerialPort(this))
{
    connect(m_port, &QSerialPort::readyRead, this, [this] { received(m_port->readAll()); });
}

bool SimSerialTransport::start(const QString &portName, int baud, int dataBits, int stopBits, const QString &parity)
{
    QSerialPort::StopBits stop{};
    QSerialPort::Parity par{};
    if (baud <= 0 || dataBits < 5 || dataBits > 8 || !stopBitsFrom(stopBits, &stop) || !parityFrom(parity, &par)) {
        qCWarning(lcSim, "serial settings not understood: %d,%d,%d,%s", baud, dataBits, stopBits,
                  qUtf8Printable(parity));
        return false;
    }
    m_port->setPortName(portName);
    if (!m_port->open(QIODevice::ReadWrite)) {
        qCWarning(lcSim, "cannot open serial port %s: %s", qUtf8Printable(portName),
                  qUtf8Printable(m_port->errorString()));
        return false;
    }
    const bool set = m_port->setBaudRate(baud) && m_port->setDataBits(QSerialPort::DataBits(dataBits)) &&
                     m_port->setStopBits(stop) && m_port->setParity(par) &&
                     m_port->setFlowControl(QSerialPort::NoFlowControl);
    if (!set) {
        qCWarning(lcSim, "serial port %s refused its settings: %s", qUtf8Printable(portName),
                  qUtf8Printable(m_port->errorString()));
        m_port->close();
        return false;
    }
    setSilenceMs(silenceMsFor(baud));
    return true;
}

void SimSerialTransport::write(const QByteArray &bytes)
{
    qCDebug(lcSimFrames, "out %s", bytes.toHex().constData());
    if (m_port->write(bytes) != bytes.size())
        qCWarning(lcSim, "%d bytes not written to %s", int(bytes.size()), qUtf8Printable(m_port->portName()));
}
