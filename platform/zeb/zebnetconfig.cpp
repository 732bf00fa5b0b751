// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebnetconfig.h"

#include "zebproperties.h"
#include "zebstore.h"

#include <QCryptographicHash>
#include <QMessageAuthenticationCode>
#include <QRandomGenerator>

#include <array>

namespace {

QByteArray DigestKey()
{
    std::array<quint32, 8> words = {};
    QRandomGenerator::system()->fillRange(words.data(), words.size());
    return QByteArray(reinterpret_cast<const char *>(words.data()), sizeof words);
}

QString Digest(const ZebProperty &property, const QString &secret)
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

/// The value of a member as the text form shows it.
struct Shower
{
    const ZebNetConfig &config;
    const ZebProperty &property;

    QString operator()(QString ZebNetConfig::*member) const
    {
        return property.isSecret ? Digest(property, config.*member) : Escaped(config.*member);
    }
    QString operator()(bool ZebNetConfig::*member) const
    {
        return config.*member ? QStringLiteral("true") : QStringLiteral("false");
    }
    QString operator()(int ZebNetConfig::*member) const { return QString::number(config.*member); }
};

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

    ZebProperties::Fill(*this, *found);
    return true;
}

QString ZebNetConfig::toString() const
{
    QStringList items;
    for (const ZebProperty &property : ZebProperties::All())
        items << QLatin1String(property.key) + QLatin1Char('=') +
                     std::visit(Shower{*this, property}, property.member);
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
