// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "logging.h"

#include "journal.h"

#include <QDebug>
#include <QFile>
#include <QMutex>

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>

#include <fcntl.h>
#include <unistd.h>

namespace {
const QString LOG_FILE = QStringLiteral("/var/log/corvi-mon.log");
/// A logger that waits longer than this loses its line rather than stalling supervision.
constexpr std::chrono::milliseconds LOCK_TIME_LIMIT{1000};

/// Guards the log file: lines come from the main thread and the supplicant supervisor's thread.
QMutex mutex;

/// The last line that reached the file is a part only, as the disk was full. Guarded by the mutex.
bool lastLineIsCut = false;

QtMessageHandler previousHandler = nullptr;

const Journal &TheJournal()
{
    static const Journal journal;
    return journal;
}

/// The platform library, and the running of outside programs: neither knows of the log.
bool IsForOperator(const char *category)
{
    return qstrcmp(category, "zeb") == 0 || qstrcmp(category, "corvi.program") == 0;
}

void ForwardMessage(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (type == QtWarningMsg && IsForOperator(context.category)) {
        Log(Level::NOTICE) << text;
        if (TheJournal().HasDebugOutput())
            return; // It is there already.
    }
    previousHandler(type, context, text);
}
} // namespace

Logging *Logging::_instance = nullptr;
std::atomic<Logging::LoggingLevel> Logging::currentLevel{1};

Logging *Logging::GetInstance(LoggingLevel level, bool deleteFile)
{
    if (!_instance)
        _instance = new Logging;
    if (deleteFile)
        _instance->DeleteLogFile();
    if (level <= Level::VERBOSE)
        _instance->SetLoggingLevel(level);
    return _instance;
}

Logging::Logging() : filePath(LOG_FILE)
{
    currentLevel = 1;
    qDebug() << "Create Logging::Logging()" << ownLevel;
}

void Logging::SetLoggingLevel(LoggingLevel level)
{
    ownLevel = qMax(level, 1);
    currentLevel = ownLevel;
}

void Logging::DeleteLogFile()
{
    if (!mutex.try_lock_for(LOCK_TIME_LIMIT))
        return;
    QFile::remove(LOG_FILE);
    mutex.unlock();
}

QString Logging::CurrentTimeDate()
{
    // QDateTime looks up the time zone's file several times for one stamp, a third of the cost of a line;
    // tzset() does it once, so that a change of the time zone is followed still.
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    ::tzset();
    tm local = {};
    ::localtime_r(&now.tv_sec, &local);
    std::array<char, sizeof "2025-05-03 17:05:01.234 : " + 64> text = {};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d.%03ld : ", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  now.tv_nsec / 1000000);
    return QLatin1String(text.data());
}

void Logging::LogMessage(LoggingLevel level, const QString &message, bool echo)
{
    if (level > CurrentLevel())
        return;
    if ((CurrentLevel() == Level::VERBOSE || echo) && !TheJournal().HasDebugOutput())
        qDebug() << CurrentTimeDate() << "Logging::LogMessage" << message;
    Log(level) << message;
}

void Logging::LogMessage(const QString &message, bool echo)
{
    LogMessage(CurrentLevel(), message, echo);
}

Logging::Logger::Logger(LoggingLevel lineLevel)
    : enabled(lineLevel == Level::FAULT || lineLevel <= CurrentLevel()), level(lineLevel)
{
    if (enabled)
        stream.emplace(&line);
}

Logging::Logger::~Logger()
{
    if (!enabled)
        return;
    stream->flush();
    if (level <= CurrentLevel())
        Write();
    // An echo there would be the second one in the journal.
    if (level == Level::FAULT && !TheJournal().HasDebugOutput())
        qDebug() << line;
    if (TheJournal().IsWanted())
        TheJournal().Send(level, line.mid(textStart).trimmed());
    // The stream writes into the line, which is destroyed before it: end it first.
    stream.reset();
}

void Logging::Logger::Write()
{
    if (!mutex.try_lock_for(LOCK_TIME_LIMIT))
        return;
    // QFile would ask for the size twice. A named pipe in the place of the file is not waited for.
    const int fd = ::open(QFile::encodeName(LOG_FILE).constData(),
                          O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_CLOEXEC, 0644);
    if (fd != -1) {
        QByteArray bytes = (line + QLatin1Char('\n')).toLatin1();
        // Not in a file that was begun anew since, as by one that rotates logs.
        if (lastLineIsCut && ::lseek(fd, 0, SEEK_END) > 0)
            bytes.prepend('\n');
        // A disk that is full loses lines, and there is nowhere to tell it.
        const ssize_t written = ::write(fd, bytes.constData(), static_cast<size_t>(bytes.size()));
        if (written > 0)
            lastLineIsCut = written < bytes.size();
        ::close(fd);
    }
    mutex.unlock();
}

void Logging::Logger::EndItem()
{
    stream->flush();
    if (!line.isEmpty())
        *stream << ' ';
}

Logging::Logger &Logging::Logger::operator<<(const QString &item)
{
    if (enabled) {
        *stream << item;
        EndItem();
    }
    return *this;
}

Logging::Logger &Logging::Logger::operator<<(const char *item)
{
    if (enabled)
        *this << QString::fromUtf8(item);
    return *this;
}

Logging::Logger &Logging::Logger::operator<<(int item)
{
    if (enabled) {
        *stream << item;
        EndItem();
    }
    return *this;
}

Logging::Logger &Logging::Logger::operator<<(const QStringList &items)
{
    if (enabled)
        *this << items.join(QStringLiteral(", "));
    return *this;
}

Log::Log(Logging::LoggingLevel lineLevel) : Logger(lineLevel)
{
    if (!IsEnabled())
        return;
    const QString stamp = Logging::CurrentTimeDate();
    *this << stamp;
    textStart = static_cast<int>(stamp.size());
}

void LogPlatformWarnings()
{
    if (!previousHandler)
        previousHandler = qInstallMessageHandler(ForwardMessage);
}
