#include "RawUdpClient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

sockaddr_in ipv4(const QHostAddress &address, quint16 port)
{
    sockaddr_in out{};
    out.sin_family = AF_INET;
    out.sin_port = htons(port);
    out.sin_addr.s_addr = htonl(address.toIPv4Address());
    return out;
}

// As long as the drive waits for a reply, so that a lost one cannot hang a run.
constexpr int kReplyWaitMs = 300;

} // namespace

RawUdpClient::~RawUdpClient()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

bool RawUdpClient::open(const QHostAddress &local, const QHostAddress &peer, quint16 port)
{
    m_fd = ::socket(AF_INET, SOCK_DGRAM, 0);
    if (m_fd < 0)
        return false;
    const timeval wait{0, kReplyWaitMs * 1000};
    ::setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    const sockaddr_in from = ipv4(local, 0);
    const sockaddr_in to = ipv4(peer, port);
    return ::bind(m_fd, reinterpret_cast<const sockaddr *>(&from), sizeof from) == 0 &&
           ::connect(m_fd, reinterpret_cast<const sockaddr *>(&to), sizeof to) == 0;
}

int RawUdpClient::roundTrip(const QByteArray &request)
{
    if (::send(m_fd, request.constData(), size_t(request.size()), 0) != request.size())
        return -1;
    const ssize_t got = ::recv(m_fd, m_buffer, sizeof m_buffer, 0);
    return got >= 0 ? int(got) : -1;
}
