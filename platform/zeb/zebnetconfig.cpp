// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebnetconfig.h"

#include "zebstore.h"

#include <QCryptographicHash>
#include <QMessageAuthenticationCode>
#include <QRandomGenerator>

#include <array>

namespace {

/// A property, by its name in the store and its member here: one of the three is set.
struct Property
{
    const char *key;
    QString ZebNetConfig::*text = nullptr;
    bool ZebNetConfig::*flag = nullptr;
    int ZebNetConfig::*number = nullptr;
    bool isSecret = false;
};

constexpr Property Text(const char *key, QString ZebNetConfig::*member)
{
    return {key, member, nullptr, nullptr, false};
}

constexpr Property Secret(const char *key, QString ZebNetConfig::*member)
{
    return {key, member, nullptr, nullptr, true};
}

constexpr Property Flag(const char *key, bool ZebNetConfig::*member)
{
    return {key, nullptr, member, nullptr, false};
}

constexpr Property Number(const char *key, int ZebNetConfig::*member)
{
    return {key, nullptr, nullptr, member, false};
}

// The name and the hosts stand apart.
constexpr Property PROPERTIES[] = {
    Text("securityMode", &ZebNetConfig::securityMode),
    Text("ssid", &ZebNetConfig::ssid),
    Flag("scanSsid", &ZebNetConfig::scanSsid),
    Number("priority", &ZebNetConfig::priority),
    Text("band", &ZebNetConfig::band),
    Flag("useBgScan", &ZebNetConfig::useBgScan),
    Number("bgScanShortInterval", &ZebNetConfig::bgScanShortInterval),
    Number("bgScanSignal", &ZebNetConfig::bgScanSignal),
    Number("bgScanLongInterval", &ZebNetConfig::bgScanLongInterval),
    Secret("wepKey", &ZebNetConfig::wepKey),
    Secret("passphrase", &ZebNetConfig::passphrase),
    Text("identity", &ZebNetConfig::identity),
    Secret("password", &ZebNetConfig::password),
    Text("caCert", &ZebNetConfig::caCert),
    Text("clientCert", &ZebNetConfig::clientCert),
    Text("privateKey", &ZebNetConfig::privateKey),
    Secret("privateKeyPassword", &ZebNetConfig::privateKeyPassword),
    Text("cipher", &ZebNetConfig::cipher),
    Text("pacFile", &ZebNetConfig::pacFile),
    Flag("scep", &ZebNetConfig::scep),
    Flag("allowWeakCerts", &ZebNetConfig::allowWeakCerts),
    Text("dot1xFallback", &ZebNetConfig::dot1xFallback),
    Flag("staticIp", &ZebNetConfig::staticIp),
    Text("ipAddress", &ZebNetConfig::ipAddress),
    Text("netmask", &ZebNetConfig::netmask),
    Text("gateway", &ZebNetConfig::gateway),
    Flag("staticDns", &ZebNetConfig::staticDns),
    Text("dns1", &ZebNetConfig::dns1),
    Text("dns2", &ZebNetConfig::dns2),
    Text("domain", &ZebNetConfig::domain),
    Text("speed", &ZebNetConfig::speed),
    Text("mtu", &ZebNetConfig::mtu),
};

bool ToBool(const QString &text)
{
    return text == QLatin1String("true");
}

void SetProperty(ZebNetConfig &config, const Property &property, const QString &value)
{
    if (property.text != nullptr)
        config.*property.text = value;
    else if (property.flag != nullptr)
        config.*property.flag = ToBool(value);
    else
        config.*property.number = value.toInt();
}

QByteArray DigestKey()
{
    std::array<quint32, 8> words = {};
    QRandomGenerator::system()->fillRange(words.data(), words.size());
    return QByteArray(reinterpret_cast<const char *>(words.data()), sizeof words);
}

QString Digest(const Property &property, const QString &secret)
{
    static const QByteArray key = DigestKey();
    if (secret.isEmpty())
        return QString();
    // With the property's name, equal secrets in different places do not show as equal.
    const QByteArray message = QByteArray(property.key) + '=' + secret.toUtf8();
    return QLatin1String(QMessageAuthenticationCode::hash(message, key, QCryptographicHash::Sha256).toHex());
}

/// Plain printable ASCII; a separator of the text form, a backslash and all else become \uXXXX.
QString Escaped(const QString &text)
{
    QString escaped;
    escaped.reserve(text.size());
    for (const QChar c : text) {
        const ushort code = c.unicode();
        const bool isPlain = code >= 0x20 && code < 0x7f && code != '\\' && code != ';' && code != ',';
        escaped += isPlain ? QString(c) : QStringLiteral("\\u%1").arg(code, 4, 16, QLatin1Char('0'));
    }
    return escaped;
}

QString ValueText(const ZebNetConfig &config, const Property &property)
{
    if (property.flag != nullptr)
        return config.*property.flag ? QStringLiteral("true") : QStringLiteral("false");
    if (property.number != nullptr)
        return QString::number(config.*property.number);
    const QString &text = config.*property.text;
    return property.isSecret ? Digest(property, text) : Escaped(text);
}

} // namespace

ZebNetConfig::ZebNetConfig(ZebXmlConfig * /*store*/) {}

bool ZebNetConfig::Load(const QString &networkName, bool /*reserved*/)
{
    *this = ZebNetConfig(nullptr);
    name = networkName;

    const ZebDocument &section = ZebStore::Section(ZebStore::NETWORK_SECTION);
    const auto found = section.networks.constFind(networkName);
    if (found == section.networks.constEnd())
        return false;

    securityMode = found->properties.value(QStringLiteral("securityMode"), securityMode);
    scep = securityMode.endsWith(QLatin1String("with SCEP)"));
    for (const Property &property : PROPERTIES) {
        const auto value = found->properties.constFind(QLatin1String(property.key));
        if (value != found->properties.constEnd())
            SetProperty(*this, property, *value);
    }
    hosts = found->hosts;
    return true;
}

QString ZebNetConfig::toString() const
{
    QStringList items = {QStringLiteral("name=") + Escaped(name)};
    for (const Property &property : PROPERTIES)
        items << QLatin1String(property.key) + QLatin1Char('=') + ValueText(*this, property);
    QStringList escapedHosts;
    for (const QString &host : hosts)
        escapedHosts << Escaped(host);
    items << QStringLiteral("hosts=") + escapedHosts.join(QLatin1Char(','));
    return items.join(QStringLiteral("; "));
}

QStringList ZebNetConfig::GetNetworkNames()
{
    return ZebStore::Section(ZebStore::NETWORK_SECTION).networkNames;
}
