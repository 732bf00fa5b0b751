// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corviworld.h"

#include "corvi.h"
#include "logging.h"
#include "supervisor.h"

#include <QFileInfo>
#include <QRegularExpression>
#include <QSharedMemory>

#include <cstring>

namespace CorviWorld {

void SetLevel(int level)
{
    Logging::GetInstance(level, false);
}

QByteArray ReadSegment()
{
    QSharedMemory reader(SEGMENT_KEY);
    if (!reader.attach(QSharedMemory::ReadOnly))
        return QByteArray();
    reader.lock();
    const QByteArray contents(static_cast<const char *>(reader.constData()), reader.size());
    reader.unlock();
    return contents;
}

void FillSegment(char byte)
{
    QSharedMemory writer(SEGMENT_KEY);
    if (!writer.attach() || !writer.lock())
        qFatal("no segment");
    std::memset(writer.data(), byte, static_cast<size_t>(writer.size()));
    writer.unlock();
}

int LogCount(const QString &text)
{
    return static_cast<int>(TestSupport::LogLines().count(text));
}

bool WasEchoed(const QString &line, const QStringList &debugOutput)
{
    return !debugOutput.filter(QStringLiteral("Logging::LogMessage \"") + line + QLatin1Char('"')).isEmpty();
}

QStringList JournalOf(const QString &start)
{
    return TestSupport::Journal().filter(
        QRegularExpression(QLatin1Char('^') + QRegularExpression::escape(start)));
}

void MakeInterface(const QString &name)
{
    const QString farEnd = QStringLiteral("far-") + name;
    TestSupport::RealIp(
        {"link", "add", "name", name, "type", "veth", "peer", "name", farEnd, "netns", "far"});
    TestSupport::RealIp({"-n", "far", "link", "set", "dev", farEnd, "up"});
}

void MakeMachine(const QByteArray &store, const QStringList &interfaces)
{
    TestSupport::WriteStore(store);
    for (const QString &name : interfaces)
        MakeInterface(name);
}

void BringUp(const QString &name)
{
    TestSupport::RealIp({"link", "set", "dev", name, "up"});
}

void PlugCable(const QString &name)
{
    TestSupport::RealIp({"-n", "far", "link", "set", "dev", "far-" + name, "up"});
}

void PullCable(const QString &name)
{
    TestSupport::RealIp({"-n", "far", "link", "set", "dev", "far-" + name, "down"});
}

void UseWorkingTools()
{
    TestSupport::Answer(QStringLiteral("ifconfig"),
                        "case $2 in\n"
                        "up | down) ip link set dev $1 $2 ;;\n"
                        "*) ip addr replace $2/24 dev $1; ip link set dev $1 up ;;\n"
                        "esac");
    TestSupport::Answer(QStringLiteral("ip"), "exec ip \"$@\"");
}

void UseDhcpServer()
{
    TestSupport::Answer(QStringLiteral("dhclient"), "[ $1 = -v ] || exit 0\n"
                                                    "ip addr replace 10.0.0.5/24 dev $4\n"
                                                    "echo 'bound to 10.0.0.5 -- renewal in 300 seconds.'");
}

void StartFromNothing()
{
    using namespace TestSupport;
    RestorePrograms();
    ClearAnswers();
    RemoveInterfaces();
    RemoveStore();
    for (const QString &path : {DEBUG_FLAG, KILL_FLAG, RELOAD_FLAG, REFRESH_FLAG, KEEP_WIRELESS_FLAG,
                                DHCP_EVENT, SUPPLICANT_FILE, QStringLiteral("/tmp/corvin"),
                                QStringLiteral("/tmp/dhclient.log"), QStringLiteral("/var/lib/corvi")})
        Remove(path);
    WriteFile(DHCLIENT_CONF, "# present\n");
    UseWorkingTools();
    SetLevel(2);
    Supervisor::StopTicking();
    Supervisor::Set(GONE);
    Supervisor::Forget();
    Corvi::conn_counter = 0;
    if (!QFileInfo::exists(QStringLiteral("/run/netns/far")))
        RealIp({"netns", "add", "far"});
    ClearJournal();
    ClearLog();
}

void Forget()
{
    TestSupport::ClearJournal();
    TestSupport::ClearLog();
}

void LogFromHere(int level)
{
    SetLevel(level);
    Forget();
}

int DhcpAttempts()
{
    return static_cast<int>(JournalOf(QStringLiteral("dhclient -v")).size());
}

} // namespace CorviWorld
