// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"
#include "terminationsignals.h"

#include <QCoreApplication>
#include <QTextCodec>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    // Program arguments and file names are UTF-8 whatever the locale: the key that a tool computes from an
    // SSID in its arguments must be the key of the SSID in the supplicant's file.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));

    Corvi corvi(nullptr);
    TerminationSignals signalSource(nullptr);
    QObject::connect(&signalSource, &TerminationSignals::terminationRequested, &corvi,
                     [&corvi] { corvi.Stop(0); });
    corvi.Start();
    return QCoreApplication::exec();
}
