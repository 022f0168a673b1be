#pragma once

#include <QByteArray>
#include <QObject>

#include <functional>

class QTimer;

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

// Serial lines have no frame marks: a frame ends when the line falls silent.
class SimStreamTransport : public SimTransport
{
public:
    explicit SimStreamTransport(FrameHandler onFrame);

    bool sendUnsolicited(const QByteArray &raw) override
    {
        write(raw);
        return true;
    }

protected:
    // Bytes as they come off the line; the frame closes after `silenceMs` without more.
    void received(const QByteArray &bytes);
    void setSilenceMs(int ms);
    virtual void write(const QByteArray &bytes) = 0;

private:
    void closeFrame();

    QByteArray m_pending;
    QTimer *m_silence;
};
