// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "ipaddress.h"

#include <QByteArray>

#include <array>

#include <arpa/inet.h>

std::optional<quint32> Ipv4Number(const QString &text)
{
    in_addr parsed = {};
    if (::inet_pton(AF_INET, text.toUtf8().constData(), &parsed) != 1)
        return std::nullopt;
    return ntohl(parsed.s_addr);
}

QString Ipv4Text(quint32 number)
{
    const in_addr address = {htonl(number)};
    std::array<char, INET_ADDRSTRLEN> text = {};
    ::inet_ntop(AF_INET, &address, text.data(), text.size());
    return QString::fromLatin1(text.data());
}
