// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "dhcpclients.h"

#include "processstat.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QList>
#include <QStringList>
#include <QThread>
#include <QVector>

#include <algorithm>
#include <chrono>

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// A client that listens is gone within the first one.
constexpr std::chrono::milliseconds PAUSE{10};
/// 2 s of them for a client that is asked, and as many for one that is killed.
constexpr int PAUSES = 200;

const QByteArray CLIENT = QByteArrayLiteral("dhclient");
/// What a client runs when its address comes or goes, as far as the kernel keeps a name (15 characters).
const QByteArray SCRIPT = QByteArrayLiteral("dhclient-script");
/// A client's options behind which a word stands that is no interface (dhclient(8)).
const QList<QByteArray> OPTIONS_WITH_A_VALUE{"-4o6",
                                             "-e",
                                             "-p",
                                             "-s",
                                             "-g",
                                             "-D",
                                             "-cf",
                                             "-df",
                                             "-lf",
                                             "-pf",
                                             "-sf",
                                             "--decline-wait-time",
                                             "--address-prefix-len",
                                             "--dad-wait-time",
                                             "--prefix-len-hint"};

/// Empty when the process is gone, and the command line also when it waits to be reaped.
QByteArray ReadOfProcess(const QByteArray &process, const char *file)
{
    QFile source(QString::fromLatin1("/proc/" + process + '/' + file));
    return source.open(QIODevice::ReadOnly) ? source.readAll() : QByteArray();
}

bool IsOurs(const QByteArray &process)
{
    struct stat owner = {};
    return ::stat(QByteArray("/proc/" + process).constData(), &owner) == 0 && owner.st_uid == ::geteuid() &&
           ProcessStat::IsInOurNetwork(process);
}

struct Process
{
    QByteArray id;
    QByteArray commandLine; ///< each word ends with a NUL; never empty
};

/// The interfaces that a client's command line names, between its options (dhclient(8)).
QList<QByteArray> InterfacesOf(const QList<QByteArray> &words)
{
    QList<QByteArray> names;
    for (int i = 1; i < words.size(); ++i) {
        const QByteArray &word = words.at(i);
        if (OPTIONS_WITH_A_VALUE.contains(word))
            ++i;
        // Behind the name of an interpreter stands that of its script; no interface's has a slash.
        else if (!word.startsWith('-') && !word.contains('/'))
            names.append(word);
    }
    return names;
}

/// Whether a client with this command line gives the interface IPv4 addresses. One that names no interface
/// serves every one.
bool Serves(const QByteArray &commandLine, const QByteArray &interfaceName)
{
    const QList<QByteArray> words = commandLine.chopped(1).split('\0');
    if (words.contains("-6"))
        return false;
    const QList<QByteArray> names = InterfacesOf(words);
    return names.isEmpty() || names.contains(interfaceName);
}

/// The running processes of this name. Each is read once, as it may end before a second look at it.
QVector<Process> Running(const QByteArray &name)
{
    QVector<Process> found;
    const QStringList processes =
        QDir(QStringLiteral("/proc")).entryList({QStringLiteral("[1-9]*")}, QDir::Dirs, QDir::Unsorted);
    for (const QString &entry : processes) {
        const QByteArray id = entry.toLatin1();
        if (ReadOfProcess(id, "comm") != name + '\n' || !IsOurs(id))
            continue;
        const QByteArray commandLine = ReadOfProcess(id, "cmdline");
        if (!commandLine.isEmpty())
            found.append({id, commandLine});
    }
    return found;
}

QVector<Process> ClientsOf(const QByteArray &interfaceName)
{
    QVector<Process> clients = Running(CLIENT);
    const auto isAnothers = [&interfaceName](const Process &client) {
        return !Serves(client.commandLine, interfaceName);
    };
    clients.erase(std::remove_if(clients.begin(), clients.end(), isAnothers), clients.end());
    return clients;
}

/// Scripts that work for the interface, as their environment says (dhclient-script(8)); one that does not say
/// may work for any.
QVector<Process> ScriptsOf(const QByteArray &interfaceName)
{
    QVector<Process> scripts = Running(SCRIPT);
    const QByteArray anyName("\0interface=", 11);
    const QByteArray ourName = anyName + interfaceName + '\0';
    const auto isAnothers = [&](const Process &script) {
        const QByteArray environment = '\0' + ReadOfProcess(script.id, "environ");
        return environment.contains(anyName) && !environment.contains(ourName);
    };
    scripts.erase(std::remove_if(scripts.begin(), scripts.end(), isAnothers), scripts.end());
    return scripts;
}

void Signal(const QVector<Process> &processes, int signalNumber)
{
    for (const Process &process : processes)
        ::kill(process.id.toInt(), signalNumber);
}

/// True once all are gone. A script is only killed: ended early, it leaves half a resolver file.
bool EndWith(const QByteArray &interfaceName, int signalNumber)
{
    for (int pass = 0; pass < PAUSES; ++pass) {
        const QVector<Process> clients = ClientsOf(interfaceName);
        const QVector<Process> scripts = ScriptsOf(interfaceName);
        if (clients.isEmpty() && scripts.isEmpty())
            return true;
        Signal(clients, signalNumber);
        if (signalNumber == SIGKILL)
            Signal(scripts, signalNumber);
        QThread::msleep(static_cast<unsigned long>(PAUSE.count()));
    }
    return false;
}

} // namespace

bool DhcpClients::End(const QString &interfaceName)
{
    const QByteArray kernelName = QFile::encodeName(interfaceName);
    if (ClientsOf(kernelName).isEmpty())
        return false;
    if (!EndWith(kernelName, SIGTERM))
        EndWith(kernelName, SIGKILL);
    return true;
}

std::optional<pid_t> DhcpClients::Find(const QString &interfaceName)
{
    const QVector<Process> clients = ClientsOf(QFile::encodeName(interfaceName));
    return clients.isEmpty() ? std::nullopt : std::make_optional<pid_t>(clients.first().id.toInt());
}
