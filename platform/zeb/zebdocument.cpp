// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebdocument.h"

#include "zebcheck.h"

#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <algorithm>
#include <optional>

namespace {

const QString NAME = QStringLiteral("name");
const QString HOSTS = QStringLiteral("hosts");

/// The texts of elements, each with its place.
struct Texts
{
    QMap<QString, QString> values;
    QMap<QString, ZebPlace> places;
};

/// Behind the start tag that was just read: there its text begins.
ZebPlace PlaceOf(const QXmlStreamReader &xml)
{
    return {xml.lineNumber(), xml.columnNumber() + 1};
}

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

void ReadTextInto(Texts &texts, QXmlStreamReader &xml, ZebProblems &problems)
{
    const QString key = xml.name().toString();
    const ZebPlace place = PlaceOf(xml);
    const std::optional<QString> text = ReadText(xml);
    if (!text) {
        problems.append(
            {place, {}, Shortened(key), QStringLiteral("has elements inside"), ZebConsequence::NotUsed});
    } else if (texts.values.contains(key)) {
        problems.append(
            {place, {}, Shortened(key), QStringLiteral("stands there again"), ZebConsequence::FirstHolds});
    } else if (!text->isEmpty()) {
        texts.values.insert(key, *text);
        texts.places.insert(key, place);
    }
}

/// Why a line cannot stand in the hosts file, or nothing. Its fields are often set apart by tabs.
QString HostProblem(const std::optional<QString> &line)
{
    if (!line)
        return QStringLiteral("a host has elements inside");
    return ZebCheck::TextProblem(QString(*line).replace(QLatin1Char('\t'), QLatin1Char(' ')));
}

void ReadHosts(QStringList &hosts, QXmlStreamReader &xml, ZebProblems &problems)
{
    while (xml.readNextStartElement()) {
        const ZebPlace place = PlaceOf(xml);
        const bool isHost = xml.name() == QLatin1String("host");
        const std::optional<QString> line = ReadText(xml);
        const QString problem = isHost ? HostProblem(line) : QStringLiteral("an element that is not a host");
        if (!problem.isEmpty())
            problems.append({place, {}, HOSTS, problem, ZebConsequence::NotUsed});
        else if (!line->isEmpty())
            hosts << *line;
    }
}

bool IsLeftOut(const ZebProblems &problems)
{
    return std::any_of(problems.begin(), problems.end(), [](const ZebProblem &problem) {
        return problem.consequence == ZebConsequence::NetworkLeftOut;
    });
}

/// Why a network cannot have this name, or nothing.
QString NameProblem(const ZebDocument &document, const QString &name)
{
    if (name.isEmpty())
        return QStringLiteral("is missing");
    if (document.networks.contains(name))
        return QStringLiteral("is taken by an earlier network");
    return ZebCheck::TextProblem(name);
}

void ReadNetwork(ZebDocument &document, QXmlStreamReader &xml, ZebProblems &problems)
{
    const ZebPlace place = PlaceOf(xml);
    ZebNetwork network;
    Texts texts;
    ZebProblems found;
    while (xml.readNextStartElement()) {
        if (xml.name() == HOSTS)
            ReadHosts(network.hosts, xml, found);
        else
            ReadTextInto(texts, xml, found);
    }

    const QString name = texts.values.value(NAME);
    network.properties = texts.values;
    network.place = place;
    network.places = texts.places;
    const QString nameProblem = NameProblem(document, name);
    if (!nameProblem.isEmpty())
        found.append({{}, {}, NAME, nameProblem, ZebConsequence::NetworkLeftOut});
    else
        found += ZebCheck::CheckNetwork(network);

    for (ZebProblem &problem : found) {
        problem.network = ZebCheck::TextProblem(name).isEmpty() ? name : QString();
        if (problem.place.line == 0)
            problem.place = texts.places.value(problem.property, place);
    }
    problems += found;
    if (IsLeftOut(found))
        return;
    document.networkNames << name;
    document.networks.insert(name, network);
}

void CheckSettings(Texts &settings, ZebProblems &problems)
{
    for (auto setting = settings.values.begin(); setting != settings.values.end();) {
        const QString problem = ZebCheck::TextProblem(*setting);
        if (problem.isEmpty()) {
            ++setting;
            continue;
        }
        problems.append({settings.places.value(setting.key()),
                         {},
                         Shortened(setting.key()),
                         problem,
                         ZebConsequence::NotUsed});
        setting = settings.values.erase(setting);
    }
}

/// Where more than 16 KiB go by without the start of a tag, or -1; a '<' cannot stand inside one, a '>' can,
/// in an attribute's value. The reader's time grows with the square of the number of attributes: 4 MiB of
/// them in one tag would hold the program up for minutes.
int OverlongTag(const QByteArray &bytes)
{
    constexpr int LIMIT = 16 * 1024;
    for (int begin = 0; bytes.size() - begin > LIMIT;) {
        const int start = int(bytes.lastIndexOf('<', begin + LIMIT));
        if (start < begin)
            return begin;
        begin = start + 1;
    }
    return -1;
}

ZebPlace PlaceIn(const QByteArray &bytes, int offset)
{
    const QByteArray before = bytes.left(offset);
    const int lineStart = int(before.lastIndexOf('\n')) + 1;
    return {before.count('\n') + 1, QString::fromUtf8(before.mid(lineStart)).size() + 1};
}

void FindRoot(QXmlStreamReader &xml)
{
    while (!xml.atEnd() && xml.readNext() != QXmlStreamReader::StartElement) {
        if (xml.isDTD())
            xml.raiseError(QStringLiteral("a document type definition is not accepted"));
    }
}

/// Where the text is not well-formed. The reader decodes far ahead of what it reads, so that of bytes that
/// are not UTF-8 it does not know the place: there is the first character that stands for some of them.
ZebPlace PlaceOfError(const QXmlStreamReader &xml, const QByteArray &bytes)
{
    const bool isNotUtf8 = xml.errorString().contains(QLatin1String("incorrectly encoded"));
    const QString text = isNotUtf8 ? QString::fromUtf8(bytes) : QString();
    if (const auto place = text.indexOf(QChar::ReplacementCharacter); place != -1) {
        const QString before = text.left(place);
        return {before.count(QLatin1Char('\n')) + 1, place - before.lastIndexOf(QLatin1Char('\n'))};
    }
    // At the end of the text the reader has read no character of the line yet.
    return {xml.lineNumber(), std::max<qint64>(xml.columnNumber(), 1)};
}

/// Why the text is not well-formed, without the names that it holds: an unescaped "&" in a password makes an
/// entity's name of what follows.
QString ErrorWithoutNames(const QXmlStreamReader &xml)
{
    static const QStringList marks = {QStringLiteral("<"), QStringLiteral(">"), QStringLiteral("&"),
                                      QStringLiteral("/")};
    QStringList parts = xml.errorString().split(QLatin1Char('\''));
    // With a quote in quotes it is not known where one ends.
    if (parts.size() % 2 == 0)
        parts = QStringList{parts.constFirst(), QString(), parts.constLast()};
    for (int i = 1; i < parts.size(); i += 2)
        if (!marks.contains(parts.at(i)))
            parts[i] = QStringLiteral("...");
    return parts.join(QLatin1Char('\''));
}

void WriteNetwork(QXmlStreamWriter &xml, const ZebNetwork &network)
{
    xml.writeStartElement(QStringLiteral("network"));
    for (auto property = network.properties.begin(); property != network.properties.end(); ++property)
        xml.writeTextElement(property.key(), *property);
    if (!network.hosts.isEmpty()) {
        xml.writeStartElement(HOSTS);
        for (const QString &host : network.hosts)
            xml.writeTextElement(QStringLiteral("host"), host);
        xml.writeEndElement();
    }
    xml.writeEndElement();
}

} // namespace

bool ZebDocument::Parse(const QByteArray &bytes, ZebProblems &problems)
{
    const auto refuse = [&problems](const ZebPlace &place, const QString &reason) {
        problems.append({place, {}, {}, reason, ZebConsequence::DocumentRefused});
        return false;
    };
    const int overlongTag = OverlongTag(bytes);
    if (overlongTag != -1)
        return refuse(PlaceIn(bytes, overlongTag), QStringLiteral("a tag or a text is longer than 16 KiB"));

    QXmlStreamReader xml(bytes);
    Texts read;
    FindRoot(xml);
    while (xml.readNextStartElement()) {
        if (xml.name() == QLatin1String("network"))
            ReadNetwork(*this, xml, problems);
        else
            ReadTextInto(read, xml, problems);
    }
    while (!xml.atEnd())
        xml.readNext();
    CheckSettings(read, problems);
    settings = read.values;
    settingPlaces = read.places;
    return !xml.hasError() || refuse(PlaceOfError(xml, bytes), ErrorWithoutNames(xml));
}

void ZebDocument::KeepLastGood(const ZebDocument &earlier, ZebProblems &problems)
{
    // Where one of two definitions of a name is good, it is in force.
    const QHash<QString, ZebNetwork> good = networks;
    for (ZebProblem &problem : problems) {
        const auto lastGood = earlier.networks.constFind(problem.network);
        if (problem.consequence != ZebConsequence::NetworkLeftOut ||
            lastGood == earlier.networks.constEnd() || good.contains(problem.network))
            continue;
        problem.consequence = ZebConsequence::LastGoodNetworkUsed;
        if (!networks.contains(problem.network))
            networkNames << problem.network;
        networks.insert(problem.network, *lastGood);
    }
}

QByteArray ZebDocument::ToXml() const
{
    QByteArray bytes;
    QXmlStreamWriter xml(&bytes);
    xml.setAutoFormatting(true);
    xml.writeStartDocument();
    xml.writeStartElement(QStringLiteral("networkconfig"));
    for (auto setting = settings.begin(); setting != settings.end(); ++setting)
        xml.writeTextElement(setting.key(), *setting);
    for (const QString &name : networkNames)
        WriteNetwork(xml, networks.value(name));
    xml.writeEndDocument();
    return bytes;
}
