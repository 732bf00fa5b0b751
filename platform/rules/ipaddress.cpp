// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "ipaddress.h"

#include <QByteArray>

#include <arpa/inet.h>

std::optional<quint32> Ipv4Number(const QString &text)
{
    in_addr parsed = {};
    if (::inet_pton(AF_INET, text.toUtf8().constData(), &parsed) != 1)
        return std::nullopt;
    return ntohl(parsed.s_addr);
}
