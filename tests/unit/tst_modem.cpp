// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "modem.h"

#include "logging.h"
#include "testsupport.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QtTest>

/// A modem and the platform's tool that drives it.
class TestModem : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void isOfItsKind();
    void connectsAndDisconnects();
    void configuresItsInterface();
    void statusDecidesConnection_data();
    void statusDecidesConnection();
    void statusTellsAFault_data();
    void statusTellsAFault();
    void changedStatusIsNoEvent();
    void readinessIsTakenFromTheStatus_data();
    void readinessIsTakenFromTheStatus();
    void statusIsAskedForWithOneArgument();
    void statusIsWaitedFor();
    void statusToolHasNoInputAndItsErrorsGoNowhere();
    void missingToolMeansNotConnectedYetReady();
};

void TestModem::init()
{
    TestSupport::RestorePrograms();
    TestSupport::ClearAnswers();
    TestSupport::ClearJournal();
    TestSupport::WriteStore("<x/>");
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
}

void TestModem::isOfItsKind()
{
    const Modem modem("wwan0", nullptr);

    QCOMPARE(modem.name, QString("wwan0"));
    QCOMPARE(modem.driver, QString("modem"));
    QVERIFY(!modem.isWireless);
    QVERIFY(!modem.configurable);
    QVERIFY(!modem.usesSupplicant);
    QVERIFY(!modem.driverChosen);
    QVERIFY(!modem.modemConnected);
}

void TestModem::connectsAndDisconnects()
{
    Modem modem("wwan0", nullptr);

    modem.modemConnected = true;
    modem.Connect();
    QVERIFY(!modem.modemConnected);

    modem.modemConnected = true;
    modem.Disconnect();
    QVERIFY(!modem.modemConnected);

    QCOMPARE(TestSupport::Journal(), (QStringList{"modem-tool.sh connect", "modem-tool.sh disconnect"}));
}

void TestModem::configuresItsInterface()
{
    Modem modem("wwan0", nullptr);
    modem.modemConnected = true;

    modem.ConfigureIFace();

    QVERIFY(modem.modemConnected);
    QCOMPARE(TestSupport::Journal(), QStringList{"modem-tool.sh ip_config"});
}

void TestModem::statusDecidesConnection_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<bool>("connected");

    QTest::newRow("connected") << QByteArray("echo connected") << true;
    QTest::newRow("blanks around") << QByteArray("printf '  connected \\n\\n'") << true;
    QTest::newRow("connected with an error status") << QByteArray("echo connected; exit 1") << true;
    QTest::newRow("capital letter") << QByteArray("echo Connected") << false;
    QTest::newRow("disconnected") << QByteArray("echo disconnected") << false;
    QTest::newRow("more words") << QByteArray("echo connected now") << false;
    QTest::newRow("on standard error") << QByteArray("echo connected >&2") << false;
    QTest::newRow("nothing") << QByteArray("exit 0") << false;
}

void TestModem::statusDecidesConnection()
{
    QFETCH(QByteArray, script);
    QFETCH(bool, connected);
    TestSupport::Answer("modem-tool.sh", script);
    Modem modem("wwan0", nullptr);
    modem.modemConnected = !connected;

    modem.UpdateConnectionStatus();

    QCOMPARE(modem.modemConnected, connected);
}

void TestModem::statusTellsAFault_data()
{
    QTest::addColumn<QByteArray>("status");
    QTest::addColumn<QString>("fault");

    QTest::newRow("connected") << QByteArray("connected\n") << QString();
    QTest::newRow("disconnected") << QByteArray("disconnected\n") << QString();
    QTest::newRow("nothing") << QByteArray() << QString();
    QTest::newRow("locked") << QByteArray("the SIM is locked: sim-pin\n") << "the SIM is locked: sim-pin";
    QTest::newRow("first and last of ASCII") << QByteArray("! ~") << "! ~";
    QTest::newRow("several lines") << QByteArray("no\nmodem\n") << "no modem";
    QTest::newRow("long") << QByteArray(5000, 'x') << QString(100, 'x');
    QTest::newRow("rubbish") << QByteArray("no \x1b[31mmodem") << QString();
    QTest::newRow("beyond ASCII") << QByteArray("kein Ger\xc3\xa4t") << QString();
}

void TestModem::statusTellsAFault()
{
    QFETCH(QByteArray, status);
    QFETCH(QString, fault);

    QCOMPARE(Modem::FaultIn(status), fault);
}

void TestModem::changedStatusIsNoEvent()
{
    TestSupport::Answer("modem-tool.sh", "echo connected");
    Modem modem("wwan0", nullptr);
    QSignalSpy events(&modem, &NetworkDevice::SendEventMessage);
    QSignalSpy changes(&modem, &NetworkDevice::ConnectionStatusChange);

    modem.UpdateConnectionStatus();

    QVERIFY(modem.modemConnected);
    QVERIFY(events.isEmpty());
    QVERIFY(changes.isEmpty());
}

void TestModem::readinessIsTakenFromTheStatus_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<bool>("ready");

    QTest::newRow("connected") << QByteArray("echo connected") << true;
    QTest::newRow("disconnected") << QByteArray("echo disconnected") << true;
    QTest::newRow("no modem") << QByteArray("echo error: cannot find modem") << false;
    QTest::newRow("other case") << QByteArray("echo Cannot find modem") << true;
    QTest::newRow("nothing") << QByteArray("exit 0") << true;
}

void TestModem::readinessIsTakenFromTheStatus()
{
    QFETCH(QByteArray, script);
    TestSupport::Answer("modem-tool.sh", script);

    QTEST(Modem::IsModemReady(), "ready");
}

void TestModem::statusIsAskedForWithOneArgument()
{
    Modem modem("wwan0", nullptr);

    modem.UpdateConnectionStatus();
    Modem::IsModemReady();

    QCOMPARE(TestSupport::Journal(), (QStringList{"modem-tool.sh status", "modem-tool.sh status"}));
}

void TestModem::statusIsWaitedFor()
{
    TestSupport::Answer("modem-tool.sh", "sleep 1; echo connected");
    Modem modem("wwan0", nullptr);

    modem.UpdateConnectionStatus();

    QVERIFY(modem.modemConnected);
}

void TestModem::statusToolHasNoInputAndItsErrorsGoNowhere()
{
    TestSupport::Answer("modem-tool.sh", "readlink /proc/self/fd/0 /proc/self/fd/2 >/tmp/channels");

    Modem::IsModemReady();

    QCOMPARE(TestSupport::ReadFile("/tmp/channels"), QByteArray("/dev/null\n/dev/null\n"));
}

void TestModem::missingToolMeansNotConnectedYetReady()
{
    TestSupport::RemoveProgram("modem-tool.sh");
    Modem modem("wwan0", nullptr);
    modem.modemConnected = true;

    modem.UpdateConnectionStatus();

    QVERIFY(!modem.modemConnected);
    QVERIFY(Modem::IsModemReady());
}

QTEST_GUILESS_MAIN(TestModem)
#include "tst_modem.moc"
