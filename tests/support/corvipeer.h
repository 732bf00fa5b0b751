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

#include <QTimer>
#include <QtTest>

#include <chrono>

/// How far a service object has come, in ticks of its own.
enum Stage { NEW = 0, DISCOVERED = 1, SET_UP = 2 };

/// The one peer of the service object outside the product, which names it as its friend. An object of it is a
/// service object whose ticks are given by hand. The verbs put it into states that ticks reach too, but not
/// as shortly; what they leave out stays as it is.
class CorviPeer : public Corvi
{
public:
    explicit CorviPeer(Stage stage = NEW);
    /// On a machine with these interfaces, without or with a configuration.
    explicit CorviPeer(const QStringList &interfaces, Stage stage = NEW);
    CorviPeer(const QByteArray &store, const QStringList &interfaces, Stage stage = NEW);

    void Tick(int count = 1);

    // States

    void ForceRescan() { forceRescan = true; }
    /// As if everything had been found and brought up.
    void RaiseEveryFlag();
    void AdoptWired(const QString &name) { wiredDevice = Device(name); }
    void PickWireless(const QString &name) { wirelessDevice = Device(name); }
    /// The device is picked, and its supplicant has been asked for.
    void AdoptWireless(const QString &name);
    void AdoptModem(const QString &name) { modemDevice = Device(name); }
    /// As the ticks do that found no link.
    void GiveUpModem() { modemDevice = nullptr; }
    /// As if this interface had been configured last.
    void NoteConfigured(const QString &name) { lastConfigured = name; }
    /// The wired link was up, or down, at the last tick.
    void NoteWiredUp(bool isUp) { wiredUp = isUp; }
    /// So many ticks are left before wireless gets its turn.
    void WaitForWireless(int ticks) { wirelessDelayTicks = ticks; }
    /// A name that discovery listed first and whose interface is gone.
    void LoseInterface(const QString &name);
    /// Nothing wired is left to look after.
    void ForgetWiredInterfaces() { wiredInterfaces.clear(); }
    void NoteFileWritten(bool isCurrent) { wpaConfUpdated = isCurrent; }

    /// The supplicant is to be configured anew, after so many steps of a hold-off.
    void BeginHoldOff(int steps = WPA_HOLDOFF_TICKS);
    /// The supplicant has been configured, or not.
    void NoteReconfigured(bool isDone) { reconfigureWpa = !isDone; }
    /// A hold-off of so many steps without a need to configure.
    void LeaveHoldOff(int steps);
    /// The supplicant has been configured, and this has become of it.
    void SettleSupplicant(const Supervisor::State &state);

    /// As if the last of so many DHCP attempts had been this long ago.
    void AgeWiredRetry(int attempts, std::chrono::seconds age) { Age(wiredRetry, attempts, age); }
    void AgeWirelessRetry(int attempts, std::chrono::seconds age) { Age(wirelessRetry, attempts, age); }

    // Questions

    NetworkDevice *Device(const QString &name) const { return devices.value(name); }
    int DeviceCount() const { return static_cast<int>(devices.size()); }
    /// Of how many interfaces it remembers what was told.
    int RememberedInterfaces() const { return static_cast<int>(deviceReports.size()); }
    NetworkDevice *WiredDevice() const { return wiredDevice; }
    NetworkDevice *WirelessDevice() const { return wirelessDevice; }
    NetworkDevice *ModemDevice() const { return modemDevice; }
    /// Whether a discovery would take it now.
    bool IsTaken(const QString &name) const { return IsForDiscovery(name); }
    QStringList AllInterfaces() const { return allInterfaces; }
    QStringList WiredInterfaces() const { return wiredInterfaces; }
    QStringList WirelessInterfaces() const { return wirelessInterfaces; }
    QStringList ModemInterfaces() const { return modemInterfaces; }
    QStringList OperstateFiles() const { return operstateFiles; }
    bool IsWiredUp() const { return wiredUp; }
    bool IsWirelessConfigured() const { return wirelessConfigured; }
    int WirelessDelay() const { return wirelessDelayTicks; }
    int HoldOff() const { return wpaHoldoffTicks; }
    bool IsReconfigureWanted() const { return reconfigureWpa; }
    /// The daemon's own copy of the supplicant's file.
    QString FileContents() const { return wpaConfContents; }
    /// The names of the flags that are set.
    QStringList Flags() const;
    /// Whether an attempt would be due after this time from now.
    bool IsWiredRetryDue(std::chrono::seconds later);
    BondedDevice &Bond() const { return *bondedDevice; }
    const QTimer &LoopTimer() const { return *loopTimer; }
    QByteArray Segment() const;

private:
    static void Age(RetryPause &pause, int attempts, std::chrono::seconds age);
};
