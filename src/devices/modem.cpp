// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "modem.h"

#include "program.h"
#include "zebsystem.h"

namespace {

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
    modemConnected = IsConnectedIn(AskModemTool());
}

bool Modem::IsModemReady()
{
    return IsModemIn(AskModemTool());
}
