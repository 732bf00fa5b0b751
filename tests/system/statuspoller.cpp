// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// A program that shows the status, as any other reads it: attaches to the segment, reads it under its lock,
// lets go. As often as it is told to, until it is ended.
//
//   statuspoller PAUSE_MS

#include <QCoreApplication>
#include <QSharedMemory>
#include <QThread>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const ulong pauseMs = application.arguments().value(1).toULong();
    for (;;) {
        {
            QSharedMemory segment(QStringLiteral("com.qarbo.zebnetstatus"));
            if (segment.attach(QSharedMemory::ReadOnly) && segment.lock())
                segment.unlock();
        }
        QThread::msleep(pauseMs);
    }
}
