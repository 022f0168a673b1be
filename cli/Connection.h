#pragma once

#include <QString>

#include <memory>

class CDriveBaseClass;
class SimLiveValues;
class SorvikSimulator;

// The drive's link to a controller: the one named on the command line, or an
// embedded simulator with a live demo process on a loopback address.
class Connection
{
public:
    explicit Connection(CDriveBaseClass *drive);
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    // Connects to `connectText`, or when it is empty starts the embedded
    // simulator on `simAddress` and connects to that. On failure gives false
    // and one line in *why.
    bool open(const QString &connectText, const QString &simAddress, QString *why);
    void close();

    // The connection text, which also keys the drive's plans.
    const QString &text() const { return m_text; }

private:
    CDriveBaseClass *m_drive;
    std::unique_ptr<SorvikSimulator> m_simulator;
    std::unique_ptr<SimLiveValues> m_liveValues;
    QString m_text;
    bool m_used = false;
    bool m_open = false;
};
