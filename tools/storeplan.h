// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "zebdocument.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVector>

#include <optional>

/// A network as an interface uses it. No secret of the store is in it: a mask stands for each.
struct PlannedNetwork
{
    QString name;
    QString securityMode; ///< as stored
    QString addresses;    ///< in words
    QStringList block;    ///< its lines in the supplicant's file; none where it needs none
    QStringList problems; ///< why it has no block, or not the one that its mode promises
};

/// What the daemon would do with an interface.
struct InterfacePlan
{
    QString interfaceName;
    bool takesNetworks = false;       ///< false for a modem, a port of a bond and what is left alone
    QString kind;                     ///< in words
    QVector<PlannedNetwork> networks; ///< in the order in which they apply: the first one sets the addresses
    bool usesSupplicant = false;
    /// What the installed supplicant says against the file; nothing where there is none, or none is used.
    std::optional<QStringList> complaints = {};

    bool HasProblems() const;
};

using StorePlan = QVector<InterfacePlan>;

/// The names of this machine's interfaces, in ascending order.
QStringList InterfacesHere();

/// Plans with the code by which the daemon chooses networks and builds their blocks, in ascending order of
/// name. Puts nothing in force; the supplicant reads a file that holds masks.
StorePlan PlanStore(const ZebDocument &document, QStringList interfaceNames);
