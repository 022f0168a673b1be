#pragma once

#include "SimStreamTransport.h"

#include <QString>

class QSocketNotifier;

// A pseudo-terminal whose slave side a serial connection opens by its path.
class SimPtyTransport : public SimStreamTransport
{
public:
    explicit SimPtyTransport(FrameHandler onFrame);
    ~SimPtyTransport() override;

    // The path of the slave terminal, or empty when none could be made.
    QString start();

protected:
    void write(const QByteArray &bytes) override;

private:
    void readMaster();
    void close();

    int m_master = -1;
    // Held open so that the master never sees a hang-up when the drive closes its side.
    int m_slave = -1;
    QSocketNotifier *m_notifier = nullptr;
};
