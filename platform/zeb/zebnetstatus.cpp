// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebnetstatus.h"

#include "zebnetsegment.h"

#include <QtEndian>

#include <algorithm>
#include <cstring>

// docs/status-interface.md tells readers in other languages where each field stands: keep the two together.
namespace {

constexpr char MAGIC[] = {'Z', 'N', 'S', 'T'};
constexpr quint16 VERSION = 1;

constexpr int VERSION_OFFSET = 4;
constexpr int LENGTH_OFFSET = 6;
constexpr int FLAGS_OFFSET = 8;
constexpr int MAC_OFFSET = 16;
constexpr int IP_OFFSET = 64;
constexpr int BROADCAST_OFFSET = 112;
constexpr int NETMASK_OFFSET = 160;
constexpr int TEXT_SIZE = 48; // an IPv6 address with its zone fits, and one NUL
constexpr int RECORD_LENGTH = NETMASK_OFFSET + TEXT_SIZE;

constexpr quint32 CONNECTED_FLAG = 1;
constexpr quint32 WIRELESS_FLAG = 2;

bool IsPrintableAscii(char c)
{
    return c >= 0x20 && c < 0x7f;
}

// A text that does not fit is left out: half an address would be taken for another one.
void PutText(QByteArray &record, int offset, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    if (bytes.size() < TEXT_SIZE && std::all_of(bytes.begin(), bytes.end(), IsPrintableAscii))
        std::memcpy(record.data() + offset, bytes.constData(), static_cast<size_t>(bytes.size()));
}

bool GetText(const QByteArray &record, int offset, QString &text)
{
    const char *begin = record.constData() + offset;
    const char *end = std::find(begin, begin + TEXT_SIZE, '\0');
    if (end == begin + TEXT_SIZE || !std::all_of(begin, end, IsPrintableAscii))
        return false;
    text = QString::fromLatin1(begin, static_cast<int>(end - begin));
    return true;
}

bool HasKnownHeader(const QByteArray &data)
{
    if (data.size() < RECORD_LENGTH || std::memcmp(data.constData(), MAGIC, sizeof MAGIC) != 0)
        return false;
    return qFromLittleEndian<quint16>(data.constData() + VERSION_OFFSET) == VERSION &&
           qFromLittleEndian<quint16>(data.constData() + LENGTH_OFFSET) == RECORD_LENGTH;
}

} // namespace

void ZebNetStatus::SetIfaceInfo(const QString &mac, const QString &ip, const QString &broadcastAddress,
                                const QString &mask)
{
    macAddress = mac;
    ipAddress = ip;
    broadcast = broadcastAddress;
    netmask = mask;
}

QByteArray ZebNetStatus::GetData() const
{
    static_assert(RECORD_LENGTH <= RECORD_SIZE && RECORD_SIZE == ZebNetSegment::SIZE);
    QByteArray record(RECORD_SIZE, '\0');
    std::memcpy(record.data(), MAGIC, sizeof MAGIC);
    qToLittleEndian<quint16>(VERSION, record.data() + VERSION_OFFSET);
    qToLittleEndian<quint16>(RECORD_LENGTH, record.data() + LENGTH_OFFSET);
    qToLittleEndian<quint32>((connected ? CONNECTED_FLAG : 0) | (wireless ? WIRELESS_FLAG : 0),
                             record.data() + FLAGS_OFFSET);
    PutText(record, MAC_OFFSET, macAddress);
    PutText(record, IP_OFFSET, ipAddress);
    PutText(record, BROADCAST_OFFSET, broadcast);
    PutText(record, NETMASK_OFFSET, netmask);
    return record;
}

bool ZebNetStatus::SetData(const QByteArray &data)
{
    if (!HasKnownHeader(data))
        return false;

    ZebNetStatus read;
    const auto flags = qFromLittleEndian<quint32>(data.constData() + FLAGS_OFFSET);
    read.connected = (flags & CONNECTED_FLAG) != 0;
    read.wireless = (flags & WIRELESS_FLAG) != 0;
    if (!GetText(data, MAC_OFFSET, read.macAddress) || !GetText(data, IP_OFFSET, read.ipAddress) ||
        !GetText(data, BROADCAST_OFFSET, read.broadcast) || !GetText(data, NETMASK_OFFSET, read.netmask))
        return false;
    *this = read;
    return true;
}
