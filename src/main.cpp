// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"
#include "instancelock.h"
#include "journal.h"
#include "logging.h"
#include "paths.h"
#include "processmemory.h"
#include "processsetting.h"
#include "processsignals.h"
#include "securefile.h"
#include "storekeeping.h"

#include <QCoreApplication>
#include <QFile>
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
#include <QTextCodec>
#endif

#include <cstdio>
#include <cstdlib>

namespace {

/// Program arguments and file names are UTF-8 whatever the locale: the key that a tool computes from an SSID
/// in its arguments must be the key of the SSID in the supplicant's file. Qt 6 knows no other encoding.
void UseUtf8()
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
#endif
}

/// The unit starts the one that is refused again and again: the log is told of one daemon in the way once.
void TellOfRefusal(const InstanceLock::Refusal &refusal)
{
    const QString reason = QStringLiteral("another daemon is at work, process %1: this one ends and leaves "
                                          "its networks as they are")
                               .arg(refusal.holder);
    if (refusal.isNews)
        Log(Level::NOTICE) << "main() -" << reason;
    if (!Journal().HasDebugOutput()) // Where it leads to the journal, the line is there.
        std::fprintf(stderr, "corvi: %s\n", qPrintable(reason));
}

void ObeySignals(const ProcessSignals &source, Corvi &corvi)
{
    QObject::connect(&source, &ProcessSignals::terminationRequested, &corvi, [&corvi] { corvi.Stop(0); });
    QObject::connect(&source, &ProcessSignals::reloadRequested, &corvi, &Corvi::RequestReload);
    if (!source.Error().isEmpty())
        Log(Level::NOTICE) << "ProcessSignals -- no pipe, a signal ends the daemon without its shutdown:"
                           << source.Error();
}

} // namespace

int main(int argc, char *argv[])
{
    ProcessSetting::OpenClosedStreams();
    ProcessSetting::SetMissingPath();
    ProcessSetting::OutliveReaders();
    ProcessMemory::KeepToOurselves();
    ProcessMemory::GiveBackWhatIsFreed();
    QCoreApplication application(argc, argv);
    UseUtf8();

    // First: a reload that is asked for while the daemon starts must not end it.
    ProcessSignals signalSource(nullptr);
    ProcessSetting::ResetSignals(); // What was pending comes now, and is heard.
    const auto refusal = InstanceLock::Take();
    if (refusal && !refusal->isNews) {
        // The unit, or a script, starts it again and again: the lines of its start alone would fill the log.
        TellOfRefusal(*refusal);
        return EXIT_FAILURE;
    }
    KeepStoreOverRestarts();
    const bool isOthersEndAsked = refusal && QFile::exists(KILL_FLAG);
    Corvi corvi(nullptr);
    ObeySignals(signalSource, corvi);
    // Not before: a second start takes up the segment that it finds, and the log has no level yet. What
    // follows would undo the other's work.
    if (refusal) {
        // The start took it away as left over, but the one at work may only be too busy to have seen it. One
        // that has come in its place is not meant.
        if (isOthersEndAsked && InstanceLock::IsHeldBy(refusal->holder))
            static_cast<void>(SecureFile::Replace(KILL_FLAG, QByteArray(), 0644));
        TellOfRefusal(*refusal);
        corvi.Stop(EXIT_FAILURE);
    }
    corvi.Start();
    return QCoreApplication::exec();
}
