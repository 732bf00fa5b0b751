// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "defaultroute.h"

#include <QByteArray>
#include <QFile>
#include <QList>

#include <array>

#include <arpa/inet.h>
#include <netinet/in.h>

namespace {

const QString ROUTES = QStringLiteral("/proc/net/route");
const QByteArray EVERY_ADDRESS = QByteArrayLiteral("00000000");

/// The columns of the table, apart by tabs.
enum Column { IFACE, DESTINATION, GATEWAY, FLAGS, REF_COUNT, USE, METRIC, MASK, COLUMNS };

/// From the hexadecimal form of the bytes as they lie in memory.
QString AddressText(const QByteArray &hexadecimal)
{
    const in_addr address = {hexadecimal.toUInt(nullptr, 16)};
    std::array<char, INET_ADDRSTRLEN> text = {};
    ::inet_ntop(AF_INET, &address, text.data(), text.size());
    return QString::fromLatin1(text.data());
}

/// The columns of the table's rows that have this mask, in its own form.
QVector<QList<QByteArray>> RowsWithMask(const QByteArray &mask)
{
    QFile table(ROUTES);
    if (!table.open(QIODevice::ReadOnly))
        return {};
    QVector<QList<QByteArray>> rows;
    const QList<QByteArray> lines = table.readAll().split('\n');
    for (const QByteArray &line : lines) {
        const QList<QByteArray> columns = line.split('\t');
        if (columns.size() >= COLUMNS && columns.at(MASK) == mask)
            rows.append(columns);
    }
    return rows;
}

} // namespace

QVector<DefaultRoute> ReadDefaultRoutes()
{
    QVector<DefaultRoute> routes;
    const QVector<QList<QByteArray>> rows = RowsWithMask(EVERY_ADDRESS);
    for (const QList<QByteArray> &columns : rows)
        routes.append({QFile::decodeName(columns.at(IFACE)), AddressText(columns.at(GATEWAY)),
                       columns.at(METRIC).toInt()});
    return routes;
}

bool HasRoutesForBothHalves()
{
    const QByteArray upperHalf = QByteArray::number(htonl(0x80000000U), 16).toUpper().rightJustified(8, '0');
    bool hasLower = false;
    bool hasUpper = false;
    const QVector<QList<QByteArray>> rows = RowsWithMask(upperHalf);
    for (const QList<QByteArray> &columns : rows)
        (columns.at(DESTINATION) == upperHalf ? hasUpper : hasLower) = true;
    return hasLower && hasUpper;
}
