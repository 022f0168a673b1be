#include "SimStreamTransport.h"

#include <QPointer>
#include <QTimer>

namespace {

// The drive writes a request in one go, so a short silence closes it.
constexpr int kDefaultSilenceMs = 4;

} // namespace

SimStreamTransport::SimStreamTransport(FrameHandler onFrame)
    : SimTransport(std::move(onFrame)), m_silence(new QTimer(this))
{
    m_silence->setSingleShot(true);
    m_silence->setInterval(kDefaultSilenceMs);
    connect(m_silence, &QTimer::timeout, this, [this] { closeFrame(); });
}

void SimStreamTransport::setSilenceMs(int ms)
{
    m_silence->setInterval(qMax(kDefaultSilenceMs, ms));
}

void SimStreamTransport::received(const QByteArray &bytes)
{
    m_pending.append(bytes);
    m_silence->start();
}

void SimStreamTransport::closeFrame()
{
    const QByteArray frame = m_pending;
    m_pending.clear();
    QPointer<SimStreamTransport> self(this);
    deliver(frame, [self](const QByteArray &reply) {
        if (self)
            self->write(reply);
    });
}
