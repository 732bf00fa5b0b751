// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "bondeddevice.h"

#include "bondworld.h"

#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QTimer>
#include <QtTest>

#include <csignal>

using TestSupport::Journal;
using TestSupport::LogText;

/// The DHCP client of the bond, and the wait for it.
class TestBondedDeviceClient : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { net = MakeBondWorld(); }
    void cleanup() { net.reset(); }

    void enablingWaitsForTheClient();
    void clientIsStartedAndReportsOnce();
    void secondClientWaitsForTheFirst();
    void endOfTheFirstClientIsNotThatOfTheSecond();
    void pollOfARunningClientGoesOn();
    void reportComesBeforeThePollEnds();
    void clientEndedByASignalHasEnded();
    void missingClientDoesNotReport();
    void leaseIsReleased();
    void clientRunsOnTheInterfaceThatCarries_data();
    void clientRunsOnTheInterfaceThatCarries();
    void clientEndsWithItsOwner();
    void clientIsGivenNoChannels();

private:
    std::unique_ptr<FakeSysNet> net;
};

void TestBondedDeviceClient::enablingWaitsForTheClient()
{
    TestSupport::Answer("dhclient", "[ \"$1\" = -r ] || { sleep 1; echo >/tmp/client.done; }");
    TestSupport::Remove("/tmp/client.done");
    BondedDevice bond(nullptr);
    bond.StartDhclientInit("eth0");

    bond.EnableBonding();

    QVERIFY(QFile::exists("/tmp/client.done"));
    QVERIFY(LogText().contains(" Waiting for dhclient to finish \n"));
    QCOMPARE(Journal().filter("dhclient -r").size(), 1);
}

void TestBondedDeviceClient::clientIsStartedAndReportsOnce()
{
    TestSupport::Answer("dhclient", "exit 2");
    BondedDevice bond(nullptr);
    QSignalSpy ready(&bond, &BondedDevice::dhclientReady);
    QElapsedTimer timer;
    timer.start();

    bond.StartDhclientInit("eth0");

    QTRY_COMPARE(ready.size(), 1);
    QVERIFY2(timer.elapsed() >= 900, qPrintable(QString::number(timer.elapsed())));
    QTest::qWait(1200);
    QCOMPARE(ready.size(), 1);
    QVERIFY2(!bond.findChild<QTimer *>()->isActive(), "nothing is left to poll for");
    QCOMPARE(Journal(), QStringList{"dhclient eth0"});
    QVERIFY(LogText().contains(" Calling dhclient eth0 \n"));
    QVERIFY(LogText().contains(" Process exitCode 2 \n"));
}

void TestBondedDeviceClient::secondClientWaitsForTheFirst()
{
    TestSupport::Answer("dhclient", "sleep 0.5; echo >/tmp/client.$1");
    TestSupport::Remove("/tmp/client.eth0");
    BondedDevice bond(nullptr);
    QSignalSpy ready(&bond, &BondedDevice::dhclientReady);

    bond.StartDhclientInit("eth0");
    bond.StartDhclientInit("eth1");

    QVERIFY(QFile::exists("/tmp/client.eth0"));
    QTRY_COMPARE(Journal(), (QStringList{"dhclient eth0", "dhclient eth1"}));
    QTRY_COMPARE(ready.size(), 1);
    QVERIFY(QFile::exists("/tmp/client.eth1"));
}

void TestBondedDeviceClient::endOfTheFirstClientIsNotThatOfTheSecond()
{
    TestSupport::Remove("/tmp/client.go");
    TestSupport::Answer("dhclient", "[ $1 = eth0 ] && exec sleep 0.5\n"
                                    "until [ -e /tmp/client.go ]; do sleep 0.05; done");
    BondedDevice bond(nullptr);
    QSignalSpy ready(&bond, &BondedDevice::dhclientReady);
    bond.StartDhclientInit("eth0");
    bond.StartDhclientInit("eth1");

    bond.onMyTimerTrip();
    QCOMPARE(ready.size(), 0);

    TestSupport::WriteFile("/tmp/client.go", "");
    QTRY_COMPARE(ready.size(), 1);
}

void TestBondedDeviceClient::pollOfARunningClientGoesOn()
{
    TestSupport::Answer("dhclient", "exec sleep 100");
    BondedDevice bond(nullptr);
    QSignalSpy ready(&bond, &BondedDevice::dhclientReady);
    bond.StartDhclientInit("eth0");

    bond.onMyTimerTrip();

    QCOMPARE(ready.size(), 0);
    QVERIFY(bond.findChild<QTimer *>()->isActive());
}

void TestBondedDeviceClient::reportComesBeforeThePollEnds()
{
    BondedDevice bond(nullptr);
    const QTimer *const poll = bond.findChild<QTimer *>();
    bool wasActive = false;
    connect(&bond, &BondedDevice::dhclientReady, this, [&] { wasActive = poll->isActive(); });

    bond.StartDhclientInit("eth0");

    QTRY_VERIFY(wasActive);
    QVERIFY(!poll->isActive());
}

void TestBondedDeviceClient::clientEndedByASignalHasEnded()
{
    TestSupport::Answer("dhclient", "kill -KILL $$");
    BondedDevice bond(nullptr);
    QSignalSpy ready(&bond, &BondedDevice::dhclientReady);

    bond.StartDhclientInit("eth0");

    QTRY_COMPARE(ready.size(), 1);
}

void TestBondedDeviceClient::missingClientDoesNotReport()
{
    TestSupport::RemoveProgram("dhclient");
    BondedDevice bond(nullptr);
    QSignalSpy ready(&bond, &BondedDevice::dhclientReady);

    bond.StartDhclientInit("eth0");
    QVERIFY2(!bond.findChild<QTimer *>()->isActive(), "nothing is left to poll for");
    QTest::qWait(1300);

    QCOMPARE(ready.size(), 0);
    QVERIFY2(LogText().contains("BondedDevice::StartDhclientInit dhclient cannot be started on eth0"),
             qPrintable(LogText()));
}

void TestBondedDeviceClient::leaseIsReleased()
{
    BondedDevice bond(nullptr);

    bond.ReleaseDhclient();

    QCOMPARE(Journal(), QStringList{"dhclient -r"});
}

void TestBondedDeviceClient::clientRunsOnTheInterfaceThatCarries_data()
{
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<bool>("interfaces");
    QTest::addColumn<QStringList>("journal");

    QTest::newRow("bond") << true << true << QStringList{"dhclient -r", "dhclient bond0"};
    QTest::newRow("no bond") << false << true << QStringList{"dhclient -r", "dhclient eth0"};
    QTest::newRow("no bond and no interface") << false << false << QStringList{"dhclient -r"};
}

void TestBondedDeviceClient::clientRunsOnTheInterfaceThatCarries()
{
    QFETCH(bool, enabled);
    QFETCH(bool, interfaces);
    QFETCH(QStringList, journal);
    if (!interfaces) {
        net->Remove("eth0");
        net->Remove("eth1");
    }
    BondedDevice bond(nullptr);
    if (enabled)
        bond.EnableBonding();
    TestSupport::ClearJournal();

    bond.SetDhclient();

    QTRY_COMPARE(Journal(), journal);
}

void TestBondedDeviceClient::clientEndsWithItsOwner()
{
    static QStringList complaints;
    // It works in a child of its own.
    TestSupport::Answer("dhclient",
                        "sleep 100 & echo $! >/tmp/client.new; mv /tmp/client.new /tmp/client.child; wait");
    TestSupport::Remove("/tmp/client.child");
    QtMessageHandler previous = nullptr;
    QElapsedTimer timer;
    timer.start();
    {
        BondedDevice bond(nullptr);
        bond.StartDhclientInit("eth0");
        QTRY_VERIFY(QFile::exists("/tmp/client.child"));
        previous = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext &, const QString &text) { complaints << text; });
    }
    qInstallMessageHandler(previous);

    QCOMPARE(complaints, QStringList());
    // Without a kill it would be the 30 s that a program may take.
    QVERIFY2(timer.elapsed() < 20000, qPrintable(QString::number(timer.elapsed())));
    const int child = TestSupport::ReadFile("/tmp/client.child").trimmed().toInt();
    QVERIFY(child > 0);
    QTRY_COMPARE(::kill(child, 0), -1);
}

void TestBondedDeviceClient::clientIsGivenNoChannels()
{
    TestSupport::Answer("dhclient",
                        "channels=$(readlink /proc/$$/fd/[012]); echo \"$channels\" >/tmp/channels");
    BondedDevice bond(nullptr);
    QSignalSpy ready(&bond, &BondedDevice::dhclientReady);

    bond.StartDhclientInit("eth0");

    QTRY_COMPARE(ready.size(), 1);
    QCOMPARE(TestSupport::ReadFile("/tmp/channels"), QByteArray("/dev/null\n/dev/null\n/dev/null\n"));
}

QTEST_GUILESS_MAIN(TestBondedDeviceClient)
#include "tst_bondeddevice_client.moc"
