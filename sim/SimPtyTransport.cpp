#include "SimPtyTransport.h"

#include "SimLog.h"

#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

SimPtyTransport::SimPtyTransport(FrameHandler onFrame) : SimStreamTransport(std::move(onFrame)) {}

SimPtyTransport::~SimPtyTransport()
{
    close();
}

QString SimPtyTransport::start()
{
    close();
    m_master = posix_openpt(O_RDWR | O_NOCTTY);
    const char *path = m_master >= 0 && grantpt(m_master) == 0 && unlockpt(m_master) == 0 ? ptsname(m_master) : nullptr;
    const QString slavePath = path ? QString::fromLocal8Bit(path) : QString();
    if (path)
        m_slave = ::open(path, O_RDWR | O_NOCTTY);
    termios mode{};
    if (m_slave < 0 || tcgetattr(m_slave, &mode) != 0) {
        qCWarning(lcSim, "cannot make a pseudo-terminal: %s", std::strerror(errno));
        close();
        return QString();
    }
    cfmakeraw(&mode);
    tcsetattr(m_slave, TCSANOW, &mode);
    fcntl(m_master, F_SETFL, fcntl(m_master, F_GETFL) | O_NONBLOCK);

    m_notifier = new QSocketNotifier(m_master, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] { readMaster(); });
    return slavePath;
}

void SimPtyTransport::readMaster()
{
    char buffer[4096];
    for (;;) {
        const ssize_t got = ::read(m_master, buffer, sizeof buffer);
        if (got > 0) {
            received(QByteArray(buffer, int(got)));
            continue;
        }
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
            // The notifier would fire again at once and forever; the terminal is of no more use.
            qCWarning(lcSim, "pseudo-terminal no longer readable: %s", std::strerror(errno));
            m_notifier->setEnabled(false);
        }
        return;
    }
}

void SimPtyTransport::write(const QByteArray &bytes)
{
    qCDebug(lcSimFrames, "out %s", bytes.toHex().constData());
    if (m_master < 0)
        return;
    // One write for the whole reply; the loop only finishes what the terminal
    // did not take at once.
    const char *at = bytes.constData();
    qint64 left = bytes.size();
    while (left > 0) {
        const ssize_t put = ::write(m_master, at, size_t(left));
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0) {
            qCWarning(lcSim, "%lld bytes not written to the terminal: %s", left, std::strerror(errno));
            return;
        }
        at += put;
        left -= put;
    }
}

void SimPtyTransport::close()
{
    delete m_notifier;
    m_notifier = nullptr;
    if (m_slave >= 0)
        ::close(m_slave);
    if (m_master >= 0)
        ::close(m_master);
    m_slave = m_master = -1;
}
