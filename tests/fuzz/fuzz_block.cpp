// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "logging.h"
#include "networkblock.h"
#include "securitymodes.h"
#include "testsupport.h"
#include "wpasupplicantcfg.h"
#include "zebcert.h"
#include "zebnetconfig.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QHostInfo>

#include <cstdint>
#include <cstdlib>
#include <utility>

namespace {

constexpr char TEXT_END = '\xff';
const QString EXTRA_OPTIONS = QStringLiteral("/tmp/config/files/wpa_supp_wifi");
const QString EXTRA_GLOBALS = QStringLiteral("/tmp/config/files/wpa_supp_conf");

using Option = std::pair<QByteArray, QByteArray>;
using Options = QVector<Option>;

void Require(bool isTrue)
{
    if (!isTrue)
        std::abort();
}

/// The words of a list, which the supplicant reads with any blanks before, between and behind them.
QByteArray Words(const QString &list)
{
    return list.simplified().toUtf8();
}

/// As the supplicant reads a line (wpa_supplicant.conf(5)): up to a number sign outside quotes, without the
/// blanks around; a value in quotes ends with the last one.
Option Read(QByteArray line)
{
    bool isQuoted = false;
    for (int i = 0; i < line.size(); ++i) {
        isQuoted ^= line.at(i) == '"';
        if (line.at(i) == '#' && !isQuoted)
            line.truncate(i);
    }
    line = line.trimmed();
    Require(line.count('=') > 0);
    const QByteArray key = line.left(line.indexOf('='));
    const QByteArray value = line.mid(line.indexOf('=') + 1);
    return {key, key == "pairwise" || key == "group" ? Words(QString::fromUtf8(value)) : value};
}

/// The options of a whole block, which must be all there is.
Options ReadBlock(const QByteArray &text)
{
    QByteArrayList lines = text.split('\n');
    Require(lines.size() > 3 && lines.takeFirst() == "network={");
    Require(lines.takeLast().isEmpty() && lines.takeLast() == "}");
    Options options;
    for (const QByteArray &line : qAsConst(lines)) {
        Require(line.startsWith('\t') && line.size() < 2000);
        options.append(Read(line));
    }
    return options;
}

QByteArray Quoted(const QString &value)
{
    return '"' + value.toUtf8() + '"';
}

QByteArray Hashed(const QString &password)
{
    const QByteArray utf16(reinterpret_cast<const char *>(password.utf16()),
                           static_cast<int>(password.size()) * 2);
    return "hash:" + QCryptographicHash::hash(utf16, QCryptographicHash::Md4).toHex();
}

void AppendCertificate(Options &options, const QByteArray &key, const QString &value, bool mayBePath)
{
    if (value == QLatin1String("none"))
        return;
    const bool isPath = mayBePath && value.startsWith(QLatin1Char('/'));
    options.append({key, Quoted(isPath ? value : ZebCert::GetFullPath(value))});
}

/// The values of a definition that its block must hold in this order, as they are read.
Options ValuesOf(const ZebNetConfig &c)
{
    const QString &mode = c.securityMode;
    if (mode == QLatin1String("wep") || mode == QLatin1String("wep_shared"))
        return {{"wep_key0", c.wepKey.toUtf8().trimmed()}};
    if (mode == QLatin1String("wpa") || mode == QLatin1String("wpa2_3"))
        return {{"psk", Quoted(c.passphrase)}};
    if (mode == QLatin1String("sae"))
        return {{"sae_password", Quoted(c.passphrase)}};
    if (mode == QLatin1String("unsecured"))
        return {};

    Options values;
    const bool isTls = mode == QLatin1String("eap_tls") || mode == QLatin1String("wired_tls");
    const bool isChosen = mode == QLatin1String("eap_tls") || mode == QLatin1String("eap_leap");
    const QByteArray cipher = isChosen ? Words(c.cipher) : QByteArray("CCMP");
    if (isChosen || mode.startsWith(QLatin1String("peap")))
        values.append({"pairwise", cipher});
    if (isChosen || mode == QLatin1String("peap_mschapv2"))
        values.append({"group", cipher});
    if (mode == QLatin1String("eap_fast"))
        values.append({"anonymous_identity", Quoted(QStringLiteral("FAST-") + c.identity)});
    // The name of the machine is put in for the identity alone.
    const bool isHostName = c.identity.toLower() == QLatin1String("$hostname");
    values.append({"identity", Quoted(isHostName ? QHostInfo::localHostName() : c.identity)});
    if (!isTls)
        values.append({"password", Hashed(c.password)});
    if (isTls || mode.endsWith(QLatin1String("peap")) || mode == QLatin1String("peap_mschapv2"))
        AppendCertificate(values, "ca_cert", c.caCert, isTls);
    if (isTls) {
        AppendCertificate(values, "client_cert", c.clientCert, true);
        AppendCertificate(values, "private_key", c.privateKey, true);
        values.append({"private_key_passwd", Quoted(c.privateKeyPassword)});
    }
    if (mode == QLatin1String("eap_fast"))
        values.append({"pac_file", Quoted(QStringLiteral("/tmp/config/files/eap-fast-pac/") + c.pacFile)});
    return values;
}

ZebNetConfig Definition(const QList<QByteArray> &texts)
{
    static const QStringList modes = SecurityModes.values();
    ZebNetConfig config(nullptr);
    const int chosen = texts.first().isEmpty() ? 0 : static_cast<unsigned char>(texts.first().at(0)) - 'a';
    config.securityMode = modes.at(qAbs(chosen) % static_cast<int>(modes.size()));
    int next = 0;
    for (QString *value : {&config.ssid, &config.wepKey, &config.passphrase, &config.identity,
                           &config.password, &config.caCert, &config.clientCert, &config.privateKey,
                           &config.privateKeyPassword, &config.cipher, &config.pacFile, &config.band})
        *value = QString::fromUtf8(texts.value(++next));
    return config;
}

QStringList BlockOf(ZebNetConfig config)
{
    // Asking the tool would take most of the time; what it says is read elsewhere.
    WpaSupplicantCfg::_useHashedPsk = !config.securityMode.startsWith(QLatin1String("wpa"));
    WpaSupplicantCfg writer(nullptr);
    const bool isWireless = !config.securityMode.startsWith(QLatin1String("wired"));
    const QStringList problems = NetworkBlock(writer, config, isWireless, WirelessSettings()).Build();
    Require(problems.isEmpty() == !writer.Block().isEmpty());
    for (const QString &problem : problems)
        Require(!problem.contains(QLatin1Char('\n')));
    return writer.Block();
}

/// Every value is read as it was given, and nothing else is read.
void RequireValues(const Options &options, const ZebNetConfig &config)
{
    static const QByteArrayList given = {
        "wep_key0", "psk",      "sae_password", "pairwise",    "group",       "anonymous_identity",
        "identity", "password", "ca_cert",      "client_cert", "private_key", "private_key_passwd",
        "pac_file"};
    static const QByteArrayList fixed = {"ssid",          "scan_ssid",   "priority",  "freq_list", "key_mgmt",
                                         "auth_alg",      "eap",         "proto",     "phase1",    "phase2",
                                         "wep_tx_keyidx", "eapol_flags", "ieee80211w"};
    Options values;
    for (const Option &option : options) {
        if (given.contains(option.first))
            values.append(option);
        else
            Require(fixed.contains(option.first));
        if (option.first == "ssid")
            Require(option.second == Quoted(config.ssid));
    }
    Require(values == ValuesOf(config));
}

/// The platform's lines stand between two marks and change nothing around them.
void RequireExtraOptions(const QStringList &block, const ZebNetConfig &config, const QByteArray &extra)
{
    TestSupport::WriteFile(EXTRA_OPTIONS, extra);
    QStringList with = BlockOf(config);
    TestSupport::Remove(EXTRA_OPTIONS);
    const auto begin = with.indexOf(QStringLiteral("\t#START TEST CONF\n"));
    const auto end = with.lastIndexOf(QStringLiteral("\t#END TEST CONF\n"));
    Require((begin == -1) == (end == -1));
    for (auto line = end; begin != -1 && line >= begin; --line)
        with.removeAt(line);
    Require(with == block);
}

/// The platform's lines stand in the head of the file, and the blocks behind as they were built.
void RequireFile(const QStringList &block, const QByteArray &extra)
{
    TestSupport::WriteFile(EXTRA_GLOBALS, extra);
    const QByteArray text = WpaSupplicantCfg::FileText(block);
    TestSupport::Remove(EXTRA_GLOBALS);
    QByteArray lines;
    for (const QByteArray &line : extra.split('\n'))
        lines += line.isEmpty() ? QByteArray() : line + '\n';
    Require(text.startsWith("ctrl_interface=") && text.endsWith(lines + '\n' + block.join('\n').toUtf8()));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static QCoreApplication application(*argc, *argv);
    Logging::GetInstance(1, false);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    return 0;
}

/// Any texts as the values of a definition that no store has checked, in every mode: the supplicant reads the
/// same values, or the network is left out. The inputs are texts with 0xff between them: a letter for the
/// mode, the values, the platform's two files.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QList<QByteArray> texts =
        QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)).split(TEXT_END);
    const ZebNetConfig config = Definition(texts);
    // Programs are asked for it; what they may say comes as an identity of its own.
    if (config.identity.toLower() == QLatin1String("$mac"))
        return 0;

    const QStringList block = BlockOf(config);
    if (!block.isEmpty())
        RequireValues(ReadBlock(block.join('\n').toUtf8()), config);
    if (!texts.value(13).isEmpty())
        RequireExtraOptions(block, config, texts.value(13));
    if (!texts.value(14).isEmpty())
        RequireFile(block, texts.value(14));
    return 0;
}
