// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "supplicantprocess.h"

#include "processstat.h"

#include <QByteArray>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringList>

#include <cerrno>
#include <utility>

#include <poll.h>
#include <unistd.h>

// glibc 2.36 declares these without saying that they are C.
extern "C" {
#include <sys/pidfd.h>
}

namespace {

QString ProcFile(pid_t id, const char *name)
{
    return QStringLiteral("/proc/%1/%2").arg(QString::number(id), QLatin1String(name));
}

QByteArray ReadProcFile(pid_t id, const char *name)
{
    QFile file(ProcFile(id, name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QList<pid_t> AllProcesses()
{
    QList<pid_t> ids;
    const QStringList names = QDir(QStringLiteral("/proc")).entryList({QStringLiteral("[1-9]*")}, QDir::Dirs);
    for (const QString &name : names)
        ids << name.toInt();
    return ids;
}

/// Its command line, where it is a supplicant.
QList<QByteArray> SupplicantArguments(pid_t id)
{
    const QList<QByteArray> arguments = ReadProcFile(id, "cmdline").split('\0');
    const QByteArray program = arguments.first().mid(arguments.first().lastIndexOf('/') + 1);
    return program.startsWith("wpa_supplicant") ? arguments : QList<QByteArray>();
}

bool IsInOurNetwork(pid_t id)
{
    return ProcessStat::IsInOurNetwork(QByteArray::number(id));
}

/// The word that names the file to a supplicant that we launch.
QByteArray OptionFor(const QString &configurationPath)
{
    return "-c" + configurationPath.toLocal8Bit();
}

/// Those that it was told to work on.
QStringList InterfacesIn(const QList<QByteArray> &arguments)
{
    QStringList names;
    for (int i = 1; i < arguments.size(); ++i) {
        if (arguments.at(i) == "-i")
            names << QString::fromLocal8Bit(arguments.value(i + 1));
        else if (arguments.at(i).startsWith("-i"))
            names << QString::fromLocal8Bit(arguments.at(i).mid(2));
    }
    return names;
}

} // namespace

SupplicantProcess::SupplicantProcess(pid_t processId)
    : id(processId), descriptor(pidfd_open(processId, 0)), wasGone(descriptor < 0 && errno == ESRCH)
{
}

SupplicantProcess::~SupplicantProcess()
{
    if (descriptor >= 0)
        close(descriptor);
}

SupplicantProcess::SupplicantProcess(SupplicantProcess &&other) noexcept
    : id(other.id), descriptor(std::exchange(other.descriptor, -1)), wasGone(other.wasGone)
{
}

SupplicantProcess &SupplicantProcess::operator=(SupplicantProcess &&other) noexcept
{
    std::swap(id, other.id);
    std::swap(descriptor, other.descriptor);
    std::swap(wasGone, other.wasGone);
    return *this;
}

std::vector<SupplicantProcess> SupplicantProcess::FindWith(const QString &configurationPath)
{
    std::vector<SupplicantProcess> found;
    for (const pid_t id : AllProcesses()) {
        // Most are none, and need not be held for that.
        if (SupplicantArguments(id).isEmpty())
            continue;
        SupplicantProcess process(id);
        if (process.IsLaunchedWith(configurationPath))
            found.push_back(std::move(process));
    }
    return found;
}

QStringList SupplicantProcess::ForeignInterfaces(const QString &configurationPath)
{
    QStringList names;
    for (const pid_t id : AllProcesses()) {
        const QList<QByteArray> arguments = SupplicantArguments(id);
        const QStringList theirs = InterfacesIn(arguments);
        if (!theirs.isEmpty() && !arguments.contains(OptionFor(configurationPath)) && IsInOurNetwork(id))
            names += theirs;
    }
    return names;
}

bool SupplicantProcess::HasEndedWithin(std::chrono::milliseconds limit) const
{
    if (descriptor < 0)
        return wasGone;
    const QDeadlineTimer deadline(limit);
    // Readable once the process has ended (pidfd_open(2)).
    pollfd entry{descriptor, POLLIN, 0};
    for (;;) {
        const int ready = poll(&entry, 1, static_cast<int>(deadline.remainingTime()));
        // The end of any child interrupts the wait.
        if (ready >= 0 || errno != EINTR)
            return ready > 0;
    }
}

std::optional<bool> SupplicantProcess::IsStopped() const
{
    const std::optional<bool> isStopped = ProcessStat::IsStopped(ReadProcFile(id, "stat"));
    return HasEnded() ? std::nullopt : isStopped;
}

bool SupplicantProcess::IsLaunchedWith(const QString &configurationPath) const
{
    return SupplicantArguments(id).contains(OptionFor(configurationPath)) &&
           QFileInfo(ProcFile(id, "")).ownerId() == geteuid() && IsInOurNetwork(id);
}

void SupplicantProcess::SendSignal(int number) const
{
    if (descriptor >= 0)
        (void)pidfd_send_signal(descriptor, number, nullptr, 0); // One that ends by itself is as good.
}
