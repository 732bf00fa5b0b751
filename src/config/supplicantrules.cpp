// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "supplicantrules.h"

#include <QByteArray>
#include <QRegularExpression>
#include <QStringList>

#include <algorithm>

namespace {

/// The parser reads a longer line in pieces and then misses the closing quote.
constexpr int LINE_LIMIT = 1999; // bytes, with the tab before it, without the line feed

bool HasControlCharacter(const QString &text)
{
    return std::any_of(text.begin(), text.end(),
                       [](QChar c) { return c.unicode() < 0x20 || c.unicode() == 0x7f; });
}

/// A number sign outside quotes begins a comment; every quote inside a value ends or begins quotes again.
bool IsCutByComment(const QString &value)
{
    bool isQuoted = false;
    for (const QChar c : value) {
        if (c == QLatin1Char('"'))
            isQuoted = !isQuoted;
        else if (c == QLatin1Char('#') && !isQuoted)
            return true;
    }
    return false;
}

bool IsQuoted(const QString &value)
{
    return value.size() >= 2 && value.startsWith(QLatin1Char('"')) && value.endsWith(QLatin1Char('"'));
}

/// Bytes between the quotes.
int QuotedLength(const QString &value)
{
    return value.toUtf8().size() - 2;
}

bool IsHashedKey(const QString &value)
{
    static const QRegularExpression key(QStringLiteral("\\A[0-9A-Fa-f]{64}\\z"));
    return key.match(value).hasMatch();
}

/// Text of 5, 13 or 16 bytes in quotes, or twice as many hexadecimal digits. No key at all is let through.
bool IsWepKey(const QString &value)
{
    static const QRegularExpression hexKey(
        QStringLiteral("\\A([0-9A-Fa-f]{10}|[0-9A-Fa-f]{26}|[0-9A-Fa-f]{32})\\z"));
    if (!IsQuoted(value))
        return value.isEmpty() || hexKey.match(value).hasMatch();
    const int length = QuotedLength(value);
    return length == 5 || length == 13 || length == 16;
}

/// The words that both the pairwise and the group list take.
bool IsCipherList(const QString &value)
{
    static const QStringList ciphers = {QStringLiteral("CCMP"), QStringLiteral("TKIP"),
                                        QStringLiteral("GCMP"), QStringLiteral("CCMP-256"),
                                        QStringLiteral("GCMP-256")};
    const QStringList words = value.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    return !words.isEmpty() && std::all_of(words.begin(), words.end(),
                                           [](const QString &word) { return ciphers.contains(word); });
}

} // namespace

QString SupplicantObjection(const QString &key, const QString &value)
{
    if (HasControlCharacter(value))
        return key + QStringLiteral(" holds a control character");
    if (IsCutByComment(value))
        return key + QStringLiteral(" holds a number sign after a quote, which begins a comment");
    if ((QLatin1Char('\t') + key + QLatin1Char('=') + value).toUtf8().size() > LINE_LIMIT)
        return key + QStringLiteral(" is too long");
    if (key == QLatin1String("ssid") && QuotedLength(value) == 0)
        return QStringLiteral("no ssid, which stands for any network");
    if (key == QLatin1String("ssid") && QuotedLength(value) > 32)
        return QStringLiteral("ssid is longer than 32 bytes");
    if (key == QLatin1String("psk") && IsQuoted(value) &&
        (QuotedLength(value) < 8 || QuotedLength(value) > 63))
        return QStringLiteral("a passphrase has 8 to 63 bytes");
    if (key == QLatin1String("psk") && !IsQuoted(value) && !IsHashedKey(value))
        return QStringLiteral("a hashed key has 64 hexadecimal digits");
    if (key == QLatin1String("wep_key0") && !IsWepKey(value))
        return QStringLiteral("a WEP key is 5, 13 or 16 quoted bytes or 10, 26 or 32 hexadecimal digits");
    if ((key == QLatin1String("pairwise") || key == QLatin1String("group")) && !IsCipherList(value))
        return key + QStringLiteral(" is not a list of ciphers");
    return QString();
}
