// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

/// Tells the service manager that started this process how it fares: datagrams to the socket that the
/// environment names (sd_notify(3), "Standalone Implementations"). Without such a manager, or when its socket
/// takes nothing, the operations do nothing and never wait.
class ServiceManager
{
public:
    /// Takes the socket's name out of the environment: the programs that this process starts must not speak
    /// for it.
    ServiceManager();
    ~ServiceManager();
    ServiceManager(const ServiceManager &) = delete;
    ServiceManager &operator=(const ServiceManager &) = delete;

    /// The service is up.
    void TellReady() const { Send("READY=1"); }
    /// The service is not stuck; the manager ends one that does not say so for too long.
    void TellAlive() const { Send("WATCHDOG=1"); }

private:
    void Send(const char *state) const;

    int fd = -1; ///< connected to the manager, or -1
};
