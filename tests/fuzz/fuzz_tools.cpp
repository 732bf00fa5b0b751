// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "bondeddevice.h"
#include "logging.h"
#include "modem.h"
#include "modinfo.h"
#include "processstat.h"
#include "utils.h"
#include "wirelessdevice.h"
#include "wpasupplicantcfg.h"

#include <QCoreApplication>
#include <QRegularExpression>

#include <array>
#include <cstdint>
#include <cstdlib>

namespace {

void Require(bool isTrue)
{
    if (!isTrue)
        std::abort();
}

bool IsOneLine(const QString &text)
{
    return !text.contains(QLatin1Char('\n')) && !text.contains(QChar(0));
}

/// As all output of tools is taken, the transcript of `dhclient` too.
QStringList Lines(const QByteArray &output)
{
    QStringList lines = Utils::LinesOf(output);
    for (const QString &line : lines)
        Require(IsOneLine(line));
    return lines;
}

void TryIwconfig(const QByteArray &output)
{
    static WirelessDevice device(QStringLiteral("wlan0"), nullptr);
    device.NetworkDevice::RefreshWirelessStatus();
    device.TakeDetails(Lines(output));
    for (const QString &field : {device.essid, device.accessPoint, device.encKey})
        Require(IsOneLine(field) && field.size() <= output.size());
    Require(device.linkQuality >= 0);
}

void TryWpaPassphrase(const QByteArray &output)
{
    // It goes into the file without quotes, and no gate follows.
    static const QRegularExpression digits(QStringLiteral("\\A[0-9A-Fa-f]*\\z"));
    const QString key = WpaSupplicantCfg::KeyIn(Lines(output));
    Require(digits.match(key).hasMatch() && key.isNull() == key.isEmpty());
}

void TryIpLink(const QByteArray &output)
{
    for (const WpaSupplicantCfg::Link &link : WpaSupplicantCfg::LinksIn(Lines(output)))
        Require(!link.first.contains(QLatin1Char(' ')) && !link.first.contains(QLatin1Char('@')) &&
                !link.second.isEmpty() && IsOneLine(link.first + link.second));
}

void TryUevent(const QByteArray &contents)
{
    const QString driver = ModInfo::DriverIn(QString::fromUtf8(contents));
    Require(!driver.contains(QLatin1Char('\n')) && driver == driver.trimmed());
    Require(!ModInfo::GetDeviceDesc(driver).isEmpty());
}

void TrySavedMac(const QByteArray &contents)
{
    const QString address = BondedDevice::AddressIn(contents);
    Require(address.size() <= 17 && !address.contains(QLatin1Char('\n')));
}

void TryProcessState(const QByteArray &contents)
{
    const auto isStopped = ProcessStat::IsStopped(contents);
    Require(isStopped.has_value() == contents.contains(')'));
}

void TryEscapedSsid(const QByteArray &text)
{
    const QString ssid = Utils::SsidToString(QString::fromUtf8(text));
    Require(ssid.size() <= text.size());
}

void TryModinfo(const QByteArray &output)
{
    // Its text ends at the first NUL, as that of every tool.
    const QByteArray text = '\n' + QByteArray(output.constData());
    Require(BondedDevice::IsDriverIn(Lines(output)) == text.contains("\nfilename:"));
}

void TryModemTool(const QByteArray &output)
{
    const bool isConnected = Modem::IsConnectedIn(output);
    Require(!isConnected || (Modem::IsModemIn(output) && output.count("connected") == 1));
}

using Try = void (*)(const QByteArray &);
constexpr std::array<Try, 9> TRIES = {TryIwconfig,     TryWpaPassphrase, TryIpLink,  TryUevent,   TrySavedMac,
                                      TryProcessState, TryEscapedSsid,   TryModinfo, TryModemTool};

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static QCoreApplication application(*argc, *argv);
    Logging::GetInstance(1, false);
    return 0;
}

/// Any bytes as what a tool prints or a file of the system holds. The first byte, a digit in the corpus,
/// chooses which one.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const QByteArray text(reinterpret_cast<const char *>(data) + 1, static_cast<int>(size) - 1);
    TRIES[static_cast<uint8_t>(data[0] - '1') % TRIES.size()](text);
    return 0;
}
