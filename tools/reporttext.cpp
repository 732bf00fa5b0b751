// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "reporttext.h"

#include "output.h"
#include "verdict.h"

#include <algorithm>

namespace {

constexpr int COLUMNS = 80;
constexpr int LABEL_COLUMNS = 16;

// ECMA-48, select graphic rendition
const QString BOLD = QStringLiteral("\033[1m");
const QString RED = QStringLiteral("\033[31m");
const QString GREEN = QStringLiteral("\033[32m");
const QString YELLOW = QStringLiteral("\033[33m");
const QString PLAIN = QStringLiteral("\033[0m");

QString ColourOf(Verdict::Mood mood)
{
    switch (mood) {
    case Verdict::Mood::Good:
        return GREEN;
    case Verdict::Mood::Waiting:
        return YELLOW;
    case Verdict::Mood::Fault:
        return RED;
    }
    return QString();
}

/// Puts the rows of one report together.
class Page
{
public:
    explicit Page(bool isColoured) : withColours(isColoured) {}

    void Line(const QString &line, const QString &colour = QString())
    {
        const QStringList parts = ReportText::Wrapped(Printable(line), COLUMNS);
        for (const QString &part : parts)
            text += Painted(part, colour) + QLatin1Char('\n');
    }

    /// Nothing for an empty value.
    void Row(const char *label, const QString &value, const QString &colour = QString())
    {
        QString start = QStringLiteral("  %1").arg(QLatin1String(label), 2 - LABEL_COLUMNS);
        if (value.isEmpty())
            return;
        const QStringList parts = ReportText::Wrapped(Printable(value), COLUMNS - LABEL_COLUMNS);
        for (const QString &part : parts) {
            text += start + Painted(part, colour) + QLatin1Char('\n');
            start = QString(LABEL_COLUMNS, QLatin1Char(' '));
        }
    }

    void Gap() { text += QLatin1Char('\n'); }
    const QString &Text() const { return text; }

private:
    QString Painted(const QString &part, const QString &colour) const
    {
        return withColours && !colour.isEmpty() ? QString(colour + part + PLAIN) : part;
    }

    const bool withColours;
    QString text;
};

QString OrNone(const QString &text)
{
    return text.isEmpty() ? QStringLiteral("none") : text;
}

/// A tick that waits for one tool at its limit, as for a DHCP server that is silent, takes less.
constexpr qint64 SILENCE_LIMIT_S = 60;

QString RunningLine(const ServiceStateReading &daemon)
{
    if (daemon.isStopped)
        return QStringLiteral("Corvi is stopped (process %1) and does nothing until it is sent SIGCONT. What "
                              "follows may be out of date.")
            .arg(daemon.pid);
    if (daemon.silentSeconds > SILENCE_LIMIT_S)
        return QStringLiteral("Corvi hangs (process %1): it, or a program that it waits for, has not come to "
                              "an end for %2 s. What follows may be out of date.")
            .arg(daemon.pid)
            .arg(daemon.silentSeconds);
    return QStringLiteral("Corvi runs (process %1).").arg(daemon.pid);
}

/// Whether the daemon does its work just now.
bool IsWell(const SystemReport &report)
{
    return report.IsDaemonKnown() && !report.daemon.isStopped &&
           report.daemon.silentSeconds <= SILENCE_LIMIT_S;
}

QString DaemonLine(const SystemReport &report)
{
    using Outcome = StatusReading::Outcome;
    if (report.IsDaemonKnown())
        return RunningLine(report.daemon);
    if (report.daemon.outcome == ServiceStateReading::Outcome::Stale ||
        report.segment.outcome == Outcome::NoDaemon)
        return QStringLiteral("Corvi does not run. What follows is what the system itself says.");
    const QString why =
        report.daemon.error.isEmpty() ? QStringLiteral("there is no such file") : report.daemon.error;
    if (report.segment.outcome == Outcome::Unreadable)
        return QStringLiteral("Whether Corvi runs is not known: %1 cannot be read (%2), nor can its "
                              "status (%3).")
            .arg(ServiceState::PATH, why, report.segment.error);
    return QStringLiteral("Corvi runs, but what it waits for is not known: %1 cannot be read (%2).")
        .arg(ServiceState::PATH, why);
}

QString KindOf(const InterfaceReport &interface)
{
    if (interface.daemon)
        return interface.daemon->kind;
    return interface.link.isWireless ? QStringLiteral("wireless") : QStringLiteral("wired");
}

QString LinkText(const LinkFacts &link)
{
    QStringList parts{link.isUp ? QStringLiteral("up") : QStringLiteral("down")};
    parts.append(link.hasCarrier ? QStringLiteral("carrier") : QStringLiteral("no carrier"));
    if (link.hasCarrier && link.speedMbits > 0)
        parts.append(QStringLiteral("%1 Mbit/s").arg(link.speedMbits));
    if (!link.macAddress.isEmpty())
        parts.append(link.macAddress);
    return parts.join(QStringLiteral(", "));
}

QString LocalTime(const QDateTime &time)
{
    return time.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

QString LeaseText(const LeaseFacts &lease)
{
    const QString from = QStringLiteral("from ") + OrNone(lease.server);
    return lease.expires.isValid() ? QString(from + QStringLiteral(" until ") + LocalTime(lease.expires))
                                   : QString(from + QStringLiteral(", without an end"));
}

QString DefinitionText(const InterfaceState &state)
{
    if (state.definition.isEmpty())
        return state.kind == QLatin1String("modem") ? QString() : QStringLiteral("none");
    const QString addressing = state.isStatic ? QStringLiteral(", static address") : QString();
    return QStringLiteral("%1: %2%3").arg(state.definition, DefinitionReason(state), addressing);
}

QString SupplicantText(const SupplicantFacts &supplicant)
{
    if (!supplicant.problem.isEmpty())
        return supplicant.problem;
    QStringList parts{supplicant.state};
    if (!supplicant.ssid.isEmpty())
        parts.append(QStringLiteral("SSID ") + supplicant.ssid);
    if (supplicant.signalDbm)
        parts.append(QStringLiteral("%1 dBm").arg(*supplicant.signalDbm));
    if (!supplicant.eapState.isEmpty())
        parts.append(QString(QStringLiteral("EAP ") + supplicant.eapState));
    if (!supplicant.eapMethod.isEmpty())
        parts.append(supplicant.eapMethod);
    return parts.join(QStringLiteral(", "));
}

QString FailureText(const InterfaceState &state)
{
    if (state.lastFailure.isEmpty())
        return QString();
    const QDateTime since = QDateTime::fromSecsSinceEpoch(state.failureSince);
    return QStringLiteral("%1, since %2").arg(state.lastFailure, LocalTime(since));
}

QString AddressesText(const LinkFacts &link)
{
    return QStringList(link.addresses + link.ipv6Addresses).join(QStringLiteral(", "));
}

void AddInterface(Page &page, const InterfaceReport &interface, const SystemReport &report)
{
    const Verdict verdict = Judge(interface, report);
    page.Gap();
    const QString &virtualKind = interface.link.virtualKind;
    page.Line(QStringLiteral("%1: %2%3%4")
                  .arg(interface.link.name, KindOf(interface),
                       virtualKind.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(virtualKind),
                       interface.isCarrier ? QStringLiteral(", carries the traffic") : QString()),
              BOLD);
    page.Row("State:", verdict.sentence, ColourOf(verdict.mood));
    page.Row("Link:", LinkText(interface.link));
    page.Row("Address:", OrNone(AddressesText(interface.link)));
    page.Row("Gateway:", interface.link.gateway);
    if (interface.isCarrier)
        page.Row("Resolver:", OrNone(report.resolver.join(QStringLiteral(", "))));
    if (interface.lease)
        page.Row("Lease:", LeaseText(*interface.lease));
    if (interface.daemon)
        page.Row("Definition:", DefinitionText(*interface.daemon));
    if (interface.supplicant)
        page.Row("Supplicant:", SupplicantText(*interface.supplicant));
    if (interface.daemon)
        page.Row("Failure:", FailureText(*interface.daemon));
}

QJsonObject LinkObject(const LinkFacts &link)
{
    return {{QStringLiteral("up"), link.isUp},
            {QStringLiteral("carrier"), link.hasCarrier},
            {QStringLiteral("speedMbits"), link.speedMbits},
            {QStringLiteral("macAddress"), link.macAddress}};
}

QJsonObject LeaseObject(const LeaseFacts &lease)
{
    return {{QStringLiteral("server"), lease.server},
            {QStringLiteral("address"), lease.address},
            {QStringLiteral("expires"), lease.expires.toString(Qt::ISODate)}};
}

QJsonObject SupplicantObject(const SupplicantFacts &supplicant)
{
    QJsonObject object{{QStringLiteral("problem"), supplicant.problem},
                       {QStringLiteral("state"), supplicant.state},
                       {QStringLiteral("ssid"), supplicant.ssid},
                       {QStringLiteral("bssid"), supplicant.bssid},
                       {QStringLiteral("eapState"), supplicant.eapState},
                       {QStringLiteral("eapMethod"), supplicant.eapMethod}};
    if (supplicant.signalDbm)
        object.insert(QStringLiteral("signalDbm"), *supplicant.signalDbm);
    return object;
}

void AddState(QJsonObject &object, const InterfaceState &state)
{
    object.insert(QStringLiteral("definition"),
                  QJsonObject{{QStringLiteral("name"), state.definition},
                              {QStringLiteral("reason"), DefinitionReason(state)},
                              {QStringLiteral("staticAddress"), state.isStatic}});
    object.insert(QStringLiteral("dhcpFailures"), state.dhcpFailures);
    if (!state.dhcpRefuser.isEmpty())
        object.insert(QStringLiteral("dhcpRefuser"), state.dhcpRefuser);
    if (!state.dhcpOfferer.isEmpty())
        object.insert(QStringLiteral("dhcpOfferer"), state.dhcpOfferer);
    if (state.lastFailure.isEmpty())
        return;
    const QDateTime since = QDateTime::fromSecsSinceEpoch(state.failureSince, Qt::UTC);
    object.insert(QStringLiteral("lastFailure"),
                  QJsonObject{{QStringLiteral("reason"), state.lastFailure},
                              {QStringLiteral("since"), since.toString(Qt::ISODate)}});
}

QJsonObject InterfaceObject(const InterfaceReport &interface, const SystemReport &report)
{
    const Verdict verdict = Judge(interface, report);
    QJsonObject object{
        {QStringLiteral("name"), interface.link.name},
        {QStringLiteral("kind"), KindOf(interface)},
        {QStringLiteral("virtualKind"), interface.link.virtualKind},
        {QStringLiteral("carriesTraffic"), interface.isCarrier},
        {QStringLiteral("state"), verdict.code},
        {QStringLiteral("waitsFor"), verdict.sentence},
        {QStringLiteral("link"), LinkObject(interface.link)},
        {QStringLiteral("addresses"), QJsonArray::fromStringList(interface.link.addresses)},
        {QStringLiteral("ipv6Addresses"), QJsonArray::fromStringList(interface.link.ipv6Addresses)},
        {QStringLiteral("gateway"), interface.link.gateway}};
    if (interface.isCarrier)
        object.insert(QStringLiteral("resolver"), QJsonArray::fromStringList(report.resolver));
    if (interface.lease)
        object.insert(QStringLiteral("lease"), LeaseObject(*interface.lease));
    if (interface.supplicant)
        object.insert(QStringLiteral("supplicant"), SupplicantObject(*interface.supplicant));
    if (interface.daemon)
        AddState(object, *interface.daemon);
    return object;
}

} // namespace

QStringList ReportText::Wrapped(const QString &text, int width)
{
    QStringList lines;
    QString line;
    const QStringList words = text.split(QLatin1Char(' '));
    for (QString word : words) {
        if (!line.isEmpty() && line.size() + 1 + word.size() <= width) {
            line += QLatin1Char(' ') + word;
            continue;
        }
        if (!line.isEmpty())
            lines.append(line);
        for (; word.size() > width; word.remove(0, width))
            lines.append(word.left(width));
        line = word;
    }
    lines.append(line);
    return lines;
}

QString ReportText::ForPerson(const SystemReport &report, bool withColours)
{
    Page page(withColours);
    page.Line(DaemonLine(report), IsWell(report) ? QString() : RED);
    for (const QString &fault : report.daemon.state.toolFaults)
        page.Line(QStringLiteral("A program that it needs does not work: ") + fault, RED);
    for (const InterfaceReport &interface : report.interfaces)
        AddInterface(page, interface, report);
    return page.Text();
}

QJsonObject ReportText::ForProgram(const SystemReport &report)
{
    QJsonArray interfaces;
    for (const InterfaceReport &interface : report.interfaces)
        interfaces.append(InterfaceObject(interface, report));
    return {{QStringLiteral("daemon"), DaemonLine(report)},
            {QStringLiteral("daemonKnown"), report.IsDaemonKnown()},
            {QStringLiteral("daemonWell"), IsWell(report)},
            {QStringLiteral("toolFaults"), QJsonArray::fromStringList(report.daemon.state.toolFaults)},
            {QStringLiteral("resolver"), QJsonArray::fromStringList(report.resolver)},
            {QStringLiteral("interfaces"), interfaces}};
}
