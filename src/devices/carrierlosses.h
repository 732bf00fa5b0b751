// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>

#include <chrono>

/// How often an interface lost its carrier. A look at the carrier itself does not see one that was lost and
/// came back since the last look, as when a cable is moved to another socket in under a second. The kernel
/// counts (carrier_down_count, since Linux 4.16); without that, the losses that our looks have seen.
class CarrierLosses
{
public:
    using Time = std::chrono::steady_clock::time_point;

    explicit CarrierLosses(const QByteArray &interfaceFolder);

    /// A look found the carrier gone that was there before.
    void NoteSeen() { ++seen; }
    /// From here on losses count.
    void Begin();
    /// Something was set that makes many a card restart its link: one loss more, soon afterwards, is not
    /// counted.
    void ExpectOne(Time now);
    /// Whether the carrier was lost since Begin() was called, whether or not it is back.
    bool Happened(Time now);

private:
    long Count() const;

    const QByteArray countPath;
    long seen = 0;
    long begun = 0; ///< the count when Begin() was called
    int expected = 0;
    Time expectedSince; ///< the last one
};
