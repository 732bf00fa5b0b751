// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "level.h"

#include <QString>
#include <QStringList>
#include <QTextStream>

#include <atomic>
#include <optional>

/// The daemon's log: one file, one line at a time, opened, appended to and closed for each line so that
/// nothing is lost in a crash. Lines of several threads never interleave; a line that cannot be written
/// is dropped without a report. Where the journal is wanted (journal.h), each line goes there, too. Lives for
/// the whole process.
class Logging
{
public:
    /// One of `Level`; every number in between has its place, too.
    using LoggingLevel = int;

    /// Given to GetInstance(), as any above the most verbose one: the level stays as it is.
    static constexpr LoggingLevel KEEP_LEVEL = Level::VERBOSE + 1;

    class Logger;

    /// The one instance, created on first use (not locked: the first call comes before any other thread).
    static Logging *GetInstance(LoggingLevel level, bool deleteFile);

    /// Writes lines of this level and below from now on; a level below 1 counts as 1.
    void SetLoggingLevel(LoggingLevel level);
    void DeleteLogFile();

    /// Local time, "yyyy-MM-dd hh:mm:ss.zzz : ".
    static QString CurrentTimeDate();
    static LoggingLevel CurrentLevel() { return currentLevel.load(std::memory_order_relaxed); }

    /// Writes one line; with `echo`, or at level 6, also to the debug output.
    void LogMessage(LoggingLevel level, const QString &message, bool echo);
    /// The same at the current level, so that the line is always written.
    void LogMessage(const QString &message, bool echo);

private:
    Logging();

    static Logging *_instance;
    static std::atomic<LoggingLevel> currentLevel;

    QString filePath;
    LoggingLevel ownLevel = 1;
};

/// One line of the log: items are streamed in, each followed by one blank, and the line is written when the
/// object goes out of scope. Nothing is formatted or allocated for a line that will not be written.
class Logging::Logger
{
public:
    explicit Logger(LoggingLevel lineLevel);
    ~Logger();
    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;

    Logger &operator<<(const QString &item);
    Logger &operator<<(const char *item);
    /// A bool comes out as 0 or 1.
    Logger &operator<<(int item);
    Logger &operator<<(const QStringList &items);

    /// False when the line will neither be written nor echoed; a caller can skip costly items.
    bool IsEnabled() const { return enabled; }

private:
    void Write();
    void EndItem();

    std::optional<QTextStream> stream;
    bool enabled = false;
    LoggingLevel level;
    QString line;

protected:
    int textStart = 0; ///< where the line's own text begins, behind the time stamp
};

/// A line of `level` that starts with the time stamp: `Log(Level::TRACE) << "Corvi::Init()";`
class Log : public Logging::Logger
{
public:
    explicit Log(Logging::LoggingLevel lineLevel);
};

/// For a line that has a bool in words.
inline const char *TrueFalse(bool value)
{
    return value ? "true" : "false";
}

/// Writes warnings of the platform library (Qt logging category "zeb") and of the programs that are run
/// ("corvi.program") to the log at level 2, so that what is wrong with the store, or a tool that is missing,
/// is told where an operator looks. Everything else goes where it went before.
void LogPlatformWarnings();
