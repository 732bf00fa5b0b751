// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "storemarkup.h"

#include "zebproperties.h"

#include <QStringList>
#include <QXmlStreamReader>

#include <algorithm>

namespace {

/// Names of the elements that we are in, the outermost first.
using OpenElements = QStringList;

bool IsInNetwork(const OpenElements &open)
{
    return open.size() == 3 && open.at(1) == QLatin1String("network");
}

/// Of no other element the name is shown: with an unescaped "<" it may be a part of a password.
bool IsProperty(const OpenElements &open)
{
    return IsInNetwork(open) && ZebProperties::Find(open.constLast()) != nullptr;
}

bool HoldsElementsOnly(const OpenElements &open)
{
    return open.size() == 1 || (open.size() == 2 && open.constLast() == QLatin1String("network")) ||
           (IsInNetwork(open) && open.constLast() == QLatin1String("hosts"));
}

ZebPlace PlaceOf(const QXmlStreamReader &xml)
{
    return {xml.lineNumber(), xml.columnNumber() + 1};
}

/// Where the text proper begins that stands, with its blanks, behind `place`.
ZebPlace PlaceOfText(const ZebPlace &place, const QString &text)
{
    const auto isBlank = [](QChar character) {
        return character.isSpace();
    };
    const auto begin = std::find_if_not(text.begin(), text.end(), isBlank);
    const QString blanks = text.left(static_cast<int>(begin - text.begin()));
    const auto lineEnd = blanks.lastIndexOf(QLatin1Char('\n'));
    return {place.line + blanks.count(QLatin1Char('\n')),
            lineEnd == -1 ? place.column + blanks.size() : blanks.size() - lineEnd};
}

StoreFinding Finding(const ZebPlace &place, const QString &property, const QString &reason)
{
    StoreFinding finding;
    finding.severity = StoreFinding::Severity::Warning;
    finding.place = place;
    finding.property = property;
    finding.reason = reason;
    return finding;
}

} // namespace

StoreFindings MarkupFindings(const QByteArray &contents)
{
    QXmlStreamReader xml(contents);
    StoreFindings findings;
    OpenElements open;
    ZebPlace behindLast;
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement()) {
            open.append(xml.name().toString());
            if (IsProperty(open) && !xml.attributes().isEmpty())
                findings.append(Finding(PlaceOf(xml), open.constLast(),
                                        QStringLiteral("has attributes; they are not used")));
        } else if (xml.isEndElement()) {
            open.removeLast();
        } else if (xml.isCharacters() && !xml.isWhitespace() && HoldsElementsOnly(open)) {
            findings.append(Finding(PlaceOfText(behindLast, xml.text().toString()), QString(),
                                    QStringLiteral("a text between elements; it is not used")));
        }
        behindLast = PlaceOf(xml);
    }
    return findings;
}
