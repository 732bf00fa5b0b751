// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebcert.h"
#include "zebnetconfig.h"
#include "zebnetstatus.h"
#include "zebsystem.h"
#include "zebxmlconfig.h"

#include <cstdlib>
#include <cstring>

// A library that knows one network by heart.

ZebXmlConfig::ZebXmlConfig() : folder("/somewhere")
{
    std::memset(buffer, 'x', sizeof buffer);
}

ZebXmlConfig::~ZebXmlConfig()
{
    Flush();
}

void ZebXmlConfig::Flush()
{
    std::memset(buffer, 'y', sizeof buffer);
}

QString ZebXmlConfig::GetConfig(const QString &path, const QString &key, bool, const QString &defaultValue,
                                bool)
{
    return path.endsWith("/lan") && key == "name" ? QString("lan") : defaultValue;
}

ZebNetConfig::ZebNetConfig(ZebXmlConfig *)
    : revision(7),
      staticDns(false),
      staticIp(false),
      allowWeakCerts(false),
      scep(false),
      caCert("none"),
      bgScanLongInterval(0),
      bgScanSignal(0),
      bgScanShortInterval(0),
      useBgScan(false),
      priority(0),
      scanSsid(false),
      securityMode("Unsecured")
{
}

ZebNetConfig::~ZebNetConfig() = default;

bool ZebNetConfig::Load(const QString &networkName, bool)
{
    name = networkName;
    staticIp = true;
    ipAddress = "10.77.0.9";
    netmask = "255.255.255.0";
    gateway = "10.77.0.1";
    return networkName == "lan";
}

QString ZebNetConfig::toString() const
{
    return name + ipAddress;
}

QString ZebNetConfig::GetName() const
{
    return name;
}

QStringList ZebNetConfig::GetNetworkNames()
{
    return {"lan"};
}

ZebNetStatus::~ZebNetStatus() = default;

void ZebNetStatus::SetIfaceInfo(const QString &mac, const QString &ip, const QString &broadcast,
                                const QString &mask)
{
    text = QStringList({mac, ip, broadcast, mask}).join(' ');
}

void ZebNetStatus::SetWireless(bool isWireless)
{
    flags[0] = isWireless ? 'w' : '-';
}

void ZebNetStatus::SetConnected(bool isConnected)
{
    flags[1] = isConnected ? 'c' : '-';
}

QString ZebNetStatus::GetBroadcast() const
{
    return text.section(' ', 2, 2);
}

QByteArray ZebNetStatus::GetData() const
{
    return QByteArray(flags, 2) + ' ' + text.toLatin1();
}

QString ZebCert::GetFullPath(const QString &certName)
{
    return "/somewhere/" + certName;
}

int ZebSystem::execShell(const QString &commandLine)
{
    return std::system(commandLine.toLocal8Bit().constData());
}
