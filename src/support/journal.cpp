// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "journal.h"

#include "level.h"

#include <QtEndian>

#include <cstring>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

thread_local const JournalSubject *currentSubject = nullptr;

/// A value that holds a line feed comes with its length: NAME, LF, 64 bits little-endian, value, LF.
QByteArray Field(const char *name, const QString &value)
{
    const QByteArray bytes = value.toUtf8();
    if (bytes.isEmpty())
        return QByteArray();
    if (!bytes.contains('\n'))
        return QByteArray(QByteArray(name) + '=' + bytes + '\n');
    QByteArray length(8, '\0');
    qToLittleEndian(static_cast<quint64>(bytes.size()), length.data());
    return QByteArray(QByteArray(name) + '\n' + length + bytes + '\n');
}

/// As syslog(3) counts.
char Priority(int level)
{
    if (level <= Level::FAULT)
        return '3';
    if (level <= Level::NOTICE)
        return '5';
    return level <= Level::TRACE ? '6' : '7';
}

/// "device:inode" of the error output, as JOURNAL_STREAM has it.
bool LeadsToJournal(const QByteArray &stream)
{
    struct stat output = {};
    return ::fstat(STDERR_FILENO, &output) == 0 &&
           stream == QByteArray(QByteArray::number(static_cast<qulonglong>(output.st_dev)) + ':' +
                                QByteArray::number(static_cast<qulonglong>(output.st_ino)));
}

} // namespace

Journal::Journal()
    : hasDebugOutput(LeadsToJournal(qgetenv("JOURNAL_STREAM"))),
      wanted(hasDebugOutput || qgetenv("CORVI_JOURNAL") == "1")
{
}

void Journal::Send(int level, const QString &message) const
{
    // Another one for each line: the journal may have been started anew since.
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd == -1)
        return;
    const QByteArray datagram = QByteArray("SYSLOG_IDENTIFIER=corvi\nPRIORITY=") + Priority(level) + '\n' +
                                JournalSubject::Fields() + Field("MESSAGE", message);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/run/systemd/journal/socket");
    // One that is busy or not there misses the line.
    (void)::sendto(fd, datagram.constData(), static_cast<size_t>(datagram.size()), MSG_NOSIGNAL,
                   reinterpret_cast<const sockaddr *>(&address), sizeof address);
    ::close(fd);
}

JournalSubject::JournalSubject(const QString &name, const QString &definitionName)
    : outer(currentSubject), interfaceName(name), definition(definitionName)
{
    currentSubject = this;
}

JournalSubject::~JournalSubject()
{
    currentSubject = outer;
}

QByteArray JournalSubject::Fields()
{
    if (!currentSubject)
        return QByteArray();
    return QByteArray(Field("INTERFACE", currentSubject->interfaceName) +
                      Field("DEFINITION", currentSubject->definition));
}
