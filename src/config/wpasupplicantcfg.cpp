// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wpasupplicantcfg.h"

#include "interfacekind.h"
#include "paths.h"
#include "platformfile.h"
#include "securefile.h"
#include "supplicantline.h"
#include "supplicantvalues.h"
#include "utils.h"

#include <QByteArray>
#include <QDebug>
#include <QDir>
#include <QHostInfo>

namespace {

const QString NO_SCAN_SSID_FLAG = QStringLiteral("/tmp/config/files/no_scan_ssid");
/// Lines for every wireless block, and for the head of the file.
const QString EXTRA_WIRELESS_OPTIONS = QStringLiteral("/tmp/config/files/wpa_supp_wifi");
const QString EXTRA_GLOBALS = QStringLiteral("/tmp/config/files/wpa_supp_conf");

void AppendSteps(QStringList &list, int firstMhz, int lastMhz, int stepMhz)
{
    for (int mhz = firstMhz; mhz <= lastMhz; mhz += stepMhz)
        list << QString::number(mhz);
}

QString Frequencies24Ghz()
{
    QStringList list;
    AppendSteps(list, 2412, 2472, 5);
    list << QStringLiteral("2484");
    return list.join(QLatin1Char(' '));
}

QString Frequencies5Ghz()
{
    QStringList list;
    AppendSteps(list, 5160, 5340, 20);
    AppendSteps(list, 5480, 5720, 20);
    AppendSteps(list, 5745, 5885, 20);
    return list.join(QLatin1Char(' '));
}

QString Frequencies6Ghz()
{
    QStringList list = {QStringLiteral("5935")};
    AppendSteps(list, 5955, 7115, 20);
    return list.join(QLatin1Char(' '));
}

/// Of the first wireless interface by name: a second source for where the tools do not say which is one.
QString MacFromSysfs()
{
    const QStringList names = QDir(SYS_NET).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString &name : names) {
        if (KindOfInterface(name) != InterfaceKind::Wireless)
            continue;
        const QByteArray address = LinkAttribute(name, "address");
        if (!address.isEmpty())
            return QString::fromLatin1(address);
    }
    return QString();
}

/// The platform's own settings for the head of the file; a comment marks that there are none.
QByteArray ExtraGlobals()
{
    const auto contents = PlatformFile::Read(EXTRA_GLOBALS);
    if (!contents)
        return "# Could not open " + EXTRA_GLOBALS.toUtf8() + '\n';
    QByteArray text;
    for (const QByteArray &line : contents->split('\n')) {
        if (!line.isEmpty())
            text += line + '\n';
    }
    return text;
}

} // namespace

bool WpaSupplicantCfg::_useHashedPsk = true;
bool WpaSupplicantCfg::_intel_sae_fix = true;
bool WpaSupplicantCfg::_filterSsids = true;
bool WpaSupplicantCfg::_useApScan = true;
bool WpaSupplicantCfg::_allowWeakCerts = true;
bool WpaSupplicantCfg::_fixWpa3 = false;
bool WpaSupplicantCfg::_iswireless = false;

WpaSupplicantCfg::WpaSupplicantCfg(QObject *parent) : QObject(parent) {}

void WpaSupplicantCfg::SetSSID(const QString &networkSsid, bool scan)
{
    ssid = networkSsid;
    scanSsid = scan;
    qDebug() << "WpaSupplicantCfg::SetSSID" << ssid;
}

void WpaSupplicantCfg::SetBgParameters(bool use, int a, int b, int c)
{
    useBgSettings = use;
    bgParam1 = a;
    bgParam2 = b;
    bgParam3 = c;
}

void WpaSupplicantCfg::Clear()
{
    Begin();
    block.clear();
}

void WpaSupplicantCfg::Begin()
{
    options.clear();
    problem.clear();
    hashedKey.reset();
}

void WpaSupplicantCfg::AddOption(const QString &key, const QString &value, bool quote)
{
    QString text = value;
    if (key == QLatin1String("identity")) {
        if (value.toLower() == QLatin1String("$hostname"))
            text = QHostInfo::localHostName();
        else if (value.toLower() == QLatin1String("$mac"))
            text = GetMac();
    }
    if (quote)
        text = QLatin1Char('"') + text + QLatin1Char('"');
    options << key + QLatin1Char('=') + text;
    if (problem.isEmpty())
        problem = SupplicantLineProblem(key, text);
}

void WpaSupplicantCfg::AddPriority(int value)
{
    AddOption(QStringLiteral("priority"), QString::number(value), false);
}

void WpaSupplicantCfg::StartWiredCfg()
{
    Begin();
    AddOption(QStringLiteral("key_mgmt"), QStringLiteral("IEEE8021X"), false);
    AddOption(QStringLiteral("eapol_flags"), QStringLiteral("0"), false);
}

void WpaSupplicantCfg::StartWirelessCfg()
{
    _iswireless = true;
    _fixWpa3 = false;
    _intel_sae_fix = true;
    Begin();

    AddOption(QStringLiteral("ssid"), ssid, true);
    if (scanSsid || !PlatformFile::Exists(NO_SCAN_SSID_FLAG)) {
        qDebug() << "Setting scan_ssid option";
        AddOption(QStringLiteral("scan_ssid"), QStringLiteral("1"), false);
    }
    AddPriority(priority);
    const QString frequencies = GetFrequencyListForBand(frequencyBand);
    if (!frequencies.isEmpty())
        AddOption(QStringLiteral("freq_list"), frequencies, false);
    if (useBgSettings) {
        // The supplicant wants the signal threshold between the two intervals.
        AddOption(QStringLiteral("bgscan"),
                  QStringLiteral("\"simple:%1:%2:%3\"").arg(bgParam1).arg(bgParam3).arg(bgParam2), false);
    }
    AddExtraWirelessOptions();
}

void WpaSupplicantCfg::AddExtraWirelessOptions()
{
    const QString text = QString::fromUtf8(PlatformFile::Read(EXTRA_WIRELESS_OPTIONS).value_or(QByteArray()));
    if (text.isEmpty())
        return;
    options << QStringLiteral("#START TEST CONF\n");
    options << text.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    options << QStringLiteral("#END TEST CONF\n");
}

void WpaSupplicantCfg::ConfigPrep()
{
    block = QStringList{QStringLiteral("network={")};
    for (const QString &option : qAsConst(options))
        block << QLatin1Char('\t') + option;
    block << QStringLiteral("}\n");
}

QString WpaSupplicantCfg::GetFrequencyListForBand(const QString &band)
{
    switch (SupplicantValues::BandOf(band)) {
    case SupplicantValues::Band::Ghz24:
        return Frequencies24Ghz();
    case SupplicantValues::Band::Ghz5:
        return Frequencies5Ghz();
    case SupplicantValues::Band::Ghz6:
        return Frequencies6Ghz();
    case SupplicantValues::Band::None:
        break;
    }
    return QString();
}

QString WpaSupplicantCfg::GetMac()
{
    const QStringList lines = Utils::Execute(
        QStringLiteral("ip"), {QStringLiteral("-br"), QStringLiteral("link"), QStringLiteral("show")}, false);
    for (const Link &link : LinksIn(lines)) {
        if (interfaceIsWireless(link.first))
            return link.second;
    }
    return MacFromSysfs();
}

QVector<WpaSupplicantCfg::Link> WpaSupplicantCfg::LinksIn(const QStringList &lines)
{
    QVector<Link> links;
    for (const QString &line : lines) {
        // Name, state, address, flags; the name of a stacked link is followed by "@" and the one below it.
        const QStringList fields = line.split(QLatin1Char(' '), Qt::SkipEmptyParts);
        if (fields.size() >= 3)
            links.append({fields.at(0).section(QLatin1Char('@'), 0, 0), fields.at(2)});
    }
    return links;
}

QByteArray WpaSupplicantCfg::FileText(const QStringList &lines)
{
    QByteArray text = "ctrl_interface=" + WPA_CONTROL_FOLDER.toUtf8() + '\n';
    if (_allowWeakCerts)
        text += "openssl_ciphers=DEFAULT@SECLEVEL=0\n";
    // Only a wireless block has a priority.
    if (lines.join(QLatin1Char(' ')).contains(QLatin1String("priority="))) {
        if (_useApScan)
            text += "ap_scan=2\n";
        if (_filterSsids)
            text += "filter_ssids=1\n";
        if (_fixWpa3)
            text += "wps_cred_add_sae=1\n";
        if (_intel_sae_fix)
            text += "sae_pwe=2\n";
    }
    return text + ExtraGlobals() + '\n' + lines.join(QLatin1Char('\n')).toUtf8();
}

bool WpaSupplicantCfg::WriteCfg(const QStringList &lines)
{
    if (SecureFile::Replace(WPA_SUPPLICANT_CONF, FileText(lines), 0600))
        return true;
    // An older file of our own stays in force. Anything else was put there by another user, and root would
    // run the supplicant by it.
    if (!SecureFile::IsOurs(WPA_SUPPLICANT_CONF))
        static_cast<void>(SecureFile::Remove(WPA_SUPPLICANT_CONF)); // The caller tells of the failure.
    return false;
}
