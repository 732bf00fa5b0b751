// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wirelessdevice.h"

#include "logging.h"
#include "networksetting.h"
#include "paths.h"
#include "platformfile.h"
#include "utils.h"
#include "zebxmlconfig.h"

#include <QFile>
#include <QRegularExpression>

namespace {

/// The tool's own lines stay below 250 characters, an escaped SSID included. Patterns that hold several
/// ".*" take time that grows with more than the length's square, so no more than this is given to them.
constexpr int LINE_LIMIT = 512;

bool IsNewDriverWanted()
{
    ZebXmlConfig store;
    return IsNetworkSettingOn(store, QStringLiteral("useNewDriver")) ||
           PlatformFile::Exists(USE_NL_DRIVER_FLAG) || QFile::exists(USE_NL_DRIVER_TEMPORARY_FLAG);
}

/// Sets `field` to what the pattern's second group takes of the line; false, and nothing set, where the
/// pattern does not match.
bool Take(const QRegularExpression &pattern, const QString &line, QString &field)
{
    const QRegularExpressionMatch match = pattern.match(line);
    if (match.hasMatch())
        field = match.captured(2);
    return match.hasMatch();
}

} // namespace

WirelessDevice::WirelessDevice(const QString &interfaceName, QObject *parent)
    : NetworkDevice(interfaceName, parent)
{
    static int madeSoFar = 0;

    isWireless = true;
    configurable = false;
    usesSupplicant = true;
    WirelessDevice::UseNewDriver(IsNewDriverWanted());
    Log(Level::TRACE) << "WirelessDevice::WirelessDevice Initialized" << ++madeSoFar;
    InitDevice();
}

WirelessDevice::~WirelessDevice() = default;

void WirelessDevice::RefreshWirelessStatus()
{
    TakeDetails(Utils::Execute(QStringLiteral("iwconfig"), {name}, false));
}

void WirelessDevice::TakeDetails(const QStringList &lines)
{
    static const QRegularExpression essidPattern(QStringLiteral("(.*)ESSID:\"(.*)\"(.*)"));
    static const QRegularExpression essidAndNicknamePattern(
        QStringLiteral("(.*)ESSID:\"(.*)\"(.*)Nickname:\"(.*)\"(.*)"));
    static const QRegularExpression accessPointPattern(QStringLiteral("(.*)Access Point:(.*)"));
    static const QRegularExpression encryptionPattern(QStringLiteral("(.*)Encryption key:(.*)"));
    static const QRegularExpression qualityPattern(
        QStringLiteral("(.*)Quality[: =](\\d+)(.*)(\\d+)(.*)(\\d+)(.*)"));

    for (const QString &wholeLine : lines) {
        const QString line = wholeLine.left(LINE_LIMIT);
        // The first pattern alone would take everything up to the last quote of the nickname.
        if (Take(essidPattern, line, essid))
            Take(essidAndNicknamePattern, line, essid);
        Take(accessPointPattern, line, accessPoint);
        Take(encryptionPattern, line, encKey);
        QString quality;
        if (Take(qualityPattern, line, quality))
            linkQuality = quality.toInt();
    }
}

void WirelessDevice::UseNewDriver(bool on)
{
    driver = on ? QStringLiteral("nl80211,wext") : QStringLiteral("wext,nl80211");
    driverChosen = true;
    Log(Level::TRACE) << "Driver = " << driver;
}

ZebNetConfig *WirelessDevice::getCurrentConfig()
{
    Log(Level::TRACE) << "WirelessDevice::getCurrentConfig()";
    return NetworkDevice::getCurrentConfig();
}
