// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// The least that a program like the daemon can do before it is there: load the library, make the
// application object, say so.

#include <QCoreApplication>
#include <QDebug>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    qDebug() << "Corvi::Corvi  Created";
    return 0;
}
