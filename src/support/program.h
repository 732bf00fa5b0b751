// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QProcess>

#include <functional>

/// An outside program that ends with its object, in a process group of its own, so that all that it started
/// ends with it: a DHCP client works in a child from the start, which would go on alone and set an address
/// behind our back. Its standard input is empty and its standard error is discarded, as nobody writes the one
/// or reads the other: a program that waited for input would hang, and one that complained without end would
/// fill our memory. Of its standard output 16 MiB are kept, and the rest is thrown away as it comes.
class Program : public QProcess
{
public:
    explicit Program(QObject *parent = nullptr);
    /// Kills what still runs and waits for its end.
    ~Program() override;

    /// Starts it for reading. Killed at any moment, we leave no child that has not become the program yet.
    void Start(const QString &program, const QStringList &arguments);
    /// Waits for the end, at most `limitMs` milliseconds, or without limit for -1; false when it still runs
    /// or never did. A program that could not be started, crashed or is to be killed after this is told as
    /// a warning (category "corvi.program"), once until it works again. Usable from every thread.
    bool WaitForEnd(int limitMs) { return WaitForEnd(limitMs, limitMs); }
    /// As above, for `leftMs` of a limit that others have used up in part: the whole is told of.
    bool WaitForEnd(int leftMs, int limitMs);
    /// As the first, but a program that `isPointless`, which is asked 4 times a second, is not waited for any
    /// longer; of that nothing is told.
    void WaitForEndUnless(const std::function<bool()> &isPointless, int limitMs);

    /// What keeps programs from working, each with its name, in ascending order: those that could not be
    /// started, or crashed, the last time that they were run, within the last hour. One that took too long is
    /// not among them: it may have had its reasons, such as a server that is silent. Usable from every
    /// thread.
    static QStringList Faults();
    /// Tells of a fault that shows in what the program printed, as of one that keeps it from working: in the
    /// log and among Faults(), until it has ended well. Usable from every thread.
    static void TellFault(const QString &program, const QString &fault);

private:
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    void setupChildProcess() override;
#endif
    void TellHowItEnded(int limitMs) const;
    QString Fault(int limitMs) const;
};
