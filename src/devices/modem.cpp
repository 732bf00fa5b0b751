// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "modem.h"

#include "program.h"
#include "zebsystem.h"

#include <algorithm>

namespace {

/// In bytes: it goes into a line of the log.
constexpr int LONGEST_FAULT = 100;

QByteArray AskModemTool()
{
    Program process;
    process.Start(QStringLiteral("modem-tool.sh"), {QStringLiteral("status")});
    process.WaitForEnd(-1);
    return process.readAllStandardOutput();
}

} // namespace

Modem::Modem(const QString &interfaceName, QObject *parent) : NetworkDevice(interfaceName, parent)
{
    configurable = false;
    driver = QStringLiteral("modem");
    InitDevice();
}

Modem::~Modem() = default;

void Modem::Connect()
{
    ZebSystem::execShell(QStringLiteral("modem-tool.sh connect"));
    modemConnected = false;
}

void Modem::Disconnect()
{
    ZebSystem::execShell(QStringLiteral("modem-tool.sh disconnect"));
    modemConnected = false;
}

void Modem::ConfigureIFace()
{
    ZebSystem::execShell(QStringLiteral("modem-tool.sh ip_config"));
}

void Modem::UpdateConnectionStatus()
{
    const QByteArray answer = AskModemTool();
    modemConnected = IsConnectedIn(answer);
    connectionFault = FaultIn(answer);
}

QString Modem::FaultIn(const QByteArray &answer)
{
    const QByteArray words = answer.left(LONGEST_FAULT).simplified();
    const auto isPrintable = [](char c) {
        return c >= ' ' && c <= '~';
    };
    const bool isText = std::all_of(words.begin(), words.end(), isPrintable);
    return isText && words != "connected" && words != "disconnected" ? QString::fromLatin1(words) : QString();
}

bool Modem::IsModemReady()
{
    return IsModemIn(AskModemTool());
}
