// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "masking.h"

#include "supplicantvalues.h"
#include "zebproperties.h"

#include <QList>
#include <QRegularExpression>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <algorithm>
#include <functional>
#include <utility>

namespace {

const QByteArray MASK = QByteArrayLiteral("********");
/// A shorter one would be found in half the words of a log; none is written there anyway.
constexpr int SHORTEST_SECRET = 4;

/// The elements whose text is no secret. Those of networks come from the store's own table.
bool IsOpenElement(const QString &name)
{
    static const QSet<QString> OTHERS = {
        QStringLiteral("UseApScan"),      QStringLiteral("FilterSsids"),  QStringLiteral("AddWpsSaeCred"),
        QStringLiteral("bonding_enable"), QStringLiteral("bonding_mode"), QStringLiteral("useNewDriver"),
        QStringLiteral("host"),
    };
    const ZebProperty *const property = ZebProperties::Find(name);
    return property ? !property->isSecret : OTHERS.contains(name);
}

/// The supplicant's options whose value is no secret.
bool IsOpenOption(const QByteArray &name)
{
    static const QSet<QByteArray> OPEN = {
        "ap_scan",       "bgscan",
        "bssid",         "ca_cert",
        "ca_path",       "client_cert",
        "country",       "ctrl_interface",
        "disabled",      "eap",
        "eapol_flags",   "eapol_version",
        "fast_reauth",   "filter_ssids",
        "freq_list",     "group",
        "id_str",        "identity",
        "ieee80211w",    "key_mgmt",
        "mode",          "openssl_ciphers",
        "pac_file",      "pairwise",
        "phase1",        "phase2",
        "pmf",           "priority",
        "private_key",   "proactive_key_caching",
        "proto",         "scan_freq",
        "scan_ssid",     "ssid",
        "update_config", "wep_tx_keyidx",
        "auth_alg",      "wps_cred_add_sae",
        "sae_pwe",       "eap_workaround",
    };
    return OPEN.contains(name);
}

/// "pin" of a device, or "pin-value" of a token (RFC 7512): some options hold one among other things.
bool HoldsPin(const QByteArray &value)
{
    return value.contains("pin=") || value.contains("pin-value=");
}

/// Keeps the elements of a store, and of their texts those that are no secrets.
class StoreCopy
{
public:
    explicit StoreCopy(std::function<void(const QByteArray &)> noteSecret) : note(std::move(noteSecret)) {}

    QByteArray Of(const QByteArray &xml)
    {
        QXmlStreamReader reader(xml);
        writer.setAutoFormatting(true);
        while (!reader.atEnd())
            Take(reader.readNext(), reader);
        // The reader's own reason may quote what stands there.
        if (reader.hasError())
            copy += "\n<!-- not well-formed at line " + QByteArray::number(reader.lineNumber()) +
                    ", column " + QByteArray::number(reader.columnNumber()) + " -->";
        return copy + '\n';
    }

private:
    void Take(QXmlStreamReader::TokenType token, const QXmlStreamReader &reader)
    {
        switch (token) {
        case QXmlStreamReader::StartElement:
            EndText();
            open.append(reader.name().toString());
            writer.writeStartElement(open.constLast());
            NoteAttributes(reader.attributes());
            break;
        case QXmlStreamReader::EndElement:
            EndText();
            open.removeLast();
            writer.writeEndElement();
            break;
        case QXmlStreamReader::Characters:
            text += reader.text().toString();
            break;
        default: // Comments and the like may hold anything.
            break;
        }
    }

    void NoteAttributes(const QXmlStreamAttributes &attributes) const
    {
        for (const QXmlStreamAttribute &attribute : attributes)
            note(attribute.value().toUtf8());
    }

    /// A text comes in several pieces where it is escaped.
    void EndText()
    {
        const QString whole = text.trimmed();
        text.clear();
        if (whole.isEmpty() || open.isEmpty())
            return;
        const bool isOpen = IsOpenElement(open.constLast());
        if (!isOpen)
            note(whole.toUtf8());
        writer.writeCharacters(isOpen ? whole : QString::fromLatin1(MASK));
    }

    const std::function<void(const QByteArray &)> note;
    QByteArray copy;
    QXmlStreamWriter writer{&copy};
    QStringList open; ///< names of the elements that we are in
    QString text;     ///< of the innermost, since the last tag
};

} // namespace

QByteArray Masking::Store(const QByteArray &xml)
{
    return StoreCopy([this](const QByteArray &secret) { Note(secret); }).Of(xml);
}

QByteArray Masking::SupplicantFile(const QByteArray &contents)
{
    QByteArray masked;
    const QList<QByteArray> lines = contents.split('\n');
    for (const QByteArray &line : lines) {
        const QByteArray option = line.trimmed();
        const auto separator = option.indexOf('=');
        const QByteArray name = option.left(separator);
        const QByteArray value = option.mid(separator + 1);
        if (option == "network={" || option == "}") {
            masked += option + '\n';
        } else if (IsOpenOption(name) && !HoldsPin(value)) {
            masked += '\t' + option + '\n';
        } else if (separator > 0 && !option.startsWith('#')) {
            Note(value);
            // Of an option that nobody knows, such as a line of an embedded key, the name may be a secret.
            const bool isKnown =
                SupplicantValues::IsSecretOption(QString::fromLatin1(name)) || IsOpenOption(name);
            masked += '\t' + (isKnown ? name : MASK) + '=' + MASK + '\n';
        }
    }
    return masked;
}

QByteArray Masking::ClientFile(const QByteArray &contents)
{
    static const QRegularExpression statement(QStringLiteral("(?i)\\bsecret\\s+\"?([^\\s\";]+)"));
    // One byte, one character: the file need not be UTF-8.
    auto matches = statement.globalMatch(QString::fromLatin1(contents));
    while (matches.hasNext())
        Note(matches.next().captured(1).toLatin1());
    return Text(contents);
}

void Masking::Note(const QByteArray &secret)
{
    if (secret.size() < SHORTEST_SECRET || secrets.contains(secret))
        return;
    const QByteArray inXml = QString::fromUtf8(secret).toHtmlEscaped().toUtf8();
    // The longest first: one may be the beginning of another.
    const auto isLonger = [](const QByteArray &one, const QByteArray &other) {
        return one.size() > other.size();
    };
    for (const QByteArray &form :
         {secret, inXml, secret.toHex(), secret.toHex().toUpper(), secret.toBase64()})
        secrets.insert(std::upper_bound(secrets.begin(), secrets.end(), form, isLonger), form);
    // An option's value in quotes, and a hash behind what it is of.
    if (secret.startsWith('"') && secret.endsWith('"'))
        Note(secret.mid(1, secret.size() - 2));
    if (secret.startsWith("hash:"))
        Note(secret.mid(5));
}

QByteArray Masking::Text(QByteArray text) const
{
    for (const QByteArray &secret : secrets)
        text.replace(secret, MASK);
    return text;
}
