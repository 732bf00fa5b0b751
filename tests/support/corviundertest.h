// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "bondeddevice.h"
#include "corvi.h"
#include "corviworld.h"
#include "eventlistener.h"
#include "logging.h"
#include "modem.h"
#include "supervisor.h"
#include "testsupport.h"
#include "wireddevice.h"
#include "wirelessdevice.h"

#include <QElapsedTimer>
#include <QLocalServer>
#include <QLocalSocket>
#include <QTimer>
#include <QtTest>

/// The service object with its data open to view. Its ticks are given by hand.
class CorviUnderTest : public Corvi
{
public:
    CorviUnderTest() : Corvi(nullptr) {}

    void Tick() { LoopTimerTimeout(); }
    void Tick(int count)
    {
        for (int i = 0; i < count; ++i)
            Tick();
    }
    NetworkDevice *Device(const QString &name) const { return devices.value(name); }

    /// As earlier ticks leave it: the wireless device is chosen and its supplicant has been asked for.
    void AdoptWireless(const QString &name)
    {
        wirelessDevice = Device(name);
        wirelessConfigured = true;
    }
    /// The supplicant is to be configured anew, after a hold-off of which nothing has passed yet.
    void BeginHoldOff()
    {
        reconfigureWpa = true;
        wpaHoldoffTicks = 2;
    }
    /// The supplicant has been configured, and this has become of it.
    void SettleSupplicant(const Supervisor::State &state)
    {
        reconfigureWpa = false;
        Supervisor::Set(state);
    }

    using Corvi::allInterfaces;
    using Corvi::bondedDevice;
    using Corvi::bondingEnabled;
    using Corvi::devices;
    using Corvi::eventSocket;
    using Corvi::forceRescan;
    using Corvi::loopStarted;
    using Corvi::loopTimer;
    using Corvi::modemDevice;
    using Corvi::modemInterfaces;
    using Corvi::operstateFiles;
    using Corvi::reconfigureWpa;
    using Corvi::shm;
    using Corvi::supThread;
    using Corvi::wiredDevice;
    using Corvi::wiredInterfaces;
    using Corvi::wiredPending;
    using Corvi::wiredRetry;
    using Corvi::wiredUp;
    using Corvi::wirelessCarrierSeen;
    using Corvi::wirelessConfigured;
    using Corvi::wirelessDelayTicks;
    using Corvi::wirelessDevice;
    using Corvi::wirelessFound;
    using Corvi::wirelessInterfaces;
    using Corvi::wirelessRetry;
    using Corvi::wpaConfContents;
    using Corvi::wpaConfUpdated;
    using Corvi::wpaHoldoffTicks;
};
