// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebproperties.h"

#include "ipaddress.h"
#include "supplicantvalues.h"

#include <algorithm>
#include <iterator>

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

QString HostAddress(const QString &value)
{
    const auto address = Ipv4Number(value);
    if (!address)
        return Quoted(value) + QStringLiteral(" is not a dotted IPv4 address");
    // 0/8 is "this network", 224/3 is multicast and reserved (RFC 1122, 3.2.1.3).
    if (*address < 0x01000000 || *address >= 0xe0000000)
        return Quoted(value) + QStringLiteral(" is not the address of a host");
    return QString();
}

QString Netmask(const QString &value)
{
    const auto mask = Ipv4Number(value);
    if (!mask)
        return Quoted(value) + QStringLiteral(" is not a dotted IPv4 netmask");
    const quint32 hostPart = ~*mask;
    if (*mask == 0 || (hostPart & (hostPart + 1)) != 0)
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

/// Sets a member to the text of the store, read as the member's type asks.
struct Setter
{
    ZebNetConfig &config;
    const QString &value;

    void operator()(QString ZebNetConfig::*member) const { config.*member = value; }
    void operator()(bool ZebNetConfig::*member) const { config.*member = value == QLatin1String("true"); }
    void operator()(int ZebNetConfig::*member) const { config.*member = value.toInt(); }
};

constexpr ZebValueRule TEXT = {"text", AnyText};
constexpr ZebValueRule MODE = {"security mode", AnyText};
constexpr ZebValueRule SSID = {"SSID", SupplicantValues::SsidProblem};
constexpr ZebValueRule BOOLEAN = {"boolean", Boolean};
constexpr ZebValueRule PRIORITY = {"whole number", Priority};
constexpr ZebValueRule BAND = {"band", Band};
constexpr ZebValueRule SCAN_INTERVAL = {"seconds", ScanInterval};
constexpr ZebValueRule SIGNAL = {"dBm", Signal};
constexpr ZebValueRule WEP_KEY = {"WEP key", SupplicantValues::WepKeyProblem};
constexpr ZebValueRule SECRET_TEXT = {"secret text", AnyText};
constexpr ZebValueRule CERTIFICATE = {"certificate", CertificateName};
constexpr ZebValueRule PAC_FILE = {"file name", PacFile};
constexpr ZebValueRule FALLBACK = {"the word fallback", Fallback};
constexpr ZebValueRule HOST_ADDRESS = {"IPv4 address", HostAddress};
constexpr ZebValueRule NETMASK = {"IPv4 netmask", Netmask};
constexpr ZebValueRule SERVER_ADDRESS = {"IP address", ServerAddress};
constexpr ZebValueRule DOMAINS = {"domain names", Domains};
constexpr ZebValueRule MTU = {"bytes", Mtu};

using C = ZebNetConfig;
constexpr bool ESSENTIAL = true;
constexpr bool SECRET = true;

constexpr ZebProperty PROPERTIES[] = {
    {"name", &C::name, TEXT, ESSENTIAL, false},
    {"securityMode", &C::securityMode, MODE, ESSENTIAL, false},
    {"ssid", &C::ssid, SSID, ESSENTIAL, false},
    {"scanSsid", &C::scanSsid, BOOLEAN, false, false},
    {"priority", &C::priority, PRIORITY, false, false},
    {"band", &C::band, BAND, false, false},
    {"useBgScan", &C::useBgScan, BOOLEAN, false, false},
    {"bgScanShortInterval", &C::bgScanShortInterval, SCAN_INTERVAL, false, false},
    {"bgScanSignal", &C::bgScanSignal, SIGNAL, false, false},
    {"bgScanLongInterval", &C::bgScanLongInterval, SCAN_INTERVAL, false, false},
    {"wepKey", &C::wepKey, WEP_KEY, ESSENTIAL, SECRET},
    {"passphrase", &C::passphrase, SECRET_TEXT, ESSENTIAL, SECRET},
    {"identity", &C::identity, TEXT, ESSENTIAL, false},
    {"password", &C::password, SECRET_TEXT, ESSENTIAL, SECRET},
    {"caCert", &C::caCert, CERTIFICATE, ESSENTIAL, false},
    {"clientCert", &C::clientCert, CERTIFICATE, ESSENTIAL, false},
    {"privateKey", &C::privateKey, CERTIFICATE, ESSENTIAL, false},
    {"privateKeyPassword", &C::privateKeyPassword, SECRET_TEXT, ESSENTIAL, SECRET},
    {"cipher", &C::cipher, TEXT, false, false},
    {"pacFile", &C::pacFile, PAC_FILE, false, false},
    {"scep", &C::scep, BOOLEAN, false, false},
    {"allowWeakCerts", &C::allowWeakCerts, BOOLEAN, false, false},
    {"dot1xFallback", &C::dot1xFallback, FALLBACK, false, false},
    {"staticIp", &C::staticIp, BOOLEAN, false, false},
    {"ipAddress", &C::ipAddress, HOST_ADDRESS, false, false},
    {"netmask", &C::netmask, NETMASK, false, false},
    {"gateway", &C::gateway, HOST_ADDRESS, false, false},
    {"staticDns", &C::staticDns, BOOLEAN, false, false},
    {"dns1", &C::dns1, SERVER_ADDRESS, false, false},
    {"dns2", &C::dns2, SERVER_ADDRESS, false, false},
    {"domain", &C::domain, DOMAINS, false, false},
    {"speed", &C::speed, TEXT, false, false},
    {"mtu", &C::mtu, MTU, false, false},
};

} // namespace

const std::vector<ZebProperty> &ZebProperties::All()
{
    static const std::vector<ZebProperty> properties(std::begin(PROPERTIES), std::end(PROPERTIES));
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

void ZebProperties::Fill(ZebNetConfig &config, const ZebNetwork &network)
{
    config.securityMode = network.properties.value(QStringLiteral("securityMode"), config.securityMode);
    config.scep = config.securityMode.endsWith(QLatin1String("with SCEP)"));
    for (const ZebProperty &property : All()) {
        const auto value = network.properties.constFind(QLatin1String(property.key));
        if (value != network.properties.constEnd())
            std::visit(Setter{config, *value}, property.member);
    }
    config.hosts = network.hosts;
}
