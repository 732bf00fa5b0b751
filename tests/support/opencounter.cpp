// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "opencounter.h"

#include <QFile>

#include <sys/inotify.h>
#include <unistd.h>

OpenCounter::OpenCounter(const QStringList &paths) : fd(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK))
{
    for (const QString &path : paths) {
        // With the closing between them the kernel does not take two openings for one.
        const int watch = ::inotify_add_watch(fd, QFile::encodeName(path).constData(), IN_OPEN | IN_CLOSE);
        if (watch == -1)
            qFatal("cannot watch %s", qPrintable(path));
        watched.insert(watch, path);
    }
}

OpenCounter::~OpenCounter()
{
    ::close(fd);
}

QHash<QString, int> OpenCounter::Take()
{
    QHash<QString, int> counts;
    alignas(inotify_event) char buffer[65536];
    ssize_t length = 0;
    while ((length = ::read(fd, buffer, sizeof buffer)) > 0) {
        for (const char *at = buffer; at < buffer + length;) {
            const auto *const event = reinterpret_cast<const inotify_event *>(at);
            QString path = watched.value(event->wd);
            if (event->len > 0)
                path += QLatin1Char('/') + QFile::decodeName(event->name);
            if (event->mask & IN_OPEN)
                ++counts[path];
            at += sizeof(inotify_event) + event->len;
        }
    }
    return counts;
}
