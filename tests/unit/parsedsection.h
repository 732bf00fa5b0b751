// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "zebdocument.h"

/// A section of the store as read from a text, with what was said about it.
struct ParsedSection
{
    bool isWellFormed = false;
    ZebDocument document;
    ZebProblems problems;

    explicit ParsedSection(const QByteArray &xml) { isWellFormed = document.Parse(xml, problems); }

    /// The problems as texts, without their places.
    QStringList Texts() const
    {
        QStringList texts;
        for (const ZebProblem &problem : problems)
            texts << problem.Text().section(QStringLiteral(": "), 1);
        return texts;
    }
};

inline ParsedSection ParsedNetwork(const QByteArray &elements)
{
    return ParsedSection("<networkconfig><network>" + elements + "</network></networkconfig>");
}

inline QByteArray Element(const QString &property, const QByteArray &value)
{
    const QByteArray name = property.toUtf8();
    return "<" + name + ">" + value + "</" + name + ">";
}
