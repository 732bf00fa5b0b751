// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebcheck.h"

#include "zebdocument.h"

#include <algorithm>

#include <arpa/inet.h>

namespace {

// wpa_supplicant 2.10 reads its file in pieces of some 2000 bytes and refuses a longer line.
constexpr int TEXT_LIMIT = 1024;
constexpr int SSID_LIMIT = 32; // IEEE 802.11-2020, 9.4.2.2

bool BreaksLine(QChar c)
{
    const ushort code = c.unicode();
    return code < 0x20 || (code >= 0x7f && code < 0xa0) || code == 0x2028 || code == 0x2029;
}

QString Quoted(const QString &value)
{
    return QLatin1Char('"') + value + QLatin1Char('"');
}

// Each of these gives the reason why a value that is a text is not valid, or nothing.
using Check = QString (*)(const QString &value);

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

QString Ssid(const QString &value)
{
    const int size = value.toUtf8().size();
    return size <= SSID_LIMIT ? QString() : QStringLiteral("has %1 bytes, the limit is 32").arg(size);
}

QString Band(const QString &value)
{
    if (value.contains(QLatin1String("2.4")) || value.contains(QLatin1String("5.0")) ||
        value.contains(QLatin1String("6.0")) || value == QLatin1String("5") || value == QLatin1String("6"))
        return QString();
    return Quoted(value) + QStringLiteral(" is not a band (2.4, 5.0 or 6.0)");
}

bool IsHexDigit(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// The supplicant gets the key as it stands, so the quotes of a text key are part of it.
QString WepKey(const QString &value)
{
    const QByteArray key = value.toUtf8();
    const int size = key.size();
    if (size > 2 && key.startsWith('"') && key.endsWith('"') && (size == 7 || size == 15 || size == 18))
        return QString();
    if ((size == 10 || size == 26 || size == 32) && std::all_of(key.begin(), key.end(), IsHexDigit))
        return QString();
    return QStringLiteral("is not a WEP key: 10, 26 or 32 hexadecimal digits, or 5, 13 or 16 characters in "
                          "double quotes");
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

struct Rule
{
    const char *property;
    Check check;
    /// Going on with the default would be another network, or one with less security.
    bool isEssential;
};

constexpr Rule RULES[] = {
    {"name", AnyText, true},
    {"securityMode", AnyText, true},
    {"ssid", Ssid, true},
    {"scanSsid", Boolean, false},
    {"priority", Priority, false},
    {"band", Band, false},
    {"useBgScan", Boolean, false},
    {"bgScanShortInterval", ScanInterval, false},
    {"bgScanSignal", Signal, false},
    {"bgScanLongInterval", ScanInterval, false},
    {"wepKey", WepKey, true},
    {"passphrase", AnyText, true},
    {"identity", AnyText, true},
    {"password", AnyText, true},
    {"caCert", CertificateName, true},
    {"clientCert", CertificateName, true},
    {"privateKey", CertificateName, true},
    {"privateKeyPassword", AnyText, true},
    {"cipher", AnyText, false},
    {"pacFile", PacFile, false},
    {"scep", Boolean, false},
    {"allowWeakCerts", Boolean, false},
    {"dot1xFallback", Fallback, false},
    {"staticIp", Boolean, false},
    {"ipAddress", HostAddress, false},
    {"netmask", Netmask, false},
    {"gateway", HostAddress, false},
    {"staticDns", Boolean, false},
    {"dns1", ServerAddress, false},
    {"dns2", ServerAddress, false},
    {"domain", Domains, false},
    {"speed", AnyText, false},
    {"mtu", Mtu, false},
};

const Rule *RuleFor(const QString &property)
{
    const auto *const rule =
        std::find_if(std::begin(RULES), std::end(RULES), [&property](const Rule &candidate) {
            return property == QLatin1String(candidate.property);
        });
    return rule == std::end(RULES) ? nullptr : rule;
}

/// What a security mode asks of a definition.
enum class ModeKind { Unsecured, Wep, Psk, Sae, CipherChoice, OtherEnterprise, Wired, Unknown };

struct Mode
{
    const char *displayName;
    const char *key;
    ModeKind kind;
};

// A definition may hold a mode by its display name or by its key.
constexpr Mode MODES[] = {
    {"WEP", "wep", ModeKind::Wep},
    {"WEP (Shared)", "wep_shared", ModeKind::Wep},
    {"WPA Personal 1/2", "wpa", ModeKind::Psk},
    {"WPA Personal 3", "sae", ModeKind::Sae},
    {"WPA Personal 2/3", "wpa2_3", ModeKind::Psk},
    {"WPA Enterprise 1/2 (TLS)", "eap_tls", ModeKind::CipherChoice},
    {"WPA Enterprise 1/2 (TLS with SCEP)", "eap_tls", ModeKind::CipherChoice},
    {"WPA Enterprise 1/2 (LEAP)", "eap_leap", ModeKind::CipherChoice},
    {"WPA Enterprise 1/2 (EAP-FAST)", "eap_fast", ModeKind::OtherEnterprise},
    {"WPA Enterprise 1/2 (PEAP/GTC)", "peap_gtc", ModeKind::OtherEnterprise},
    {"WPA Enterprise 1/2 (PEAP/MSCHAPv2)", "peap_mschapv2", ModeKind::OtherEnterprise},
    {"802.1X (TLS/EAP)", "wired_tls", ModeKind::Wired},
    {"802.1X (TLS/EAP with SCEP)", "wired_tls", ModeKind::Wired},
    {"802.1X (PEAP/MSCHAPv2)", "wired_peap", ModeKind::Wired},
    {"Unsecured", "unsecured", ModeKind::Unsecured},
};

ModeKind KindOf(const QString &securityMode)
{
    if (securityMode.isEmpty())
        return ModeKind::Unsecured;
    const auto *const mode =
        std::find_if(std::begin(MODES), std::end(MODES), [&securityMode](const Mode &candidate) {
            return securityMode == QLatin1String(candidate.displayName) ||
                   securityMode == QLatin1String(candidate.key);
        });
    return mode == std::end(MODES) ? ModeKind::Unknown : mode->kind;
}

/// Networks of these names are for interfaces without a radio, whatever else they say.
bool HasWiredName(const QString &networkName)
{
    return networkName.startsWith(QLatin1String("lan")) || networkName.startsWith(QLatin1String("wiredeth"));
}

/// Why wpa_supplicant would not take a WPA passphrase (IEEE 802.11-2020, J.4.1), or nothing.
QString PassphraseProblem(const QString &passphrase)
{
    if (passphrase.isEmpty())
        return QStringLiteral("no passphrase");
    const int size = passphrase.toUtf8().size();
    return size >= 8 && size <= 63 ? QString() : QStringLiteral("passphrase: not from 8 to 63 bytes long");
}

bool AreCipherNames(const QString &cipher)
{
    const QStringList known = {QStringLiteral("CCMP"), QStringLiteral("TKIP"), QStringLiteral("GCMP"),
                               QStringLiteral("CCMP-256"), QStringLiteral("GCMP-256")};
    const QStringList names = cipher.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    return !names.isEmpty() && std::all_of(names.begin(), names.end(),
                                           [&known](const QString &name) { return known.contains(name); });
}

/// Checks one property after the other. Returns why the network must be left out, or nothing.
QString CheckProperties(ZebNetwork &network, QStringList &problems)
{
    QString refusal;
    for (auto property = network.properties.begin(); property != network.properties.end();) {
        const Rule *rule = RuleFor(property.key());
        QString reason = ZebCheck::TextProblem(property.value());
        if (reason.isEmpty())
            reason = rule ? rule->check(property.value()) : QStringLiteral("no such property");
        if (reason.isEmpty()) {
            ++property;
            continue;
        }
        reason = QStringLiteral("%1: %2").arg(property.key().left(64), reason);
        if (rule && rule->isEssential)
            refusal = reason;
        else
            problems << reason +
                            (rule ? QStringLiteral("; its default is used") : QStringLiteral("; not used"));
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

/// Why the security mode cannot work with the rest of the definition, or nothing.
QString ModeProblem(ModeKind kind, const ZebNetwork &network)
{
    const QString passphrase = network.properties.value(QStringLiteral("passphrase"));
    if (kind != ModeKind::Wired && !network.properties.contains(QStringLiteral("ssid")))
        return QStringLiteral("no ssid, and its name is not that of a wired network (lan..., wiredeth...)");
    if (kind == ModeKind::Wep && !network.properties.contains(QStringLiteral("wepKey")))
        return QStringLiteral("no wepKey");
    if (kind == ModeKind::Psk)
        return PassphraseProblem(passphrase);
    if (kind == ModeKind::Sae && passphrase.isEmpty())
        return QStringLiteral("no passphrase");
    return QString();
}

QString StaticAddressProblem(const ZebNetwork &network)
{
    if (network.properties.value(QStringLiteral("staticIp")) != QLatin1String("true"))
        return QString();
    const bool isComplete = network.properties.contains(QStringLiteral("ipAddress")) &&
                            network.properties.contains(QStringLiteral("netmask"));
    return isComplete ? QString() : QStringLiteral("staticIp without a valid ipAddress and netmask");
}

void CheckCipher(ModeKind kind, ZebNetwork &network, QStringList &problems)
{
    const auto cipher = network.properties.find(QStringLiteral("cipher"));
    if (kind != ModeKind::CipherChoice || cipher == network.properties.end() || AreCipherNames(*cipher))
        return;
    problems << QStringLiteral("cipher: \"%1\" is not a list of CCMP, TKIP, GCMP, CCMP-256 and GCMP-256; its "
                               "default is used")
                    .arg(*cipher);
    network.properties.erase(cipher);
}

} // namespace

QString ZebCheck::TextProblem(const QString &text)
{
    if (!text.isValidUtf16() || std::any_of(text.begin(), text.end(), BreaksLine))
        return QStringLiteral("holds a control character or a line end");
    if (text.toUtf8().size() > TEXT_LIMIT)
        return QStringLiteral("is longer than %1 bytes").arg(TEXT_LIMIT);
    return QString();
}

bool ZebCheck::CheckNetwork(ZebNetwork &network, QStringList &problems)
{
    QString refusal = CheckProperties(network, problems);
    CheckHosts(network.hosts, problems);

    const QString securityMode = network.properties.value(QStringLiteral("securityMode"));
    const ModeKind kind = KindOf(securityMode);
    const bool isWired = HasWiredName(network.properties.value(QStringLiteral("name")));
    if (kind == ModeKind::Unknown)
        problems << QStringLiteral("securityMode: \"%1\" is not known, %2")
                        .arg(securityMode, isWired ? QStringLiteral("the supplicant gets nothing")
                                                   : QStringLiteral("the network counts as unsecured"));
    CheckCipher(kind, network, problems);

    if (refusal.isEmpty())
        refusal = StaticAddressProblem(network);
    if (refusal.isEmpty() && !isWired)
        refusal = ModeProblem(kind, network);
    if (!refusal.isEmpty())
        problems << QStringLiteral("left out: ") + refusal;
    return refusal.isEmpty();
}
