// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QLoggingCategory>
#include <QStringList>

/// Collects Qt's debug output while it exists. One at a time, on one thread.
class DebugOutput
{
public:
    /// All of it; nothing is shown any more.
    DebugOutput();
    /// The warnings of one category, a string literal; all others go their usual way.
    explicit DebugOutput(const char *warningCategory);
    ~DebugOutput();
    DebugOutput(const DebugOutput &) = delete;
    DebugOutput &operator=(const DebugOutput &) = delete;

    /// What came since the last call, one item a message.
    static QStringList Take();

private:
    static void Receive(QtMsgType type, const QMessageLogContext &context, const QString &text);

    inline static const char *category = nullptr;
    inline static QtMessageHandler previous = nullptr;
    inline static QStringList texts;
};
