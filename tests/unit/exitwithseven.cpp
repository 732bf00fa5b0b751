// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// To be preloaded into a program: ends its event loop with 7 as soon as it runs.

#include <QCoreApplication>
#include <QTimer>

static void EndLoop()
{
    QTimer::singleShot(0, qApp, [] { QCoreApplication::exit(7); });
}
Q_COREAPP_STARTUP_FUNCTION(EndLoop)
