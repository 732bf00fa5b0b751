// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QMap>
#include <QString>

/// From a security mode's display name, as stored, to its short mode key. The SCEP variants share the key of
/// their plain counterparts.
extern const QMap<QString, QString> SecurityModes;

/// What a security mode asks of a definition.
enum class ModeKind {
    Unsecured,
    Wep,
    Psk,
    Sae,
    CipherChoice, ///< enterprise, with ciphers that the definition names
    OtherEnterprise,
    Wired
};

struct SecurityMode
{
    const char *displayName;
    const char *key;
    ModeKind kind;
    /// The properties that its block in the supplicant's file holds between quotes as they are stored, apart
    /// by blanks. The SSID, which every wireless block has, is not named.
    const char *quotedProperties;

    bool Quotes(const QString &property) const;
    /// Why the mode does not fit a network that its name makes wireless, or wired, with what follows; or
    /// nothing.
    QString NameProblem(bool isWireless) const;
};

/// The mode of this display name or key, or null.
const SecurityMode *FindSecurityMode(const QString &nameOrKey);

bool IsSecurityModeKey(const QString &text);

/// Whether this is the mode of networks without security, by its display name or key in any case of letters.
bool IsUnsecuredMode(const QString &nameOrKey);

/// Whether the value of a property that names a certificate or a key file names none.
bool NamesNoFile(const QString &value);
