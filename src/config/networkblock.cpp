// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "networkblock.h"

#include "logging.h"
#include "securitymodes.h"
#include "wpasupplicantcfg.h"
#include "zebnetconfig.h"

#include <QDir>
#include <QFileInfo>

namespace {

const QString DEFAULT_SCEPDIR = QStringLiteral("/tmp/config/files/scep");
const QString DEFAULT_SCEPKEY = DEFAULT_SCEPDIR + QStringLiteral("/scep.key");
const QString SCEP_CA0 = QStringLiteral("/etc/ssl/certs/scepCA-0.crt");
const QString SCEP_CA1 = QStringLiteral("/etc/ssl/certs/scepCA-1.crt");
const QString SCEP_CA2 = QStringLiteral("/etc/ssl/certs/scepCA-2.crt");

// The lines below that say "NetworkDevice::Associate" or "NamedNetwork::" name another class: kept as is.

/// The certificate that the SCEP client fetched for this stored value; empty when the value itself is to be
/// used.
QString ScepClientCertificate(const QString &stored)
{
    const QDir folder(DEFAULT_SCEPDIR);
    if (NamesNoFile(stored)) {
        const QStringList found = folder.entryList({QStringLiteral("*.crt")}, QDir::Files, QDir::Name);
        return found.isEmpty() ? QString() : folder.filePath(found.first());
    }
    if (QFileInfo(stored).isFile() || stored.startsWith(QLatin1Char('/')))
        return QString();
    const QString path = QStringLiteral("%1/%2").arg(DEFAULT_SCEPDIR, stored);
    return QFileInfo(path).isFile() ? path : QString();
}

} // namespace

NetworkBlock::NetworkBlock(WpaSupplicantCfg &blockWriter, ZebNetConfig &fromDefinition, bool isForRadio,
                           const WirelessSettings &wirelessSettings)
    : writer(blockWriter), definition(fromDefinition), isWireless(isForRadio), settings(wirelessSettings)
{
}

QStringList NetworkBlock::Build()
{
    if (!isWireless && IsUnsecuredMode(definition.securityMode))
        return {};
    QStringList problems = ModeProblems();
    if (definition.scep)
        ApplyScepDefaults();
    if (isWireless)
        BuildWireless();
    else
        BuildWired();
    if (!writer.Problem().isEmpty()) {
        // In the file it would cost every other network as well.
        problems << writer.Problem() + QStringLiteral(", the network is left out");
        writer.Clear();
    }
    return problems;
}

bool NetworkBlock::UsesScep() const
{
    const QLatin1String certificateMode(isWireless ? "eap_tls" : "wired_tls");
    return definition.scep && definition.securityMode == certificateMode;
}

QStringList NetworkBlock::ModeProblems() const
{
    const SecurityMode *known = FindSecurityMode(definition.securityMode);
    const QString nameProblem = known ? known->NameProblem(isWireless) : QString();
    return nameProblem.isEmpty() ? QStringList() : QStringList{nameProblem};
}

void NetworkBlock::ApplyScepDefaults()
{
    if (NamesNoFile(definition.privateKey)) {
        definition.privateKey = DEFAULT_SCEPKEY;
        Log(Level::TRACE) << "NetworkDevice::Associate setting default scep key";
    }

    if (NamesNoFile(definition.caCert) || definition.caCert == QLatin1String("default")) {
        for (const QString &path : {SCEP_CA2, SCEP_CA1, SCEP_CA0}) {
            if (!QFileInfo(path).isFile())
                continue;
            definition.caCert = path;
            Log(Level::TRACE) << "NetworkDevice::Associate setting default CA";
            break;
        }
    }

    const QString clientCert = ScepClientCertificate(definition.clientCert);
    if (!clientCert.isEmpty()) {
        definition.clientCert = clientCert;
        Log(Level::TRACE) << "NetworkDevice::Associate setting client cert " << clientCert;
    }
}

void NetworkBlock::BuildWireless()
{
    Log(Level::TRACE) << "NamedNetwork::BuildNetworkOptions -- Check if Wireless";
    Log(Level::TRACE) << "NamedNetwork::BuildNetworkOptions -- Start building Wireless config";
    ConfigureWriter();

    const ZebNetConfig &c = definition;
    const QString &mode = c.securityMode;
    if (mode == QLatin1String("wep"))
        writer.Wep(false, c.wepKey);
    else if (mode == QLatin1String("wep_shared"))
        writer.Wep(true, c.wepKey);
    else if (mode == QLatin1String("wpa"))
        writer.WpaPersonal(c.passphrase);
    else if (mode == QLatin1String("sae"))
        writer.Wpa3Sae(c.passphrase);
    else if (mode == QLatin1String("wpa2_3"))
        writer.Wpa2Psk3Sae(c.passphrase);
    else if (mode == QLatin1String("eap_tls"))
        BuildEapTls();
    else if (mode == QLatin1String("eap_leap"))
        writer.EapLeap(c.identity, c.password, c.cipher);
    else if (mode == QLatin1String("eap_fast"))
        writer.EapFast(c.identity, c.password, c.cipher);
    else if (mode == QLatin1String("peap_gtc"))
        writer.PeapGtc(c.identity, c.password);
    else if (mode == QLatin1String("peap_mschapv2"))
        writer.PeapMschapv2(c.identity, c.password, c.caCert);
    else
        writer.Unsecured();
}

void NetworkBlock::ConfigureWriter()
{
    const ZebNetConfig &c = definition;
    writer.SetSSID(c.ssid, c.scanSsid);
    writer.SetPriority(c.priority);
    writer.SetPacFile(c.pacFile);
    writer.SetBgParameters(c.useBgScan, c.bgScanShortInterval, c.bgScanLongInterval, c.bgScanSignal);
    WpaSupplicantCfg::_useApScan = settings.useApScan;
    WpaSupplicantCfg::SetFilterSsid(settings.filterSsids);
    // Every wireless block clears this one again as it is begun.
    WpaSupplicantCfg::_fixWpa3 = settings.addWpsSaeCred;
    writer.SetFrequencyBand(c.band);
    Log(Level::TRACE) << "UseBgSettings=" << c.useBgScan << "UseApScan=" << settings.useApScan
                      << "FilterSsids=" << settings.filterSsids << "AddWpsSaeCred=" << settings.addWpsSaeCred
                      << "useNewDriver=" << settings.useNewDriver;
}

void NetworkBlock::BuildEapTls()
{
    const ZebNetConfig &c = definition;
    WpaSupplicantCfg::SetAllowWeakCerts(c.allowWeakCerts);
    Log(Level::TRACE) << "NamedNetwork::BuildNetworkOptions -- CACert" << c.caCert << "client cert"
                      << c.clientCert;
    writer.EapTls(c.identity, c.caCert, c.clientCert, c.privateKey, c.privateKeyPassword, c.cipher);
}

void NetworkBlock::BuildWired()
{
    const ZebNetConfig &c = definition;
    writer.SetSSID(QString(), false);
    if (c.securityMode == QLatin1String("wired_tls")) {
        WpaSupplicantCfg::SetAllowWeakCerts(c.allowWeakCerts);
        writer.WiredTls(c.identity, c.caCert, c.clientCert, c.privateKey, c.privateKeyPassword);
    } else if (c.securityMode == QLatin1String("wired_peap")) {
        writer.WiredPeap(c.identity, c.password, c.caCert);
    }
}
