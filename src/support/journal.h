// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>
#include <QString>

/// Lines for systemd's journal, in its own protocol (systemd's JOURNAL_NATIVE_PROTOCOL): one datagram a line.
/// Nothing here waits, and nothing depends on it: a line that the journal does not take is in the log file
/// all the same. Any thread.
class Journal
{
public:
    /// Wanted where CORVI_JOURNAL is 1, or where the manager connected our error output to the journal and
    /// says so in JOURNAL_STREAM (systemd.exec(5)).
    Journal();

    bool IsWanted() const { return wanted; }
    /// Whether the debug output leads there too: what is sent here is not to be written there.
    bool HasDebugOutput() const { return hasDebugOutput; }
    /// With the level's priority, and the subject of this thread.
    void Send(int level, const QString &message) const;

private:
    bool hasDebugOutput;
    bool wanted;
};

/// What the lines of this thread are about while this lives: the fields INTERFACE and DEFINITION of the
/// journal.
class JournalSubject
{
public:
    explicit JournalSubject(const QString &interfaceName, const QString &definition = QString());
    ~JournalSubject();
    Q_DISABLE_COPY(JournalSubject)

    static QByteArray Fields();

private:
    const JournalSubject *const outer;
    const QString interfaceName;
    const QString definition;
};
