#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QObject>
#include <QString>

class QSerialPort;
class QTimer;
class QUdpSocket;

// The link to one controller: a UDP socket or a serial port, one blocking
// exchange at a time on the caller's thread, and the read and write frames
// built on that exchange.
//
// State is public so that a host's diagnostics can look at it.
class CmdSorvik : public QObject
{
    Q_OBJECT

public:
    explicit CmdSorvik(QObject *parent = nullptr);
    ~CmdSorvik() override;

    // How a write is named in its log lines: by its tag or by its area.
    enum class WriteNaming { ByTag, ByArea };

    // Transport (LinkResult::Ok on success; the failures as each tells).
    int OpenUdp(QString host, int port);
    int OpenSerial(QString portName, int baud, int dataBits, int stopBits, QString parity);
    int Handshake();
    int Exchange(const QByteArray &request, int length, QByteArray *reply, int limitMs);
    void WaitMs(int ms);
    int IsLinkOpen();
    int CloseUdp();
    int CloseSerial();
    int DeleteUdp();
    int DeleteSerial();
    int DestroyFree();

    // Read frames: Ok with the data appended to *out, NoReply for no reply or a
    // wrong identity, NotOpen.
    int ReadExchange(QByteArray request, QByteArray *reply, int length, QString tag);
    int ReadBytes(int area, int index, int length, QByteArray *out, QString tag);
    int ReadStrings(int area, int index, int count, QByteArray *out, QString tag);
    int ReadBits(int area, int index, int count, QByteArray *out, QString tag);

    // Write frames: Ok when a reply came, NoReply when none came in time, NotOpen.
    int WriteBytes(int area, int index, int length, QByteArray payload, QString tag);
    int WriteBlock(int area, int index, int blocks, QByteArray payload, QString tag);
    int WriteBits(int area, int index, int count, QByteArray payload, QString tag);

    QByteArray m_rxBuffer;
    QTimer *m_gapTimer = nullptr;
    QSerialPort *m_serial = nullptr;
    QHostAddress m_peerAddress;
    QUdpSocket *m_udp = nullptr;
    int m_peerPort = 0;
    int m_gapMs = 2;
    bool m_debug = false;

private slots:
    void myconnected();
    void mydisconnected();
    void myreadyRead();
    void serialreadyRead();
    void TimerTimeOut();

private:
    // Sends a write request on an open link, takes the reply cut to 4 + length
    // bytes and logs both: Ok when any reply came, NotOpen with no link, NoReply otherwise.
    int SendWrite(const QByteArray &frame, int length, const QString &tag, WriteNaming naming);
};
