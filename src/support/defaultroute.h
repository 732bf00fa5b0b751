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

/// Whether each half of all addresses has a route of its own (0.0.0.0/1 and 128.0.0.0/1), which goes before
/// any default route: many a VPN takes everything so, and leaves the default route alone.
bool HasRoutesForBothHalves();
