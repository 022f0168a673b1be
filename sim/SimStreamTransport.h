#pragma once

#include "SimTransport.h"

#include <QByteArray>

class QTimer;

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
