// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "machinecheck.h"

#include "certificatecheck.h"
#include "filetrust.h"
#include "networknames.h"
#include "paths.h"
#include "securitymodes.h"
#include "supplicantreading.h"

#include <QFile>
#include <QMap>

namespace {

using Severity = StoreFinding::Severity;

const QString SECURITY_MODE = QStringLiteral("securityMode");

/// The mode that the network's block is built for; null where it gets none, or one without security.
const SecurityMode *ModeInUse(const ZebNetwork &network)
{
    const SecurityMode *mode = FindSecurityMode(network.properties.value(SECURITY_MODE));
    const bool isWireless = !HasWiredName(network.properties.value(QStringLiteral("name")));
    return mode && mode->NameProblem(isWireless).isEmpty() ? mode : nullptr;
}

bool IsNewDriverAskedFor(const ZebDocument &document)
{
    return document.settings.value(QStringLiteral("useNewDriver")) == QLatin1String("true") ||
           (QFile::exists(USE_NL_DRIVER_FLAG) && TrustProblem(USE_NL_DRIVER_FLAG).isEmpty()) ||
           QFile::exists(USE_NL_DRIVER_TEMPORARY_FLAG);
}

/// As the mode's block names it; empty for a mode without.
QString EapMethod(const SecurityMode &mode)
{
    static const QMap<QString, QString> methods = {{QStringLiteral("eap_tls"), QStringLiteral("TLS")},
                                                   {QStringLiteral("eap_leap"), QStringLiteral("LEAP")},
                                                   {QStringLiteral("eap_fast"), QStringLiteral("FAST")},
                                                   {QStringLiteral("peap_gtc"), QStringLiteral("PEAP")},
                                                   {QStringLiteral("peap_mschapv2"), QStringLiteral("PEAP")},
                                                   {QStringLiteral("wired_tls"), QStringLiteral("TLS")},
                                                   {QStringLiteral("wired_peap"), QStringLiteral("PEAP")}};
    return methods.value(QLatin1String(mode.key));
}

/// What the installed supplicant was built with, asked once for each method.
class EapMethods
{
public:
    /// True also where there is no supplicant to ask.
    bool IsThere(const QString &method)
    {
        if (!known.contains(method))
            known.insert(method, Ask(method));
        return known.value(method);
    }

private:
    static bool Ask(const QString &method)
    {
        const auto complaints =
            SupplicantComplaints("network={\n\tkey_mgmt=IEEE8021X\n\teap=" + method.toLatin1() + "\n}\n");
        return !complaints || complaints->filter(QStringLiteral("unknown EAP method")).isEmpty();
    }

    QMap<QString, bool> known;
};

void CheckMode(const ZebNetwork &network, const SecurityMode &mode, bool isNewDriverAskedFor,
               EapMethods &methods, StoreFindings &findings)
{
    if (mode.kind == ModeKind::Sae && !isNewDriverAskedFor)
        findings.append(NetworkFinding(network, Severity::Warning, SECURITY_MODE,
                                       QStringLiteral("WPA3 needs the driver nl80211, which the setting "
                                                      "useNewDriver asks for")));
    const QString method = EapMethod(mode);
    if (!method.isEmpty() && !methods.IsThere(method))
        findings.append(NetworkFinding(
            network, Severity::Warning, SECURITY_MODE,
            QStringLiteral("this machine's wpa_supplicant was built without EAP-%1, and refuses the whole "
                           "file with it")
                .arg(method)));
}

} // namespace

StoreFindings MachineFindings(const ZebDocument &document)
{
    StoreFindings findings;
    EapMethods methods;
    const bool isNewDriverAskedFor = IsNewDriverAskedFor(document);
    for (const QString &name : document.networkNames) {
        const ZebNetwork network = document.networks.value(name);
        const SecurityMode *mode = ModeInUse(network);
        if (!mode)
            continue;
        CheckMode(network, *mode, isNewDriverAskedFor, methods, findings);
        findings += CertificateFindings(network, *mode);
    }
    return findings;
}
