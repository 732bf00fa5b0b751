// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QObject>
#include <QString>

#include <memory>

class QSocketNotifier;

/// Turns SIGTERM and SIGINT, which ask for an end, and SIGHUP, which asks for a reload, into Qt signals
/// delivered by the event loop. The signals are caught, not blocked: a blocked signal would stay blocked in
/// every program that the daemon starts. One instance.
class ProcessSignals : public QObject
{
    Q_OBJECT
public:
    explicit ProcessSignals(QObject *parent);
    ~ProcessSignals() override;

    /// Why nothing is caught, so that each of the signals ends the program outright; empty when all are.
    QString Error() const { return error; }
    /// Whether an end is asked for that the event loop has not delivered yet, as it waits for something.
    static bool IsEndAsked();

signals:
    // Emitted by the event loop of the thread that made the object, which no slot may delete.

    void terminationRequested();
    void reloadRequested();

private:
    void OnReadable();

    QString error;
    std::unique_ptr<QSocketNotifier> notifier;
};
