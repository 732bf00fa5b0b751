// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "commandline.h"
#include "machinecheck.h"
#include "output.h"
#include "paths.h"
#include "storecheck.h"
#include "storeplantext.h"
#include "storereporttext.h"
#include "zebsectionfile.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QJsonObject>
#include <QLoggingCategory>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>

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

/// What the command line asks for.
struct Request
{
    QStringList files;
    bool asJson = false;
    bool withPlan = false;
    QStringList interfaces;
};

/// All that is to be shown.
struct Answer
{
    StoreReport report;
    std::optional<StorePlan> plan;
};

Answer AnswerFor(const QByteArray &contents, const Request &request)
{
    Answer answer;
    ZebDocument document;
    answer.report = CheckStore(contents, document);
    if (!answer.report.isUsable)
        return answer;
    answer.report.Add(MachineFindings(document));
    if (request.withPlan)
        answer.plan = PlanStore(document, request.interfaces);
    return answer;
}

QString TextForPerson(const QString &fileName, const Answer &answer)
{
    const QString text = StoreReportText::ForPerson(fileName, answer.report) +
                         StorePlanText::ForPerson(answer.plan.value_or(StorePlan()));
    QStringList lines = text.split(QLatin1Char('\n'));
    std::transform(lines.begin(), lines.end(), lines.begin(), Printable);
    return lines.join(QLatin1Char('\n'));
}

QString Text(const QString &fileName, const Answer &answer, bool asJson)
{
    if (!asJson)
        return TextForPerson(fileName, answer);
    QJsonObject object = StoreReportText::ForProgram(fileName, answer.report);
    if (answer.plan)
        object.insert(QStringLiteral("plan"), StorePlanText::ForProgram(*answer.plan));
    return JsonLine(object);
}

ExitStatus StatusOf(const Answer &answer)
{
    if (!answer.report.isUsable)
        return UNUSABLE;
    const StorePlan plan = answer.plan.value_or(StorePlan());
    const bool hasProblems = answer.report.HasErrors() ||
                             std::any_of(plan.begin(), plan.end(), [](const InterfacePlan &interfacePlan) {
                                 return interfacePlan.HasProblems();
                             });
    return hasProblems ? PROBLEMS : GOOD;
}

int Check(const Request &request)
{
    const Source source = ReadSource(request.files);
    Answer answer;
    if (source.reading.problem.isEmpty())
        answer = AnswerFor(source.reading.contents, request);
    else
        answer.report = UnreadableStore(source.reading.problem);
    if (!Print(stdout, Text(source.shownName, answer, request.asJson)))
        return Fail(QStringLiteral("cannot write: ") + QString::fromLocal8Bit(std::strerror(errno)));
    return StatusOf(answer);
}

void QuietenLibraries()
{
    // The supplicant's blocks are built with the daemon's debug output, and each way to read a key that is
    // not the right one would be told.
    QLoggingCategory::setFilterRules(
        QStringLiteral("default.debug=false\nqt.network.ssl=false\nqt.tlsbackend.ossl=false"));
}

/// The options, each named once.
class CommandLine
{
public:
    /// Why it cannot be obeyed; empty when it can. Does not return where only help or the version is asked
    /// for.
    QString Parse()
    {
        parser.setApplicationDescription(
            QStringLiteral("Checks a configuration store of the Corvi daemon before it is in force."));
        const QCommandLineOption help = parser.addHelpOption();
        const QCommandLineOption version = parser.addVersionOption();
        parser.addOptions({json, plan, interfaces});
        parser.addPositionalArgument(
            QStringLiteral("FILE"),
            QStringLiteral("The store; - for standard input. Without: the one in force."),
            QStringLiteral("[FILE]"));
        // Not process(): its status for a wrong command line is that of a store with problems.
        if (!parser.parse(QCoreApplication::arguments()))
            return parser.errorText();
        if (parser.isSet(help))
            parser.showHelp();
        if (parser.isSet(version))
            parser.showVersion();
        if (parser.isSet(interfaces) && !parser.isSet(plan))
            return QStringLiteral("--interfaces is for --plan");
        const QStringList files = parser.positionalArguments();
        return files.size() > 1 ? QString(QStringLiteral("unexpected argument: ") + files.at(1)) : QString();
    }

    Request Asked() const
    {
        Request request;
        request.files = parser.positionalArguments();
        request.asJson = parser.isSet(json);
        request.withPlan = parser.isSet(plan);
        request.interfaces = parser.isSet(interfaces)
                                 ? parser.value(interfaces).split(QLatin1Char(','), Qt::SkipEmptyParts)
                                 : InterfacesHere();
        return request;
    }

private:
    const QCommandLineOption json = Option("json", "Print for a program: one JSON object.");
    const QCommandLineOption plan = Option("plan", "Show what the daemon would do with each interface.");
    const QCommandLineOption interfaces =
        Option("interfaces", "Plan for these, apart by commas, instead of this machine's.", "NAMES");
    QCommandLineParser parser;
};

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationVersion(QStringLiteral(CORVI_VERSION));
    QuietenLibraries();

    CommandLine commandLine;
    const QString problem = commandLine.Parse();
    return problem.isEmpty() ? Check(commandLine.Asked()) : Fail(problem);
}
