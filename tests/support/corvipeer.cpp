// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"

CorviPeer::CorviPeer(Stage stage) : Corvi(nullptr)
{
    Tick(stage);
}

CorviPeer::CorviPeer(const QStringList &interfaces, Stage stage) : Corvi(nullptr)
{
    for (const QString &name : interfaces)
        CorviWorld::MakeInterface(name);
    Tick(stage);
}

CorviPeer::CorviPeer(const QByteArray &store, const QStringList &interfaces, Stage stage) : Corvi(nullptr)
{
    CorviWorld::MakeMachine(store, interfaces);
    Tick(stage);
}

void CorviPeer::Tick(int count)
{
    for (int i = 0; i < count; ++i)
        LoopTimerTimeout();
}

void CorviPeer::RaiseEveryFlag()
{
    for (bool *flag :
         {&loopStarted, &wirelessFound, &forceRescan, &wpaConfUpdated, &wirelessConfigured, &reconfigureWpa,
          &wiredUp, &wiredPending, &wirelessCarrierSeen, &bondingEnabled, &modemStarted})
        *flag = true;
}

QStringList CorviPeer::Flags() const
{
    const struct
    {
        const char *name;
        bool isSet;
    } all[] = {
        {"loopStarted", loopStarted},
        {"wirelessFound", wirelessFound},
        {"forceRescan", forceRescan},
        {"wpaConfUpdated", wpaConfUpdated},
        {"wirelessConfigured", wirelessConfigured},
        {"reconfigureWpa", reconfigureWpa},
        {"wiredUp", wiredUp},
        {"wiredPending", wiredPending},
        {"wirelessCarrierSeen", wirelessCarrierSeen},
        {"bondingEnabled", bondingEnabled},
        {"modemStarted", modemStarted},
    };
    QStringList set;
    for (const auto &flag : all) {
        if (flag.isSet)
            set << QLatin1String(flag.name);
    }
    return set;
}

void CorviPeer::AdoptWireless(const QString &name)
{
    PickWireless(name);
    wirelessConfigured = true;
}

void CorviPeer::LoseInterface(const QString &name)
{
    allInterfaces.prepend(name);
    (name.startsWith(QStringLiteral("wlan")) ? wirelessInterfaces : wiredInterfaces).prepend(name);
}

void CorviPeer::BeginHoldOff(int steps)
{
    reconfigureWpa = true;
    wpaHoldoffTicks = steps;
}

void CorviPeer::LeaveHoldOff(int steps)
{
    reconfigureWpa = false;
    wpaHoldoffTicks = steps;
}

void CorviPeer::SettleSupplicant(const Supervisor::State &state)
{
    reconfigureWpa = false;
    Supervisor::Set(state);
}

bool CorviPeer::IsWiredRetryDue(std::chrono::seconds later)
{
    return wiredRetry.IsDue(RetryPause::Time::clock::now() + later);
}

QByteArray CorviPeer::Segment() const
{
    return QByteArray(static_cast<const char *>(shm.constData()), shm.size());
}

void CorviPeer::Age(RetryPause &pause, int attempts, std::chrono::seconds age)
{
    const auto then = RetryPause::Time::clock::now() - age;
    pause.Reset();
    pause.IsDue(then);
    for (int i = 0; i < attempts; ++i)
        pause.NoteAttempt(then);
}
