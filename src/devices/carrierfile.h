// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>

/// The carrier file of an interface, four times a second: kept open between two looks, as opening it costs
/// more than all else that a look does. An open file stays that of the interface for which it was opened,
/// whatever that is called by now, so it is opened anew when the name stands for another interface.
class CarrierFile
{
public:
    explicit CarrierFile(const QByteArray &interfaceName);
    ~CarrierFile();
    CarrierFile(const CarrierFile &) = delete;
    CarrierFile &operator=(const CarrierFile &) = delete;

    /// The first character, '1' with a carrier. 0 when the link is down, where the kernel answers EINVAL
    /// (Documentation/ABI/testing/sysfs-class-net), and when there is no such interface. `socketFd` is any
    /// socket, for asking what the name stands for (netdevice(7), SIOCGIFINDEX).
    char Read(int socketFd);

private:
    bool IsGone(ssize_t length) const;
    int Index(int socketFd) const;
    void Open(int socketFd);
    void Close();

    const QByteArray name;
    const QByteArray path;
    int fd = -1;
    int openedIndex = 0; ///< of the interface whose file is open; 0 when it is for this look alone
};
