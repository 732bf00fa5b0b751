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
#include <QDir>
#include <QFileInfo>

#include <cstdlib>
#include <map>

namespace {

const QString DEFAULT_SCEPDIR = QStringLiteral("/tmp/config/files/scep");
const QString DEFAULT_SCEPKEY = DEFAULT_SCEPDIR + QStringLiteral("/scep.key");
const QString SCEP_CA0 = QStringLiteral("/etc/ssl/certs/scepCA-0.crt");
const QString SCEP_CA1 = QStringLiteral("/etc/ssl/certs/scepCA-1.crt");
const QString SCEP_CA2 = QStringLiteral("/etc/ssl/certs/scepCA-2.crt");

QString Fingerprint(const QString &properties)
{
    return QLatin1String(QCryptographicHash::hash(properties.toLatin1(), QCryptographicHash::Md5).toHex());
}

bool IsUnsecured(const QString &mode)
{
    return mode.toLower() == QLatin1String("unsecured");
}

bool IsUnset(const QString &certificate)
{
    return certificate.isEmpty() || certificate == QLatin1String("none");
}

/// The certificate that the SCEP client fetched for this stored value; empty when the value itself is to be
/// used.
QString ScepClientCertificate(const QString &stored)
{
    const QDir folder(DEFAULT_SCEPDIR);
    if (IsUnset(stored)) {
        const QStringList found = folder.entryList({QStringLiteral("*.crt")}, QDir::Files, QDir::Name);
        return found.isEmpty() ? QString() : folder.filePath(found.first());
    }
    if (QFileInfo(stored).isFile() || stored.startsWith(QLatin1Char('/')))
        return QString();
    const QString path = QStringLiteral("%1/%2").arg(DEFAULT_SCEPDIR, stored);
    return QFileInfo(path).isFile() ? path : QString();
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

bool NamedNetwork::Load(const QString &networkName, bool isWireless)
{
    // Kept first: the argument may be a part of the record that goes.
    name = networkName;
    propsHash = QString();
    netConfig = std::make_unique<ZebNetConfig>(nullptr);
    netConfig->Load(name, false);
    wireless = isWireless;

    const QString properties = Properties();
    // Names another class, as the lines of ApplyScepDefaults() do: kept as it is.
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
    if (wireless || !IsUnsecured(netConfig->securityMode))
        BuildBlock();

    QStringList problems = ModeProblems();
    if (!wpaCfg.Problem().isEmpty()) {
        // In the file it would cost every other network as well.
        problems << wpaCfg.Problem() + QStringLiteral(", the network is left out");
        wpaCfg.Clear();
    }
    ReportProblems(problems);
}

void NamedNetwork::BuildBlock()
{
    if (netConfig->scep)
        ApplyScepDefaults();
    if (wireless)
        BuildWireless();
    else
        BuildWired();
}

QStringList NamedNetwork::ModeProblems() const
{
    const SecurityMode *known = FindSecurityMode(netConfig->securityMode);
    const QString nameProblem = known ? known->NameProblem(wireless) : QString();
    return nameProblem.isEmpty() ? QStringList() : QStringList{nameProblem};
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

void NamedNetwork::ApplyScepDefaults()
{
    if (IsUnset(netConfig->privateKey)) {
        netConfig->privateKey = DEFAULT_SCEPKEY;
        Log(Level::TRACE) << "NetworkDevice::Associate setting default scep key";
    }

    if (IsUnset(netConfig->caCert) || netConfig->caCert == QLatin1String("default")) {
        for (const QString &path : {SCEP_CA2, SCEP_CA1, SCEP_CA0}) {
            if (!QFileInfo(path).isFile())
                continue;
            netConfig->caCert = path;
            Log(Level::TRACE) << "NetworkDevice::Associate setting default CA";
            break;
        }
    }

    const QString clientCert = ScepClientCertificate(netConfig->clientCert);
    if (!clientCert.isEmpty()) {
        netConfig->clientCert = clientCert;
        Log(Level::TRACE) << "NetworkDevice::Associate setting client cert " << clientCert;
    }
}

void NamedNetwork::BuildWireless()
{
    Log(Level::TRACE) << "NamedNetwork::BuildNetworkOptions -- Check if Wireless";
    Log(Level::TRACE) << "NamedNetwork::BuildNetworkOptions -- Start building Wireless config";
    ConfigureWriter();

    const ZebNetConfig &c = *netConfig;
    const QString &mode = c.securityMode;
    if (mode == QLatin1String("wep"))
        wpaCfg.Wep(false, c.wepKey);
    else if (mode == QLatin1String("wep_shared"))
        wpaCfg.Wep(true, c.wepKey);
    else if (mode == QLatin1String("wpa"))
        wpaCfg.WpaPersonal(c.passphrase);
    else if (mode == QLatin1String("sae"))
        wpaCfg.Wpa3Sae(c.passphrase);
    else if (mode == QLatin1String("wpa2_3"))
        wpaCfg.Wpa2Psk3Sae(c.passphrase);
    else if (mode == QLatin1String("eap_tls"))
        BuildEapTls();
    else if (mode == QLatin1String("eap_leap"))
        wpaCfg.EapLeap(c.identity, c.password, c.cipher);
    else if (mode == QLatin1String("eap_fast"))
        wpaCfg.EapFast(c.identity, c.password, c.cipher);
    else if (mode == QLatin1String("peap_gtc"))
        wpaCfg.PeapGtc(c.identity, c.password);
    else if (mode == QLatin1String("peap_mschapv2"))
        wpaCfg.PeapMschapv2(c.identity, c.password, c.caCert);
    else
        wpaCfg.Unsecured();
}

void NamedNetwork::ConfigureWriter()
{
    const ZebNetConfig &c = *netConfig;
    wpaCfg.SetSSID(c.ssid, c.scanSsid);
    const bool useApScan = IsNetworkSettingOn(*xmlConfig, QStringLiteral("UseApScan"));
    const bool filterSsids = IsNetworkSettingOn(*xmlConfig, QStringLiteral("FilterSsids"));
    const bool addWpsSaeCred = IsNetworkSettingOn(*xmlConfig, QStringLiteral("AddWpsSaeCred"));
    CheckWirelessDriver();

    wpaCfg.SetPriority(c.priority);
    wpaCfg.SetPacFile(c.pacFile);
    wpaCfg.SetBgParameters(c.useBgScan, c.bgScanShortInterval, c.bgScanLongInterval, c.bgScanSignal);
    WpaSupplicantCfg::_useApScan = useApScan;
    WpaSupplicantCfg::SetFilterSsid(filterSsids);
    // Every wireless block clears this one again as it is begun.
    WpaSupplicantCfg::_fixWpa3 = addWpsSaeCred;
    wpaCfg.SetFrequencyBand(c.band);
    Log(Level::TRACE) << "UseBgSettings=" << c.useBgScan << "UseApScan=" << useApScan
                      << "FilterSsids=" << filterSsids << "AddWpsSaeCred=" << addWpsSaeCred
                      << "useNewDriver=" << useNewDriver;
}

void NamedNetwork::BuildEapTls()
{
    const ZebNetConfig &c = *netConfig;
    WpaSupplicantCfg::SetAllowWeakCerts(c.allowWeakCerts);
    Log(Level::TRACE) << "NamedNetwork::BuildNetworkOptions -- CACert" << c.caCert << "client cert"
                      << c.clientCert;
    wpaCfg.EapTls(c.identity, c.caCert, c.clientCert, c.privateKey, c.privateKeyPassword, c.cipher);
    RestartScepDaemon();
}

void NamedNetwork::BuildWired()
{
    const ZebNetConfig &c = *netConfig;
    wpaCfg.SetSSID(QString(), false);
    if (c.securityMode == QLatin1String("wired_tls")) {
        WpaSupplicantCfg::SetAllowWeakCerts(c.allowWeakCerts);
        wpaCfg.WiredTls(c.identity, c.caCert, c.clientCert, c.privateKey, c.privateKeyPassword);
        RestartScepDaemon();
    } else if (c.securityMode == QLatin1String("wired_peap")) {
        wpaCfg.WiredPeap(c.identity, c.password, c.caCert);
    }
}

void NamedNetwork::RestartScepDaemon()
{
    if (!netConfig->scep)
        return;
    // One fixed shell line; the daemon renews the certificates in the background from here on.
    if (std::system("killall scepd; sleep 1; scepd -d &") == -1)
        log->LogMessage(Level::NOTICE, QStringLiteral("No shell to restart the SCEP daemon"), false);
}
