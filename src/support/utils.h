// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "timing.h"

#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>

class QProcess;

/// The ways of running outside programs. Every program is run directly, never through a shell, with the
/// caller's environment and `DISPLAY` set to ":0"; one that is waited for has no input. The result is the
/// program's output decoded as UTF-8 up to the first NUL and split at each line feed, empty parts kept; the
/// single item "Process Crashed" when it did not exit normally. A program that cannot be started gives one
/// empty item; one that is still running at its time limit gives what it printed so far and is killed with
/// all that it started. No state: usable from every thread.
class Utils
{
public:
    /// Waits at most 30000 ms; standard error is discarded. The last argument is accepted and ignored.
    static QStringList Execute(const QString &program, const QStringList &arguments, bool ignored);

    /// As Execute(), once for each of these argument lists, as many side by side as the machine has cores.
    /// The results are in the order of the lists; empty for those that had not ended after `limitMs`
    /// milliseconds, which are for all of them.
    static QVector<QStringList> ExecuteEach(const QString &program, const QVector<QStringList> &argumentLists,
                                            int limitMs = PROGRAM_TIME_LIMIT_MS);

    /// As Execute(). Whether the program ended by itself, with status 0.
    static bool Succeeds(const QString &program, const QStringList &arguments);

    /// Waits at most `timeoutMs` milliseconds; standard output and standard error are merged.
    static QStringList ExecuteMerged(const QString &program, const QStringList &arguments, int timeoutMs);
    /// The same, for as long as there is a point in it, which is asked 4 times a second: the program is then
    /// killed as at its limit.
    static QStringList ExecuteMerged(const QString &program, const QStringList &arguments, int timeoutMs,
                                     const std::function<bool()> &isPointless);

    /// Starts a child that outlives the daemon; false when it could not be started.
    static bool SpawnExecute(const QString &program, const QStringList &arguments);

    /// program1 | program2 | program3; the third is left out when its name is empty. Waits at most
    /// 30000 ms for each; the result is that of the last one.
    static QStringList ExecutePiped(const QString &program1, const QStringList &arguments1,
                                    const QString &program2, const QStringList &arguments2,
                                    const QString &program3, const QStringList &arguments3);

    /// Decodes the escaped SSID form that wpa_supplicant prints (`\xNN` for bytes outside printable ASCII)
    /// and reads the bytes as UTF-8. A text without an escape is returned as it is.
    static QString SsidToString(const QString &escaped);

    /// The lines of what a program printed, up to the first NUL, read as UTF-8.
    static QStringList LinesOf(const QByteArray &output);

private:
    static QStringList GetResults(QProcess *process);
};
