// The UDP transport: the handshake, socket reuse, and datagrams that came between exchanges.

#include "LinkTestSupport.h"

using namespace LinkTest;

class TransportTest : public QObject
{
    Q_OBJECT

private slots:
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
};

QTEST_GUILESS_MAIN(TransportTest)
#include "tst_transport.moc"
