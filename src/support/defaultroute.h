// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>
#include <QVector>

/// One of the kernel's IPv4 default routes.
struct DefaultRoute
{
    QString interfaceName;
    QString gateway; ///< 0.0.0.0 where the link itself is the way
    int metric;
};

/// The default routes of the main table in the order in which they count: the first one is used
/// (/proc/net/route, proc(5)).
QVector<DefaultRoute> ReadDefaultRoutes();
