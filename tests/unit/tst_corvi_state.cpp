// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "fastclock.h"
#include "resourcelimit.h"
#include "servicestate.h"

#include <QDir>
#include <QFileInfo>

#include <chrono>
#include <ctime>

#include <sys/stat.h>

using namespace CorviWorld;
using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

/// Of the one interface, or of several by name.
InterfaceState Told(int index = 0)
{
    const ServiceStateReading reading = ReadServiceState();
    return reading.state.interfaces.value(index);
}

/// On the clock of the times that are told.
qint64 Now()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

/// Each file that is put in place is another one.
ino_t FileNumber()
{
    struct stat info = {};
    return ::stat("/run/corvi/state.json", &info) == 0 ? info.st_ino : 0;
}

} // namespace

/// The file that tells other programs what is decided and waited for.
class TestCorviState : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void stateIsTold();
    void kindsAndWhoseTurnItIsAreTold();
    void modemHasNoDefinition();
    void faultOfAModemIsTold();
    void faultOfAModemThatNobodyAsksIsNotTold();
    void secondPortIsToldToBeHeldDown();
    void expectedGatewayIsTold();
    void toolThatFailsIsTold();
    void fileIsForEverybodyToRead();
    void newFileIsOfThisTick();
    void idleTickLeavesTheFileAlone();
    void removedFileIsWrittenAgain();
    void missingFolderIsNoFault();
    void folderThatCannotBeUsedIsToldOnce();
    void stateThatCannotBeWrittenLeavesNoEarlierOne();
    void stateIsTriedAgainAfterAPause();
    void failedAttemptsAreCounted();
    void serverThatRefusesIsToldUntilAnAttemptDiffers();
    void attemptIsToldWhileItIsMade();
    void nextAttemptOfARadioIsTold();
    void newLinkCountsAnew();
    void lostLinkHasNoAttempts();
    void portThatGaveWayAwaitsNothing();
    void waitForAuthenticationIsTold();
    void waitThatWentOnMeanwhileIsToldAnew();
    void cableThatIsOutAwaitsNothing();
    void failureIsToldOfItsInterface();
    void pauseOfTheSupplicantIsToldOfItsInterface();
    void radioWaitsForItsNetworkWithoutALimit();
    void otherHostIsToldWhileItIsLookedFor();
};

void TestCorviState::init()
{
    StartFromNothing();
    QDir("/run/corvi").removeRecursively();
    QVERIFY(QDir().mkdir("/run/corvi"));
}

void TestCorviState::stateIsTold()
{
    UseDhcpServer();
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    corvi.Tick();

    QCOMPARE(ReadServiceState().state.carrier, "eth0");
    QCOMPARE(Told().name, "eth0");
    QCOMPARE(Told().kind, "wired");
    QCOMPARE(Told().definition, "lan");
    QCOMPARE(Told().definitionCount, 1);
    QVERIFY(Told().isInUse);
}

void TestCorviState::kindsAndWhoseTurnItIsAreTold()
{
    Answer("modem-tool.sh", "[ \"$1\" != status ] || echo connected");
    MakeMachine(WLAN, {"eth0", "wlan0", "wwan0"});
    PullCable("eth0");
    CorviPeer corvi;

    corvi.Tick(3);

    QCOMPARE(QStringList({Told(0).kind, Told(1).kind, Told(2).kind}),
             QStringList({"wired", "wireless", "modem"}));
    QVERIFY(!Told(0).isConnected && !Told(1).isConnected && Told(2).isConnected);
    QVERIFY(Told(2).isInUse && !Told(1).isInUse);
    QCOMPARE(Told(1).definition, "Office");
}

void TestCorviState::modemHasNoDefinition()
{
    CorviPeer corvi(LAN_DHCP, {"wwan0"}, SET_UP);

    corvi.Tick();

    QCOMPARE(Told().kind, "modem");
    QCOMPARE(Told().definition, "");
    QCOMPARE(Told().definitionCount, 0);
}

void TestCorviState::faultOfAModemIsTold()
{
    Answer("modem-tool.sh", "[ \"$1\" != status ] || echo the SIM is locked");
    CorviPeer corvi({"wwan0"}, SET_UP);

    corvi.Tick();

    QCOMPARE(Told().connectionFault, "the SIM is locked");
}

void TestCorviState::faultOfAModemThatNobodyAsksIsNotTold()
{
    Answer("modem-tool.sh", "[ \"$1\" != status ] || echo the SIM is locked");
    MakeMachine(LAN_STATIC, {"eth0", "wwan0"});
    PullCable("eth0");
    CorviPeer corvi(SET_UP);
    corvi.Tick(2);
    QCOMPARE(Told(1).connectionFault, "the SIM is locked");

    PlugCable("eth0");
    corvi.Tick(3);

    QCOMPARE(Told(1).connectionFault, "");
}

void TestCorviState::secondPortIsToldToBeHeldDown()
{
    CorviPeer corvi(LAN_STATIC, {"eth0", "eth1"}, SET_UP);

    QVERIFY(Told(0).isInUse && !Told(0).isHeldDown);
    QVERIFY(!Told(1).isInUse && Told(1).isHeldDown);
}

void TestCorviState::expectedGatewayIsTold()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);

    QCOMPARE(Told().gateway, "10.1.0.1");
}

void TestCorviState::toolThatFailsIsTold()
{
    Answer("update_hosts", "kill -SEGV $$");
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    QCOMPARE(ReadServiceState().state.toolFaults, QStringList{"update_hosts crashed"});

    ClearAnswers();
    UseWorkingTools();
    corvi.ForceRescan();
    corvi.Tick(2);
    QCOMPARE(ReadServiceState().state.toolFaults, QStringList());
}

void TestCorviState::fileIsForEverybodyToRead()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);

    struct stat info = {};
    QCOMPARE(::stat("/run/corvi/state.json", &info), 0);
    QCOMPARE(info.st_mode & 0777U, 0644U);
    QVERIFY(Told().isStatic);
}

/// A tick that takes long may follow.
void TestCorviState::newFileIsOfThisTick()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, DISCOVERED);

    struct stat info = {};
    QCOMPARE(::stat("/run/corvi/state.json", &info), 0);
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    QVERIFY(info.st_mtime <= now.tv_sec);
}

void TestCorviState::idleTickLeavesTheFileAlone()
{
    UseDhcpServer();
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    corvi.Tick();
    const ino_t before = FileNumber();
    QVERIFY(before != 0);

    corvi.Tick(5);

    QCOMPARE(FileNumber(), before);
}

void TestCorviState::removedFileIsWrittenAgain()
{
    UseDhcpServer();
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    corvi.Tick();

    QVERIFY(QFile::remove("/run/corvi/state.json"));
    corvi.Tick();

    QCOMPARE(Told().name, "eth0");
}

void TestCorviState::missingFolderIsNoFault()
{
    QDir("/run/corvi").removeRecursively();
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    corvi.Tick(3);

    QVERIFY(LogLines().filter("TellState").isEmpty());
    QVERIFY(!QFileInfo::exists("/run/corvi"));
}

void TestCorviState::folderThatCannotBeUsedIsToldOnce()
{
    QDir("/run/corvi").removeRecursively();
    WriteFile("/run/corvi", "a file");
    {
        CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
        corvi.Tick(3);

        QCOMPARE(LogCount("Corvi::TellState - the state for other programs cannot be written: "
                          "/run/corvi/state.json Not a directory"),
                 1);
    }
    QFile::remove("/run/corvi");
}

void TestCorviState::stateThatCannotBeWrittenLeavesNoEarlierOne()
{
    WriteFile("/run/corvi/state.json", "of an earlier daemon");
    {
        const ResourceLimit fullDisk(RLIMIT_FSIZE, 10);
        CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    }
    QVERIFY(!QFileInfo::exists("/run/corvi/state.json"));
}

void TestCorviState::stateIsTriedAgainAfterAPause()
{
    QDir("/run/corvi").removeRecursively();
    WriteFile("/run/corvi", "a file");
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    for (int i = 0; i < 2; ++i) {
        QVERIFY(QFile::remove("/run/corvi") && QDir().mkdir("/run/corvi"));
        corvi.Tick();
        QVERIFY(!QFileInfo::exists("/run/corvi/state.json"));
        FastClock::Advance(10s);
        corvi.Tick();
        QCOMPARE(Told().name, "eth0");

        // A fault that comes again is news, and the first attempt after it comes as soon as before.
        QDir("/run/corvi").removeRecursively();
        WriteFile("/run/corvi", "a file");
        corvi.Tick();
        QCOMPARE(LogLines().filter("TellState").size(), i + 2);
    }
    QFile::remove("/run/corvi");
}

void TestCorviState::failedAttemptsAreCounted()
{
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    corvi.Tick();

    QCOMPARE(Told().dhcpFailures, 1);
    QVERIFY(!Told().dhcpSince);
    QVERIFY(Told().nextDhcpStart);

    UseDhcpServer();
    corvi.AgeWiredRetry(0, std::chrono::seconds(10));
    corvi.Tick();

    QCOMPARE(Told().dhcpFailures, 0);
    QVERIFY(!Told().nextDhcpStart);
}

void TestCorviState::serverThatRefusesIsToldUntilAnAttemptDiffers()
{
    const QByteArray refusal = "echo 'DHCPNAK from 10.0.0.1 (xid=0x12345678)'";
    Answer("dhclient", refusal);
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    QCOMPARE(Told().dhcpRefuser, "10.0.0.1");

    Answer("dhclient", "echo No DHCPOFFERS received.");
    corvi.AgeWiredRetry(0, std::chrono::seconds(10));
    corvi.Tick();
    QCOMPARE(Told().dhcpFailures, 2);
    QCOMPARE(Told().dhcpRefuser, "");

    Answer("dhclient", "echo 'DHCPOFFER of 10.0.0.5 from 10.0.0.1'");
    corvi.AgeWiredRetry(0, std::chrono::seconds(20));
    corvi.Tick();
    QCOMPARE(Told().dhcpRefuser, "");
    QCOMPARE(Told().dhcpOfferer, "10.0.0.1");

    UseDhcpServer();
    corvi.AgeWiredRetry(0, std::chrono::seconds(40));
    corvi.Tick();
    QCOMPARE(Told().dhcpFailures, 0);
    QCOMPARE(Told().dhcpOfferer, "");
}

void TestCorviState::attemptIsToldWhileItIsMade()
{
    Answer("dhclient", "cp /run/corvi/state.json /tmp/during; exit 2");
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);

    const QByteArray during = ReadFile("/tmp/during");

    QVERIFY2(during.contains("dhcpSinceMs"), during.constData());
    QVERIFY(!ReadFile("/run/corvi/state.json").contains("dhcpSinceMs"));
}

void TestCorviState::nextAttemptOfARadioIsTold()
{
    MakeMachine(WLAN, {"wlan0"});
    BringUp("wlan0");
    CorviPeer corvi(DISCOVERED);
    corvi.AdoptWireless("wlan0");
    corvi.SettleSupplicant(ASSOCIATED);
    corvi.WaitForWireless(0);
    corvi.AgeWirelessRetry(0, 10s);
    const qint64 before = Now();

    corvi.Tick();

    QCOMPARE(Told().dhcpFailures, 1);
    QVERIFY(Told().nextDhcpStart);
    QVERIFY(*Told().nextDhcpStart >= before + 20000 && *Told().nextDhcpStart <= Now() + 20000);
}

void TestCorviState::newLinkCountsAnew()
{
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    corvi.AgeWiredRetry(0, std::chrono::seconds(10));
    corvi.Tick();
    QCOMPARE(Told().dhcpFailures, 2);

    PullCable("eth0");
    corvi.Tick();
    PlugCable("eth0");
    corvi.Tick();

    QCOMPARE(Told().dhcpFailures, 1);
}

void TestCorviState::lostLinkHasNoAttempts()
{
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    QCOMPARE(Told().dhcpFailures, 1);

    PullCable("eth0");
    corvi.Tick();

    QCOMPARE(Told().dhcpFailures, 0);
    QVERIFY(!Told().nextDhcpStart);
}

void TestCorviState::portThatGaveWayAwaitsNothing()
{
    CorviPeer corvi(LAN_DHCP, {"eth0", "eth1"}, DISCOVERED);
    PullCable("eth0");
    corvi.Tick();
    QCOMPARE(Told(1).name, "eth1");
    QCOMPARE(Told(1).dhcpFailures, 1);

    // The first port carries, and waits for its own next attempt.
    PlugCable("eth0");
    corvi.Tick();

    QCOMPARE(Told(0).dhcpFailures, 1);
    QVERIFY(Told(0).nextDhcpStart);
    QCOMPARE(Told(1).dhcpFailures, 0);
    QVERIFY(!Told(1).nextDhcpStart);
}

void TestCorviState::waitForAuthenticationIsTold()
{
    CorviPeer corvi(LAN_8021X, {"eth0"}, SET_UP);
    corvi.SettleSupplicant({true, false, false});
    corvi.WiredDevice()->authWaitTicks = 34;
    const qint64 before = Now();
    corvi.Tick();

    // 34 s lie between the first of 35 ticks and the last one.
    const auto since = Told().authenticationSince;
    QVERIFY(since);
    QVERIFY(*since >= before - 34000);
    QVERIFY(*since <= Now() - 34000);
    QCOMPARE(Told().fallbackSeconds, 60);
    // One tick that was waited for more in no time: what is told stays.
    corvi.Tick();
    QVERIFY(Told().authenticationSince == since);

    corvi.SettleSupplicant({true, false, true});
    corvi.Tick();
    QVERIFY(!Told().authenticationSince);
    QCOMPARE(Told().fallbackSeconds, 0);

    QVERIFY(Told().usesSupplicant && !Told().isInFallback);
    corvi.WiredDevice()->inFallback = true;
    corvi.Tick();
    QVERIFY(Told().isInFallback);
}

void TestCorviState::waitThatWentOnMeanwhileIsToldAnew()
{
    CorviPeer corvi(LAN_8021X, {"eth0"}, SET_UP);
    corvi.SettleSupplicant(RUNNING);
    corvi.Tick();
    QVERIFY(Told().authenticationSince);
    const qint64 first = *Told().authenticationSince;

    // A wait is counted in ticks, and this one was late.
    FastClock::Advance(10s);
    corvi.Tick();

    QVERIFY(*Told().authenticationSince >= first + 9000);
}

void TestCorviState::cableThatIsOutAwaitsNothing()
{
    CorviPeer corvi(LAN_8021X, {"eth0"}, SET_UP);
    corvi.SettleSupplicant(RUNNING);
    corvi.Tick(3);
    QVERIFY(Told().authenticationSince);

    PullCable("eth0");
    corvi.Tick();

    QVERIFY(Told().isInUse);
    QVERIFY(!Told().authenticationSince);
    QCOMPARE(Told().fallbackSeconds, 0);
}

void TestCorviState::failureIsToldOfItsInterface()
{
    CorviPeer corvi(LAN_8021X, {"eth0"}, SET_UP);
    corvi.SettleSupplicant(RUNNING);
    Supervisor::Request("eth0");
    corvi.Tick();
    QCOMPARE(Told().lastFailure, "");
    QCOMPARE(Told().failureSince, 0);
    const qint64 before = QDateTime::currentSecsSinceEpoch();

    Supervisor::Hear("<3>CTRL-EVENT-EAP-FAILURE EAP authentication failed");
    corvi.Tick();
    QCOMPARE(Told().lastFailure, "EAP authentication failed");
    QVERIFY(Told().failureSince >= before && Told().failureSince <= QDateTime::currentSecsSinceEpoch());
    QVERIFY(!Told().nextSupplicantStart);

    Supervisor::Request("wlan0");
    corvi.Tick();
    QCOMPARE(Told().lastFailure, "");
}

void TestCorviState::pauseOfTheSupplicantIsToldOfItsInterface()
{
    CorviPeer corvi(LAN_8021X, {"eth0"}, SET_UP);
    corvi.SettleSupplicant(GONE);
    Supervisor::Request("eth0");
    Supervisor::Pause(30);
    const qint64 before = Now();

    corvi.Tick();

    const auto next = Told().nextSupplicantStart;
    QVERIFY(next && *next >= before + 30000 && *next <= Now() + 30000);
    // Seconds that are counted down in no time are none: what is told stays.
    Supervisor::Pause(28);
    corvi.Tick();
    QVERIFY(Told().nextSupplicantStart == next);
}

void TestCorviState::radioWaitsForItsNetworkWithoutALimit()
{
    MakeMachine(WLAN, {"wlan0"});
    BringUp("wlan0");
    CorviPeer corvi;
    corvi.SettleSupplicant(RUNNING);

    corvi.Tick(5);

    QVERIFY(corvi.WirelessDevice() && corvi.WirelessDevice()->isRunning);
    QVERIFY(Told().usesSupplicant && Told().isInUse);
    QVERIFY(!Told().authenticationSince);
    QCOMPARE(Told().fallbackSeconds, 0);
}

void TestCorviState::otherHostIsToldWhileItIsLookedFor()
{
    MakeMachine(LAN_8021X_STATIC, {"eth0"});
    RealIp({"-n", "far", "addr", "add", "10.1.0.2/24", "dev", "far-eth0"});
    CorviPeer corvi(SET_UP);
    corvi.SettleSupplicant(ASSOCIATED);
    const auto isTold = [&] {
        corvi.Tick();
        return !Told().addressHolder.isEmpty();
    };
    QVERIFY(QTest::qWaitFor(isTold, 60000));

    corvi.SettleSupplicant({true, false, false});
    FastClock::Advance(5s);
    corvi.Tick();

    QCOMPARE(Told().addressHolder, QString());
}

QTEST_GUILESS_MAIN(TestCorviState)
#include "tst_corvi_state.moc"
