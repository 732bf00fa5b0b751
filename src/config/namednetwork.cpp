// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "namednetwork.h"

#include "logging.h"
#include "networknames.h"
#include "networksetting.h"
#include "paths.h"
#include "platformfile.h"
#include "reportonce.h"

#include <QCryptographicHash>

#include <cstdlib>
#include <map>

namespace {

QString Fingerprint(const QString &properties)
{
    return QLatin1String(QCryptographicHash::hash(properties.toLatin1(), QCryptographicHash::Md5).toHex());
}

} // namespace

NamedNetwork::NamedNetwork(const QString &networkName, bool wired, QObject *parent)
    : QObject(parent),
      name(networkName),
      wpaCfg(nullptr),
      log(Logging::GetInstance(Logging::KEEP_LEVEL, false)),
      xmlConfig(std::make_unique<ZebXmlConfig>())
{
    Load(networkName, IsWirelessName(networkName, wired));
}

NamedNetwork::~NamedNetwork() = default;

bool NamedNetwork::IsWirelessName(const QString &networkName, bool wired)
{
    return !wired && !HasWiredName(networkName);
}

void NamedNetwork::DeriveKeys(const QStringList &networkNames)
{
    QVector<WpaSupplicantCfg::Passphrase> passphrases;
    for (const QString &networkName : networkNames) {
        ZebNetConfig stored(nullptr);
        stored.Load(networkName, false);
        const SecurityMode *const mode = FindSecurityMode(stored.securityMode);
        if (mode && mode->kind == ModeKind::Psk)
            passphrases.append({stored.ssid, stored.passphrase});
    }
    // A single one is derived where it is needed.
    if (passphrases.size() > 1)
        WpaSupplicantCfg::DeriveKeys(passphrases);
}

bool NamedNetwork::Load(const QString &networkName, bool isWireless)
{
    // Kept first: the argument may be a part of the record that goes.
    name = networkName;
    propsHash = QString();
    netConfig = std::make_unique<ZebNetConfig>(nullptr);
    netConfig->Load(name, false);
    wireless = isWireless;

    const QString properties = Properties();
    // Names another class: kept as it is.
    Log(Level::TRACE) << "NetworkDevice::Load props -- " << properties;
    propsHash = Fingerprint(properties);
    secured = !netConfig->securityMode.toLower().startsWith(QLatin1String("unsecure"));
    BuildNetworkOptions();
    return true;
}

QString NamedNetwork::Properties() const
{
    return netConfig->toString();
}

bool NamedNetwork::ReloadRequired() const
{
    ZebNetConfig stored(nullptr);
    stored.Load(name, false);
    return Fingerprint(stored.toString()) != propsHash;
}

void NamedNetwork::TranslateSecurityMode()
{
    const QString displayName = netConfig->securityMode;
    const auto found = SecurityModes.constFind(displayName);
    const bool isKnown = found != SecurityModes.constEnd();
    if (isKnown)
        netConfig->securityMode = *found;

    // One item, without a blank before its end: put together only where it is written.
    Log line(Level::TRACE);
    if (line.IsEnabled())
        line << QStringLiteral("Security mode ") + displayName +
                    (isKnown ? QStringLiteral(" modified to ") + *found : QStringLiteral(" NOT FOUND"));
}

bool NamedNetwork::CheckWirelessDriver()
{
    useNewDriver = IsNetworkSettingOn(*xmlConfig, QStringLiteral("useNewDriver")) ||
                   PlatformFile::Exists(USE_NL_DRIVER_FLAG);
    return useNewDriver;
}

void NamedNetwork::BuildNetworkOptions()
{
    wpaCfg.Clear();
    if (!IsSecurityModeKey(netConfig->securityMode))
        TranslateSecurityMode();
    NetworkBlock block(wpaCfg, *netConfig, wireless, wireless ? ReadWirelessSettings() : WirelessSettings());
    const QStringList problems = block.Build();
    if (block.UsesScep())
        RestartScepDaemon();
    ReportProblems(problems);
}

WirelessSettings NamedNetwork::ReadWirelessSettings()
{
    WirelessSettings settings;
    settings.useApScan = IsNetworkSettingOn(*xmlConfig, QStringLiteral("UseApScan"));
    settings.filterSsids = IsNetworkSettingOn(*xmlConfig, QStringLiteral("FilterSsids"));
    settings.addWpsSaeCred = IsNetworkSettingOn(*xmlConfig, QStringLiteral("AddWpsSaeCred"));
    settings.useNewDriver = CheckWirelessDriver();
    return settings;
}

void NamedNetwork::ReportProblems(const QStringList &problems) const
{
    // Every rescan builds the networks anew: what was last told of a network outlives its object.
    static std::map<QString, ReportOnce> reports;
    if (problems.isEmpty()) {
        reports.erase(name);
        return;
    }
    const auto telling =
        reports[name].Tell(propsHash + problems.join(QLatin1Char(' ')), ReportOnce::Time::clock::now());
    const QString summary = telling.Summary();
    for (const QString &problem : problems)
        Log(telling.level) << "NamedNetwork::BuildNetworkOptions -- network" << name + QLatin1Char(':')
                           << (summary.isEmpty() ? problem : problem + QLatin1Char(' ') + summary);
}

void NamedNetwork::RestartScepDaemon()
{
    // One fixed shell line; the daemon renews the certificates in the background from here on.
    if (std::system("killall scepd; sleep 1; scepd -d &") == -1)
        log->LogMessage(Level::NOTICE, QStringLiteral("No shell to restart the SCEP daemon"), false);
}
