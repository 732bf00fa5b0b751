// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "output.h"

#include <QByteArray>
#include <QJsonDocument>

bool Print(FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    const auto size = static_cast<size_t>(bytes.size());
    return std::fwrite(bytes.constData(), 1, size, stream) == size && std::fflush(stream) == 0;
}

QString Printable(QString line)
{
    for (QChar &character : line)
        if (character.category() == QChar::Other_Control || character.category() == QChar::Other_Format)
            character = QChar::ReplacementCharacter;
    return line;
}

QString JsonLine(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)) + QLatin1Char('\n');
}
