// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "storeadvice.h"

#include "ipaddress.h"
#include "networknames.h"
#include "securitymodes.h"
#include "spelling.h"
#include "storehints.h"
#include "zebproperties.h"

#include <QRegularExpression>

namespace {

using Severity = StoreFinding::Severity;

QString Value(const ZebNetwork &network, const char *property)
{
    return network.properties.value(QLatin1String(property));
}

StoreFinding SettingFinding(const ZebDocument &document, const QString &setting, Severity severity,
                            const QString &reason)
{
    StoreFinding finding;
    finding.severity = severity;
    finding.place = document.settingPlaces.value(setting);
    finding.property = setting;
    finding.reason = reason;
    return finding;
}

void AdviseOnValue(const ZebDocument &document, const QString &setting, StoreFindings &findings)
{
    const QString value = document.settings.value(setting);
    if (setting == QLatin1String("bonding_mode")) {
        bool isNumber = false;
        const int mode = value.toInt(&isNumber);
        if (isNumber && mode >= 0 && mode <= 6)
            return;
        StoreFinding finding =
            SettingFinding(document, setting, Severity::Error, QStringLiteral("is not a mode from 0 to 6"));
        finding.valueClass = QStringLiteral("whole number");
        findings.append(finding);
        return;
    }
    if (!BooleanSettings().contains(setting) || value == QLatin1String("true") ||
        value == QLatin1String("false"))
        return;
    StoreFinding finding = SettingFinding(document, setting, Severity::Error,
                                          QStringLiteral("is neither true nor false; it counts as false"));
    finding.valueClass = QStringLiteral("boolean");
    finding.suggestion = NearestWord(value, {QStringLiteral("true"), QStringLiteral("false")});
    findings.append(finding);
}

/// Elements with names of their own are kept for other programs, and are no fault.
void AdviseOnName(const ZebDocument &document, const QString &setting, StoreFindings &findings)
{
    if (ZebProperties::Find(setting)) {
        findings.append(
            SettingFinding(document, setting, Severity::Warning,
                           QStringLiteral("is a property of a network, and stands outside of any")));
        return;
    }
    StoreFinding finding =
        SettingFinding(document, setting, Severity::Warning, QStringLiteral("is no setting of the daemon"));
    finding.suggestion = SettingMeantInstead(setting);
    if (!finding.suggestion.isEmpty())
        findings.append(finding);
}

/// One network with what is said of it.
class NetworkAdvice
{
public:
    NetworkAdvice(const ZebNetwork &adviseOn, StoreFindings &addTo)
        : network(adviseOn),
          name(Value(adviseOn, "name")),
          mode(FindSecurityMode(Value(adviseOn, "securityMode"))),
          isWired(HasWiredName(name)),
          findings(addTo)
    {
    }

    void AdviseOnName();
    void AdviseOnMode();
    void AdviseOnAddress();
    void AdviseOnResolver();
    void AdviseOnHosts();
    void AdviseOnSpeed();

private:
    void AdviseOnHostPart(quint32 address, quint32 hostBits);
    void Advise(Severity severity, const char *property, const QString &reason)
    {
        findings.append(NetworkFinding(network, severity, QLatin1String(property), reason));
    }

    const ZebNetwork &network;
    const QString name;
    const SecurityMode *const mode;
    const bool isWired;
    StoreFindings &findings;
};

void NetworkAdvice::AdviseOnName()
{
    const bool looksWired = name.startsWith(QLatin1String("lan"), Qt::CaseInsensitive) ||
                            name.startsWith(QLatin1String("wired"), Qt::CaseInsensitive);
    if (looksWired && !isWired)
        Advise(
            Severity::Warning, "name",
            QStringLiteral("is that of a wireless network; that of a wired one begins with lan or wiredeth"));
    const QString problem = mode ? mode->NameProblem(!isWired) : QString();
    if (!problem.isEmpty())
        Advise(Severity::Error, "securityMode", problem);
}

void NetworkAdvice::AdviseOnMode()
{
    if (!mode || isWired)
        return;
    const QLatin1String key(mode->key);
    if (key == QLatin1String("peap_gtc"))
        Advise(Severity::Warning, "securityMode",
               QStringLiteral(
                   "GTC needs the password itself, and the supplicant gets only a hash of it: a server "
                   "that does not take MSCHAPv2 as well lets nobody in"));
    if (key == QLatin1String("wpa2_3"))
        Advise(
            Severity::Warning, "securityMode",
            QStringLiteral("joins only access points that offer PSK-SHA256: not one with WPA3 or with plain "
                           "WPA2 alone"));
}

/// What the kernel takes all the same, and nobody can be reached with.
void NetworkAdvice::AdviseOnHostPart(quint32 address, quint32 hostBits)
{
    const quint32 host = address & hostBits;
    // In a network of one or two every address is a host's (RFC 3021).
    if (hostBits <= 1 || (host != 0 && host != hostBits))
        return;
    Advise(Severity::Error, "ipAddress",
           QStringLiteral("\"%1\" is %2 address of the network, and no host's")
               .arg(Value(network, "ipAddress"),
                    host == 0 ? QStringLiteral("the first") : QStringLiteral("the broadcast")));
}

void NetworkAdvice::AdviseOnAddress()
{
    if (Value(network, "staticIp") != QLatin1String("true"))
        return;
    const quint32 netmask = Ipv4Number(Value(network, "netmask")).value_or(0);
    const quint32 address = Ipv4Number(Value(network, "ipAddress")).value_or(0);
    AdviseOnHostPart(address, ~netmask);
    const QString gateway = Value(network, "gateway");
    if (gateway.isEmpty())
        return;
    const quint32 gatewayNumber = Ipv4Number(gateway).value_or(0);
    if (!AreInOneSubnet(gatewayNumber, address, netmask))
        Advise(Severity::Error, "gateway",
               QStringLiteral("\"%1\" is outside the network of ipAddress and netmask; the kernel refuses it")
                   .arg(gateway));
    else if (IsBroadcastAddress(gatewayNumber, netmask))
        Advise(Severity::Error, "gateway",
               QStringLiteral("\"%1\" is the broadcast address of the network; the kernel refuses it")
                   .arg(gateway));
    else if (gatewayNumber == address)
        Advise(Severity::Error, "gateway",
               QStringLiteral("\"%1\" is the ipAddress of this network itself; nothing leaves by it")
                   .arg(gateway));
}

void NetworkAdvice::AdviseOnResolver()
{
    if (Value(network, "staticDns") == QLatin1String("true") && Value(network, "dns1").isEmpty() &&
        Value(network, "dns2").isEmpty())
        Advise(Severity::Warning, "staticDns",
               QStringLiteral("stands without dns1 and dns2: there is no name server, not even DHCP's"));
}

/// `update_hosts` leaves out what nobody could read in the hosts file (hosts(5)).
void NetworkAdvice::AdviseOnHosts()
{
    static const QRegularExpression takenLine(QStringLiteral("^([0-9A-Fa-f:.]+[ \\t]+[^ \\t#]|#|\\s*$)"));
    for (const QString &line : network.hosts)
        if (!takenLine.match(line).hasMatch())
            Advise(
                Severity::Warning, "hosts",
                QStringLiteral("\"%1\" is no address with a name behind it; the hosts file goes without it")
                    .arg(line));
}

/// The daemon takes the first of three words as a number, and anything but "Full" behind it as half duplex.
void NetworkAdvice::AdviseOnSpeed()
{
    const QString speed = Value(network, "speed");
    if (!isWired || speed.isEmpty() || speed == QLatin1String("Auto"))
        return;
    const QStringList words = speed.split(QLatin1Char(' '));
    if (words.size() != 3 || words.constFirst().toInt() <= 0)
        Advise(Severity::Error, "speed",
               QStringLiteral("\"%1\" is not Auto or three words, such as 100 Mbps Full; the speed stays")
                   .arg(speed));
    else if (words.constLast() != QLatin1String("Full") && words.constLast() != QLatin1String("Half"))
        Advise(Severity::Warning, "speed",
               QStringLiteral("\"%1\" ends with neither Full nor Half, and sets half duplex").arg(speed));
}

} // namespace

StoreFindings StoreAdvice::OnSettings(const ZebDocument &document)
{
    StoreFindings findings;
    const QStringList settings = document.settings.keys();
    for (const QString &setting : settings) {
        AdviseOnValue(document, setting, findings);
        AdviseOnName(document, setting, findings);
    }
    return findings;
}

StoreFindings StoreAdvice::OnNetworks(const ZebDocument &document)
{
    StoreFindings findings;
    for (const QString &name : document.networkNames) {
        const ZebNetwork network = document.networks.value(name);
        NetworkAdvice advice(network, findings);
        advice.AdviseOnName();
        advice.AdviseOnMode();
        advice.AdviseOnAddress();
        advice.AdviseOnResolver();
        advice.AdviseOnHosts();
        advice.AdviseOnSpeed();
    }
    return findings;
}
