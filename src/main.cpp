// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"
#include "logging.h"
#include "processmemory.h"
#include "processsignals.h"
#include "storekeeping.h"

#include <QCoreApplication>
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
#include <QTextCodec>
#endif

namespace {

/// Program arguments and file names are UTF-8 whatever the locale: the key that a tool computes from an SSID
/// in its arguments must be the key of the SSID in the supplicant's file. Qt 6 knows no other encoding.
void UseUtf8()
{
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));
#endif
}

} // namespace

int main(int argc, char *argv[])
{
    ProcessMemory::KeepToOurselves();
    ProcessMemory::GiveBackWhatIsFreed();
    QCoreApplication application(argc, argv);
    UseUtf8();

    KeepStoreOverRestarts();
    // First: a reload that is asked for while the daemon starts must not end it.
    ProcessSignals signalSource(nullptr);
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
