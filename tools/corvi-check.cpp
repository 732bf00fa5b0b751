// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "machinecheck.h"
#include "output.h"
#include "paths.h"
#include "storecheck.h"
#include "storereporttext.h"
#include "zebsectionfile.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QJsonDocument>
#include <QLoggingCategory>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

enum ExitStatus { GOOD = 0, PROBLEMS = 1, UNUSABLE = 2 };

/// The store that was asked for.
struct Source
{
    QString shownName;
    SecureFile::Reading reading;
};

SecureFile::Reading ReadStandardInput()
{
    constexpr int LIMIT = ZebSectionFile::SIZE_LIMIT_MIB * 1024 * 1024;
    SecureFile::Reading reading;
    QFile input;
    if (!input.open(stdin, QIODevice::ReadOnly))
        reading.problem = input.errorString();
    while (reading.problem.isEmpty() && reading.contents.size() <= LIMIT) {
        const QByteArray part = input.read(LIMIT + 1 - reading.contents.size());
        if (input.error() != QFileDevice::NoError)
            reading.problem = input.errorString();
        if (part.isEmpty())
            return reading;
        reading.contents += part;
    }
    if (reading.problem.isEmpty())
        reading.problem = QStringLiteral("is larger than %1 MiB").arg(ZebSectionFile::SIZE_LIMIT_MIB);
    return reading;
}

/// Of the store in force, also what the daemon asks of its owner; any other file may be on its way there.
Source ReadSource(const QStringList &arguments)
{
    if (arguments.isEmpty())
        return {XML_FULL_NETWORK_PATH, ZebSectionFile::ReadTrusted(XML_FULL_NETWORK_PATH)};
    const QString &file = arguments.constFirst();
    if (file == QLatin1String("-"))
        return {QStringLiteral("<stdin>"), ReadStandardInput()};
    return {file, ZebSectionFile::Read(file)};
}

int Fail(const QString &reason)
{
    // What cannot be written to standard error can be told nowhere.
    static_cast<void>(Print(stderr, QStringLiteral("corvi-check: %1\n").arg(reason)));
    return UNUSABLE;
}

StoreReport Report(const QByteArray &contents)
{
    ZebDocument document;
    StoreReport report = CheckStore(contents, document);
    if (report.isUsable)
        report.Add(MachineFindings(document));
    return report;
}

int Check(const QStringList &arguments, bool asJson)
{
    const Source source = ReadSource(arguments);
    const StoreReport report = source.reading.problem.isEmpty() ? Report(source.reading.contents)
                                                                : UnreadableStore(source.reading.problem);
    const QString text =
        asJson ? QString::fromUtf8(QJsonDocument(StoreReportText::ForProgram(source.shownName, report))
                                       .toJson(QJsonDocument::Compact)) +
                     QLatin1Char('\n')
               : StoreReportText::ForPerson(source.shownName, report);
    if (!Print(stdout, text))
        return Fail(QStringLiteral("cannot write: ") + QString::fromLocal8Bit(std::strerror(errno)));
    if (!report.isUsable)
        return UNUSABLE;
    return report.HasErrors() ? PROBLEMS : GOOD;
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    // Each way to read a key that is not the right one would be told there.
    QLoggingCategory::setFilterRules(QStringLiteral("qt.network.ssl=false"));
    QCoreApplication::setApplicationName(QStringLiteral("corvi-check"));
    QCoreApplication::setApplicationVersion(QStringLiteral(CORVI_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Checks a configuration store of the Corvi daemon before it is in force."));
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    const QCommandLineOption json(QStringLiteral("json"),
                                  QStringLiteral("Print for a program: one JSON object."));
    parser.addOption(json);
    parser.addPositionalArgument(
        QStringLiteral("FILE"), QStringLiteral("The store; - for standard input. Without: the one in force."),
        QStringLiteral("[FILE]"));
    // Not process(): its status for a wrong command line is that of a store with problems.
    if (!parser.parse(QCoreApplication::arguments()))
        return Fail(parser.errorText());
    if (parser.isSet(help))
        parser.showHelp();
    if (parser.isSet(version))
        parser.showVersion();
    const QStringList files = parser.positionalArguments();
    if (files.size() > 1)
        return Fail(QStringLiteral("unexpected argument: ") + files.at(1));

    return Check(files, parser.isSet(json));
}
