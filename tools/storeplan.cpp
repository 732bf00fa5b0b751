// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "storeplan.h"

#include "interfacekind.h"
#include "networkblock.h"
#include "networknames.h"
#include "paths.h"
#include "securitymodes.h"
#include "supplicantreading.h"
#include "wpasupplicantcfg.h"
#include "zebnetconfig.h"
#include "zebproperties.h"

#include <QDir>

#include <algorithm>
#include <variant>

namespace {

bool IsOn(const ZebDocument &document, const char *setting)
{
    return document.settings.value(QLatin1String(setting)) == QLatin1String("true");
}

/// A value of the same form for each secret, which the supplicant takes as it would take the secret.
void MaskSecrets(ZebNetConfig &config)
{
    for (const ZebProperty &property : ZebProperties::All()) {
        const auto *const member = std::get_if<QString ZebNetConfig::*>(&property.member);
        if (property.isSecret && member && !(config.*(*member)).isEmpty())
            config.*(*member) = QStringLiteral("********");
    }
    config.wepKey = QStringLiteral("\"*****\"");
    // The form of a hash, as it is written.
    config.password = QStringLiteral("hash:") + QString(32, QLatin1Char('0'));
}

QString Addresses(const ZebNetConfig &config)
{
    if (!config.staticIp)
        return QStringLiteral("DHCP");
    const QString gateway = config.gateway.isEmpty() ? QStringLiteral("no gateway")
                                                     : QString(QStringLiteral("gateway ") + config.gateway);
    return QStringLiteral("%1, netmask %2, %3").arg(config.ipAddress, config.netmask, gateway);
}

PlannedNetwork Plan(const ZebNetwork &network, const WirelessSettings &settings)
{
    ZebNetConfig config(nullptr);
    ZebProperties::Fill(config, network);
    MaskSecrets(config);
    PlannedNetwork planned;
    planned.name = config.name;
    planned.securityMode = config.securityMode;
    planned.addresses = Addresses(config);
    config.securityMode = SecurityModes.value(config.securityMode, config.securityMode);
    WpaSupplicantCfg writer(nullptr);
    planned.problems = NetworkBlock(writer, config, !HasWiredName(config.name), settings).Build();
    planned.block = writer.Block();
    return planned;
}

/// A port authenticates as its first network says; a radio is always the supplicant's.
bool UsesSupplicant(const InterfacePlan &plan, bool isWireless)
{
    if (plan.networks.isEmpty())
        return false;
    const QString mode = plan.networks.constFirst().securityMode;
    return isWireless || !IsUnsecuredMode(mode);
}

/// What an interface is, where no network applies to it; empty where networks do.
QString KindWithoutNetworks(const QString &interfaceName, const ZebDocument &document)
{
    if (const int type = ReadLinkType(interfaceName); !HasHardware(type))
        return QStringLiteral("left alone, a link without hardware (type %1)").arg(type);
    const InterfaceKind kind = KindOfInterface(interfaceName);
    if (kind == InterfaceKind::Modem)
        return QStringLiteral("modem, connected by its own tool");
    const bool isPort = IsOn(document, "bonding_enable") && kind == InterfaceKind::Wired &&
                        HasEthernetName(interfaceName) && interfaceName != QLatin1String("eth0");
    return isPort ? QStringLiteral("port of the bond eth0") : QString();
}

InterfacePlan Plan(const QString &interfaceName, const ZebDocument &document,
                   const WirelessSettings &settings)
{
    InterfacePlan plan;
    plan.interfaceName = interfaceName;
    plan.kind = KindWithoutNetworks(interfaceName, document);
    if (!plan.kind.isEmpty())
        return plan;
    const bool isWireless = KindOfInterface(interfaceName) == InterfaceKind::Wireless;
    plan.takesNetworks = true;
    plan.kind = isWireless ? QStringLiteral("wireless") : QStringLiteral("wired");
    QStringList names;
    for (const QString &name : document.networkNames) {
        if (IsForInterface(name, interfaceName, isWireless))
            names << name;
    }
    SortForInterface(names, interfaceName, isWireless);
    for (const QString &name : qAsConst(names))
        plan.networks.append(Plan(document.networks.value(name), settings));
    plan.usesSupplicant = UsesSupplicant(plan, isWireless);
    return plan;
}

QStringList Lines(const InterfacePlan &plan)
{
    QStringList lines;
    for (const PlannedNetwork &network : plan.networks)
        lines += network.block;
    return lines;
}

} // namespace

bool InterfacePlan::HasProblems() const
{
    return (complaints && !complaints->isEmpty()) ||
           std::any_of(networks.begin(), networks.end(),
                       [](const PlannedNetwork &network) { return !network.problems.isEmpty(); });
}

QStringList InterfacesHere()
{
    return QDir(SYS_NET).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
}

StorePlan PlanStore(const ZebDocument &document, QStringList interfaceNames)
{
    interfaceNames.sort();
    WirelessSettings settings;
    settings.useApScan = IsOn(document, "UseApScan");
    settings.filterSsids = IsOn(document, "FilterSsids");
    // A mask needs no hash.
    WpaSupplicantCfg::_useHashedPsk = false;
    StorePlan plans;
    for (const QString &interfaceName : qAsConst(interfaceNames))
        plans.append(Plan(interfaceName, document, settings));
    // All blocks are built before any file is written: their switches are those of all files.
    for (InterfacePlan &plan : plans) {
        if (plan.usesSupplicant)
            plan.complaints = SupplicantComplaints(WpaSupplicantCfg::FileText(Lines(plan)));
    }
    return plans;
}
