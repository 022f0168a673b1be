// The UDP transport against the simulator: the handshake, socket reuse, and
// how late, doubled and empty datagrams meet the next exchange.

#include "LinkFixture.h"

using namespace LinkFixture;
using TestSupport::hex;

class TransportTest : public QObject
{
    Q_OBJECT

private slots:
    void handshake_data();
    void handshake();
    void hostThatIsNoAddress();
    void secondOpenReusesSocket();
    void lateReplyAnswersNextRequest_data();
    void lateReplyAnswersNextRequest();
    void lastPendingDatagramWins();
    void emptyDatagramIsNoReply();
    void closeReportsSocketError();
    void noTransport();
    void destroyFree();
};

void TransportTest::handshake_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<int>("result");
    QTest::newRow("04 01") << hex("0401") << 0;
    QTest::newRow("04 01 and more") << hex("0401ff00") << 0;
    QTest::newRow("04 02") << hex("0402") << -2;
    QTest::newRow("04 alone") << hex("04") << -2;
}

void TransportTest::handshake()
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

void TransportTest::hostThatIsNoAddress()
{
    SorvikSimulator sim;
    const quint16 port = sim.startUdp(TestSupport::testHost());
    CmdSorvik link;
    QCOMPARE(link.OpenUdp(QStringLiteral("localhost"), port), -1);
    QVERIFY(link.m_udp);
    QCOMPARE(sim.frameCount(), 0);
}

void TransportTest::secondOpenReusesSocket()
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

void TransportTest::lateReplyAnswersNextRequest_data()
{
    QTest::addColumn<bool>("bySimulatorDelay");
    QTest::newRow("reply delayed past the waits") << true;
    QTest::newRow("unsolicited datagram") << false;
}

// Nothing drains the socket before a send: a datagram that came after its
// exchange ended is the reply of the next request.
void TransportTest::lateReplyAnswersNextRequest()
{
    QFETCH(bool, bySimulatorDelay);
    TestSupport::LogCapture log;
    UdpPair pair;
    QVERIFY(pair.start());
    pair.sim.preset(7, 0, hex("11223344"));

    QByteArray out;
    if (bySimulatorDelay) {
        SimFaults late;
        late.delayMs = 500;
        pair.sim.setFaults(late);
        QCOMPARE(pair.link.ReadBytes(7, 0, 4, &out, "AI1"), -2);
        QCOMPARE(log.texts(QtWarningMsg).size(), 1);
    } else {
        pair.sim.sendUnsolicited(hex("0101000011223344"));
    }
    QVERIFY(waitForPendingDatagram(pair.link));

    SimFaults silent;
    silent.silent = true;
    pair.sim.setFaults(silent);
    QCOMPARE(pair.link.ReadBytes(7, 1, 4, &out, "AI2"), 0);
    QCOMPARE(out, hex("11223344"));
}

void TransportTest::lastPendingDatagramWins()
{
    UdpPair pair;
    QVERIFY(pair.start());
    SimFaults silent;
    silent.silent = true;
    pair.sim.setFaults(silent);
    pair.sim.sendUnsolicited(hex("01010000aa"));
    pair.sim.sendUnsolicited(hex("01010000bb"));
    QVERIFY(waitForPendingDatagram(pair.link));
    QThread::msleep(50); // the second follows the first at once

    QByteArray out;
    QCOMPARE(pair.link.ReadBits(1, 0, 1, &out, "DI1"), 0);
    QCOMPARE(out, hex("bb"));
}

void TransportTest::emptyDatagramIsNoReply()
{
    UdpPair pair;
    QVERIFY(pair.start());
    SimFaults silent;
    silent.silent = true;
    pair.sim.setFaults(silent);
    pair.link.m_rxBuffer = hex("01010000cc"); // a reply that nobody took
    pair.sim.sendUnsolicited(QByteArray());
    QVERIFY(waitForPendingDatagram(pair.link));

    TestSupport::LogCapture log;
    QByteArray out = hex("99");
    QCOMPARE(pair.link.ReadBits(1, 0, 1, &out, "DI1"), -2);
    QCOMPARE(out, hex("99"));
    QVERIFY(pair.link.m_rxBuffer.isEmpty());
    QCOMPARE(log.texts(QtWarningMsg).size(), 1);
}

// Closing the socket signals its disconnection; the error of the last wait is told.
void TransportTest::closeReportsSocketError()
{
    UdpPair pair;
    QVERIFY(pair.start());
    SimFaults silent;
    silent.silent = true;
    pair.sim.setFaults(silent);
    QByteArray reply;
    QCOMPARE(pair.link.Exchange(hex("0401"), 2, &reply, 50), -1);

    TestSupport::LogCapture log;
    QCOMPARE(pair.link.CloseUdp(), 0);
    QCOMPARE(log.texts(QtWarningMsg),
             QStringList{"lib[Sorvik]" + peerText(pair.link) + " QAbstractSocket::SocketTimeoutError"});
    QVERIFY(pair.link.m_udp);
    QCOMPARE(pair.link.IsLinkOpen(), 0);
}

void TransportTest::noTransport()
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
}

void TransportTest::destroyFree()
{
    CmdSorvik link;
    QCOMPARE(link.DestroyFree(), 1);
    UdpPair pair;
    QVERIFY(pair.start());
    QCOMPARE(pair.link.DestroyFree(), 0);
    QVERIFY(!pair.link.m_udp);
    QCOMPARE(pair.link.IsLinkOpen(), -3);
    QCOMPARE(pair.link.DestroyFree(), 1);
}

QTEST_GUILESS_MAIN(TransportTest)
#include "tst_transport.moc"
