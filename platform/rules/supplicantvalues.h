// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>
#include <QStringList>

/// What wpa_supplicant takes in its configuration file, as seen in version 2.10. Each operation gives the
/// reason why it would refuse the value, and the whole file with it, or take it for another one: the rest of
/// a sentence that the value's name begins. An empty text means that it takes the value as meant. No reason
/// shows the value, which may be a secret.
namespace SupplicantValues {

/// Any text that is to stay within its line.
QString TextProblem(const QString &text);

/// A whole line of a block: `value` is as written, with its quotes.
QString LineProblem(const QString &key, const QString &value);

/// A value as written, with its quotes: a comment that begins inside would cut it.
QString CommentProblem(const QString &value);

QString SsidProblem(const QString &ssid);

/// A WPA passphrase (IEEE 802.11-2020, J.4.1).
QString PassphraseProblem(const QString &passphrase);

/// A pre-shared key as written: a quoted passphrase, or the digits of the hashed key.
QString PskProblem(const QString &value);

/// A WEP key as written: hexadecimal digits, a quoted text, or a P before the quotes of a text with escapes.
/// No key at all is taken.
QString WepKeyProblem(const QString &value);

/// The words that both the pairwise and the group ciphers take.
const QStringList &Ciphers();

/// A list of these words.
QString CipherProblem(const QString &value);

/// Whether this is an option of a block whose value is a secret.
bool IsSecretOption(const QString &key);

/// A band, by the text that stands for it.
enum class Band { None, Ghz24, Ghz5, Ghz6 };
Band BandOf(const QString &text);

} // namespace SupplicantValues
