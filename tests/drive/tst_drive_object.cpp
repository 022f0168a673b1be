// The drive as a host meets it: loading, identity and connection.

#include "drive/LibSorvik.h"

#include "DriveTestSupport.h"

#include <QLibrary>
#include <QRegularExpression>
#include <QtTest>

using DriveTest::udpText;
using TestSupport::hex;

class TestDriveObject : public QObject
{
    Q_OBJECT

    QLibrary m_library{QStringLiteral(SORVIK_LIBRARY_FILE)};
    QList<CDriveBaseClass *> m_drives;
    SorvikSimulator m_sim;
    quint16 m_port = 0;

    // A new drive, made the way a host makes it.
    CDriveBaseClass *makeDrive()
    {
        const auto make = reinterpret_cast<GetSharedLibraryFunction>(m_library.resolve("getSharedLibrary"));
        if (!make)
            return nullptr;
        m_drives << make();
        return m_drives.last();
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(m_library.load(), qPrintable(m_library.errorString()));
        QVERIFY((m_port = m_sim.startUdp(TestSupport::testHost())) != 0);
    }
    void init()
    {
        m_sim.setHandshakeReply(hex("0401"));
        m_sim.clearFrames();
    }
    // The interface has no destructor: the object goes through its QObject part.
    void cleanup()
    {
        for (CDriveBaseClass *drive : qAsConst(m_drives))
            delete dynamic_cast<QObject *>(drive);
        m_drives.clear();
    }
    void factoryGivesTheInterfacePart()
    {
        CDriveBaseClass *drive = makeDrive();
        QVERIFY(drive);
        void *start = dynamic_cast<void *>(drive);
        QVERIFY(start != static_cast<void *>(drive));

        QObject *object = dynamic_cast<QObject *>(drive);
        QVERIFY(object);
        QCOMPARE(object->qt_metacast("LibSorvik"), start);
        QCOMPARE(object->qt_metacast("CDriveBaseClass"), static_cast<void *>(drive));
        QCOMPARE(object->parent(), nullptr);

        QCOMPARE(m_sim.frameCount(), 0); // construction touches no device
    }
    void identity()
    {
        CDriveBaseClass *drive = makeDrive();
        QCOMPARE(drive->getDriveName(), QStringLiteral("Sorvik"));
        QCOMPARE(drive->getversion_number(), QStringLiteral("V1.8.4 202001027"));
        QCOMPARE(drive->DebugCmd(DEBUG_DRIVE_NAME), QStringLiteral("Sorvik"));
        QCOMPARE(drive->DebugCmd(EDebugCmdType(7)), QString());

        const QString text = drive->DebugCmd(DEBUG_VERSION);
        const QRegularExpressionMatch match =
            QRegularExpression(QStringLiteral("^v2\\.1\\.0 (\\d{4}-\\d{2}-\\d{2}|) (\\d{2}:\\d{2}:\\d{2})$"))
                .match(text);
        QVERIFY2(match.hasMatch(), qPrintable(text));
        // The library is built at most a day before this test; the date is empty on
        // days 1 to 9, whose single digit the parse does not take.
        const auto versionDate = [](const QDate &day) {
            return day.day() < 10 ? QString() : day.toString(Qt::ISODate);
        };
        const QDate built = QLocale(QLocale::English).toDate(QString::fromLatin1(__DATE__).simplified(), "MMM d yyyy");
        QVERIFY(built.isValid());
        const QString date = match.captured(1);
        QVERIFY2(date == versionDate(built) || date == versionDate(built.addDays(-1)), qPrintable(text));
        QVERIFY(QTime::fromString(match.captured(2), QStringLiteral("hh:mm:ss")).isValid());
    }
    void settersWithoutEffect()
    {
        CDriveBaseClass *drive = makeDrive();
        auto *lib = dynamic_cast<LibSorvik *>(drive);
        QVERIFY(lib);
        DataInfo::SDataInfo info;
        info.tag = QStringLiteral("AI1");
        drive->SetDataInfo(QStringLiteral("7"), {info, info});
        QCOMPARE(lib->m_connectPar, 1u);
        QVERIFY(!lib->m_cmd.m_udp && !lib->m_cmd.m_serial);
        QVERIFY(lib->m_engine.GetInductiveDrive_Read(QStringLiteral("7")).isEmpty());

        lib->SetConnectPar(QStringLiteral("4000000000"));
        QCOMPARE(lib->m_connectPar, 4000000000u);
        lib->SetConnectPar(QStringLiteral("plant"));
        QCOMPARE(lib->m_connectPar, 0u);
        QCOMPARE(m_sim.frameCount(), 0);
    }
    void connect_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QByteArray>("handshake");
        QTest::addColumn<int>("result");

        const QString udp = udpText(m_port);
        QTest::newRow("handshake answered") << udp << hex("0401") << 0;
        QTest::newRow("handshake 04 02") << udp << hex("0402") << -2;
        QTest::newRow("host name, not an address") << QStringLiteral("localhost:%1").arg(m_port) << hex("0401") << -1;
        QTest::newRow("two colons") << udp + QStringLiteral(":1") << hex("0401") << -1;
        QTest::newRow("four fields") << QStringLiteral("a,9600,8,1") << hex("0401") << -1;
        QTest::newRow("empty") << QString() << hex("0401") << -1;
    }
    void connect()
    {
        QFETCH(QString, text);
        QFETCH(QByteArray, handshake);
        QFETCH(int, result);
        m_sim.setHandshakeReply(handshake);
        QCOMPARE(makeDrive()->ConnectDrive(text), result);
    }
    void connectionLifecycle()
    {
        CDriveBaseClass *drive = makeDrive();
        QCOMPARE(drive->DisConnectDrive(), -1);
        QCOMPARE(drive->DestroyFree(), 1);
        QCOMPARE(drive->ReadVariable(QStringLiteral("AI1"), TYPE_INT32).status, 9);
        QCOMPARE(drive->ConnectDrive(udpText(m_port)), 0);
        QCOMPARE(drive->DisConnectDrive(), 0);
        QCOMPARE(drive->DisConnectDrive(), 0); // the stored port still picks the UDP branch
        QCOMPARE(drive->ConnectDrive(udpText(m_port)), 0);
        QCOMPARE(drive->DestroyFree(), 0);
        QCOMPARE(drive->DisConnectDrive(), -1); // nothing left to close

        // A port that is no number is stored as 0, so a disconnect does not take the UDP branch.
        drive = makeDrive();
        QCOMPARE(drive->ConnectDrive(TestSupport::testHost().toString() + QStringLiteral(":port")), -2);
        QCOMPARE(dynamic_cast<LibSorvik *>(drive)->m_udpPort, 0u);
        QCOMPARE(drive->DisConnectDrive(), -1);
    }
    void serialOverPseudoTerminal()
    {
        SorvikSimulator sim;
        const QString path = sim.startPty();
        QVERIFY(!path.isEmpty());

        CDriveBaseClass *drive = makeDrive();
        QCOMPARE(drive->ConnectDrive(QStringLiteral("/nonexistent/tty,9600,8,1,N")), -1);
        QCOMPARE(drive->ConnectDrive(path + QStringLiteral(",9600,8,1,N")), 0);
        QCOMPARE(drive->ReadVariable(QStringLiteral("LW2"), TYPE_INT32).status, 0);
        QCOMPARE(drive->DisConnectDrive(), 0);
        QCOMPARE(drive->DisConnectDrive(), -1); // the port is closed already
        QCOMPARE(drive->ReadVariable(QStringLiteral("LW2"), TYPE_INT32).status, 9);
        QCOMPARE(sim.frameCount(), 1); // a serial line has no handshake

        // Settings of 0 are not applied: the port opens, and a disconnect cannot tell it.
        auto *lib = dynamic_cast<LibSorvik *>(makeDrive());
        QCOMPARE(lib->ConnectDrive(path + QStringLiteral(",,,,")), 0);
        QCOMPARE(lib->m_portName, path);
        QCOMPARE(lib->m_baudRate, 0);
        QCOMPARE(lib->DisConnectDrive(), -1);
        QVERIFY(lib->m_cmd.IsLinkOpen() == 0);
        QCOMPARE(lib->DestroyFree(), 0);
        QCOMPARE(lib->DestroyFree(), 1);
    }
};

QTEST_GUILESS_MAIN(TestDriveObject)
#include "tst_drive_object.moc"
