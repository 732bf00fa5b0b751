// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebdocument.h"

#include "zebcheck.h"

#include <QXmlStreamReader>

#include <optional>

namespace {

/// The text of the current element; nothing when there are elements inside.
std::optional<QString> ReadText(QXmlStreamReader &xml)
{
    QString text;
    bool isPlain = true;
    while (!xml.atEnd() && xml.readNext() != QXmlStreamReader::EndElement) {
        if (xml.isCharacters()) {
            text += xml.text();
        } else if (xml.isStartElement()) {
            isPlain = false;
            xml.skipCurrentElement();
        }
    }
    return isPlain ? std::make_optional(text) : std::nullopt;
}

/// Names come from outside and may be as long as the file.
QString Shortened(const QString &elementName)
{
    return elementName.left(64);
}

void ReadTextInto(QMap<QString, QString> &texts, QXmlStreamReader &xml, QStringList &problems)
{
    const QString key = xml.name().toString();
    const std::optional<QString> text = ReadText(xml);
    if (!text)
        problems << Shortened(key) + QStringLiteral(": has elements inside, not used");
    else if (texts.contains(key))
        problems << Shortened(key) + QStringLiteral(": stands there again, the first one holds");
    else if (!text->isEmpty())
        texts.insert(key, *text);
}

void ReadHosts(QStringList &hosts, QXmlStreamReader &xml, QStringList &problems)
{
    while (xml.readNextStartElement()) {
        const bool isHost = xml.name() == QLatin1String("host");
        const std::optional<QString> text = ReadText(xml);
        if (isHost && text) {
            if (!text->isEmpty())
                hosts << *text;
        } else {
            problems << QStringLiteral("hosts: an element that is not a plain host is not used");
        }
    }
}

void AddNetwork(ZebDocument &document, ZebNetwork &network, QStringList &problems)
{
    const QString name = network.properties.value(QStringLiteral("name"));
    if (document.networks.contains(name)) {
        problems << QStringLiteral("left out: the name is taken by an earlier network");
        return;
    }
    if (!ZebCheck::CheckNetwork(network, problems))
        return;
    document.networkNames << name;
    document.networks.insert(name, network);
}

void ReadNetwork(ZebDocument &document, QXmlStreamReader &xml, QStringList &problems)
{
    const qint64 line = xml.lineNumber();
    ZebNetwork network;
    QStringList found;
    while (xml.readNextStartElement()) {
        if (xml.name() == QLatin1String("hosts"))
            ReadHosts(network.hosts, xml, found);
        else
            ReadTextInto(network.properties, xml, found);
    }

    const QString name = network.properties.value(QStringLiteral("name"));
    const QString reason = name.isEmpty() ? QStringLiteral("is empty") : ZebCheck::TextProblem(name);
    if (!reason.isEmpty()) {
        problems << QStringLiteral("the network in line %1 is left out: its name %2").arg(line).arg(reason);
        return;
    }
    AddNetwork(document, network, found);
    for (const QString &problem : qAsConst(found))
        problems << QStringLiteral("network \"%1\": %2").arg(name, problem);
}

void CheckSettings(QMap<QString, QString> &settings, QStringList &problems)
{
    for (auto setting = settings.begin(); setting != settings.end();) {
        const QString reason = ZebCheck::TextProblem(setting.value());
        if (reason.isEmpty()) {
            ++setting;
            continue;
        }
        problems << QStringLiteral("%1: %2, not used").arg(Shortened(setting.key()), reason);
        setting = settings.erase(setting);
    }
}

/// Whether more than 16 KiB go by without the start of a tag; a '<' cannot stand inside one, a '>' can, in an
/// attribute's value. The reader's time grows with the square of the number of attributes: 4 MiB of them in
/// one tag would hold the program up for minutes.
bool HasOverlongTag(const QByteArray &bytes)
{
    constexpr int LIMIT = 16 * 1024;
    for (int begin = 0; bytes.size() - begin > LIMIT;) {
        const int start = bytes.lastIndexOf('<', begin + LIMIT);
        if (start < begin)
            return true;
        begin = start + 1;
    }
    return false;
}

void FindRoot(QXmlStreamReader &xml)
{
    while (!xml.atEnd() && xml.readNext() != QXmlStreamReader::StartElement) {
        if (xml.isDTD())
            xml.raiseError(QStringLiteral("a document type definition is not accepted"));
    }
}

} // namespace

bool ZebDocument::Parse(const QByteArray &bytes, QStringList &problems, QString &error)
{
    if (HasOverlongTag(bytes)) {
        error = QStringLiteral("a tag or a text is longer than 16 KiB");
        return false;
    }
    QXmlStreamReader xml(bytes);
    FindRoot(xml);
    while (xml.readNextStartElement()) {
        if (xml.name() == QLatin1String("network"))
            ReadNetwork(*this, xml, problems);
        else
            ReadTextInto(settings, xml, problems);
    }
    while (!xml.atEnd())
        xml.readNext();
    CheckSettings(settings, problems);
    if (!xml.hasError())
        return true;
    error = QStringLiteral("line %1, column %2: %3")
                .arg(xml.lineNumber())
                .arg(xml.columnNumber())
                .arg(xml.errorString());
    return false;
}
