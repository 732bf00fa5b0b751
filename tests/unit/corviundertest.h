// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "bondeddevice.h"
#include "corvi.h"
#include "logging.h"
#include "modem.h"
#include "testsupport.h"
#include "wireddevice.h"
#include "wirelessdevice.h"
#include "wpasuppthread.h"

#include <QElapsedTimer>
#include <QLocalServer>
#include <QLocalSocket>
#include <QTimer>
#include <QtEndian>
#include <QtTest>

/// The supervisor's state, set at once: its own way there takes 7 s for every start.
class Supervisor : public WpaSuppThread
{
public:
    struct State
    {
        bool running = false;
        bool restarting = false;
        bool associated = false;
    };

    static void Set(const State &state)
    {
        WpaSuppThread *const self = GetInstance();
        (self->*&Supervisor::Reinit)();
        self->*&Supervisor::startPending = false;
        self->*&Supervisor::running = state.running;
        self->*&Supervisor::restarting = state.restarting;
        self->*&Supervisor::associated = state.associated;
    }
    static void SetStopPending(bool pending) { GetInstance()->*&Supervisor::stopPending = pending; }
    static bool IsStopRequested() { return GetInstance()->*&Supervisor::stopRunning; }
    /// Opens the control connection, as the tick after a launch does.
    static void Connect() { (GetInstance()->*&Supervisor::CreateWpaCtl)(); }
    /// Ends the worker thread, so that the supervisor ticks only when a test tells it to.
    static void StopTicking()
    {
        GetInstance()->exit(0);
        GetInstance()->wait();
        QCoreApplication::sendPostedEvents(GetInstance());
    }
};

/// What may have become of the supplicant.
inline constexpr Supervisor::State GONE{};
inline constexpr Supervisor::State RUNNING{true, false, false};
inline constexpr Supervisor::State RESTARTING{false, true, false};
inline constexpr Supervisor::State ASSOCIATED{true, false, true};

/// What the tests of the service object share: the object with its data open to view, and the small world it
/// runs in: stand-in tools that act on real interfaces, the supervisor's state, a listener for events.
/// Its ticks are given by hand.
class CorviUnderTest : public Corvi
{
public:
    CorviUnderTest() : Corvi(nullptr) {}

    void Tick() { LoopTimerTimeout(); }
    void Tick(int count)
    {
        for (int i = 0; i < count; ++i)
            Tick();
    }
    NetworkDevice *Device(const QString &name) const { return devices.value(name); }

    /// As earlier ticks leave it: the wireless device is chosen and its supplicant has been asked for.
    void AdoptWireless(const QString &name)
    {
        wirelessDevice = Device(name);
        wirelessConfigured = true;
    }
    /// The supplicant is to be configured anew, after a hold-off of which nothing has passed yet.
    void BeginHoldOff()
    {
        reconfigureWpa = true;
        wpaHoldoffTicks = 2;
    }
    /// The supplicant has been configured, and this has become of it.
    void SettleSupplicant(const Supervisor::State &state)
    {
        reconfigureWpa = false;
        Supervisor::Set(state);
    }

    using Corvi::allInterfaces;
    using Corvi::bondedDevice;
    using Corvi::bondingEnabled;
    using Corvi::devices;
    using Corvi::eventSocket;
    using Corvi::forceRescan;
    using Corvi::loopStarted;
    using Corvi::loopTimer;
    using Corvi::modemDevice;
    using Corvi::modemInterfaces;
    using Corvi::operstateFiles;
    using Corvi::reconfigureWpa;
    using Corvi::shm;
    using Corvi::supThread;
    using Corvi::wiredDevice;
    using Corvi::wiredInterfaces;
    using Corvi::wiredPending;
    using Corvi::wiredRetry;
    using Corvi::wiredUp;
    using Corvi::wirelessCarrierSeen;
    using Corvi::wirelessConfigured;
    using Corvi::wirelessDelayTicks;
    using Corvi::wirelessDevice;
    using Corvi::wirelessFound;
    using Corvi::wirelessInterfaces;
    using Corvi::wirelessRetry;
    using Corvi::wpaConfContents;
    using Corvi::wpaConfUpdated;
    using Corvi::wpaHoldoffTicks;
};

struct Event
{
    int code;
    int status;
    bool operator==(const Event &other) const { return code == other.code && status == other.status; }
};
using Events = QVector<Event>;

inline const Event ASSOCIATION_UP{2, 1};
inline const Event ASSOCIATION_DOWN{2, -1};
inline const Event NO_CONFIGURATION{1, -1};
inline const Event DHCP_STARTED{1, 0};
inline const Event ADDRESS_PRESENT{1, 1};

/// For the report of a failed comparison.
inline char *toString(const Events &events)
{
    QStringList items;
    for (const Event &event : events)
        items << QStringLiteral("(%1, %2)").arg(event.code).arg(event.status);
    return qstrdup(qPrintable(items.join(QStringLiteral(" "))));
}

/// The program that is told of events. Connections wait in the socket's queue until they are looked at, so
/// it needs no thread of its own.
class EventListener
{
public:
    EventListener()
    {
        QLocalServer::removeServer(QStringLiteral("corvin"));
        if (!server.listen(QStringLiteral("corvin")))
            qFatal("no event listener: %s", qPrintable(server.errorString()));
        server.setMaxPendingConnections(1000);
    }

    /// The bytes of every connection since the last call, one item each.
    QVector<QByteArray> TakeMessages()
    {
        QVector<QByteArray> messages;
        while (server.hasPendingConnections() || server.waitForNewConnection(0)) {
            QLocalSocket *const connection = server.nextPendingConnection();
            // The sender has written and closed before it went on.
            while (connection->state() == QLocalSocket::ConnectedState &&
                   connection->waitForReadyRead(1000)) {
            }
            messages << connection->readAll();
            delete connection;
        }
        return messages;
    }

    Events Take()
    {
        Events events;
        const QVector<QByteArray> messages = TakeMessages();
        for (const QByteArray &message : messages) {
            if (message.size() != 4)
                qFatal("an event of %d bytes", message.size());
            events << Event{qFromBigEndian<qint16>(message.constData()),
                            qFromBigEndian<qint16>(message.constData() + 2)};
        }
        return events;
    }

private:
    QLocalServer server;
};

namespace CorviWorld {

inline const QString DEBUG_FLAG = QStringLiteral("/tmp/debug_corvi");
inline const QString KILL_FLAG = QStringLiteral("/tmp/kill_corvi");
inline const QString RELOAD_FLAG = QStringLiteral("/tmp/config/files/network/reload");
inline const QString REFRESH_FLAG = QStringLiteral("/tmp/refresh_network");
inline const QString KEEP_WIRELESS_FLAG = QStringLiteral("/tmp/keepwirelessup");
inline const QString DHCP_EVENT = QStringLiteral("/tmp/dhcp_event");
inline const QString DHCLIENT_CONF = QStringLiteral("/etc/dhcp/dhclient.conf");
inline const QString SUPPLICANT_FILE = QStringLiteral("/tmp/wpa_supplicant.conf");

inline const QByteArray LAN_DHCP = "<networkconfig><network><name>lan</name></network></networkconfig>";
inline const QByteArray LAN_STATIC = "<networkconfig><network><name>lan</name><staticIp>true</staticIp>"
                                     "<ipAddress>10.1.0.2</ipAddress><netmask>255.255.255.0</netmask>"
                                     "<gateway>10.1.0.1</gateway></network></networkconfig>";
inline const QByteArray LAN_8021X =
    "<networkconfig><network><name>lan</name><securityMode>802.1X (PEAP/MSCHAPv2)</securityMode>"
    "<identity>me</identity><password>secret</password></network></networkconfig>";
inline const QByteArray LAN_8021X_STATIC =
    "<networkconfig><network><name>lan</name><securityMode>802.1X (PEAP/MSCHAPv2)</securityMode>"
    "<identity>me</identity><password>secret</password><staticIp>true</staticIp>"
    "<ipAddress>10.1.0.2</ipAddress><netmask>255.255.255.0</netmask><gateway>10.1.0.1</gateway>"
    "</network></networkconfig>";
inline const QByteArray WLAN = "<networkconfig><network><name>Office</name><ssid>Office</ssid>"
                               "<securityMode>Unsecured</securityMode></network></networkconfig>";
inline const QByteArray WLAN_AND_8021X =
    "<networkconfig>"
    "<network><name>lan</name><securityMode>802.1X (PEAP/MSCHAPv2)</securityMode><identity>me</identity>"
    "<password>secret</password><staticIp>true</staticIp><ipAddress>10.1.0.2</ipAddress>"
    "<netmask>255.255.255.0</netmask><gateway>10.1.0.1</gateway></network>"
    "<network><name>Office</name><ssid>Office</ssid><securityMode>Unsecured</securityMode></network>"
    "</networkconfig>";

inline void SetLevel(int level)
{
    Logging::GetInstance(level, false);
}

/// The log's lines without their time stamps and the blank that ends each.
inline QStringList LogLines()
{
    static const int stampLength = QStringLiteral("2025-05-03 17:05:01.234 :  ").size();
    QStringList texts;
    const QStringList lines = TestSupport::LogText().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString &line : lines)
        texts << line.mid(stampLength).chopped(1);
    return texts;
}

/// How often a line was logged.
inline int LogCount(const QString &text)
{
    return LogLines().count(text);
}

/// The journal's lines that begin with this.
inline QStringList JournalOf(const QString &start)
{
    return TestSupport::Journal().filter(
        QRegularExpression(QLatin1Char('^') + QRegularExpression::escape(start)));
}

/// An Ethernet interface with a cable to a far end that discovery does not see. It is down, the cable is in.
inline void MakeInterface(const QString &name)
{
    const QString farEnd = QStringLiteral("far-") + name;
    TestSupport::RealIp(
        {"link", "add", "name", name, "type", "veth", "peer", "name", farEnd, "netns", "far"});
    TestSupport::RealIp({"-n", "far", "link", "set", "dev", farEnd, "up"});
}

/// The machine of a test: its configuration, and its interfaces in the order in which they come.
inline void MakeMachine(const QByteArray &store, const QStringList &interfaces)
{
    TestSupport::WriteStore(store);
    for (const QString &name : interfaces)
        MakeInterface(name);
}

/// As somebody other than the daemon does it.
inline void BringUp(const QString &name)
{
    TestSupport::RealIp({"link", "set", "dev", name, "up"});
}

/// Puts the cable in again.
inline void PlugCable(const QString &name)
{
    TestSupport::RealIp({"-n", "far", "link", "set", "dev", "far-" + name, "up"});
}

inline void PullCable(const QString &name)
{
    TestSupport::RealIp({"-n", "far", "link", "set", "dev", "far-" + name, "down"});
}

/// Where the tools that set links and addresses do it, as the daemon's decisions follow from what they did.
inline void UseWorkingTools()
{
    TestSupport::Answer(QStringLiteral("ifconfig"),
                        "case $2 in\n"
                        "up | down) ip link set dev $1 $2 ;;\n"
                        "*) ip addr replace $2/24 dev $1; ip link set dev $1 up ;;\n"
                        "esac");
    TestSupport::Answer(QStringLiteral("ip"), "exec ip \"$@\"");
}

/// A DHCP client that is given an address at once.
inline void UseDhcpServer()
{
    TestSupport::Answer(QStringLiteral("dhclient"), "[ $1 = -v ] || exit 0\n"
                                                    "ip addr replace 10.0.0.5/24 dev $4\n"
                                                    "echo 'bound to 10.0.0.5 -- renewal in 300 seconds.'");
}

/// Every test starts from nothing: no interface, definition, flag file, log or journal; tools that work.
inline void StartFromNothing()
{
    using namespace TestSupport;
    RestorePrograms();
    ClearAnswers();
    RemoveInterfaces();
    RemoveStore();
    for (const QString &path :
         {DEBUG_FLAG, KILL_FLAG, RELOAD_FLAG, REFRESH_FLAG, KEEP_WIRELESS_FLAG, DHCP_EVENT, SUPPLICANT_FILE,
          QStringLiteral("/tmp/corvin"), QStringLiteral("/tmp/dhclient.log")})
        Remove(path);
    WriteFile(DHCLIENT_CONF, "# present\n");
    UseWorkingTools();
    SetLevel(2);
    Supervisor::StopTicking();
    Supervisor::Set(GONE);
    Corvi::conn_counter = 0;
    if (!QFileInfo::exists(QStringLiteral("/run/netns/far")))
        RealIp({"netns", "add", "far"});
    ClearJournal();
    ClearLog();
}

/// What a test is not about is forgotten: the log and the journal start here.
inline void Forget()
{
    TestSupport::ClearJournal();
    TestSupport::ClearLog();
}

/// What a test is not about is forgotten, and from here on the log takes all up to this level.
inline void LogFromHere(int level)
{
    SetLevel(level);
    Forget();
}

/// As if the last DHCP attempt were this long ago.
inline void Age(RetryPause &pause, int attempts, std::chrono::seconds age)
{
    const auto then = RetryPause::Time::clock::now() - age;
    pause.Reset();
    pause.IsDue(then);
    for (int i = 0; i < attempts; ++i)
        pause.NoteAttempt(then);
}

inline int DhcpAttempts()
{
    return JournalOf(QStringLiteral("dhclient -v")).size();
}

} // namespace CorviWorld
