// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "logging.h"
#include "networkdevice.h"
#include "testsupport.h"

#include <QtTest>

/// What the tests of a device's definitions and configuration share.

inline QByteArray Network(const QByteArray &name, const QByteArray &properties = QByteArray())
{
    return "<network><name>" + name + "</name><ssid>" + name + "</ssid>" + properties + "</network>";
}

/// eth0, up, with its cable in.
inline void GivenInterface()
{
    TestSupport::MakeVeth("eth0", "peer0");
    TestSupport::RealIp({"link", "set", "dev", "eth0", "up"});
    TestSupport::SetCable("peer0", true);
    QTRY_COMPARE(TestSupport::ReadFile("/sys/class/net/eth0/carrier"), QByteArray("1\n"));
}

inline void SetLevel(int level)
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(level);
}

/// No interface, no definition, no journal and no log.
inline void StartDevicesFromNothing()
{
    TestSupport::ClearJournal();
    TestSupport::ClearAnswers();
    TestSupport::RemoveInterfaces();
    // A store that is gone keeps its last contents in force.
    TestSupport::WriteStore("<x/>");
    TestSupport::ClearLog();
    SetLevel(Level::TRACE);
}

/// As if the device's timer had tripped so often.
inline void Tick(NetworkDevice &device, int times)
{
    for (int i = 0; i < times; ++i)
        device.onTimerTrip();
}

/// A device with the definitions that apply to it, and what it reported. The kind is what the concrete
/// classes set.
class Device : public NetworkDevice
{
public:
    explicit Device(const QString &interfaceName, bool wireless = false)
        : NetworkDevice(interfaceName, nullptr)
    {
        isWireless = wireless;
        connect(this, &NetworkDevice::SendEventMessage, this, [this](int code, int value) {
            events << QStringLiteral("%1,%2").arg(code).arg(value);
            programsAtEvent << TestSupport::Journal().join("; ");
        });
        InitDevice();
    }

    QStringList events;
    QStringList programsAtEvent;
};
