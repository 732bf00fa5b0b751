// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebproperties.h"

#include "supplicantvalues.h"

#include <algorithm>

#include <arpa/inet.h>

namespace {

QString Quoted(const QString &value)
{
    return QLatin1Char('"') + value + QLatin1Char('"');
}

QString AnyText(const QString & /*value*/)
{
    return QString();
}

QString Boolean(const QString &value)
{
    if (value == QLatin1String("true") || value == QLatin1String("false"))
        return QString();
    return Quoted(value) + QStringLiteral(" is neither true nor false");
}

QString IntegerWithin(const QString &value, int lowest, int highest)
{
    bool isNumber = false;
    const int number = value.toInt(&isNumber);
    // Programs that get the text as it stands read leading zeros as octal.
    if (isNumber && number >= lowest && number <= highest && QString::number(number) == value)
        return QString();
    return Quoted(value) + QStringLiteral(" is not a whole number from %1 to %2").arg(lowest).arg(highest);
}

QString Priority(const QString &value)
{
    return IntegerWithin(value, -1000000, 1000000);
}

QString ScanInterval(const QString &value)
{
    return IntegerWithin(value, 1, 86400);
}

QString Signal(const QString &value)
{
    return IntegerWithin(value, -120, 0);
}

QString Mtu(const QString &value)
{
    // RFC 791: every internet module takes 68 bytes; the length field ends at 65535.
    return IntegerWithin(value, 68, 65535);
}

bool ReadIpv4(const QString &value, quint32 &address)
{
    in_addr parsed = {};
    if (::inet_pton(AF_INET, value.toUtf8().constData(), &parsed) != 1)
        return false;
    address = ntohl(parsed.s_addr);
    return true;
}

QString HostAddress(const QString &value)
{
    quint32 address = 0;
    if (!ReadIpv4(value, address))
        return Quoted(value) + QStringLiteral(" is not a dotted IPv4 address");
    // 0/8 is "this network", 224/3 is multicast and reserved (RFC 1122, 3.2.1.3).
    if (address < 0x01000000 || address >= 0xe0000000)
        return Quoted(value) + QStringLiteral(" is not the address of a host");
    return QString();
}

QString Netmask(const QString &value)
{
    quint32 mask = 0;
    if (!ReadIpv4(value, mask))
        return Quoted(value) + QStringLiteral(" is not a dotted IPv4 netmask");
    const quint32 hostPart = ~mask;
    if (mask == 0 || (hostPart & (hostPart + 1)) != 0)
        return Quoted(value) + QStringLiteral(" is not a netmask: ones, then zeros");
    return QString();
}

QString ServerAddress(const QString &value)
{
    in6_addr parsed = {};
    if (::inet_pton(AF_INET6, value.toUtf8().constData(), &parsed) == 1)
        return QString();
    return HostAddress(value).isEmpty() ? QString()
                                        : Quoted(value) + QStringLiteral(" is not the address of a server");
}

QString Domains(const QString &value)
{
    const auto isDomainCharacter = [](QChar c) {
        return c.unicode() < 0x80 && (c.isLetterOrNumber() || QLatin1String(".-_ ").contains(c));
    };
    if (std::all_of(value.begin(), value.end(), isDomainCharacter))
        return QString();
    return Quoted(value) + QStringLiteral(" is not one domain name or several apart by blanks");
}

QString Band(const QString &value)
{
    if (SupplicantValues::BandOf(value) != SupplicantValues::Band::None)
        return QString();
    return Quoted(value) + QStringLiteral(" is not a band (2.4, 5.0 or 6.0)");
}

// A bare name is looked up in the certificate folders and must not lead out of them.
QString CertificateName(const QString &value)
{
    if (value.startsWith(QLatin1Char('/')) || !value.split(QLatin1Char('/')).contains(QStringLiteral("..")))
        return QString();
    return Quoted(value) + QStringLiteral(" leads out of the certificate folders");
}

QString PacFile(const QString &value)
{
    if (!value.contains(QLatin1Char('/')) && value != QLatin1String(".") && value != QLatin1String(".."))
        return QString();
    return Quoted(value) + QStringLiteral(" is not a plain file name");
}

QString Fallback(const QString &value)
{
    return value == QLatin1String("fallback") ? QString()
                                              : Quoted(value) + QStringLiteral(" is not \"fallback\"");
}

} // namespace

const std::vector<ZebProperty> &ZebProperties::All()
{
    using C = ZebNetConfig;
    constexpr bool ESSENTIAL = true;
    constexpr bool SECRET = true;
    static const std::vector<ZebProperty> properties = {
        {"name", &C::name, AnyText, ESSENTIAL, false},
        {"securityMode", &C::securityMode, AnyText, ESSENTIAL, false},
        {"ssid", &C::ssid, SupplicantValues::SsidProblem, ESSENTIAL, false},
        {"scanSsid", &C::scanSsid, Boolean, false, false},
        {"priority", &C::priority, Priority, false, false},
        {"band", &C::band, Band, false, false},
        {"useBgScan", &C::useBgScan, Boolean, false, false},
        {"bgScanShortInterval", &C::bgScanShortInterval, ScanInterval, false, false},
        {"bgScanSignal", &C::bgScanSignal, Signal, false, false},
        {"bgScanLongInterval", &C::bgScanLongInterval, ScanInterval, false, false},
        {"wepKey", &C::wepKey, SupplicantValues::WepKeyProblem, ESSENTIAL, SECRET},
        {"passphrase", &C::passphrase, AnyText, ESSENTIAL, SECRET},
        {"identity", &C::identity, AnyText, ESSENTIAL, false},
        {"password", &C::password, AnyText, ESSENTIAL, SECRET},
        {"caCert", &C::caCert, CertificateName, ESSENTIAL, false},
        {"clientCert", &C::clientCert, CertificateName, ESSENTIAL, false},
        {"privateKey", &C::privateKey, CertificateName, ESSENTIAL, false},
        {"privateKeyPassword", &C::privateKeyPassword, AnyText, ESSENTIAL, SECRET},
        {"cipher", &C::cipher, AnyText, false, false},
        {"pacFile", &C::pacFile, PacFile, false, false},
        {"scep", &C::scep, Boolean, false, false},
        {"allowWeakCerts", &C::allowWeakCerts, Boolean, false, false},
        {"dot1xFallback", &C::dot1xFallback, Fallback, false, false},
        {"staticIp", &C::staticIp, Boolean, false, false},
        {"ipAddress", &C::ipAddress, HostAddress, false, false},
        {"netmask", &C::netmask, Netmask, false, false},
        {"gateway", &C::gateway, HostAddress, false, false},
        {"staticDns", &C::staticDns, Boolean, false, false},
        {"dns1", &C::dns1, ServerAddress, false, false},
        {"dns2", &C::dns2, ServerAddress, false, false},
        {"domain", &C::domain, Domains, false, false},
        {"speed", &C::speed, AnyText, false, false},
        {"mtu", &C::mtu, Mtu, false, false},
    };
    return properties;
}

const ZebProperty *ZebProperties::Find(const QString &key)
{
    const std::vector<ZebProperty> &all = All();
    const auto found = std::find_if(all.begin(), all.end(), [&key](const ZebProperty &property) {
        return key == QLatin1String(property.key);
    });
    return found == all.end() ? nullptr : &*found;
}
