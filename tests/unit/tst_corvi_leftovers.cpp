// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"

#include "fastclock.h"
#include "zebnetstatus.h"

#include <QProcess>
#include <QSharedMemory>

#include <chrono>
#include <cstring>

using namespace CorviWorld;
using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

const QByteArray LAN_AND_WLAN =
    "<networkconfig>"
    "<network><name>lan</name><staticIp>true</staticIp><ipAddress>10.1.0.2</ipAddress>"
    "<netmask>255.255.255.0</netmask><gateway>10.1.0.1</gateway></network>"
    "<network><name>Office</name><ssid>Office</ssid><securityMode>Unsecured</securityMode></network>"
    "</networkconfig>";

bool HasAddress(const QString &name)
{
    return RealIp({"-4", "addr", "show", "dev", name}).contains("inet ");
}

void GiveAddress(const QString &name)
{
    RealIp({"addr", "add", "10.9.0.9/24", "dev", name});
}

bool IsLinkUp(const QString &name)
{
    return RealIp({"link", "show", "dev", name}).contains(",UP");
}

/// The status segment as an earlier daemon left it, which somebody holds.
class Segment
{
public:
    Segment() : memory(SEGMENT_KEY)
    {
        if (!memory.create(SEGMENT_SIZE))
            qFatal("no segment");
    }

    void Put(const QByteArray &record)
    {
        std::memcpy(memory.data(), record.constData(), static_cast<size_t>(record.size()));
    }

private:
    QSharedMemory memory;
};

QByteArray RecordOfAnEarlierDaemon()
{
    ZebNetStatus status;
    status.SetConnected(true);
    status.SetIfaceInfo("02:00:5E:10:00:01", "10.7.0.7", "10.7.0.255", "255.255.255.0");
    return status.GetData();
}

ZebNetStatus Published(const CorviPeer &corvi)
{
    ZebNetStatus status;
    if (!status.SetData(corvi.Segment()))
        qFatal("no record");
    return status;
}

} // namespace

/// What a device leaves behind when another one carries, or none.
class TestCorviLeftovers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { StartFromNothing(); }

    void deviceThatIsLeftLosesItsAddress();
    void cableMovedBetweenTwoLooksLeavesNothing();
    void cableMovedToAndFroLeavesNothing();
    void secondPortThatIsStoppedLosesItsAddress();
    void lossThatNobodySawIsALossNow_data();
    void lossThatNobodySawIsALossNow();
    void recordOfALostLinkHasNoAddress();
    void recordOfALostLinkLosesItsAddressLater();
    void addressThatOutlivesALossIsNotTakenOnEveryTick();
    void addressThatStaysIsNotTakenOnEveryTick();
    void addressThatComesAgainIsTakenAtOnce();
    void wirelessFoundConnectedIsStoppedForACable();
    void strayWirelessIsStoppedForACable_data();
    void strayWirelessIsStoppedForACable();
    void wirelessWithoutAnAddressIsLeftAlone();
    void strayWirelessThatStaysUpIsNotStoppedOnEveryTick();
    void strayWirelessThatComesAgainIsStoppedAtOnce();
    void recordOfAnEarlierDaemonIsReplaced_data();
    void recordOfAnEarlierDaemonIsReplaced();
    void recordOfTheFirstThatCarriesReplacesIt_data();
    void recordOfTheFirstThatCarriesReplacesIt();
    void recordOfAnEarlierDaemonIsReplacedInASegmentMadeAnew();
    void recordOfAnEarlierDaemonThatIsTrueStays();
    void radioFoundWithAnAddressIsAnnounced();
};

void TestCorviLeftovers::deviceThatIsLeftLosesItsAddress()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1"});
    PullCable("eth0");
    CorviPeer corvi;
    corvi.Tick(3);
    QVERIFY(HasAddress("eth1"));
    Forget();

    PlugCable("eth0");
    corvi.Tick();

    QCOMPARE(corvi.WiredDevice(), corvi.Device("eth0"));
    QVERIFY(HasAddress("eth0"));
    QVERIFY(!HasAddress("eth1"));
    QCOMPARE(JournalOf("ip addr flush"), QStringList{"ip addr flush eth1"});
}

void TestCorviLeftovers::cableMovedBetweenTwoLooksLeavesNothing()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1"});
    PullCable("eth1");
    CorviPeer corvi;
    corvi.Tick(3);
    QVERIFY(HasAddress("eth0"));

    PullCable("eth0");
    PlugCable("eth1");
    corvi.Tick();

    QCOMPARE(corvi.WiredDevice(), corvi.Device("eth1"));
    QVERIFY(!HasAddress("eth0"));
    QVERIFY(HasAddress("eth1"));
}

void TestCorviLeftovers::cableMovedToAndFroLeavesNothing()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1"});
    PullCable("eth1");
    CorviPeer corvi;
    corvi.Tick(3);

    QStringList ports = {"eth0", "eth1"};
    for (int move = 0; move < 4; ++move) {
        PullCable(ports.first());
        PlugCable(ports.last());
        ports.move(0, 1);
        corvi.Tick();
        QVERIFY(HasAddress(ports.first()));
        QVERIFY2(!HasAddress(ports.last()), qPrintable(QString::number(move)));
    }
}

void TestCorviLeftovers::secondPortThatIsStoppedLosesItsAddress()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1"});
    GiveAddress("eth1");
    CorviPeer corvi;
    corvi.Tick();

    corvi.Tick();

    QVERIFY(!IsLinkUp("eth1"));
    QVERIFY(!HasAddress("eth1"));
    Forget();
    corvi.Tick(3);
    QCOMPARE(Journal(), QStringList());
}

void TestCorviLeftovers::lossThatNobodySawIsALossNow_data()
{
    QTest::addColumn<bool>("restart");
    QTest::newRow("over a rescan") << false;
    QTest::newRow("over a restart of the daemon") << true;
}

void TestCorviLeftovers::lossThatNobodySawIsALossNow()
{
    QFETCH(bool, restart);
    MakeMachine(LAN_STATIC, {"eth0"});
    EventListener listener;
    auto corvi = std::make_unique<CorviPeer>();
    corvi->Tick(3);
    QVERIFY(Published(*corvi).IsConnected());
    listener.Take();

    PullCable("eth0");
    if (restart)
        corvi = std::make_unique<CorviPeer>();
    else
        corvi->ForceRescan();
    corvi->Tick(3);

    QVERIFY(!HasAddress("eth0"));
    QCOMPARE(listener.Take(), Events({ASSOCIATION_DOWN}));
    QVERIFY(!Published(*corvi).IsConnected());
    QCOMPARE(Published(*corvi).GetIp(), QString());
    // It is a loss, and no address that somebody else left.
    QCOMPARE(LogLines().filter("TakeAddressAway"), QStringList());
}

void TestCorviLeftovers::recordOfALostLinkHasNoAddress()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(3);
    QCOMPARE(Published(corvi).GetIp(), QString("10.1.0.2"));

    PullCable("eth0");
    corvi.Tick();

    QCOMPARE(Published(corvi).GetIp(), QString());
}

void TestCorviLeftovers::recordOfALostLinkLosesItsAddressLater()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    Answer("ip", "exit 1");
    PullCable("eth0");
    corvi.Tick();
    QVERIFY(HasAddress("eth0"));
    QCOMPARE(Published(corvi).GetIp(), QString("10.1.0.2"));

    UseWorkingTools();
    FastClock::Advance(20s);
    corvi.Tick();

    QVERIFY(!HasAddress("eth0"));
    QCOMPARE(Published(corvi).GetIp(), QString());
}

void TestCorviLeftovers::addressThatOutlivesALossIsNotTakenOnEveryTick()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    Answer("ip", "exit 1");
    Forget();
    PullCable("eth0");

    corvi.Tick(5);

    QCOMPARE(JournalOf("ip addr flush"), QStringList{"ip addr flush eth0"});
    FastClock::Advance(20s);
    corvi.Tick();
    QCOMPARE(JournalOf("ip addr flush").size(), 2);
}

void TestCorviLeftovers::addressThatStaysIsNotTakenOnEveryTick()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1"});
    PullCable("eth1");
    CorviPeer corvi;
    corvi.Tick(3);
    GiveAddress("eth1");
    Answer("ip", "exit 1");
    Forget();

    corvi.Tick(5);

    QCOMPARE(JournalOf("ip addr flush"), QStringList{"ip addr flush eth1"});
    const QString address = corvi.Device("eth1")->ipAddress;
    QCOMPARE(LogLines().filter("TakeAddressAway"),
             QStringList{"Corvi::TakeAddressAway - not in use, loses its address: eth1 " + address});
}

void TestCorviLeftovers::addressThatComesAgainIsTakenAtOnce()
{
    MakeMachine(LAN_STATIC, {"eth0", "eth1"});
    PullCable("eth1");
    CorviPeer corvi;
    corvi.Tick(3);
    Answer("ip", "exit 1");
    Forget();

    for (const int taken : {1, 2}) {
        GiveAddress("eth1");
        corvi.Tick(2);
        QCOMPARE(JournalOf("ip addr flush").size(), taken);
        RealIp({"addr", "flush", "dev", "eth1"});
        corvi.Tick();
    }
}

void TestCorviLeftovers::wirelessFoundConnectedIsStoppedForACable()
{
    MakeMachine(LAN_AND_WLAN, {"eth0", "wlan0"});
    PullCable("eth0");
    BringUp("wlan0");
    CorviPeer corvi;
    corvi.Tick(4);
    QCOMPARE(corvi.WirelessDevice(), corvi.Device("wlan0"));
    QVERIFY(corvi.Device("wlan0")->timer->isActive());
    GiveAddress("wlan0");
    Forget();

    PlugCable("eth0");
    corvi.Tick();

    QCOMPARE(JournalOf("ifconfig wlan0"), QStringList{"ifconfig wlan0 down"});
    QVERIFY(!IsLinkUp("wlan0"));
}

void TestCorviLeftovers::strayWirelessIsStoppedForACable_data()
{
    QTest::addColumn<bool>("keep");
    QTest::newRow("as usual") << false;
    QTest::newRow("told to keep it up") << true;
}

void TestCorviLeftovers::strayWirelessIsStoppedForACable()
{
    QFETCH(bool, keep);
    MakeMachine(LAN_AND_WLAN, {"eth0", "wlan0"});
    BringUp("wlan0");
    GiveAddress("wlan0");
    if (keep)
        WriteFile(KEEP_WIRELESS_FLAG, "");
    CorviPeer corvi;

    // The cable is in before wireless had its turn.
    corvi.Tick(3);

    QCOMPARE(IsLinkUp("wlan0"), keep);
    QCOMPARE(HasAddress("wlan0"), keep);
}

void TestCorviLeftovers::wirelessWithoutAnAddressIsLeftAlone()
{
    MakeMachine(LAN_AND_WLAN, {"eth0", "wlan0"});
    BringUp("wlan0");
    CorviPeer corvi;

    corvi.Tick(3);

    QCOMPARE(JournalOf("ifconfig wlan0"), QStringList());
    QVERIFY(IsLinkUp("wlan0"));
    QCOMPARE(corvi.WirelessDevice(), nullptr);
}

void TestCorviLeftovers::strayWirelessThatStaysUpIsNotStoppedOnEveryTick()
{
    MakeMachine(LAN_AND_WLAN, {"eth0", "wlan0"});
    BringUp("wlan0");
    GiveAddress("wlan0");
    CorviPeer corvi;
    corvi.Tick();
    Answer("ifconfig", "exit 1");
    Answer("ip", "exit 1");
    Forget();

    corvi.Tick(5);

    QCOMPARE(JournalOf("ifconfig wlan0"), QStringList{"ifconfig wlan0 down"});
}

void TestCorviLeftovers::strayWirelessThatComesAgainIsStoppedAtOnce()
{
    MakeMachine(LAN_AND_WLAN, {"eth0", "wlan0"});
    CorviPeer corvi(SET_UP);

    for (int i = 0; i < 2; ++i) {
        BringUp("wlan0");
        GiveAddress("wlan0");
        corvi.Tick();
        QVERIFY2(!IsLinkUp("wlan0") && !HasAddress("wlan0"), qPrintable(QString::number(i)));
        corvi.Tick();
    }
}

void TestCorviLeftovers::recordOfAnEarlierDaemonIsReplaced_data()
{
    QTest::addColumn<QStringList>("interfaces");
    QTest::newRow("its link has gone") << QStringList{"wlan0"};
    QTest::newRow("its interface has gone") << QStringList();
}

/// A radio's turn comes later, and it reports only once it is connected.
void TestCorviLeftovers::recordOfAnEarlierDaemonIsReplaced()
{
    QFETCH(QStringList, interfaces);
    Segment segment;
    segment.Put(RecordOfAnEarlierDaemon());
    EventListener listener;
    MakeMachine(WLAN, interfaces);

    CorviPeer corvi(SET_UP);

    ZebNetStatus status;
    QVERIFY(!status.SetData(corvi.Segment()) || !status.IsConnected());
    QCOMPARE(listener.Take(), Events());
}

void TestCorviLeftovers::recordOfTheFirstThatCarriesReplacesIt_data()
{
    QTest::addColumn<QStringList>("carrying");
    QTest::addColumn<QString>("published");
    QTest::newRow("none carries: the first one's") << QStringList() << "wlan0";
    QTest::newRow("one carries") << QStringList{"wlan1"} << "wlan1";
    QTest::newRow("two carry") << QStringList{"wlan1", "wlan2"} << "wlan1";
}

void TestCorviLeftovers::recordOfTheFirstThatCarriesReplacesIt()
{
    QFETCH(QStringList, carrying);
    QFETCH(QString, published);
    Segment segment;
    segment.Put(RecordOfAnEarlierDaemon());
    MakeMachine(WLAN, {"wlan0", "wlan1", "wlan2"});
    for (const QString &name : carrying)
        BringUp(name);

    CorviPeer corvi(SET_UP);
    QCOMPARE(corvi.Segment(), corvi.Device(published)->status->GetData());

    // Once: what comes later is nobody's but ours.
    FillSegment('x');
    corvi.Tick();
    QCOMPARE(corvi.Segment(), QByteArray(SEGMENT_SIZE, 'x'));
}

/// A reader that lets go may take the segment with it, and its record is put into the new one.
void TestCorviLeftovers::recordOfAnEarlierDaemonIsReplacedInASegmentMadeAnew()
{
    Segment segment;
    segment.Put(RecordOfAnEarlierDaemon());
    MakeMachine(WLAN, {"wlan0"});
    CorviPeer corvi(DISCOVERED);
    QCOMPARE(QProcess::execute("ipcrm", {"--all=shm"}), 0);

    corvi.Tick();

    QVERIFY(!Published(corvi).IsConnected());
}

void TestCorviLeftovers::recordOfAnEarlierDaemonThatIsTrueStays()
{
    Segment segment;
    MakeMachine(WLAN, {"eth0", "wlan0"});
    PullCable("eth0");
    // Nobody carries, so that another device's record would be as good.
    WirelessDevice wlan("wlan0", nullptr);
    wlan.RefreshStatus();
    segment.Put(wlan.status->GetData());

    CorviPeer corvi(SET_UP);

    QCOMPARE(corvi.Segment(), wlan.status->GetData());
}

/// Replacing the record told nobody of the address.
void TestCorviLeftovers::radioFoundWithAnAddressIsAnnounced()
{
    Segment segment;
    segment.Put(RecordOfAnEarlierDaemon());
    EventListener listener;
    MakeMachine(WLAN, {"wlan0"});
    BringUp("wlan0");
    GiveAddress("wlan0");
    CorviPeer corvi(SET_UP);
    QCOMPARE(Published(corvi).GetIp(), QString("10.9.0.9"));
    QCOMPARE(listener.Take(), Events());

    corvi.Tick(4); // Its turn comes after two ticks.

    QCOMPARE(listener.Take().count(ADDRESS_PRESENT), 1);
}

QTEST_GUILESS_MAIN(TestCorviLeftovers)
#include "tst_corvi_leftovers.moc"
