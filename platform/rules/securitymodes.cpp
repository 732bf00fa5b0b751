// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "securitymodes.h"

#include <QStringList>

#include <algorithm>

namespace {

constexpr const char *TLS = "identity caCert clientCert privateKey privateKeyPassword";

constexpr SecurityMode MODES[] = {
    {"WEP", "wep", ModeKind::Wep, ""},
    {"WEP (Shared)", "wep_shared", ModeKind::Wep, ""},
    {"WPA Personal 1/2", "wpa", ModeKind::Psk, ""},
    {"WPA Personal 3", "sae", ModeKind::Sae, "passphrase"},
    {"WPA Personal 2/3", "wpa2_3", ModeKind::Psk, ""},
    {"WPA Enterprise 1/2 (TLS)", "eap_tls", ModeKind::CipherChoice, TLS},
    {"WPA Enterprise 1/2 (TLS with SCEP)", "eap_tls", ModeKind::CipherChoice, TLS},
    {"WPA Enterprise 1/2 (LEAP)", "eap_leap", ModeKind::CipherChoice, "identity"},
    {"WPA Enterprise 1/2 (EAP-FAST)", "eap_fast", ModeKind::OtherEnterprise, "identity pacFile"},
    {"WPA Enterprise 1/2 (PEAP/GTC)", "peap_gtc", ModeKind::OtherEnterprise, "identity"},
    {"WPA Enterprise 1/2 (PEAP/MSCHAPv2)", "peap_mschapv2", ModeKind::OtherEnterprise, "identity caCert"},
    {"802.1X (TLS/EAP)", "wired_tls", ModeKind::Wired, TLS},
    {"802.1X (TLS/EAP with SCEP)", "wired_tls", ModeKind::Wired, TLS},
    {"802.1X (PEAP/MSCHAPv2)", "wired_peap", ModeKind::Wired, "identity caCert"},
    {"Unsecured", "unsecured", ModeKind::Unsecured, ""},
};

QMap<QString, QString> KeysByDisplayName()
{
    QMap<QString, QString> keys;
    for (const SecurityMode &mode : MODES)
        keys.insert(QLatin1String(mode.displayName), QLatin1String(mode.key));
    return keys;
}

} // namespace

const QMap<QString, QString> SecurityModes = KeysByDisplayName();

bool SecurityMode::Quotes(const QString &property) const
{
    return QString::fromLatin1(quotedProperties).split(QLatin1Char(' ')).contains(property);
}

QString SecurityMode::NameProblem(bool isWireless) const
{
    const bool isWiredMode = kind == ModeKind::Wired;
    if (kind == ModeKind::Unsecured || isWireless != isWiredMode)
        return QString();
    return isWireless
               ? QStringLiteral("a wired mode, but the name makes it wireless: it is taken as unsecured")
               : QStringLiteral("a wireless mode, but the name makes it wired: the supplicant gets nothing");
}

const SecurityMode *FindSecurityMode(const QString &nameOrKey)
{
    const auto *const mode =
        std::find_if(std::begin(MODES), std::end(MODES), [&nameOrKey](const SecurityMode &candidate) {
            return nameOrKey == QLatin1String(candidate.displayName) ||
                   nameOrKey == QLatin1String(candidate.key);
        });
    return mode == std::end(MODES) ? nullptr : mode;
}

bool IsSecurityModeKey(const QString &text)
{
    return std::any_of(std::begin(MODES), std::end(MODES),
                       [&text](const SecurityMode &mode) { return text == QLatin1String(mode.key); });
}

bool IsUnsecuredMode(const QString &nameOrKey)
{
    return nameOrKey.compare(QLatin1String("unsecured"), Qt::CaseInsensitive) == 0;
}

bool NamesNoFile(const QString &value)
{
    return value.isEmpty() || value == QLatin1String("none");
}
