// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"

#include "zebnetstatus.h"

using namespace CorviWorld;
using namespace TestSupport;

namespace {

const QByteArray CABLE_AND_RADIO =
    "<networkconfig><network><name>lan</name></network>"
    "<network><name>Office</name><ssid>Office</ssid></network></networkconfig>";

/// The devices that were given an address or a bearer's settings, in order.
QStringList Configured()
{
    QStringList names;
    for (const QString &line : Journal()) {
        if (line.startsWith(QStringLiteral("dhclient -v")))
            names.append(line.section(QLatin1Char(' '), -1));
        else if (line == QStringLiteral("modem-tool.sh ip_config"))
            names.append(QStringLiteral("modem"));
    }
    return names;
}

} // namespace

/// The device that carries the traffic is the one that was configured last.
class TestCorviCarrier : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void modemTakesOverFromTheCable();
    void modemThatIsNotReadyDoesNotTakeOver_data();
    void modemThatIsNotReadyDoesNotTakeOver();
    void keptRadioTakesOverFromTheCable();
    void keptRadioIsInTheRecordAfterTheCable();
    void radioThatIsNotReadyDoesNotTakeOver_data();
    void radioThatIsNotReadyDoesNotTakeOver();
    void radioTakesOverFromTheModem();
    void radioTakesOverFromAModemThatIsPulled();
    void cableTakesBackWhatARadioTook();
    void cableThatAwaitsAuthenticationTakesNothing();
    void modemTakesBackWhatARadioTook();
    void takingOverStaysInForceOverARescan();
    void nothingIsConfiguredTwice();
    void nothingIsTakenOverAtTheStart();

private:
    /// A cable that is in use, a modem behind it, connected, and a radio that is kept up and associated.
    void GivenEverything();
    std::unique_ptr<CorviPeer> corvi;
};

void TestCorviCarrier::init()
{
    corvi.reset();
    StartFromNothing();
    UseDhcpServer();
    Answer("modem-tool.sh", "[ \"$1\" = status ] && echo connected");
    WriteFile(KEEP_WIRELESS_FLAG, "");
}

void TestCorviCarrier::GivenEverything()
{
    MakeMachine(CABLE_AND_RADIO, {"eth0", "wwan0", "wlan0"});
    PullCable("eth0");
    corvi = std::make_unique<CorviPeer>(SET_UP);
    corvi->AdoptWireless("wlan0");
    BringUp("wlan0");
    corvi->WirelessDevice()->RefreshStatus(); // As its timer does.
    PlugCable("eth0");
    corvi->Tick();
    QCOMPARE(corvi->WiredDevice()->name, QString("eth0"));
    corvi->SettleSupplicant(ASSOCIATED);
    Forget();
}

void TestCorviCarrier::modemTakesOverFromTheCable()
{
    GivenEverything();
    EventListener listener;

    PullCable("eth0");
    corvi->Tick();

    QCOMPARE(Configured(), QStringList{"modem"});
    QCOMPARE(listener.Take(), Events({ASSOCIATION_DOWN, ASSOCIATION_UP}));
    QCOMPARE(LogCount("Corvi::KeepCarrierConfigured - wwan0 takes over from eth0"), 1);
}

void TestCorviCarrier::modemThatIsNotReadyDoesNotTakeOver_data()
{
    QTest::addColumn<bool>("connected");
    QTest::addColumn<bool>("running");
    QTest::newRow("not connected") << false << true;
    QTest::newRow("no link") << true << false;
}

void TestCorviCarrier::modemThatIsNotReadyDoesNotTakeOver()
{
    QFETCH(bool, connected);
    QFETCH(bool, running);
    GivenEverything();
    corvi->PickWireless(QString());
    qobject_cast<Modem *>(corvi->ModemDevice())->modemConnected = connected;
    Answer("modem-tool.sh", connected ? "[ \"$1\" = status ] && echo connected" : "exit 0");
    if (!running)
        PullCable("wwan0");
    corvi->ModemDevice()->RefreshStatus();

    PullCable("eth0");
    corvi->Tick();

    QCOMPARE(Configured(), QStringList());
}

void TestCorviCarrier::keptRadioTakesOverFromTheCable()
{
    GivenEverything();
    corvi->GiveUpModem();

    PullCable("eth0");
    corvi->Tick();

    QCOMPARE(Configured(), QStringList{"wlan0"});
}

/// Also where it keeps the address that was published before, and its supplicant is still to start.
void TestCorviCarrier::keptRadioIsInTheRecordAfterTheCable()
{
    GivenEverything();
    corvi->GiveUpModem();
    corvi->SettleSupplicant(GONE);

    PullCable("eth0");
    corvi->Tick(3);

    ZebNetStatus record;
    QVERIFY(record.SetData(corvi->Segment()));
    QVERIFY(record.IsConnected());
    QVERIFY(record.IsWireless());
}

void TestCorviCarrier::radioThatIsNotReadyDoesNotTakeOver_data()
{
    QTest::addColumn<bool>("running");
    QTest::addColumn<bool>("associated");
    QTest::newRow("no link") << false << true;
    QTest::newRow("not associated") << true << false;
}

void TestCorviCarrier::radioThatIsNotReadyDoesNotTakeOver()
{
    QFETCH(bool, running);
    QFETCH(bool, associated);
    GivenEverything();
    corvi->GiveUpModem();
    corvi->SettleSupplicant({true, false, associated});
    if (!running)
        PullCable("wlan0");
    corvi->WirelessDevice()->RefreshStatus();

    PullCable("eth0");
    corvi->Tick();

    QCOMPARE(Configured(), QStringList());
}

void TestCorviCarrier::radioTakesOverFromTheModem()
{
    GivenEverything();
    PullCable("eth0");
    corvi->Tick();
    Forget();

    Answer("modem-tool.sh", "[ \"$1\" = status ] && echo disconnected");
    corvi->Tick();

    // The modem's tool has told what is gone; then the radio has its turn.
    QCOMPARE(Configured(), QStringList({"modem", "wlan0"}));
}

void TestCorviCarrier::radioTakesOverFromAModemThatIsPulled()
{
    GivenEverything();
    PullCable("eth0");
    corvi->Tick();
    Forget();

    corvi->GiveUpModem();
    corvi->Tick();

    QCOMPARE(Configured(), QStringList{"wlan0"});
}

void TestCorviCarrier::cableTakesBackWhatARadioTook()
{
    GivenEverything();

    corvi->onAssociatedChanged(true);
    corvi->Tick();

    QCOMPARE(Configured(), QStringList({"wlan0", "eth0"}));
}

void TestCorviCarrier::cableThatAwaitsAuthenticationTakesNothing()
{
    GivenEverything();
    corvi->WiredDevice()->usesSupplicant = true;
    corvi->onAssociatedChanged(true);
    corvi->SettleSupplicant(RUNNING);

    corvi->Tick();

    QCOMPARE(Configured(), QStringList{"wlan0"});
}

void TestCorviCarrier::modemTakesBackWhatARadioTook()
{
    GivenEverything();
    PullCable("eth0");
    corvi->Tick();
    Forget();

    corvi->onAssociatedChanged(true);
    corvi->Tick();

    QCOMPARE(Configured(), QStringList({"wlan0", "modem"}));
}

void TestCorviCarrier::takingOverStaysInForceOverARescan()
{
    GivenEverything();
    corvi->GiveUpModem();
    RealIp({"link", "delete", "dev", "wwan0"});

    PullCable("eth0");
    corvi->ForceRescan();
    corvi->Tick(4);

    QCOMPARE(Configured(), QStringList{"wlan0"});
}

void TestCorviCarrier::nothingIsConfiguredTwice()
{
    GivenEverything();
    PullCable("eth0");
    corvi->Tick();
    Forget();

    corvi->Tick(3);

    QCOMPARE(Configured(), QStringList());
}

void TestCorviCarrier::nothingIsTakenOverAtTheStart()
{
    // A radio that another daemon left with all it needs.
    MakeMachine(CABLE_AND_RADIO, {"wlan0"});
    BringUp("wlan0");
    RealIp({"addr", "add", "10.0.0.9/24", "dev", "wlan0"});
    corvi = std::make_unique<CorviPeer>(DISCOVERED);
    corvi->SettleSupplicant(ASSOCIATED);

    corvi->Tick(5);

    QCOMPARE(Configured(), QStringList());
}

QTEST_GUILESS_MAIN(TestCorviCarrier)
#include "tst_corvi_carrier.moc"
