// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// The option lines of each security mode, in the order in which they are written.

#include "wpasupplicantcfg.h"

#include "supplicantvalues.h"
#include "utils.h"
#include "zebcert.h"

#include <QByteArray>
#include <QCryptographicHash>
#include <QHash>
#include <QRegularExpression>
#include <QtEndian>

#include <iterator>

namespace {

const QString PASSPHRASE_TOOL = QStringLiteral("wpa_passphrase");
const QString PAC_FOLDER = QStringLiteral("/tmp/config/files/eap-fast-pac/");
/// Far more networks than a store holds, and a bound for one that changes for years.
constexpr int KEY_LIMIT = 1000;

QByteArray Utf16LittleEndian(const QString &text)
{
    // Of its full size at once: each growth would leave a part of the password in memory that is free.
    QByteArray bytes(2 * text.size(), Qt::Uninitialized);
    qToLittleEndian<quint16>(text.utf16(), text.size(), bytes.data());
    return bytes;
}

using HeldKey = std::shared_ptr<const QString>;

/// By a digest of SSID and passphrase: no passphrase stays in memory for this.
QHash<QByteArray, HeldKey> keys;

QByteArray KeyId(const QString &ssid, const QString &passphrase)
{
    return QCryptographicHash::hash(QByteArray(ssid.toUtf8() + '\0' + passphrase.toUtf8()),
                                    QCryptographicHash::Sha256);
}

/// What the tool says, which takes 15 to 40 ms of the main thread for its 4096 rounds: each wireless device
/// and each change of another property would spend them again, always with the same result. A key depends
/// on nothing else, so that it never becomes stale.
HeldKey HashedKey(const QString &ssid, const QString &passphrase)
{
    const QByteArray id = KeyId(ssid, passphrase);
    HeldKey key = keys.take(id);
    if (!key)
        key = std::make_shared<const QString>(
            WpaSupplicantCfg::KeyIn(Utils::Execute(PASSPHRASE_TOOL, {ssid, passphrase}, false)));
    // The tool is asked again for a key that it did not give or that may be cut.
    if (SupplicantValues::PskProblem(*key).isEmpty()) {
        if (keys.size() == KEY_LIMIT)
            keys.clear();
        keys.insert(id, key);
    }
    return key;
}

} // namespace

void WpaSupplicantCfg::Unsecured()
{
    StartWirelessCfg();
    AddOption(QStringLiteral("key_mgmt"), QStringLiteral("NONE"), false);
    ConfigPrep();
}

void WpaSupplicantCfg::Wep(bool shared, const QString &key)
{
    StartWirelessCfg();
    if (shared)
        AddOption(QStringLiteral("auth_alg"), QStringLiteral("SHARED"), false);
    AddOption(QStringLiteral("key_mgmt"), QStringLiteral("NONE"), false);
    AddOption(QStringLiteral("wep_key0"), key, false);
    AddOption(QStringLiteral("wep_tx_keyidx"), QStringLiteral("0"), false);
    AddPriority(priority);
    ConfigPrep();
}

void WpaSupplicantCfg::WpaPersonal(const QString &passphrase)
{
    StartWirelessCfg();
    AddOption(QStringLiteral("key_mgmt"), QStringLiteral("WPA-PSK"), false);
    AddPasswordOption(passphrase);
    ConfigPrep();
}

void WpaSupplicantCfg::Wpa3Sae(const QString &password)
{
    StartWirelessCfg();
    AddOption(QStringLiteral("key_mgmt"), QStringLiteral("SAE"), false);
    AddOption(QStringLiteral("sae_password"), password, true);
    AddOption(QStringLiteral("ieee80211w"), QStringLiteral("2"), false);
    ConfigPrep();
}

void WpaSupplicantCfg::Wpa2Psk3Sae(const QString &passphrase)
{
    StartWirelessCfg();
    AddOption(QStringLiteral("key_mgmt"), QStringLiteral("WPA-PSK-SHA256"), false);
    AddPasswordOption(passphrase);
    AddOption(QStringLiteral("ieee80211w"), QStringLiteral("2"), false);
    ConfigPrep();
}

void WpaSupplicantCfg::EapTls(const QString &identity, const QString &caCert, const QString &clientCert,
                              const QString &privateKey, const QString &privateKeyPassword,
                              const QString &cipher)
{
    StartWirelessCfg();
    AddOption(QStringLiteral("eap"), QStringLiteral("TLS"), false);
    AddOption(QStringLiteral("key_mgmt"), QStringLiteral("WPA-EAP"), false);
    AddOption(QStringLiteral("pairwise"), cipher, false);
    AddOption(QStringLiteral("group"), cipher, false);
    AddTlsCredentials(identity, caCert, clientCert, privateKey, privateKeyPassword);
    ConfigPrep();
}

void WpaSupplicantCfg::EapLeap(const QString &identity, const QString &password, const QString &cipher)
{
    StartWirelessCfg();
    AddOption(QStringLiteral("eap"), QStringLiteral("LEAP"), false);
    AddOption(QStringLiteral("proto"), QStringLiteral("WPA RSN"), false);
    AddOption(QStringLiteral("key_mgmt"), QStringLiteral("WPA-EAP"), false);
    AddOption(QStringLiteral("pairwise"), cipher, false);
    AddOption(QStringLiteral("group"), cipher, false);
    // The supplicant takes the last priority line: a LEAP network's own one is overruled.
    AddPriority(2);
    AddOption(QStringLiteral("auth_alg"), QStringLiteral("LEAP"), false);
    AddOption(QStringLiteral("eapol_flags"), QStringLiteral("0"), false);
    AddOption(QStringLiteral("identity"), identity, true);
    AddHashedPasswordOption(QStringLiteral("password"), password);
    ConfigPrep();
}

void WpaSupplicantCfg::EapFast(const QString &identity, const QString &password, const QString &provisioning)
{
    StartWirelessCfg();
    AddOption(QStringLiteral("eap"), QStringLiteral("FAST"), false);
    AddOption(QStringLiteral("key_mgmt"), QStringLiteral("WPA-EAP"), false);
    AddOption(QStringLiteral("auth_alg"), QStringLiteral("OPEN"), false);
    AddOption(QStringLiteral("anonymous_identity"), QStringLiteral("FAST-") + identity, true);
    AddOption(QStringLiteral("identity"), identity, true);
    AddHashedPasswordOption(QStringLiteral("password"), password);
    const bool isAutomatic = provisioning == QLatin1String("automatic");
    AddOption(QStringLiteral("phase1"),
              isAutomatic ? QStringLiteral("fast_provisioning=1") : QStringLiteral("fast_provisioning=0"),
              true);
    AddOption(QStringLiteral("pac_file"), PAC_FOLDER + pacFile, true);
    ConfigPrep();
}

void WpaSupplicantCfg::PeapGtc(const QString &identity, const QString &password)
{
    StartWirelessCfg();
    AddOption(QStringLiteral("eap"), QStringLiteral("PEAP"), false);
    AddOption(QStringLiteral("proto"), QStringLiteral("RSN"), false);
    AddOption(QStringLiteral("key_mgmt"), QStringLiteral("WPA-EAP"), false);
    AddOption(QStringLiteral("pairwise"), QStringLiteral("CCMP"), false);
    AddOption(QStringLiteral("identity"), identity, true);
    AddHashedPasswordOption(QStringLiteral("password"), password);
    ConfigPrep();
}

void WpaSupplicantCfg::PeapMschapv2(const QString &identity, const QString &password, const QString &caCert)
{
    StartWirelessCfg();
    AddOption(QStringLiteral("eap"), QStringLiteral("PEAP"), false);
    AddOption(QStringLiteral("key_mgmt"), QStringLiteral("WPA-EAP"), false);
    AddOption(QStringLiteral("proto"), QStringLiteral("RSN"), false);
    AddOption(QStringLiteral("pairwise"), QStringLiteral("CCMP"), false);
    AddOption(QStringLiteral("group"), QStringLiteral("CCMP"), false);
    AddPeapCredentials(identity, password, caCert);
    ConfigPrep();
}

void WpaSupplicantCfg::WiredTls(const QString &identity, const QString &caCert, const QString &clientCert,
                                const QString &privateKey, const QString &privateKeyPassword)
{
    StartWiredCfg();
    AddOption(QStringLiteral("eap"), QStringLiteral("TLS"), false);
    AddTlsCredentials(identity, caCert, clientCert, privateKey, privateKeyPassword);
    ConfigPrep();
}

void WpaSupplicantCfg::WiredPeap(const QString &identity, const QString &password, const QString &caCert)
{
    StartWiredCfg();
    AddOption(QStringLiteral("eap"), QStringLiteral("PEAP"), false);
    AddPeapCredentials(identity, password, caCert);
    ConfigPrep();
}

void WpaSupplicantCfg::AddTlsCredentials(const QString &identity, const QString &caCert,
                                         const QString &clientCert, const QString &privateKey,
                                         const QString &privateKeyPassword)
{
    AddOption(QStringLiteral("identity"), identity, true);
    AddCertificate(QStringLiteral("ca_cert"), caCert);
    AddCertificate(QStringLiteral("client_cert"), clientCert);
    AddCertificate(QStringLiteral("private_key"), privateKey);
    AddOption(QStringLiteral("private_key_passwd"), privateKeyPassword, true);
}

void WpaSupplicantCfg::AddPeapCredentials(const QString &identity, const QString &password,
                                          const QString &caCert)
{
    AddOption(QStringLiteral("identity"), identity, true);
    AddHashedPasswordOption(QStringLiteral("password"), password);
    // Unlike the TLS modes, also an absolute path goes through the certificate store.
    if (caCert != QLatin1String("none"))
        AddOption(QStringLiteral("ca_cert"), ZebCert::GetFullPath(caCert), true);
    AddOption(QStringLiteral("phase1"), QStringLiteral("peaplabel=0"), true);
    AddOption(QStringLiteral("phase2"), QStringLiteral("auth=MSCHAPV2"), true);
}

void WpaSupplicantCfg::AddCertificate(const QString &key, const QString &value)
{
    if (value == QLatin1String("none"))
        return;
    const bool isPath = value.startsWith(QLatin1Char('/'));
    AddOption(key, isPath ? value : ZebCert::GetFullPath(value), true);
}

void WpaSupplicantCfg::AddPasswordOption(const QString &passphrase)
{
    hashedKey = _useHashedPsk ? HashedKey(ssid, passphrase) : nullptr;
    if (!hashedKey || hashedKey->isNull()) {
        AddOption(QStringLiteral("psk"), passphrase, true);
        return;
    }
    // As the tool says it, so not weighed as an option is: digits break out of no line, and how many there
    // are is the tool's affair.
    options << QStringLiteral("psk=") + *hashedKey;
}

void WpaSupplicantCfg::DeriveKeys(const QVector<Passphrase> &passphrases)
{
    if (!_useHashedPsk)
        return;
    QVector<QByteArray> ids;
    QVector<QStringList> argumentLists;
    for (const Passphrase &passphrase : passphrases) {
        const QByteArray id = KeyId(passphrase.first, passphrase.second);
        if (keys.size() + ids.size() == KEY_LIMIT)
            break;
        if (keys.contains(id) || ids.contains(id))
            continue;
        ids << id;
        argumentLists << QStringList{passphrase.first, passphrase.second};
    }
    const QVector<QStringList> results = Utils::ExecuteEach(PASSPHRASE_TOOL, argumentLists);
    // One that the tool did not give is kept, too: it serves once, so that the tool is not asked twice.
    for (int i = 0; i < ids.size(); ++i)
        keys.insert(ids.at(i), std::make_shared<const QString>(KeyIn(results.at(i))));
}

void WpaSupplicantCfg::ForgetUnheldKeys()
{
    for (auto key = keys.begin(); key != keys.end();)
        key = key->use_count() == 1 ? keys.erase(key) : std::next(key);
}

QString WpaSupplicantCfg::KeyIn(const QStringList &lines)
{
    static const QRegularExpression keyLine(QStringLiteral("\\Apsk=([0-9A-Fa-f]+)\\z"));
    for (const QString &line : lines) {
        const QString text = line.trimmed();
        if (text.startsWith(QLatin1String("psk=")))
            return keyLine.match(text).captured(1);
    }
    return QString();
}

void WpaSupplicantCfg::AddHashedPasswordOption(const QString &key, const QString &password)
{
    if (!_useHashedPsk) {
        AddOption(key, password, false);
        return;
    }
    const QByteArray hash =
        QCryptographicHash::hash(Utf16LittleEndian(password), QCryptographicHash::Md4).toHex();
    AddOption(key, QStringLiteral("hash:") + QLatin1String(hash), false);
}
