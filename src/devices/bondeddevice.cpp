// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "bondeddevice.h"

#include "interfacekind.h"
#include "logging.h"
#include "networksetting.h"
#include "paths.h"
#include "platformfile.h"
#include "program.h"
#include "securefile.h"
#include "timing.h"
#include "utils.h"
#include "zebxmlconfig.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTimer>

#include <algorithm>
#include <iterator>

namespace {

const QString DHCLIENT = QStringLiteral("dhclient");
const QString WIRED_NAME = QStringLiteral("eth0");
const QString BONDING_MASTERS = SYS_NET + QStringLiteral("bonding_masters");
const QString SAVED_MAC_FILE = QStringLiteral("/tmp/config/files/network/bondedMac");

bool Ip(const QStringList &arguments)
{
    return Utils::Succeeds(QStringLiteral("ip"), arguments);
}

void SetLink(const QString &device, const QStringList &change)
{
    Ip(QStringList{QStringLiteral("link"), QStringLiteral("set"), QStringLiteral("dev"), device} + change);
}

bool Rename(const QString &newName, const QString &device)
{
    return Ip({QStringLiteral("link"), QStringLiteral("set"), QStringLiteral("name"), newName, device});
}

bool InterfaceExists(const QString &name)
{
    return QFileInfo::exists(SYS_NET + name);
}

/// Kernels before 6.2 rename no interface that is up. True when it had to be taken down for that.
bool RenameAlsoWhileUp(const QString &newName, const QString &device)
{
    if (Rename(newName, device) || !InterfaceExists(device) || InterfaceExists(newName))
        return false;
    Log(Level::NOTICE) << "BondedDevice -" << device << "cannot be renamed, trying again with the link down";
    SetLink(device, {QStringLiteral("down")});
    Rename(newName, device);
    return true;
}

QStringList EthernetNames()
{
    QStringList names;
    const QStringList entries = QDir(SYS_NET).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    std::copy_if(entries.begin(), entries.end(), std::back_inserter(names), HasEthernetName);
    return names;
}

/// The names of the bonds in one line, apart by blanks (Documentation/networking/bonding.rst); empty where
/// the driver is not loaded.
QString ReadBondNames()
{
    QFile masters(BONDING_MASTERS);
    return masters.open(QIODevice::ReadOnly) ? QString::fromLatin1(masters.readAll()) : QString();
}

/// VLANs and the like say what they are; an adapter says nothing.
bool IsAdapter(const QString &interfaceName)
{
    return !LinkAttribute(interfaceName, "uevent").contains("DEVTYPE=");
}

/// Ethernet adapters without a master, a bond or any other.
QStringList LoosePorts()
{
    const QStringList names = EthernetNames();
    QStringList loose;
    std::copy_if(names.begin(), names.end(), std::back_inserter(loose), [](const QString &name) {
        return !InterfaceExists(name + QStringLiteral("/master")) && IsAdapter(name);
    });
    return loose;
}

void ReplaceName(QStringList &names, const QString &oldName, const QString &newName)
{
    std::replace(names.begin(), names.end(), oldName, newName);
    names.removeDuplicates();
}

/// The bond keeps its first address over restarts, and so its lease.
void SaveMac(const QString &interfaceName)
{
    QFile source(SYS_NET + interfaceName + QStringLiteral("/address"));
    if (!source.open(QIODevice::ReadOnly))
        return;
    const QByteArray address = source.readAll();
    QDir().mkpath(QFileInfo(SAVED_MAC_FILE).path());
    if (address.isEmpty() || !SecureFile::ReplaceLasting(SAVED_MAC_FILE, address, 0644))
        Log(Level::NOTICE) << "BondedDevice::EnableBonding the bond's address could not be saved to"
                           << SAVED_MAC_FILE;
}

} // namespace

bool BondedDevice::driverFound = false;
bool BondedDevice::enableChecked = false;
const QStringList BondedDevice::BondingModeList = {
    QStringLiteral("balance-rr"), QStringLiteral("active-backup"), QStringLiteral("balance-xor"),
    QStringLiteral("broadcast"),  QStringLiteral("802.3ad"),       QStringLiteral("balance-tlb"),
    QStringLiteral("balance-alb")};

BondedDevice::BondedDevice(QObject *parent)
    : QObject(parent),
      slaves(EthernetNames()),
      bondingActive(QFileInfo::exists(BONDING_MASTERS)),
      dhcpProcess(new Program(this)),
      pollTimer(new QTimer(this))
{
    if (InterfaceExists(swapName)) {
        wiredName = WIRED_NAME;
        renamedName = swapName;
        ReplaceName(slaves, wiredName, renamedName);
    }
    // Nobody reads what the client prints, and QProcess would keep it.
    dhcpProcess->setStandardOutputFile(QProcess::nullDevice());
    connect(dhcpProcess, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            &BondedDevice::onStartProcessFinished);
    connect(pollTimer, &QTimer::timeout, this, &BondedDevice::onMyTimerTrip);
    Log(Level::TRACE) << "BondedDevice::BondedDevice Initialized";
}

BondedDevice::~BondedDevice() = default;

QString BondedDevice::AddressIn(const QByteArray &contents)
{
    constexpr int SAVED_LINE_LENGTH = 18;
    const QByteArray line = contents.left(contents.indexOf('\n') + 1);
    return line.size() == SAVED_LINE_LENGTH ? QString::fromLatin1(line.trimmed()) : QString();
}

bool BondedDevice::IsDriverIn(const QStringList &lines)
{
    // Printed for a module and for a driver that is built in; an error prints nothing here.
    return std::any_of(lines.begin(), lines.end(),
                       [](const QString &line) { return line.startsWith(QLatin1String("filename:")); });
}

bool BondedDevice::isBondingEnabled() const
{
    ZebXmlConfig store;
    return IsNetworkSettingOn(store, QStringLiteral("bonding_enable"));
}

QString BondedDevice::GetDesiredMode() const
{
    ZebXmlConfig store;
    return QString::number(NetworkSetting(store, QStringLiteral("bonding_mode")).toInt());
}

bool BondedDevice::isAvailable()
{
    // Asked each time: a driver may be installed while the daemon runs.
    driverFound = IsDriverIn(Utils::Execute(QStringLiteral("modinfo"), {QStringLiteral("bonding")}, false));
    enableChecked = true;
    return driverFound;
}

void BondedDevice::EnableBonding()
{
    Log(Level::NOTICE) << "Renaming" << renaming << "BringUp" << bringUp << "usePrimary" << usePrimary;
    if (!isAvailable())
        Log(Level::NOTICE) << "Bonding driver was not found";
    if (bondingActive || !slaves.isEmpty()) {
        DisableBonding();
        if (dhcpProcess->state() != QProcess::NotRunning)
            Log(Level::TRACE) << "Waiting for dhclient to finish";
        WaitForDhclient();
    }
    slaves = EthernetNames();
    ReleaseDhclient();
    TakeOverWiredName();
    LoadDriver();
    const bool isBondMade = MakeBond();
    const QString savedMac = AddressIn(PlatformFile::Read(SAVED_MAC_FILE).value_or(QByteArray()));
    if (!savedMac.isEmpty())
        Ip({QStringLiteral("link"), QStringLiteral("set"), wiredName, QStringLiteral("address"), savedMac});
    SetLink(wiredName, {QStringLiteral("up")});
    if (bringUp) {
        SetLink(wiredName, {QStringLiteral("up")});
        StartDhclientInit(wiredName);
    }
    bondingActive = true;
    if (savedMac.isEmpty())
        SaveMac(wiredName);
    if (!isBondMade && renaming)
        GiveNameBack();
}

/// No bond was made, as without its driver: the adapter has its name again, where it had another one, and the
/// device keeps its wire. The next discovery tries again.
void BondedDevice::GiveNameBack()
{
    if (InterfaceExists(wiredName) || slaves.isEmpty())
        return;
    if (InterfaceExists(renamedName)) {
        RenameAlsoWhileUp(wiredName, renamedName);
        ReplaceName(slaves, renamedName, wiredName);
    }
    Log(Level::NOTICE) << "BondedDevice::EnableBonding - there is no bond, going on without one on"
                       << slaves.join(QLatin1Char(' '));
    bondingActive = false;
}

void BondedDevice::TakeOverWiredName()
{
    if (!renaming) {
        wiredName = bondName;
        return;
    }
    wiredName = WIRED_NAME;
    renamedName = wiredName + QStringLiteral("-swap");
    const bool isTakenDown = RenameAlsoWhileUp(renamedName, wiredName);
    Rename(wiredName, bondName);
    if (isTakenDown) // A port keeps no address, which would draw the traffic of the bond's network.
        Ip({QStringLiteral("addr"), QStringLiteral("flush"), QStringLiteral("dev"), renamedName});
    bondName = wiredName;
    ReplaceName(slaves, wiredName, renamedName);
}

void BondedDevice::LoadDriver()
{
    QStringList arguments = {QStringLiteral("bonding"), QStringLiteral("mode=") + GetDesiredMode(),
                             QStringLiteral("miimon=100")};
    if (usePrimary)
        arguments << QStringLiteral("primary=") + (slaves.isEmpty() ? renamedName : slaves.first());
    Utils::Execute(QStringLiteral("modprobe"), arguments, false);
}

bool BondedDevice::MakeBond()
{
    const bool isMade = Ip({QStringLiteral("link"), QStringLiteral("add"), bondName, QStringLiteral("type"),
                            QStringLiteral("bond")});
    for (const QString &slave : qAsConst(slaves)) {
        SetLink(slave, {QStringLiteral("down")});
        SetLink(slave, {QStringLiteral("master"), bondName});
    }
    return isMade;
}

QStringList BondedDevice::BondNames()
{
    return ReadBondNames().simplified().split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

bool BondedDevice::IsBondMissing()
{
    return QFileInfo::exists(BONDING_MASTERS) && BondNames().isEmpty();
}

void BondedDevice::DisableBonding()
{
    Log(Level::NOTICE) << "Renaming" << renaming << "BringUp" << bringUp;
    // Taken as lines, of which there is one: kept as it is.
    const QStringList lines = ReadBondNames().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    if (!lines.isEmpty()) {
        wiredName = lines.first();
        TearDown();
    }
    // Loading the driver made this one, whatever ours is called.
    Ip({QStringLiteral("link"), QStringLiteral("delete"), QStringLiteral("bond0"), QStringLiteral("type"),
        QStringLiteral("bond")});
    if (bringUp && !slaves.isEmpty())
        SetLink(slaves.first(), {QStringLiteral("up")});
    bondingActive = false;
    if (InterfaceExists(swapName)) {
        RenameAlsoWhileUp(WIRED_NAME, swapName);
        ReplaceName(slaves, swapName, WIRED_NAME);
    }
}

void BondedDevice::TearDown()
{
    ReleaseDhclient();
    SetLink(wiredName, {QStringLiteral("down")});
    if (renaming) {
        Rename(bondName, wiredName);
        Rename(wiredName, renamedName);
    }
    for (const QString &slave : qAsConst(slaves))
        SetLink(slave, {QStringLiteral("nomaster")});
    Utils::Execute(QStringLiteral("modprobe"), {QStringLiteral("-r"), QStringLiteral("bonding")}, false);
}

// The driver lets go of a port whose adapter is pulled and does not take it back by itself.

bool BondedDevice::AdoptPorts()
{
    const QStringList bonds = BondNames();
    const QStringList loose = bondingActive && !bonds.isEmpty() ? LoosePorts() : QStringList();
    std::map<QString, RetryPause> seen;
    for (const QString &port : loose) {
        if (bonds.contains(port))
            continue;
        const auto known = loosePorts.find(port);
        if (known == loosePorts.end()) {
            seen.emplace(port, RetryPause(RetryPause::First::AT_ONCE));
            continue;
        }
        if (known->second.IsDue(RetryPause::Time::clock::now())) {
            AdoptPort(port, bonds.contains(wiredName) ? wiredName : bonds.first());
            known->second.NoteAttempt(RetryPause::Time::clock::now());
        }
        seen.emplace(port, known->second);
    }
    loosePorts.swap(seen);
    return !loosePorts.empty();
}

void BondedDevice::AdoptPort(const QString &port, const QString &bond)
{
    Log(Level::NOTICE) << "BondedDevice::AdoptPort -" << port << "becomes a port of" << bond;
    if (!slaves.contains(port))
        slaves << port;
    SetLink(port, {QStringLiteral("down")});
    SetLink(port, {QStringLiteral("master"), bond});
}

void BondedDevice::StartDhclientInit(const QString &interfaceName)
{
    WaitForDhclient();
    dhclientFinished = false;
    pollTimer->start(TICK_INTERVAL);
    dhcpProcess->Start(DHCLIENT, {interfaceName});
    if (!dhcpProcess->waitForStarted(PROGRAM_TIME_LIMIT_MS)) {
        // It will not end either, and there is nothing to poll for.
        pollTimer->stop();
        Log(Level::NOTICE) << "BondedDevice::StartDhclientInit" << DHCLIENT << "cannot be started on"
                           << interfaceName;
    }
    Log(Level::TRACE) << "Calling" << DHCLIENT << interfaceName;
}

void BondedDevice::WaitForDhclient()
{
    if (dhcpProcess->state() != QProcess::NotRunning)
        dhcpProcess->waitForFinished(PROGRAM_TIME_LIMIT_MS);
}

void BondedDevice::ReleaseDhclient()
{
    Utils::Execute(DHCLIENT, {QStringLiteral("-r")}, false);
}

void BondedDevice::SetDhclient()
{
    ReleaseDhclient();
    if (bondingActive)
        StartDhclientInit(wiredName);
    else if (!slaves.isEmpty())
        StartDhclientInit(slaves.first());
}

QString BondedDevice::getBondedDeviceActiveSlaveFileName() const
{
    return SYS_NET + bondName + QStringLiteral("/bonding/active_slave");
}

void BondedDevice::onStartProcessFinished(int exitCode)
{
    Log(Level::TRACE) << "Process exitCode" << exitCode;
    dhclientFinished = true;
}

void BondedDevice::onMyTimerTrip()
{
    if (!dhclientFinished)
        return;
    emit dhclientReady();
    pollTimer->stop();
    dhclientFinished = false;
}
