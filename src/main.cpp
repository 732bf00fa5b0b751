// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"
#include "instancelock.h"
#include "logging.h"
#include "processmemory.h"
#include "processsignals.h"
#include "storekeeping.h"

#include <QCoreApplication>
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

/// The unit starts the one that is refused again and again: its log is told of one daemon in the way once.
int EndAsSecond(const InstanceLock::Refusal &refusal)
{
    const QString reason = QStringLiteral("another daemon is at work, process %1: this one ends and leaves "
                                          "everything as it is")
                               .arg(refusal.holder);
    if (refusal.isNews) {
        Logging::GetInstance(Level::NOTICE, false);
        Log(Level::NOTICE) << "main() -" << reason;
    }
    std::fprintf(stderr, "corvi: %s\n", qPrintable(reason));
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char *argv[])
{
    ProcessMemory::KeepToOurselves();
    ProcessMemory::GiveBackWhatIsFreed();
    QCoreApplication application(argc, argv);
    UseUtf8();

    // First: a reload that is asked for while the daemon starts must not end it.
    ProcessSignals signalSource(nullptr);
    // Whatever follows belongs to the daemon of this device: its flag files, its segment, its supplicant.
    if (const auto refusal = InstanceLock::Take())
        return EndAsSecond(*refusal);
    KeepStoreOverRestarts();
    Corvi corvi(nullptr);
    QObject::connect(&signalSource, &ProcessSignals::terminationRequested, &corvi,
                     [&corvi] { corvi.Stop(0); });
    QObject::connect(&signalSource, &ProcessSignals::reloadRequested, &corvi, &Corvi::RequestReload);
    if (!signalSource.Error().isEmpty())
        Log(Level::NOTICE) << "ProcessSignals -- no pipe, a signal ends the daemon without its shutdown:"
                           << signalSource.Error();
    corvi.Start();
    return QCoreApplication::exec();
}
