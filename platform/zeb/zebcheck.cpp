// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebcheck.h"

#include "networknames.h"
#include "securitymodes.h"
#include "supplicantvalues.h"
#include "zebnetwork.h"
#include "zebproperties.h"

#include <algorithm>

namespace {

// wpa_supplicant 2.10 reads its file in pieces of some 2000 bytes and refuses a longer line.
constexpr int TEXT_LIMIT = 1024;

QString Value(const ZebNetwork &network, const char *property)
{
    return network.properties.value(QLatin1String(property));
}

bool Has(const ZebNetwork &network, const char *property)
{
    return network.properties.contains(QLatin1String(property));
}

/// Checks one property after the other. Returns why the network must be left out, or nothing.
QString CheckProperties(ZebNetwork &network, QStringList &problems)
{
    QString refusal;
    for (auto property = network.properties.begin(); property != network.properties.end();) {
        const ZebProperty *known = ZebProperties::Find(property.key());
        QString reason = ZebCheck::TextProblem(property.value());
        if (reason.isEmpty())
            reason = known ? known->check(property.value()) : QStringLiteral("no such property");
        if (reason.isEmpty()) {
            ++property;
            continue;
        }
        reason = QStringLiteral("%1: %2").arg(property.key().left(64), reason);
        if (known && known->isEssential)
            refusal = reason;
        else
            problems << reason +
                            (known ? QStringLiteral("; its default is used") : QStringLiteral("; not used"));
        property = network.properties.erase(property);
    }
    return refusal;
}

void CheckHosts(QStringList &hosts, QStringList &problems)
{
    const auto isRefused = [&problems](const QString &line) {
        // The fields of a hosts file are often set apart by tabs.
        QString reason = ZebCheck::TextProblem(QString(line).replace(QLatin1Char('\t'), QLatin1Char(' ')));
        if (!reason.isEmpty())
            problems << QStringLiteral("hosts: %1; this line is not used").arg(reason);
        return !reason.isEmpty();
    };
    hosts.erase(std::remove_if(hosts.begin(), hosts.end(), isRefused), hosts.end());
}

/// Why a network with this mode cannot work with the rest of the definition, or nothing.
QString WirelessProblem(const SecurityMode *mode, const ZebNetwork &network)
{
    const ModeKind kind = mode ? mode->kind : ModeKind::Unsecured;
    if (kind != ModeKind::Wired && !Has(network, "ssid"))
        return QStringLiteral("no ssid, and its name is not that of a wired network (lan..., wiredeth...)");
    if (kind == ModeKind::Wep && !Has(network, "wepKey"))
        return QStringLiteral("no wepKey");
    if ((kind == ModeKind::Psk || kind == ModeKind::Sae) && !Has(network, "passphrase"))
        return QStringLiteral("no passphrase");
    const QString problem = SupplicantValues::PassphraseProblem(Value(network, "passphrase"));
    if (kind == ModeKind::Psk && !problem.isEmpty())
        return QStringLiteral("passphrase: ") + problem;
    return QString();
}

/// Why a text that the supplicant's block would hold between quotes does not stay there, or nothing.
QString QuotedTextProblem(const SecurityMode *mode, bool isWired, const ZebNetwork &network)
{
    const bool hasBlockOfMode = mode && isWired == (mode->kind == ModeKind::Wired);
    for (auto property = network.properties.begin(); property != network.properties.end(); ++property) {
        const bool isSsid = !isWired && property.key() == QLatin1String("ssid");
        if (!isSsid && !(hasBlockOfMode && mode->Quotes(property.key())))
            continue;
        const QString problem =
            SupplicantValues::CommentProblem(QLatin1Char('"') + *property + QLatin1Char('"'));
        if (!problem.isEmpty())
            return property.key() + QStringLiteral(": ") + problem;
    }
    return QString();
}

QString StaticAddressProblem(const ZebNetwork &network)
{
    if (Value(network, "staticIp") != QLatin1String("true"))
        return QString();
    const bool isComplete = Has(network, "ipAddress") && Has(network, "netmask");
    return isComplete ? QString() : QStringLiteral("staticIp without a valid ipAddress and netmask");
}

void CheckCipher(const SecurityMode *mode, ZebNetwork &network, QStringList &problems)
{
    const auto cipher = network.properties.find(QStringLiteral("cipher"));
    if (!mode || mode->kind != ModeKind::CipherChoice || cipher == network.properties.end())
        return;
    const QString problem = SupplicantValues::CipherProblem(*cipher);
    if (problem.isEmpty())
        return;
    problems << QStringLiteral("cipher: \"%1\" %2; its default is used").arg(*cipher, problem);
    network.properties.erase(cipher);
}

} // namespace

QString ZebCheck::TextProblem(const QString &text)
{
    if (text.toUtf8().size() > TEXT_LIMIT)
        return QStringLiteral("is longer than %1 bytes").arg(TEXT_LIMIT);
    return SupplicantValues::TextProblem(text);
}

bool ZebCheck::CheckNetwork(ZebNetwork &network, QStringList &problems)
{
    QString refusal = CheckProperties(network, problems);
    CheckHosts(network.hosts, problems);

    const bool isWired = HasWiredName(Value(network, "name"));
    const QString securityMode = Value(network, "securityMode");
    const SecurityMode *mode = FindSecurityMode(securityMode);
    if (!mode && !securityMode.isEmpty())
        problems << QStringLiteral("securityMode: \"%1\" is not known, %2")
                        .arg(securityMode, isWired ? QStringLiteral("the supplicant gets nothing")
                                                   : QStringLiteral("the network counts as unsecured"));
    CheckCipher(mode, network, problems);

    if (refusal.isEmpty())
        refusal = StaticAddressProblem(network);
    if (refusal.isEmpty() && !isWired)
        refusal = WirelessProblem(mode, network);
    if (refusal.isEmpty())
        refusal = QuotedTextProblem(mode, isWired, network);
    if (!refusal.isEmpty())
        problems << QStringLiteral("left out: ") + refusal;
    return refusal.isEmpty();
}
