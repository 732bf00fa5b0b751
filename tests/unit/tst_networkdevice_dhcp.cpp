// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "logging.h"
#include "mountpoint.h"
#include "networkdevice.h"
#include "testsupport.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QtTest>

#include <csignal>

#include <sys/stat.h>

namespace {

const QString TRANSCRIPT = QStringLiteral("/tmp/dhclient.log");

mode_t ModeOf(const QString &path)
{
    struct stat info = {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
}

} // namespace

/// The DHCP client.
class TestNetworkDeviceDhcp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void transcriptDecides_data();
    void transcriptDecides();
    void attemptRunsItsSteps();
    void attemptIsLogged();
    void attemptIsMadeOnAnotherInterface();
    void transcriptIsKeptForRootAlone();
    void transcriptReplacesTheEarlierOne();
    void transcriptDoesNotFollowALink();
    void transcriptThatCannotBeKeptIsNoFailure();
    void missingClientIsAFailure();
    void crashedClientIsAFailure();
    void hangingClientIsStoppedAfterItsLimit();
};

void TestNetworkDeviceDhcp::init()
{
    TestSupport::RestorePrograms();
    TestSupport::ClearJournal();
    TestSupport::ClearAnswers();
    TestSupport::Remove(TRANSCRIPT);
    TestSupport::ClearLog();
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
}

void TestNetworkDeviceDhcp::transcriptDecides_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<bool>("bound");

    const QByteArray line = "DHCPACK\\nbound to 10.0.0.5 -- renewal in 300 seconds.\\n";
    QTest::newRow("bound") << QByteArray("printf '" + line + "'") << true;
    QTest::newRow("bound, on standard error") << QByteArray("printf '" + line + "' >&2") << true;
    QTest::newRow("bound, with an error status") << QByteArray("printf '" + line + "'; exit 2") << true;
    QTest::newRow("capital letter") << QByteArray("echo Bound to 10.0.0.5") << false;
    QTest::newRow("across two lines") << QByteArray("printf 'bound\\nto 10.0.0.5\\n'") << false;
    QTest::newRow("no answer") << QByteArray("echo No DHCPOFFERS received.") << false;
    QTest::newRow("nothing printed") << QByteArray("exit 0") << false;
}

void TestNetworkDeviceDhcp::transcriptDecides()
{
    QFETCH(QByteArray, script);
    TestSupport::Answer("dhclient", script);
    NetworkDevice device("eth0", nullptr);

    QTEST(device.Dhclient("eth0"), "bound");
}

void TestNetworkDeviceDhcp::attemptRunsItsSteps()
{
    NetworkDevice device("eth0", nullptr);

    device.Dhclient("eth0");

    QCOMPARE(TestSupport::Journal(), (QStringList{"stop_dhclient.sh", "ip addr flush eth0",
                                                  "dhclient -v -cf /etc/dhcp/dhclient.conf eth0"}));
}

void TestNetworkDeviceDhcp::attemptIsLogged()
{
    NetworkDevice device("eth0", nullptr);

    device.Dhclient("eth0");

    const QString log = TestSupport::LogText();
    QVERIFY(log.contains(" NetworkDevice::Dhclient eth0 \n"));
    QVERIFY(log.contains(" NetworkDevice::Dhclient dhclient stopped \n"));
    QVERIFY(log.contains(" NetworkDevice::Dhclient dhclient -v, -cf, /etc/dhcp/dhclient.conf, eth0 \n"));
}

void TestNetworkDeviceDhcp::attemptIsMadeOnAnotherInterface()
{
    NetworkDevice device("eth0", nullptr);

    device.Dhclient("eth1");

    QCOMPARE(TestSupport::Journal().mid(1),
             (QStringList{"ip addr flush eth0", "dhclient -v -cf /etc/dhcp/dhclient.conf eth1"}));
}

void TestNetworkDeviceDhcp::transcriptIsKeptForRootAlone()
{
    TestSupport::Answer("dhclient", "echo out; echo err >&2");
    NetworkDevice device("eth0", nullptr);

    device.Dhclient("eth0");

    QCOMPARE(TestSupport::ReadFile(TRANSCRIPT), QByteArray("out\nerr\n"));
    QCOMPARE(ModeOf(TRANSCRIPT), mode_t(0600));
}

void TestNetworkDeviceDhcp::transcriptReplacesTheEarlierOne()
{
    TestSupport::WriteFile(TRANSCRIPT, "a long transcript that says bound to 10.0.0.5\n");
    TestSupport::Answer("dhclient", "echo none");
    NetworkDevice device("eth0", nullptr);

    QVERIFY(!device.Dhclient("eth0"));

    QCOMPARE(TestSupport::ReadFile(TRANSCRIPT), QByteArray("none\n"));
}

void TestNetworkDeviceDhcp::transcriptDoesNotFollowALink()
{
    TestSupport::WriteFile("/tmp/victim", "untouched");
    QVERIFY(QFile::link("/tmp/victim", TRANSCRIPT));
    TestSupport::Answer("dhclient", "echo none");
    NetworkDevice device("eth0", nullptr);

    QVERIFY(!device.Dhclient("eth0"));

    QCOMPARE(TestSupport::ReadFile("/tmp/victim"), QByteArray("untouched"));
    QCOMPARE(TestSupport::ReadFile(TRANSCRIPT), QByteArray("none\n"));
}

void TestNetworkDeviceDhcp::transcriptThatCannotBeKeptIsNoFailure()
{
    QVERIFY(QDir().mkpath(TRANSCRIPT));
    const MountPoint taken(TRANSCRIPT);
    TestSupport::Answer("dhclient", "echo bound to 10.0.0.5");
    NetworkDevice device("eth0", nullptr);

    QVERIFY(device.Dhclient("eth0"));

    QVERIFY(QFileInfo(TRANSCRIPT).isDir());
    QVERIFY(!TestSupport::LogText().contains(TRANSCRIPT));
}

void TestNetworkDeviceDhcp::missingClientIsAFailure()
{
    TestSupport::RemoveProgram("dhclient");
    NetworkDevice device("eth0", nullptr);

    QVERIFY(!device.Dhclient("eth0"));

    QVERIFY(QFile::exists(TRANSCRIPT));
}

void TestNetworkDeviceDhcp::crashedClientIsAFailure()
{
    TestSupport::Answer("dhclient", "echo bound to 10.0.0.5; kill -SEGV $$");
    NetworkDevice device("eth0", nullptr);

    QVERIFY(!device.Dhclient("eth0"));

    QCOMPARE(TestSupport::ReadFile(TRANSCRIPT), QByteArray("Process Crashed"));
}

void TestNetworkDeviceDhcp::hangingClientIsStoppedAfterItsLimit()
{
    TestSupport::Answer("dhclient", "echo $$ >/tmp/dhclient.pid; echo DHCPDISCOVER; exec sleep 100");
    NetworkDevice device("eth0", nullptr);
    QElapsedTimer timer;
    timer.start();

    QVERIFY(!device.Dhclient("eth0"));

    QVERIFY2(timer.elapsed() >= 30000 && timer.elapsed() < 35000,
             qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(TestSupport::ReadFile(TRANSCRIPT), QByteArray("DHCPDISCOVER\n"));
    const int pid = TestSupport::ReadFile("/tmp/dhclient.pid").trimmed().toInt();
    QVERIFY(pid > 0);
    QCOMPARE(::kill(pid, 0), -1);
}

QTEST_GUILESS_MAIN(TestNetworkDeviceDhcp)
#include "tst_networkdevice_dhcp.moc"
