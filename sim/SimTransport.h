#pragma once

#include <QByteArray>
#include <QObject>

#include <functional>

// A way in and out of the simulator. Each received frame is handed on with a
// function that sends bytes back to where the frame came from; that function
// stays safe to call after the transport is gone (it then sends nothing).
class SimTransport : public QObject
{
public:
    using Send = std::function<void(const QByteArray &)>;
    using FrameHandler = std::function<void(const QByteArray &frame, const Send &reply)>;

    explicit SimTransport(FrameHandler onFrame) : m_onFrame(std::move(onFrame)) {}

    // Bytes that answer no request: to the last UDP peer, or onto the line.
    // False when there is nobody to send them to.
    virtual bool sendUnsolicited(const QByteArray &raw) = 0;

protected:
    void deliver(const QByteArray &frame, const Send &reply) { m_onFrame(frame, reply); }

private:
    FrameHandler m_onFrame;
};
