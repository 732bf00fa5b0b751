// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebcheck.h"

#include "networknames.h"
#include "securitymodes.h"
#include "supplicantvalues.h"
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

QString Quoted(const QString &text)
{
    return QLatin1Char('"') + text + QLatin1Char('"');
}

/// The problems found in one network, in order.
class Findings
{
public:
    void Add(const QString &property, const QString &reason, ZebConsequence consequence,
             const QString &refused = {})
    {
        // Names of properties come from outside and may be as long as the file.
        problems.append({{}, {}, property.left(64), reason, consequence, refused});
    }
    /// For what is missing: it may have been refused, which is told already.
    void LeaveOut(const char *property, const QString &reason)
    {
        const QLatin1String key(property);
        if (std::none_of(problems.begin(), problems.end(),
                         [key](const ZebProblem &problem) { return problem.property == key; }))
            Add(key, reason, ZebConsequence::NetworkLeftOut);
    }
    ZebProblems Take() const { return problems; }

private:
    ZebProblems problems;
};

void CheckProperties(ZebNetwork &network, Findings &findings)
{
    for (auto property = network.properties.begin(); property != network.properties.end();) {
        const ZebProperty *known = ZebProperties::Find(property.key());
        QString problem = ZebCheck::TextProblem(*property);
        if (problem.isEmpty())
            problem = known ? known->rule.check(*property) : QStringLiteral("no such property");
        if (problem.isEmpty()) {
            ++property;
            continue;
        }
        const ZebConsequence consequence = !known               ? ZebConsequence::NotUsed
                                           : known->isEssential ? ZebConsequence::NetworkLeftOut
                                                                : ZebConsequence::DefaultUsed;
        findings.Add(property.key(), problem, consequence, known && !known->isSecret ? *property : QString());
        property = network.properties.erase(property);
    }
}

void CheckMode(const SecurityMode *mode, bool isWired, const ZebNetwork &network, Findings &findings)
{
    const QString stored = Value(network, "securityMode");
    if (mode || stored.isEmpty())
        return;
    findings.Add(QStringLiteral("securityMode"), Quoted(stored) + QStringLiteral(" is not known"),
                 isWired ? ZebConsequence::NoSupplicantBlock : ZebConsequence::CountsAsUnsecured, stored);
}

void CheckCipher(const SecurityMode *mode, ZebNetwork &network, Findings &findings)
{
    const auto cipher = network.properties.find(QStringLiteral("cipher"));
    if (!mode || mode->kind != ModeKind::CipherChoice || cipher == network.properties.end())
        return;
    const QString problem = SupplicantValues::CipherProblem(*cipher);
    if (problem.isEmpty())
        return;
    findings.Add(cipher.key(), Quoted(*cipher) + QLatin1Char(' ') + problem, ZebConsequence::DefaultUsed,
                 *cipher);
    network.properties.erase(cipher);
}

void CheckStaticAddress(const ZebNetwork &network, Findings &findings)
{
    const bool isComplete = Has(network, "ipAddress") && Has(network, "netmask");
    if (Value(network, "staticIp") == QLatin1String("true") && !isComplete)
        findings.LeaveOut("staticIp", QStringLiteral("stands without a valid ipAddress and netmask"));
}

/// Whether what the mode needs is there.
void CheckWireless(const SecurityMode *mode, const ZebNetwork &network, Findings &findings)
{
    const ModeKind kind = mode ? mode->kind : ModeKind::Unsecured;
    if (kind != ModeKind::Wired && !Has(network, "ssid"))
        findings.LeaveOut("ssid",
                          QStringLiteral("is missing, and the network's name is not that of a wired one "
                                         "(lan..., wiredeth...)"));
    if (kind == ModeKind::Wep && !Has(network, "wepKey"))
        findings.LeaveOut("wepKey", QStringLiteral("is missing"));
    if (kind != ModeKind::Psk && kind != ModeKind::Sae)
        return;
    if (!Has(network, "passphrase"))
        findings.LeaveOut("passphrase", QStringLiteral("is missing"));
    else if (const QString problem = SupplicantValues::PassphraseProblem(Value(network, "passphrase"));
             kind == ModeKind::Psk && !problem.isEmpty())
        findings.LeaveOut("passphrase", problem);
}

/// Whether the texts that the supplicant's block will hold between quotes stay there.
void CheckQuotedTexts(const SecurityMode *mode, bool isWired, const ZebNetwork &network, Findings &findings)
{
    const bool hasBlockOfMode = mode && isWired == (mode->kind == ModeKind::Wired);
    for (auto property = network.properties.begin(); property != network.properties.end(); ++property) {
        const bool isSsid = !isWired && property.key() == QLatin1String("ssid");
        if (!isSsid && !(hasBlockOfMode && mode->Quotes(property.key())))
            continue;
        const QString problem = SupplicantValues::CommentProblem(Quoted(*property));
        if (!problem.isEmpty())
            findings.Add(property.key(), problem, ZebConsequence::NetworkLeftOut);
    }
}

} // namespace

QString ZebCheck::TextProblem(const QString &text)
{
    if (text.toUtf8().size() > TEXT_LIMIT)
        return QStringLiteral("is longer than %1 bytes").arg(TEXT_LIMIT);
    return SupplicantValues::TextProblem(text);
}

ZebProblems ZebCheck::CheckNetwork(ZebNetwork &network)
{
    Findings findings;
    CheckProperties(network, findings);
    const SecurityMode *mode = FindSecurityMode(Value(network, "securityMode"));
    const bool isWired = HasWiredName(Value(network, "name"));
    CheckMode(mode, isWired, network, findings);
    CheckCipher(mode, network, findings);
    CheckStaticAddress(network, findings);
    if (!isWired)
        CheckWireless(mode, network, findings);
    CheckQuotedTexts(mode, isWired, network, findings);
    return findings.Take();
}
