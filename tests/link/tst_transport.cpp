// The UDP transport: the handshake, socket reuse, and datagrams that came between exchanges; the serial
// transport over a simulator's pseudo-terminal, where each exchange waits out the write wait, so few of them.

#include "LinkTestSupport.h"

#include <QSerialPort>

using namespace LinkTest;

namespace {

struct Reopen {
    const char *name;
    int firstBaud;
    const char *firstParity;
    int baud;
    const char *parity;
    int gapMs, portBaud;
    QSerialPort::Parity portParity;
};

} // namespace

Q_DECLARE_METATYPE(Reopen)

class TransportTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_path = m_sim.startPty();
        QVERIFY(!m_path.isEmpty());
    }

    void exchangeAndRelease()
    {
        CmdSorvik link;
        QCOMPARE(link.OpenSerial(QStringLiteral("/dev/no-such-terminal"), 9600, 8, 1, "N"), -1);
        QVERIFY(link.m_serial && !link.m_gapTimer);
        QCOMPARE(link.m_gapMs, 2);
        QCOMPARE(link.IsLinkOpen(), -3);
        QCOMPARE(link.CloseSerial(), -1);
        QCOMPARE(link.OpenSerial(m_path, 9600, 8, 1, "N"), 0);
        QCOMPARE(link.IsLinkOpen(), 0);
        QVERIFY(link.m_gapTimer && !link.m_gapTimer->isSingleShot());

        m_sim.clearFrames();
        m_sim.preset(7, 4, hex("2a000000"));
        QByteArray out;
        QCOMPARE(link.ReadBytes(7, 1, 4, &out, "AI2"), 0);
        QCOMPARE(out, hex("2a000000"));
        QCOMPARE(link.WriteBits(4, 1, 1, hex("01"), "DO2"), 0);
        QCOMPARE(m_sim.frames(), QList<QByteArray>({hex("0101010007000400000400"), hex("020101000400010000010001")}));
        QCOMPARE(m_sim.memory(4, 1, 1), hex("01"));
        QVERIFY(!link.m_gapTimer->isActive()); // stopped by the reply it closed

        QCOMPARE(link.CloseSerial(), 0);
        QCOMPARE(link.CloseSerial(), -1);
        QCOMPARE(link.IsLinkOpen(), -3);
        QCOMPARE(link.ReadBytes(7, 1, 4, &out, "AI2"), -3);
        QCOMPARE(link.DestroyFree(), 0);
        QVERIFY(!link.m_serial && !link.m_gapTimer);
        QCOMPARE(link.DestroyFree(), 1);
    }

    // Opened twice, as a host reconnects: the port keeps what a text does not set, and the gap
    // follows the listed rates only (a pty refuses even parity straight after none).
    void reopen_data()
    {
        const Reopen rows[] = {
            {"1200 keeps 2", 1200, "N", 1200, "N", 2, 1200, QSerialPort::NoParity},
            {"2400", 1200, "N", 2400, "N", 10, 2400, QSerialPort::NoParity},
            {"4800", 1200, "N", 4800, "N", 6, 4800, QSerialPort::NoParity},
            {"9600", 1200, "N", 9600, "N", 3, 9600, QSerialPort::NoParity},
            {"115200 keeps 2", 115200, "N", 115200, "N", 2, 115200, QSerialPort::NoParity},
            {"9600 then 115200 keeps 3", 9600, "N", 115200, "N", 3, 115200, QSerialPort::NoParity},
            {"unlisted rate changes nothing", 19200, "N", 12345, "N", 2, 19200, QSerialPort::NoParity},
            {"E", 9600, "O", 9600, "E", 3, 9600, QSerialPort::EvenParity},
            {"e", 9600, "O", 9600, "e", 3, 9600, QSerialPort::EvenParity},
            {"o", 9600, "N", 9600, "o", 3, 9600, QSerialPort::OddParity},
            {"n", 9600, "O", 9600, "n", 3, 9600, QSerialPort::NoParity},
            {"Even holds an n", 9600, "O", 9600, "Even", 3, 9600, QSerialPort::NoParity},
            {"space holds an e", 9600, "O", 9600, "space", 3, 9600, QSerialPort::EvenParity},
            {"mark keeps the parity", 9600, "odd", 9600, "mark", 3, 9600, QSerialPort::OddParity}};
        TestSupport::addRows(rows);
    }
    void reopen()
    {
        QFETCH(Reopen, row);
        CmdSorvik link;
        QCOMPARE(link.OpenSerial(m_path, row.firstBaud, 8, 1, row.firstParity), 0);
        QCOMPARE(link.OpenSerial(m_path, row.baud, 8, 1, row.parity), 0);
        QCOMPARE(link.m_gapMs, row.gapMs);
        QCOMPARE(link.m_serial->baudRate(), qint32(row.portBaud));
        QCOMPARE(link.m_serial->parity(), row.portParity);
        QCOMPARE(link.m_serial->flowControl(), QSerialPort::NoFlowControl);
    }

    void destroyFreeTakesSerialFirst()
    {
        UdpPair pair;
        QVERIFY(pair.start());
        QCOMPARE(pair.link.OpenSerial(m_path, 9600, 8, 1, "N"), 0);
        QCOMPARE(pair.link.DestroyFree(), 0);
        QVERIFY(!pair.link.m_serial && pair.link.m_udp);
        QCOMPARE(pair.link.DestroyFree(), 0);
        QVERIFY(!pair.link.m_udp);
        QCOMPARE(pair.link.IsLinkOpen(), -3);
        QCOMPARE(pair.link.DestroyFree(), 1);
    }

    void handshake_data()
    {
        QTest::addColumn<QByteArray>("answer");
        QTest::addColumn<int>("result");
        QTest::newRow("04 01") << hex("0401") << 0;
        QTest::newRow("04 01 and more") << hex("0401ff00") << 0;
        QTest::newRow("04 02") << hex("0402") << -2;
        QTest::newRow("04 alone") << hex("04") << -2;
    }

    void handshake()
    {
        QFETCH(QByteArray, answer);
        QFETCH(int, result);
        SorvikSimulator sim;
        sim.setHandshakeReply(answer);
        const quint16 port = sim.startUdp(TestSupport::testHost());
        QVERIFY(port != 0);

        CmdSorvik link;
        QCOMPARE(link.OpenUdp(TestSupport::testHost().toString(), port), result);
        QCOMPARE(sim.frames(), QList<QByteArray>{hex("0401")});
        QCOMPARE(link.m_peerPort, int(port));
        // A failed handshake closes the socket but keeps it: the link still counts as open.
        QVERIFY(link.m_udp);
        QCOMPARE(link.IsLinkOpen(), 0);
        QCOMPARE(link.m_udp->state() == QAbstractSocket::UnconnectedState, result != 0);
    }

    void secondOpenReusesSocket()
    {
        UdpPair pair;
        QVERIFY(pair.start());
        QUdpSocket *const socket = pair.link.m_udp;
        const int readyReadReceivers = receiversOf(socket, SIGNAL(readyRead()));
        const int disconnectedReceivers = receiversOf(socket, SIGNAL(disconnected()));

        const quint16 port = static_cast<quint16>(pair.link.m_peerPort);
        QCOMPARE(pair.link.OpenUdp(TestSupport::testHost().toString(), port), 0);
        QCOMPARE(pair.link.m_udp, socket);
        QCOMPARE(receiversOf(socket, SIGNAL(readyRead())), readyReadReceivers);
        QCOMPARE(receiversOf(socket, SIGNAL(disconnected())), disconnectedReceivers);
        QCOMPARE(pair.sim.counters().handshakes, 2);
    }

    void pendingDatagrams_data()
    {
        QTest::addColumn<QByteArrayList>("datagrams");
        QTest::addColumn<QByteArray>("out"); // empty: no reply
        QTest::newRow("unsolicited") << QByteArrayList{hex("0101000011223344")} << hex("11223344");
        QTest::newRow("last of two") << QByteArrayList{hex("01010000aaaaaaaa"), hex("01010000bbbbbbbb")}
                                     << hex("bbbbbbbb");
        QTest::newRow("empty") << QByteArrayList{QByteArray()} << QByteArray();
    }

    // Nothing drains the socket before a send: the last datagram since, even an empty one, is the reply.
    void pendingDatagrams()
    {
        QFETCH(QByteArrayList, datagrams);
        QFETCH(QByteArray, out);
        UdpPair pair;
        QVERIFY(pair.start());
        pair.silence();
        pair.link.m_rxBuffer = hex("01010000cccccccc");
        for (const QByteArray &datagram : datagrams)
            pair.sim.sendUnsolicited(datagram);
        QVERIFY(waitForPendingDatagram(pair.link));
        QThread::msleep(50); // a second follows the first at once

        TestSupport::LogCapture log;
        QByteArray got = hex("99");
        QCOMPARE(pair.link.ReadBytes(7, 1, 4, &got, "AI2"), out.isEmpty() ? -2 : 0);
        QCOMPARE(got, hex("99") + out);
        QVERIFY(pair.link.m_rxBuffer.isEmpty());
        QCOMPARE(log.texts(QtWarningMsg).size(), out.isEmpty() ? 1 : 0);
    }

    // Closing the socket signals its disconnection; the error of the last wait is told.
    void closeReportsSocketError()
    {
        UdpPair pair;
        QVERIFY(pair.start());
        pair.silence();
        QByteArray reply;
        QCOMPARE(pair.link.Exchange(hex("0401"), 2, &reply, 50), -1);

        TestSupport::LogCapture log;
        QCOMPARE(pair.link.CloseUdp(), 0);
        QCOMPARE(log.texts(QtWarningMsg),
                 QStringList{"lib[Sorvik]" + peerText(pair.link) + " QAbstractSocket::SocketTimeoutError"});
        QVERIFY(pair.link.m_udp);
        QCOMPARE(pair.link.IsLinkOpen(), 0);
    }

    void noTransport()
    {
        CmdSorvik link;
        link.m_debug = true;
        TestSupport::LogCapture log;
        QByteArray out;
        QCOMPARE(link.IsLinkOpen(), -3);
        QCOMPARE(link.ReadBytes(7, 0, 4, &out, "AI1"), -3);
        QCOMPARE(link.WriteBytes(7, 0, 4, hex("01020304"), "AI1"), -3);
        QCOMPARE(link.WriteBits(1, 0, 1, hex("01"), "DI1"), -3);
        QCOMPARE(link.WriteBlock(28, 0, 1, hex("00"), "SI1"), -3);
        QCOMPARE(link.Exchange(hex("0401"), 2, &out, 50), -1);
        QVERIFY(out.isEmpty());
        // A read logs its request before it finds the link closed; nothing else is said.
        QCOMPARE(log.texts(QtDebugMsg), QStringList{"lib[Sorvik]读命令 :0  AI1 len = 4 msg : 0101010007000000000400"});
        QVERIFY(log.texts(QtWarningMsg).isEmpty());
        QCOMPARE(link.DestroyFree(), 1);
    }

private:
    SorvikSimulator m_sim; // behind the pseudo-terminal
    QString m_path;
};

QTEST_GUILESS_MAIN(TransportTest)
#include "tst_transport.moc"
