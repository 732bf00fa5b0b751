// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "bondeddevice.h"
#include "corvipeer.h"
#include "fakesysnet.h"
#include "interfacekind.h"
#include "logging.h"
#include "modinfo.h"

#include <QCoreApplication>
#include <QFile>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>

#include <net/if.h>

namespace {

constexpr char TEXT_END = '\xff';
const QString EVENT_FILE = QStringLiteral("/tmp/dhcp_event");

FakeSysNet *sysNet = nullptr;
CorviPeer *corvi = nullptr;

void Require(bool isTrue)
{
    if (!isTrue)
        std::abort();
}

/// What the kernel allows as a name (dev_valid_name() in net/core/dev.c), in ASCII: others cannot be told
/// from each other in every locale.
bool IsInterfaceName(const QByteArray &name)
{
    return !name.isEmpty() && name.size() < IFNAMSIZ && name != "." && name != ".." &&
           std::all_of(name.begin(), name.end(), [](char c) {
               const auto code = static_cast<unsigned char>(c);
               return code < 0x80 && code != 0 && c != '/' && c != ':' && !std::isspace(code);
           });
}

/// The events' text is read whole, and one file may name several devices.
void TryDhcpEvent(const QByteArray &text)
{
    const std::pair<NetworkDevice *, bool> expected[] = {
        {corvi->WiredDevice(), text.contains("eth")},
        {corvi->WirelessDevice(), text.contains("wlan") || text.contains("mlan")},
        {corvi->ModemDevice(), text.contains("wwan")},
    };
    for (const auto &device : expected) {
        device.first->ipAddress = QStringLiteral("10.0.0.5");
        device.first->isUp = true;
        device.first->ipAnnounced = false;
    }
    TestSupport::WriteFile(EVENT_FILE, text);

    corvi->CheckDhcpEvent();

    Require(!QFile::exists(EVENT_FILE));
    for (const auto &device : expected)
        Require(device.first->ipAnnounced == device.second);
}

void RequireKind(const QString &name, InterfaceKind kind)
{
    const bool isRadio = name.startsWith(QLatin1String("wlan")) || name.startsWith(QLatin1String("mlan"));
    Require((kind == InterfaceKind::Wireless) == isRadio);
    Require((kind == InterfaceKind::Modem) == name.startsWith(QLatin1String("wwan")));
}

void RequireType(const QByteArray &text, int type)
{
    const QByteArray line = text.left(text.indexOf('\n')).trimmed();
    const bool isPlain = !line.isEmpty() && line.size() < 10 &&
                         std::all_of(line.begin(), line.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (isPlain)
        Require(type == std::atoi(line.constData()));
    Require(HasHardware(type) == (type <= 255));
}

/// A bond that is on adopts every adapter with an Ethernet name that has no master, unless it is a bond
/// itself.
void RequireBonding(const QByteArray &name, const QByteArray &uevent, const QByteArray &masters)
{
    BondedDevice bond(nullptr);
    Require(bond.isBondingActive());
    Require(bond.getSlaves().contains(QString::fromLatin1(name)) == name.startsWith('e'));
    const bool isLoose = bond.AdoptPorts();
    Require(!isLoose || (name.startsWith('e') && !uevent.contains("DEVTYPE=") && !masters.isEmpty()));
}

void TryInterface(const QByteArray &name, const QByteArray &type, const QByteArray &uevent,
                  const QByteArray &masters)
{
    const QString text = QString::fromLatin1(name);
    sysNet->Write(text + QStringLiteral("/type"), type);
    sysNet->Write(text + QStringLiteral("/uevent"), uevent);
    sysNet->Write(text + QStringLiteral("/device/uevent"), uevent);
    sysNet->Write(QStringLiteral("bonding_masters"), masters);

    const int linkType = ReadLinkType(text);
    RequireType(type, linkType);
    RequireKind(text, KindOfInterface(text));
    const QString driver = ModInfo::GetDeviceType(text);
    Require(driver == driver.trimmed() && !driver.contains(QLatin1Char('\n')));
    RequireBonding(name, uevent, masters);
    Require(!corvi->IsTaken(text) || HasHardware(linkType));

    sysNet->Remove(text);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static QCoreApplication application(*argc, *argv);
    Logging::GetInstance(1, false);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    // A bond that is on and stays so, and a device of each kind for the events.
    sysNet = new FakeSysNet;
    sysNet->Write(QStringLiteral("bonding_masters"), "bond0\n");
    TestSupport::WriteNetworks("<bonding_enable>true</bonding_enable>");
    corvi = new CorviPeer;
    const QStringList names = {QStringLiteral("eth0"), QStringLiteral("wlan0"), QStringLiteral("wwan0")};
    for (const QString &name : names)
        sysNet->Write(name + QStringLiteral("/type"), "1\n");
    corvi->Tick(DISCOVERED);
    corvi->AdoptWired(names.at(0));
    corvi->PickWireless(names.at(1));
    corvi->AdoptModem(names.at(2));
    for (const QString &name : names)
        sysNet->Remove(name);
    Require(corvi->WiredDevice() && corvi->WirelessDevice() && corvi->ModemDevice());
    return 0;
}

/// Any bytes as what the kernel tells of an interface under any name, and as what the DHCP client leaves in
/// its event file. The inputs are texts with 0xff between them: the event file, the interface's name, its
/// type, its uevent, the names of the bonds.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QList<QByteArray> texts =
        QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)).split(TEXT_END);
    TryDhcpEvent(texts.first());
    if (IsInterfaceName(texts.value(1)))
        TryInterface(texts.value(1), texts.value(2), texts.value(3), texts.value(4));
    return 0;
}
