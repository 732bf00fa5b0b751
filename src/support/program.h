// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QProcess>

/// An outside program that ends with its object, in a process group of its own, so that all that it started
/// ends with it: a DHCP client works in a child from the start, which would go on alone and set an address
/// behind our back.
class Program : public QProcess
{
public:
    using QProcess::QProcess;
    /// Kills what still runs and waits for its end.
    ~Program() override;

protected:
    void setupChildProcess() override;
};
