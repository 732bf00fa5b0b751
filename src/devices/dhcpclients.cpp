// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "dhcpclients.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QList>
#include <QStringList>
#include <QThread>
#include <QVector>

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

/// Empty when the process is gone, and the command line also when it waits to be reaped.
QByteArray ReadOfProcess(const QByteArray &process, const char *file)
{
    QFile source(QString::fromLatin1("/proc/" + process + '/' + file));
    return source.open(QIODevice::ReadOnly) ? source.readAll() : QByteArray();
}

/// Whether a process runs as our user and in our network namespace: a container's clients show in /proc, too.
bool IsOurs(const QByteArray &process)
{
    const QByteArray folder = "/proc/" + process;
    struct stat owner = {};
    struct stat theirs = {};
    struct stat ours = {};
    return ::stat(folder.constData(), &owner) == 0 && owner.st_uid == ::geteuid() &&
           ::stat(QByteArray(folder + "/ns/net").constData(), &theirs) == 0 &&
           ::stat("/proc/self/ns/net", &ours) == 0 && theirs.st_dev == ours.st_dev &&
           theirs.st_ino == ours.st_ino;
}

/// Whether a client with this command line gives the interface IPv4 addresses. One that names no interface
/// serves every one.
bool Serves(const QByteArray &commandLine, const QByteArray &iface)
{
    QList<QByteArray> words = commandLine.split('\0');
    words.removeLast(); // Each word ends with a NUL.
    if (words.contains("-6"))
        return false;
    return words.size() == 1 || words.last().startsWith('-') || words.contains(iface);
}

/// The running processes of this name.
QVector<QByteArray> Running(const QByteArray &name)
{
    QVector<QByteArray> found;
    const QStringList processes =
        QDir(QStringLiteral("/proc")).entryList({QStringLiteral("[1-9]*")}, QDir::Dirs, QDir::Unsorted);
    for (const QString &entry : processes) {
        const QByteArray process = entry.toLatin1();
        if (ReadOfProcess(process, "comm") == name + '\n' && IsOurs(process) &&
            !ReadOfProcess(process, "cmdline").isEmpty())
            found.append(process);
    }
    return found;
}

QVector<QByteArray> ClientsOf(const QByteArray &iface)
{
    QVector<QByteArray> found;
    for (const QByteArray &process : Running(CLIENT))
        if (Serves(ReadOfProcess(process, "cmdline"), iface))
            found.append(process);
    return found;
}

void Signal(const QVector<QByteArray> &processes, int signalNumber)
{
    for (const QByteArray &process : processes)
        ::kill(process.toInt(), signalNumber);
}

/// True once all are gone. A script is only killed: ended early, it leaves half a resolver file.
bool EndWith(const QByteArray &iface, int signalNumber)
{
    for (int pass = 0; pass < PAUSES; ++pass) {
        const QVector<QByteArray> clients = ClientsOf(iface);
        const QVector<QByteArray> scripts = Running(SCRIPT);
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

bool DhcpClients::End(const QString &iface)
{
    const QByteArray kernelName = QFile::encodeName(iface);
    if (ClientsOf(kernelName).isEmpty())
        return false;
    if (!EndWith(kernelName, SIGTERM))
        EndWith(kernelName, SIGKILL);
    return true;
}
