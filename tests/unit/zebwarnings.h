// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QLoggingCategory>
#include <QStringList>

/// Collects the warnings of the platform library while it exists; all others go their usual way. One at a
/// time.
class ZebWarnings
{
public:
    ZebWarnings()
    {
        previous = qInstallMessageHandler(Receive);
        texts.clear();
    }
    ~ZebWarnings() { qInstallMessageHandler(previous); }
    ZebWarnings(const ZebWarnings &) = delete;
    ZebWarnings &operator=(const ZebWarnings &) = delete;

    /// What came since the last call.
    static QStringList Take()
    {
        const QStringList taken = texts;
        texts.clear();
        return taken;
    }

private:
    static void Receive(QtMsgType type, const QMessageLogContext &context, const QString &text)
    {
        if (type == QtWarningMsg && qstrcmp(context.category, "zeb") == 0)
            texts << text;
        else
            previous(type, context, text);
    }

    inline static QStringList texts;
    inline static QtMessageHandler previous = nullptr;
};
