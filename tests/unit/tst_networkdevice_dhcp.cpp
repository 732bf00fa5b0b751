// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "deviceworld.h"
#include "logging.h"
#include "mountpoint.h"
#include "networkdevice.h"
#include "processsignals.h"
#include "program.h"
#include "testsupport.h"
#include "timing.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QSignalSpy>
#include <QtTest>

#include <csignal>

#include <sys/resource.h>
#include <sys/stat.h>

namespace {

const QString TRANSCRIPT = QStringLiteral("/tmp/dhclient.log");
const QString LEASES = QStringLiteral("/var/lib/dhcp/dhclient.leases");

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
    void attemptIsLoggedBeforeItsFirstProgram();
    void attemptGoesOnWhereTheEarlierClientCannotBeStopped_data();
    void attemptGoesOnWhereTheEarlierClientCannotBeStopped();
    void attemptIsMadeOnAnotherInterface();
    void transcriptIsKeptForRootAlone();
    void transcriptReplacesTheEarlierOne();
    void silentClientEmptiesTheTranscript();
    void transcriptDoesNotFollowALink();
    void transcriptThatCannotBeKeptIsNoFailure();
    void resolverThatTheClientsScriptCannotWriteIsToldOnce();
    void gatewayThatTheKernelRefusesIsToldOnce_data();
    void gatewayThatTheKernelRefusesIsToldOnce();
    void classlessRoutesWithoutADefaultAreToldOnce();
    void serverThatRefusesIsToldOnce();
    void serverThatOffersAndGivesNothingIsToldOnce_data();
    void serverThatOffersAndGivesNothingIsToldOnce();
    void scriptThatFailsIsToldAndNoServerIsAccused();
    void refusalAfterAMereOfferIsTold();
    void refusalOnALinkThatWentIsNoNews();
    void mentionOfTheResolverIsNoComplaint();
    void leasesThatEndTheClientAreRemoved_data();
    void leasesThatEndTheClientAreRemoved();
    void leasesThatCannotBeRemovedAreToldOnce();
    void missingClientIsAFailure();
    void crashedClientIsAFailure();
    void hangingClientIsStoppedAfterItsLimit_data();
    void hangingClientIsStoppedAfterItsLimit();
    void clientWhoseLinkWentIsStopped_data();
    void clientWhoseLinkWentIsStopped();
    void clientIsStoppedForTheEnd();
    void clientOfAnAddressThatIsThereIsNot();
    void clientGoesOnWithoutALink_data();
    void clientGoesOnWithoutALink();
    void clientIsNotStoppedForWantOfADescriptor();
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

void TestNetworkDeviceDhcp::attemptIsLoggedBeforeItsFirstProgram()
{
    TestSupport::Answer("stop_dhclient.sh", "cp /var/log/corvi-mon.log /tmp/log.seen");
    NetworkDevice device("eth0", nullptr);

    device.Dhclient("eth0");

    QVERIFY(TestSupport::ReadFile("/tmp/log.seen").endsWith(" NetworkDevice::Dhclient eth0 \n"));
}

void TestNetworkDeviceDhcp::attemptGoesOnWhereTheEarlierClientCannotBeStopped_data()
{
    QTest::addColumn<bool>("isThere");

    QTest::newRow("script fails") << true;
    QTest::newRow("script is missing") << false;
}

void TestNetworkDeviceDhcp::attemptGoesOnWhereTheEarlierClientCannotBeStopped()
{
    QFETCH(bool, isThere);
    TestSupport::Answer("stop_dhclient.sh", "exit 1");
    if (!isThere)
        TestSupport::RemoveProgram("stop_dhclient.sh");
    NetworkDevice device("eth0", nullptr);

    device.Dhclient("eth0");

    QCOMPARE(TestSupport::Journal().mid(isThere ? 1 : 0),
             (QStringList{"ip addr flush eth0", "dhclient -v -cf /etc/dhcp/dhclient.conf eth0"}));
    QVERIFY(TestSupport::LogText().contains(" NetworkDevice::Dhclient dhclient stopped \n"));
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

void TestNetworkDeviceDhcp::silentClientEmptiesTheTranscript()
{
    TestSupport::WriteFile(TRANSCRIPT, "an earlier transcript\n");
    NetworkDevice device("eth0", nullptr);

    QVERIFY(!device.Dhclient("eth0"));

    QVERIFY(QFile::exists(TRANSCRIPT));
    QCOMPARE(TestSupport::ReadFile(TRANSCRIPT), QByteArray());
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

void TestNetworkDeviceDhcp::resolverThatTheClientsScriptCannotWriteIsToldOnce()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    TestSupport::Answer("dhclient",
                        "echo '/sbin/dhclient-script: 88: cannot create /etc/resolv.conf: Read-only'\n"
                        "echo 'bound to 10.0.0.5 -- renewal in 300 seconds.'");
    NetworkDevice device("eth0", nullptr);

    QVERIFY(device.Dhclient("eth0"));
    QVERIFY(device.Dhclient("eth0"));

    const QString told = " NetworkDevice::Dhclient - the lease's name servers cannot be written on eth0 -- "
                         "dhclient-script: 88: cannot create /etc/resolv.conf: Read-only \n";
    QCOMPARE(TestSupport::LogText().count(told), 1);
    QCOMPARE(TestSupport::LogText().count("resolv.conf"), 1);

    // It is news again once a lease's servers could be written.
    TestSupport::Answer("dhclient", "echo bound to 10.0.0.5");
    QVERIFY(device.Dhclient("eth0"));
    TestSupport::Answer("dhclient", "echo \"/sbin/dhclient-script: 77: cannot create "
                                    "/etc/resolv.conf.dhclient-new.12: No space left on device\"\n"
                                    "echo bound to 10.0.0.5");
    QVERIFY(device.Dhclient("eth0"));
    QCOMPARE(TestSupport::LogText().count("cannot be written on eth0"), 2);

    // Our own hook looks before the script writes: its sentence, as its test knows it.
    TestSupport::Answer("dhclient", "echo bound to 10.0.0.5");
    QVERIFY(device.Dhclient("eth0"));
    TestSupport::Answer("dhclient", "echo '/etc/resolv.conf cannot be written and stays as it is'\n"
                                    "echo bound to 10.0.0.5");
    QVERIFY(device.Dhclient("eth0"));
    QCOMPARE(TestSupport::LogText().count("cannot be written on eth0 -- /etc/resolv.conf cannot be written "
                                          "and stays as it is \n"),
             1);
}

void TestNetworkDeviceDhcp::gatewayThatTheKernelRefusesIsToldOnce_data()
{
    QTest::addColumn<QByteArray>("fault");

    QTest::newRow("outside") << QByteArray(
        "the gateway 10.9.0.1 is outside the subnet of 10.0.0.5/255.0.0.0");
    QTest::newRow("broadcast") << QByteArray(
        "the gateway 10.255.255.255 is the broadcast address of 10.0.0.5/255.0.0.0");
}

void TestNetworkDeviceDhcp::gatewayThatTheKernelRefusesIsToldOnce()
{
    QFETCH(QByteArray, fault);
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    TestSupport::Answer("dhclient", "echo '" + fault + "'\necho bound to 10.0.0.5");
    NetworkDevice device("eth0", nullptr);

    QVERIFY(device.Dhclient("eth0"));
    QVERIFY(device.Dhclient("eth0"));

    const QString told = QStringLiteral(" NetworkDevice::Dhclient - no default route on eth0 -- the lease is "
                                        "wrong: ") +
                         fault + " \n";
    QCOMPARE(TestSupport::LogText().count(told), 1);
    QCOMPARE(TestSupport::LogText().count(fault), 1);

    // It is news again after a lease that was right.
    TestSupport::Answer("dhclient", "echo bound to 10.0.0.5");
    QVERIFY(device.Dhclient("eth0"));
    TestSupport::Answer("dhclient", "echo '" + fault + "'\necho bound to 10.0.0.5");
    QVERIFY(device.Dhclient("eth0"));
    QCOMPARE(TestSupport::LogText().count(fault), 2);
}

void TestNetworkDeviceDhcp::classlessRoutesWithoutADefaultAreToldOnce()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    const QByteArray fault = "the classless routes have none and come in the place of the gateway 10.0.0.1";
    TestSupport::Answer("dhclient", "echo '" + fault + "'\necho bound to 10.0.0.5");
    NetworkDevice device("eth0", nullptr);

    QVERIFY(device.Dhclient("eth0"));
    QVERIFY(device.Dhclient("eth0"));

    QCOMPARE(TestSupport::LogText().count("no default route on eth0 -- the lease is wrong: " + fault), 1);
}

void TestNetworkDeviceDhcp::serverThatRefusesIsToldOnce()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    TestSupport::Answer("dhclient", "echo 'DHCPOFFER of 10.0.0.5 from 10.0.0.2'\n"
                                    "echo 'DHCPNAK from 10.0.0.1 (xid=0x12345678)'\n"
                                    "echo 'No working leases in persistent database - sleeping.'");
    NetworkDevice device("eth0", nullptr);

    QVERIFY(!device.Dhclient("eth0"));
    QVERIFY(!device.Dhclient("eth0"));

    QCOMPARE(device.dhcpRefuser, QStringLiteral("10.0.0.1"));
    QCOMPARE(device.dhcpOfferer, QString());
    const QString told =
        " NetworkDevice::Dhclient - a DHCP server refuses us on eth0 -- DHCPNAK from 10.0.0.1 \n";
    QCOMPARE(TestSupport::LogText().count(told), 1);
    QCOMPARE(TestSupport::LogText().count("DHCPNAK"), 1);

    // An earlier lease that is no use on this network is refused, too, and all is well.
    TestSupport::Answer("dhclient", "echo 'DHCPNAK from 10.0.0.1 (xid=0x12345678)'\necho bound to 10.0.0.5");
    QVERIFY(device.Dhclient("eth0"));
    QCOMPARE(TestSupport::LogText().count("DHCPNAK"), 1);

    // After that, one that leaves us without an address is news again.
    TestSupport::Answer("dhclient", "echo 'DHCPNAK from 10.0.0.1 (xid=0x12345678)'");
    QVERIFY(!device.Dhclient("eth0"));
    QCOMPARE(TestSupport::LogText().count(told), 2);
}

void TestNetworkDeviceDhcp::serverThatOffersAndGivesNothingIsToldOnce_data()
{
    QTest::addColumn<QByteArray>("offer");
    QTest::newRow("never confirmed") << QByteArray("DHCPOFFER of 10.0.0.5 from 10.0.0.1");
    // After "no expiry time on offered lease".
    QTest::newRow("not taken") << QByteArray("DHCPOFFER from 10.0.0.1");
}

void TestNetworkDeviceDhcp::serverThatOffersAndGivesNothingIsToldOnce()
{
    QFETCH(QByteArray, offer);
    SetLevel(Level::NOTICE);
    TestSupport::Answer("dhclient", "echo '" + offer + " rejected'");
    NetworkDevice device("eth0", nullptr);

    QVERIFY(!device.Dhclient("eth0"));
    QVERIFY(!device.Dhclient("eth0"));

    QCOMPARE(device.dhcpOfferer, QStringLiteral("10.0.0.1"));
    QCOMPARE(device.dhcpRefuser, QString());
    const QString told =
        " NetworkDevice::Dhclient - a DHCP server offers an address and gives none on eth0 -- ";
    QCOMPARE(TestSupport::LogText().count(told + QString::fromLatin1(offer) + " \n"), 1);
    QCOMPARE(TestSupport::LogText().count("DHCPOFFER"), 1);
}

void TestNetworkDeviceDhcp::scriptThatFailsIsToldAndNoServerIsAccused()
{
    SetLevel(Level::NOTICE);
    TestSupport::Answer("dhclient", "echo 'DHCPOFFER of 10.0.0.5 from 10.0.0.1'\n"
                                    "echo 'dhclient-script: 3: hooks.d/cut: Syntax error: end of file'\n"
                                    "echo 'DHCPDECLINE of 10.0.0.5 on eth0 to 255.255.255.255 port 67'");
    NetworkDevice device("eth0", nullptr);

    QVERIFY(!device.Dhclient("eth0"));

    QCOMPARE(device.dhcpOfferer, QString());
    const QString told = "dhclient declines what it is offered, as its script fails: see /tmp/dhclient.log";
    QVERIFY(Program::Faults().contains(told));
    QVERIFY(!TestSupport::LogText().contains("DHCPOFFER"));

    // An offer may be declined before one is taken.
    TestSupport::Answer("dhclient", "echo 'DHCPDECLINE of 10.0.0.5 on eth0'\necho bound to 10.0.0.6");
    QVERIFY(device.Dhclient("eth0"));
    QVERIFY(!Program::Faults().contains(told));
}

void TestNetworkDeviceDhcp::refusalAfterAMereOfferIsTold()
{
    SetLevel(Level::NOTICE);
    NetworkDevice device("eth0", nullptr);

    for (const char *said : {"DHCPOFFER of 10.0.0.5 from 10.0.0.1", "DHCPNAK from 10.0.0.2 (xid=0x1)"}) {
        TestSupport::Answer("dhclient", QByteArray("echo '") + said + "'");
        QVERIFY(!device.Dhclient("eth0"));
    }

    QCOMPARE(TestSupport::LogText().count("offers an address and gives none on eth0"), 1);
    QCOMPARE(TestSupport::LogText().count("refuses us on eth0 -- DHCPNAK from 10.0.0.2 \n"), 1);
}

/// The client hears of the network before, or of none any more; of the link the log tells.
void TestNetworkDeviceDhcp::refusalOnALinkThatWentIsNoNews()
{
    GivenInterface();
    SetLevel(Level::NOTICE);
    NetworkDevice device("eth0", nullptr);
    device.RefreshStatus();
    QVERIFY(device.isRunning);
    TestSupport::Answer("dhclient", "echo 'DHCPNAK from 10.0.0.1 (xid=0x12345678)'; ip link set eth0 down");

    QVERIFY(!device.Dhclient("eth0"));

    QCOMPARE(TestSupport::LogText(), QString());
    TestSupport::RemoveInterfaces();
}

/// Its hooks and other programs may say what they want of the file.
void TestNetworkDeviceDhcp::mentionOfTheResolverIsNoComplaint()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    TestSupport::Answer("dhclient", "echo 'resolvconf: cannot create /etc/resolv.conf: it is a link'\n"
                                    "echo 'chown: changing ownership of /etc/resolv.conf.dhclient-new.1'\n"
                                    "echo bound to 10.0.0.5");
    NetworkDevice device("eth0", nullptr);

    QVERIFY(device.Dhclient("eth0"));

    QVERIFY(!TestSupport::LogText().contains("resolv.conf"));
}

void TestNetworkDeviceDhcp::leasesThatEndTheClientAreRemoved_data()
{
    QTest::addColumn<QByteArray>("transcript");
    QTest::addColumn<bool>("removed");

    const QByteArray complaint = "/var/lib/dhcp/dhclient.leases line 2: expecting lease declaration.\n ^\n";
    const QByteArray end = "\nIf you think you have received this message due to a bug ...\n\nexiting.\n";
    QTest::newRow("cut within a string")
        << QByteArray("/var/lib/dhcp/dhclient.leases line 1: string constant larger than internal buffer\n" +
                      end)
        << true;
    QTest::newRow("cut within a name") << QByteArray("Can't allocate interface ethlease {.\n" + end) << true;
    QTest::newRow("readable for the most part")
        << QByteArray(complaint + "No DHCPOFFERS received.\n") << false;
    QTest::newRow("another reason") << QByteArray("Error getting interface flags\n" + end) << false;
    QTest::newRow("bound") << QByteArray(complaint + "bound to 10.0.0.5\nexiting.\n") << false;
}

void TestNetworkDeviceDhcp::leasesThatEndTheClientAreRemoved()
{
    QFETCH(QByteArray, transcript);
    QFETCH(bool, removed);
    TestSupport::WriteFile(LEASES, "lease {\n  interface \"ethlease {\n");
    TestSupport::WriteFile("/tmp/printed", transcript);
    TestSupport::Answer("dhclient", "cat /tmp/printed");
    NetworkDevice device("eth0", nullptr);

    device.Dhclient("eth0");

    QCOMPARE(QFile::exists(LEASES), !removed);
    const QString told = "NetworkDevice::Dhclient - the client cannot read its earlier leases on eth0 -- "
                         "/var/lib/dhcp/dhclient.leases is removed \n";
    QCOMPARE(TestSupport::LogText().contains(told), removed);
    TestSupport::Remove(LEASES);
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

void TestNetworkDeviceDhcp::hangingClientIsStoppedAfterItsLimit_data()
{
    QTest::addColumn<QByteArray>("printed");
    QTest::addColumn<bool>("bound");

    QTest::newRow("no answer yet") << QByteArray("DHCPDISCOVER\n") << false;
    QTest::newRow("bound, and does not go on by itself") << QByteArray("bound to 10.0.0.5\n") << true;
}

void TestNetworkDeviceDhcp::hangingClientIsStoppedAfterItsLimit()
{
    QFETCH(QByteArray, printed);
    TestSupport::WriteFile("/tmp/printed", printed);
    TestSupport::Answer("dhclient", "echo $$ >/tmp/dhclient.pid; cat /tmp/printed; exec sleep 100");
    NetworkDevice device("eth0", nullptr);
    QElapsedTimer timer;
    timer.start();

    QTEST(device.Dhclient("eth0"), "bound");

    QVERIFY2(timer.elapsed() >= 30000 && timer.elapsed() < 60000,
             qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(TestSupport::ReadFile(TRANSCRIPT), printed);
    const int pid = TestSupport::ReadFile("/tmp/dhclient.pid").trimmed().toInt();
    QVERIFY(pid > 0);
    QCOMPARE(::kill(pid, 0), -1);
}

void TestNetworkDeviceDhcp::leasesThatCannotBeRemovedAreToldOnce()
{
    QVERIFY(QDir().mkpath(LEASES));
    const auto remover = qScopeGuard([] { TestSupport::Remove(LEASES); });
    const MountPoint taken(LEASES);
    SetLevel(Level::NOTICE);
    const QByteArray damaged = "echo \"Can't allocate interface ethlease {.\"; echo exiting.";
    TestSupport::Answer("dhclient", damaged);
    NetworkDevice device("eth0", nullptr);

    QVERIFY(!device.Dhclient("eth0"));
    QVERIFY(!device.Dhclient("eth0"));

    const QString told = "NetworkDevice::Dhclient - the client cannot read its earlier leases on eth0 -- "
                         "/var/lib/dhcp/dhclient.leases cannot be removed \n";
    QCOMPARE(TestSupport::LogText().count(told), 1);

    // It is news again after a lease that could be had.
    TestSupport::Answer("dhclient", "echo bound to 10.0.0.5");
    QVERIFY(device.Dhclient("eth0"));
    TestSupport::Answer("dhclient", damaged);
    QVERIFY(!device.Dhclient("eth0"));
    QCOMPARE(TestSupport::LogText().count(told), 2);
}

void TestNetworkDeviceDhcp::clientWhoseLinkWentIsStopped_data()
{
    QTest::addColumn<QByteArray>("fault");

    QTest::newRow("adapter pulled") << QByteArray("ip link delete eth0");
    QTest::newRow("another put in at once")
        << QByteArray("ip link delete eth0; ip link add eth0 type veth peer name peer0");
    QTest::newRow("cable pulled") << QByteArray("sleep 1; ip link set peer0 down");
    QTest::newRow("renamed") << QByteArray("ip link set eth0 down; ip link set eth0 name lan0");
}

/// It may go on trying for as long as it is let, and holds the supervision meanwhile.
void TestNetworkDeviceDhcp::clientWhoseLinkWentIsStopped()
{
    QFETCH(QByteArray, fault);
    TestSupport::RemoveInterfaces();
    GivenInterface();
    TestSupport::Answer("dhclient", "echo DHCPDISCOVER on eth0\n" + fault + "\nsleep 600");
    NetworkDevice device("eth0", nullptr);
    QElapsedTimer timer;
    timer.start();

    QVERIFY(!device.Dhclient("eth0"));

    QVERIFY(timer.elapsed() < PROGRAM_TIME_LIMIT_MS);
    QCOMPARE(TestSupport::ReadFile(TRANSCRIPT), QByteArray("DHCPDISCOVER on eth0\n"));
    QVERIFY(!TestSupport::LogText().contains("is killed"));
    TestSupport::RemoveInterfaces();
}

void TestNetworkDeviceDhcp::clientIsStoppedForTheEnd()
{
    ProcessSignals source(nullptr);
    QSignalSpy ends(&source, &ProcessSignals::terminationRequested);
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    TestSupport::Answer("dhclient", "echo 'DHCPOFFER of 10.0.0.5 from 10.0.0.1'; kill -TERM " +
                                        QByteArray::number(QCoreApplication::applicationPid()) +
                                        "; sleep 600");
    NetworkDevice device("eth0", nullptr);
    QElapsedTimer timer;
    timer.start();

    QVERIFY(!device.Dhclient("eth0"));

    QVERIFY(timer.elapsed() < PROGRAM_TIME_LIMIT_MS);
    // No fault of the server.
    QVERIFY(!TestSupport::LogText().contains("offers an address and gives none"));
    QTRY_COMPARE(ends.size(), 1);
}

/// The address outlives us, and wants a client.
void TestNetworkDeviceDhcp::clientOfAnAddressThatIsThereIsNot()
{
    ProcessSignals source(nullptr);
    QSignalSpy ends(&source, &ProcessSignals::terminationRequested);
    GivenInterface();
    TestSupport::WriteNetworks(Network("lan", ""));
    Device device("eth0");
    device.ConfigureNetwork(true);
    TestSupport::Answer("dhclient", "kill -TERM " + QByteArray::number(QCoreApplication::applicationPid()) +
                                        "; sleep 1; touch /tmp/renewed");

    device.RenewLease();

    QVERIFY(QFile::remove("/tmp/renewed"));
    QTRY_COMPARE(ends.size(), 1);
    TestSupport::RemoveInterfaces();
}

void TestNetworkDeviceDhcp::clientGoesOnWithoutALink_data()
{
    QTest::addColumn<bool>("linkAtFirst");
    QTest::addColumn<QByteArray>("fault");

    QTest::newRow("lost for a moment") << true << QByteArray("sleep 6; ip link set peer0 down; sleep 1");
    QTest::newRow("never seen") << false << QByteArray("sleep 6");
}

void TestNetworkDeviceDhcp::clientGoesOnWithoutALink()
{
    QFETCH(bool, linkAtFirst);
    QFETCH(QByteArray, fault);
    GivenInterface();
    TestSupport::SetCable("peer0", linkAtFirst);
    TestSupport::Answer("dhclient", fault + "; echo bound to 10.0.0.5");
    NetworkDevice device("eth0", nullptr);

    QVERIFY(device.Dhclient("eth0"));

    TestSupport::RemoveInterfaces();
}

/// What cannot be asked is not gone.
void TestNetworkDeviceDhcp::clientIsNotStoppedForWantOfADescriptor()
{
    rlimit before = {};
    QCOMPARE(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const auto restorer = qScopeGuard([before] { ::setrlimit(RLIMIT_NOFILE, &before); });
    GivenInterface();
    const QByteArray limit = "prlimit --pid " + QByteArray::number(QCoreApplication::applicationPid());
    // Asked 4 times a second.
    TestSupport::Answer("dhclient", limit + " --nofile=3:\nsleep 1\n" + limit +
                                        " --nofile=1024:\necho bound to 10.0.0.5");
    NetworkDevice device("eth0", nullptr);

    QVERIFY(device.Dhclient("eth0"));

    TestSupport::RemoveInterfaces();
}

QTEST_GUILESS_MAIN(TestNetworkDeviceDhcp)
#include "tst_networkdevice_dhcp.moc"
