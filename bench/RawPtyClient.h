#pragma once

// The floor of the serial figure: a request written to a pseudo-terminal and
// its reply read back with plain POSIX calls, no settling waits.

#include <QByteArray>
#include <QString>

class RawPtyClient
{
public:
    RawPtyClient() = default;
    ~RawPtyClient();
    RawPtyClient(const RawPtyClient &) = delete;
    RawPtyClient &operator=(const RawPtyClient &) = delete;

    // Opens the terminal in raw mode.
    bool open(const QString &path);
    // Reads until `expected` bytes came or `timeoutMs` passed; the bytes read.
    int roundTrip(const QByteArray &request, int expected, int timeoutMs = 500);
    QByteArray reply(int size) const { return QByteArray(m_buffer, size); }

private:
    int m_fd = -1;
    char m_buffer[4096];
};
