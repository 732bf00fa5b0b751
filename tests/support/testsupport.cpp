// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "testsupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QThread>
#include <QVector>

#include <linux/capability.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

const QString STANDINS = QStringLiteral("/tmp/standins/");
const QString JOURNAL = STANDINS + QStringLiteral("journal");
const QString ANSWERS = STANDINS + QStringLiteral("answers/");
const QString PROGRAMS = STANDINS + QStringLiteral("bin/");
const QString LOG_FILE = QStringLiteral("/var/log/corvi-mon.log");
const QString REAL_IP = QStringLiteral("/usr/bin/ip");

[[noreturn]] void Fail(const QString &reason)
{
    qFatal("TestSupport: %s", qPrintable(reason));
}

void RequireSandbox()
{
    char name[64] = {};
    if (gethostname(name, sizeof(name) - 1) != 0 || qstrcmp(name, "corvi-sandbox") != 0)
        Fail(QStringLiteral("not in the sandbox; run this through tests/sandbox/run"));
}

/// Where the links of the stand-ins lead to.
QString RecorderPath()
{
    const QString path = QFile::symLinkTarget(QStringLiteral("/usr/network/stop_dhclient.sh"));
    if (path.isEmpty())
        Fail(QStringLiteral("no stand-ins; run this through tests/sandbox/run --standins"));
    return path;
}

QVector<QString> &RemovedPrograms()
{
    static QVector<QString> removed;
    return removed;
}

} // namespace

namespace TestSupport {

QStringList Journal()
{
    return QString::fromUtf8(ReadFile(JOURNAL)).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

void ClearJournal()
{
    WriteFile(JOURNAL, QByteArray());
}

bool WaitForJournal(int count, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (Journal().size() < count) {
        if (timer.hasExpired(timeoutMs))
            return false;
        QThread::msleep(5);
    }
    return true;
}

void Answer(const QString &program, const QByteArray &shellScript)
{
    WriteFile(ANSWERS + program, shellScript + '\n');
}

void ClearAnswers()
{
    RequireSandbox();
    const QStringList answers = QDir(ANSWERS).entryList(QDir::Files);
    for (const QString &answer : answers)
        Remove(ANSWERS + answer);
}

void RemoveProgram(const QString &program)
{
    RequireSandbox();
    // A file that cannot be run hides nothing further down PATH, so the name must go and the real one with
    // it: the sandbox's /usr is a private layer, and what goes there comes back with RestorePrograms().
    for (const QString &folder :
         {PROGRAMS, QStringLiteral("/usr/network/"), QStringLiteral("/usr/local/sbin/"),
          QStringLiteral("/usr/local/bin/"), QStringLiteral("/usr/sbin/"), QStringLiteral("/usr/bin/")}) {
        const QString path = folder + program;
        if (!QFileInfo(path).isSymLink() && !QFileInfo::exists(path))
            continue;
        if (!QFile::rename(path, path + QStringLiteral(".removed")))
            Fail(QStringLiteral("cannot move %1 away").arg(path));
        RemovedPrograms().append(path);
    }
}

void RestorePrograms()
{
    RequireSandbox();
    for (const QString &path : qAsConst(RemovedPrograms())) {
        if (!QFile::rename(path + QStringLiteral(".removed"), path))
            Fail(QStringLiteral("cannot bring %1 back").arg(path));
    }
    RemovedPrograms().clear();
}

void AddProgram(const QString &program)
{
    RequireSandbox();
    Remove(PROGRAMS + program);
    if (!QFile::link(RecorderPath(), PROGRAMS + program))
        Fail(QStringLiteral("cannot link the stand-in %1").arg(program));
}

void Print(const QByteArray &bytes)
{
    QFile output;
    if (!output.open(1, QIODevice::WriteOnly) || output.write(bytes) != bytes.size())
        Fail(QStringLiteral("cannot print"));
}

QString LogText()
{
    return QString::fromLatin1(ReadFile(LOG_FILE));
}

QStringList LogLines()
{
    static const QString end = QStringLiteral(" :  ");
    static const auto stampLength = QStringLiteral("2025-05-03 17:05:01.234").size();
    QStringList texts;
    const QStringList lines = LogText().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString &line : lines) {
        // A text that holds a line feed goes on in a line that has no stamp.
        const bool isStamped = line.mid(stampLength, end.size()) == end;
        texts << (isStamped ? line.mid(stampLength + end.size()) : line).chopped(1);
    }
    return texts;
}

void ClearLog()
{
    Remove(LOG_FILE);
}

void WriteFile(const QString &path, const QByteArray &bytes)
{
    RequireSandbox();
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(bytes) != bytes.size())
        Fail(QStringLiteral("cannot write %1: %2").arg(path, file.errorString()));
}

QByteArray ReadFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

void Remove(const QString &path)
{
    RequireSandbox();
    const QFileInfo info(path);
    if (info.isDir() && !info.isSymLink())
        QDir(path).removeRecursively();
    else
        QFile::remove(path);
}

void SetMode(const QString &path, uint mode)
{
    if (::chmod(QFile::encodeName(path).constData(), mode) != 0)
        qFatal("cannot set the rights of %s", qPrintable(path));
}

int EntryCount(const QString &folder, const QStringList &wildcards)
{
    const QStringList entries = QDir(folder).entryList(wildcards, QDir::AllEntries | QDir::System |
                                                                      QDir::Hidden | QDir::NoDotAndDotDot);
    return static_cast<int>(entries.size());
}

void UseRights(bool all)
{
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct rights[_LINUX_CAPABILITY_U32S_3] = {};
    if (::syscall(SYS_capget, &header, rights) != 0)
        qFatal("the rights cannot be read");
    for (__user_cap_data_struct &half : rights)
        half.effective = all ? half.permitted : 0;
    if (::syscall(SYS_capset, &header, rights) != 0)
        qFatal("the rights cannot be set");
}

int OpenDescriptors()
{
    return EntryCount(QStringLiteral("/proc/self/fd"));
}

void WriteStore(const QByteArray &xml)
{
    WriteFile(STORE_FILE, xml);
}

void WriteNetworks(const QByteArray &elements)
{
    WriteStore("<networkconfig>" + elements + "</networkconfig>\n");
}

void RemoveStore()
{
    Remove(STORE_FILE);
}

QByteArray RealIp(const QStringList &arguments)
{
    RequireSandbox();
    QProcess process;
    process.start(REAL_IP, arguments);
    if (!process.waitForFinished(10000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0)
        Fail(QStringLiteral("ip %1: %2 %3")
                 .arg(arguments.join(QLatin1Char(' ')), process.errorString(),
                      QString::fromLocal8Bit(process.readAllStandardError())));
    return process.readAllStandardOutput();
}

void MakeVeth(const QString &name, const QString &peer)
{
    RealIp({"link", "add", "name", name, "type", "veth", "peer", "name", peer});
}

void SetCable(const QString &peer, bool present)
{
    RealIp({"link", "set", "dev", peer, present ? "up" : "down"});
}

void RemoveInterfaces()
{
    RequireSandbox();
    const QStringList names = QDir(QStringLiteral("/sys/class/net"))
                                  .entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System);
    for (const QString &name : names) {
        // The other end of a pair goes with the first.
        if (name != QLatin1String("lo") && QFileInfo::exists(QStringLiteral("/sys/class/net/") + name))
            RealIp({"link", "delete", "dev", name});
    }
}

} // namespace TestSupport
