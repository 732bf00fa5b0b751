// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "logging.h"

#include <QDateTime>
#include <QDebug>
#include <QFile>
#include <QMutex>

#include <chrono>

namespace {
const QString LOG_FILE = QStringLiteral("/var/log/corvi-mon.log");
/// A logger that waits longer than this loses its line rather than stalling supervision.
constexpr std::chrono::milliseconds LOCK_TIME_LIMIT{1000};

/// Guards the log file: lines come from the main thread and the supplicant supervisor's thread.
QMutex mutex;

QtMessageHandler previousHandler = nullptr;

void ForwardMessage(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (type == QtWarningMsg && qstrcmp(context.category, "zeb") == 0)
        Log(2) << text;
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
    if (level <= MOST_VERBOSE)
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
    return QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz")) +
           QStringLiteral(" : ");
}

void Logging::LogMessage(LoggingLevel level, const QString &message, bool echo)
{
    if (level > CurrentLevel())
        return;
    if (CurrentLevel() == MOST_VERBOSE || echo)
        qDebug() << CurrentTimeDate() << "Logging::LogMessage" << message;
    Log(level) << message;
}

void Logging::LogMessage(const QString &message, bool echo)
{
    LogMessage(CurrentLevel(), message, echo);
}

Logging::Logger::Logger(LoggingLevel lineLevel)
    : enabled(lineLevel == 0 || lineLevel <= CurrentLevel()), level(lineLevel)
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
    if (level == 0)
        qDebug() << line;
    // The stream writes into the line, which is destroyed before it: end it first.
    stream.reset();
}

void Logging::Logger::Write()
{
    if (!mutex.try_lock_for(LOCK_TIME_LIMIT))
        return;
    QFile file(LOG_FILE);
    if (file.open(QIODevice::WriteOnly | QIODevice::Append))
        file.write((line + QLatin1Char('\n')).toLatin1());
    file.close();
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
    if (IsEnabled())
        *this << Logging::CurrentTimeDate();
}

void LogPlatformWarnings()
{
    if (!previousHandler)
        previousHandler = qInstallMessageHandler(ForwardMessage);
}
