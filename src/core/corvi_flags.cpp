// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"

#include "logging.h"
#include "securefile.h"

#include <QFile>

namespace {

const QString DEBUG_FLAG = QStringLiteral("/tmp/debug_corvi");

} // namespace

void Corvi::ApplyDebugFlag()
{
    log->SetLoggingLevel(QFile::exists(DEBUG_FLAG) ? Level::DEBUG : Level::NOTICE);
}

/// Whoever may write to the folder can put a folder of his own at the name, filled or not: it counts as a
/// file does and goes as a file does.
void Corvi::RemoveFlag(const QString &path)
{
    if (SecureFile::Remove(path))
        return;
    const QString reason = qt_error_string();
    LogOnce(flagReports[path]) << "Corvi::RemoveFlag - cannot be removed, so it is obeyed again and again:"
                               << path << reason;
}
