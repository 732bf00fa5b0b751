// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "carrierlosses.h"

#include <array>

#include <fcntl.h>
#include <unistd.h>

namespace {

/// Slow cards take some seconds to negotiate anew; a cable is not moved by chance just then.
constexpr std::chrono::seconds RESTART_LIMIT{10};

} // namespace

CarrierLosses::CarrierLosses(const QByteArray &interfaceFolder)
    : countPath(QByteArray(interfaceFolder).append("/carrier_down_count"))
{
}

void CarrierLosses::Begin()
{
    begun = Count();
    expected = 0;
}

void CarrierLosses::ExpectOne(Time now)
{
    ++expected;
    expectedSince = now;
}

bool CarrierLosses::Happened(Time now)
{
    const long losses = Count() - begun;
    if (losses > 0 && losses <= expected && now - expectedSince < RESTART_LIMIT) {
        begun += losses;
        expected -= static_cast<int>(losses);
        return false;
    }
    // Fewer than before is another interface under the old name, which is no loss of this one.
    return losses > 0;
}

long CarrierLosses::Count() const
{
    const int fd = ::open(countPath.constData(), O_RDONLY | O_CLOEXEC);
    if (fd == -1)
        return seen;
    std::array<char, 16> text = {};
    const ssize_t length = ::read(fd, text.data(), text.size());
    ::close(fd);
    return length > 0 ? QByteArray(text.data(), static_cast<int>(length)).trimmed().toLong() : seen;
}
