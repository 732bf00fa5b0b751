// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "controlworld.h"
#include "fakesupplicant.h"
#include "logging.h"
#include "testsupport.h"
#include "wpasuppthreadpeer.h"

#include <QCoreApplication>
#include <QTest>

#include <memory>

/// What the tests of the supplicant's supervisor share.

/// Deletes what was scheduled for deletion.
inline void DeleteLater()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

/// The log without its time stamps.
inline QStringList LogLines()
{
    QStringList lines;
    const QStringList stamped = TestSupport::LogText().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString &line : stamped) {
        lines.append(line.mid(line.indexOf(QLatin1String(" :  ")) + 4));
    }
    return lines;
}

inline QString LastLogLine()
{
    return LogLines().last();
}

inline int LogLineCount()
{
    return static_cast<int>(TestSupport::LogText().count(QLatin1Char('\n')));
}

/// A supplicant that answers, and its supervisor: made for each test, which starts from nothing.
struct SupervisedSupplicant
{
    std::unique_ptr<FakeSupplicant> supplicant;
    std::unique_ptr<WpaSuppThreadPeer> supervisor;

    void Make()
    {
        Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
        TestSupport::ClearLog();
        TestSupport::ClearJournal();
        TestSupport::ClearAnswers();
        supplicant = std::make_unique<FakeSupplicant>();
        supervisor = std::make_unique<WpaSuppThreadPeer>();
    }

    /// Nothing stays behind, no connection either.
    void End()
    {
        supervisor.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        supplicant.reset();
        TestSupport::RestorePrograms();
        TestSupport::Remove(QStringLiteral("/var/run/wpa_supplicant"));
        QCOMPARE(LocalNames(), 0);
    }
};
