// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "supplicantvalues.h"

#include <QByteArray>
#include <QRegularExpression>

#include <algorithm>

namespace {

/// The parser reads a longer line in pieces and then misses the closing quote.
constexpr int LINE_LIMIT = 1999; // bytes, with the tab before it, without the line feed

constexpr int SSID_LIMIT = 32; // bytes (IEEE 802.11-2020, 9.4.2.2)

bool BreaksLine(QChar c)
{
    const ushort code = c.unicode();
    return code < 0x20 || (code >= 0x7f && code < 0xa0) || code == 0x2028 || code == 0x2029;
}

bool IsQuoted(const QString &value)
{
    return value.size() >= 2 && value.startsWith(QLatin1Char('"')) && value.endsWith(QLatin1Char('"'));
}

/// The number of bytes that a WEP key as written stands for, -1 for a text that is none.
qsizetype WepKeyLength(const QString &value)
{
    static const QRegularExpression digits(QStringLiteral("\\A([0-9A-Fa-f]{2})+\\z"));
    // Those of a fixed length alone: octal ones have up to three digits, and of any other escape the
    // supplicant drops the backslash.
    static const QRegularExpression escape(QStringLiteral("\\\\([\\\\\"enrt]|x[0-9A-Fa-f]{2})"));
    if (IsQuoted(value))
        return int(value.toUtf8().size()) - 2;
    if (!value.startsWith(QLatin1Char('P')) || !IsQuoted(value.mid(1)))
        return digits.match(value).hasMatch() ? int(value.size()) / 2 : -1;
    const QString text = value.mid(2, value.size() - 3).replace(escape, QStringLiteral("x"));
    return text.contains(QLatin1Char('\\')) ? -1 : int(text.toUtf8().size());
}

} // namespace

QString SupplicantValues::TextProblem(const QString &text)
{
    if (text.isValidUtf16() && std::none_of(text.begin(), text.end(), BreaksLine))
        return QString();
    return QStringLiteral("holds a control character or a line end");
}

QString SupplicantValues::LineProblem(const QString &key, const QString &value)
{
    if (QString problem = TextProblem(value); !problem.isEmpty())
        return problem;
    if (QString problem = CommentProblem(value); !problem.isEmpty())
        return problem;
    const QString line = QLatin1Char('\t') + key + QLatin1Char('=') + value;
    return line.toUtf8().size() <= LINE_LIMIT ? QString() : QStringLiteral("is too long");
}

QString SupplicantValues::CommentProblem(const QString &value)
{
    // A number sign outside quotes begins a comment; every quote inside a value ends or begins quotes again.
    bool isInside = false;
    for (const QChar c : value) {
        if (c == QLatin1Char('"'))
            isInside = !isInside;
        else if (c == QLatin1Char('#') && !isInside)
            return QStringLiteral("holds a number sign after a quote, which begins a comment");
    }
    return QString();
}

QString SupplicantValues::SsidProblem(const QString &ssid)
{
    const auto size = ssid.toUtf8().size();
    if (size == 0)
        return QStringLiteral("is empty, which stands for any network");
    return size <= SSID_LIMIT ? QString()
                              : QStringLiteral("has %1 bytes, the limit is %2").arg(size).arg(SSID_LIMIT);
}

QString SupplicantValues::PassphraseProblem(const QString &passphrase)
{
    const auto size = passphrase.toUtf8().size();
    return size >= 8 && size <= 63 ? QString() : QStringLiteral("is not from 8 to 63 bytes long");
}

QString SupplicantValues::PskProblem(const QString &value)
{
    static const QRegularExpression hashedKey(QStringLiteral("\\A[0-9A-Fa-f]{64}\\z"));
    if (IsQuoted(value))
        return PassphraseProblem(value.mid(1, value.size() - 2));
    return hashedKey.match(value).hasMatch() ? QString()
                                             : QStringLiteral("is not a key of 64 hexadecimal digits");
}

QString SupplicantValues::WepKeyProblem(const QString &value)
{
    if (QString problem = CommentProblem(value); !problem.isEmpty())
        return problem;
    const qsizetype length = WepKeyLength(value);
    if (value.isEmpty() || length == 5 || length == 13 || length == 16)
        return QString();
    return QStringLiteral("is not a WEP key: 10, 26 or 32 hexadecimal digits, or 5, 13 or 16 bytes in double "
                          "quotes, with a P before these for escapes");
}

const QStringList &SupplicantValues::Ciphers()
{
    static const QStringList ciphers = {QStringLiteral("CCMP"), QStringLiteral("TKIP"),
                                        QStringLiteral("GCMP"), QStringLiteral("CCMP-256"),
                                        QStringLiteral("GCMP-256")};
    return ciphers;
}

QString SupplicantValues::CipherProblem(const QString &value)
{
    const QStringList words = value.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    const bool isList = !words.isEmpty() && std::all_of(words.begin(), words.end(), [](const QString &word) {
        return Ciphers().contains(word);
    });
    return isList ? QString() : QStringLiteral("is not a list of CCMP, TKIP, GCMP, CCMP-256 and GCMP-256");
}

bool SupplicantValues::IsSecretOption(const QString &key)
{
    static const QStringList NAMES = {QStringLiteral("psk"), QStringLiteral("sae_password"),
                                      QStringLiteral("password"), QStringLiteral("private_key_passwd")};
    return NAMES.contains(key) || key.startsWith(QLatin1String("wep_key"));
}

SupplicantValues::Band SupplicantValues::BandOf(const QString &text)
{
    if (text.contains(QLatin1String("2.4")))
        return Band::Ghz24;
    if (text.contains(QLatin1String("5.0")) || text == QLatin1String("5"))
        return Band::Ghz5;
    if (text.contains(QLatin1String("6.0")) || text == QLatin1String("6"))
        return Band::Ghz6;
    return Band::None;
}
