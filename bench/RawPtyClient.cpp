#include "RawPtyClient.h"

#include <QElapsedTimer>

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

RawPtyClient::~RawPtyClient()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

bool RawPtyClient::open(const QString &path)
{
    m_fd = ::open(path.toLocal8Bit().constData(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    termios mode{};
    if (m_fd < 0 || tcgetattr(m_fd, &mode) != 0)
        return false;
    cfmakeraw(&mode);
    return tcsetattr(m_fd, TCSANOW, &mode) == 0;
}

int RawPtyClient::roundTrip(const QByteArray &request, int expected, int timeoutMs)
{
    if (::write(m_fd, request.constData(), size_t(request.size())) != request.size())
        return -1;
    const int wanted = qMin(expected, int(sizeof m_buffer));
    int got = 0;
    QElapsedTimer clock;
    clock.start();
    while (got < wanted) {
        const qint64 left = timeoutMs - clock.elapsed();
        pollfd readable{m_fd, POLLIN, 0};
        if (left <= 0 || ::poll(&readable, 1, int(left)) <= 0)
            break;
        const ssize_t n = ::read(m_fd, m_buffer + got, size_t(wanted - got));
        if (n > 0)
            got += int(n);
        else if (n < 0 && errno != EAGAIN && errno != EINTR)
            break;
    }
    return got;
}
