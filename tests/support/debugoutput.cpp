// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "debugoutput.h"

DebugOutput::DebugOutput() : DebugOutput(nullptr) {}

DebugOutput::DebugOutput(const char *warningCategory)
{
    category = warningCategory;
    texts.clear();
    previous = qInstallMessageHandler(Receive);
}

DebugOutput::~DebugOutput()
{
    qInstallMessageHandler(previous);
}

QStringList DebugOutput::Take()
{
    const QStringList taken = texts;
    texts.clear();
    return taken;
}

void DebugOutput::Receive(QtMsgType type, const QMessageLogContext &context, const QString &text)
{
    if (!category || (type == QtWarningMsg && qstrcmp(context.category, category) == 0))
        texts << text;
    else
        previous(type, context, text);
}
