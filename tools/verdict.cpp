// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "verdict.h"

#include <algorithm>

namespace {

using Mood = Verdict::Mood;

Verdict Good(const char *code, const QString &sentence)
{
    return {Mood::Good, QLatin1String(code), sentence};
}

Verdict Waiting(const char *code, const QString &sentence)
{
    return {Mood::Waiting, QLatin1String(code), sentence};
}

Verdict Fault(const char *code, const QString &sentence)
{
    return {Mood::Fault, QLatin1String(code), sentence};
}

/// What keeps a program from working that the daemon runs, with its name; empty when nothing does.
QString ToolFault(const ServiceState &daemon, const char *program)
{
    const QString start = QLatin1String(program) + QLatin1Char(' ');
    const auto isIts = [&start](const QString &fault) {
        return fault.startsWith(start);
    };
    const auto fault = std::find_if(daemon.toolFaults.begin(), daemon.toolFaults.end(), isIts);
    return fault == daemon.toolFaults.end() ? QString() : *fault;
}

/// Whole seconds that lie between two times, none where the order is another.
qint64 Seconds(qint64 fromMs, qint64 toMs)
{
    return std::max<qint64>(0, (toMs - fromMs + 500) / 1000);
}

Verdict RadioOff(const LinkFacts &link)
{
    return Fault("radio-off", QStringLiteral("its radio is switched off %1").arg(link.radioBlock));
}

/// What the kernel alone can tell.
Verdict WithoutDaemon(const LinkFacts &link)
{
    if (!link.radioBlock.isEmpty())
        return RadioOff(link);
    if (!link.isUp)
        return Waiting("link-down", QStringLiteral("the link is down"));
    if (!link.hasCarrier)
        return Waiting("no-carrier", QStringLiteral("no carrier"));
    if (link.addresses.isEmpty())
        return Waiting("no-address", QStringLiteral("no address"));
    return Good("has-address", QStringLiteral("has an address"));
}

Verdict NotInUse(const InterfaceState &state, const QString &carrier)
{
    if (!carrier.isEmpty())
        return Good("standby", QStringLiteral("not used while %1 carries the traffic").arg(carrier));
    if (state.kind == QLatin1String("modem"))
        return Fault("given-up",
                     QStringLiteral("not used until the next rescan: ") +
                         (state.connectionFault.isEmpty() ? QStringLiteral("its link did not come up")
                                                          : state.connectionFault));
    return Waiting("standby", QStringLiteral("waiting for its turn after the wired interfaces"));
}

Verdict NoSupplicant(qint64 nextStart, const SystemReport &system)
{
    const QString fault = ToolFault(system.daemon.state, "wpa_supplicant");
    return Fault("no-supplicant", QStringLiteral("%1, next try in %2 s")
                                      .arg(fault.isEmpty() ? QStringLiteral("no supplicant stays") : fault)
                                      .arg(Seconds(system.nowMs, nextStart)));
}

Verdict WithoutAssociation(const InterfaceReport &interface, const SystemReport &system)
{
    const InterfaceState &state = *interface.daemon;
    if (state.nextSupplicantStart)
        return NoSupplicant(*state.nextSupplicantStart, system);
    if (!state.lastFailure.isEmpty())
        return Fault("not-let-in", QStringLiteral("no carrier: ") + state.lastFailure);
    const QString supplicant = interface.supplicant ? interface.supplicant->state : QString();
    if (supplicant == QLatin1String("SCANNING") || supplicant == QLatin1String("DISCONNECTED"))
        return Waiting("no-network", QStringLiteral("no carrier: looking for a network of the store"));
    if (!supplicant.isEmpty())
        return Waiting("associating", QStringLiteral("no carrier: joining a network"));
    return Waiting("no-carrier", QStringLiteral("no carrier: waiting for the supplicant"));
}

Verdict WithoutCarrier(const InterfaceReport &interface, const SystemReport &system)
{
    const QString &kind = interface.daemon->kind;
    if (kind == QLatin1String("wireless"))
        return WithoutAssociation(interface, system);
    if (kind == QLatin1String("modem"))
        return Waiting("no-carrier", QStringLiteral("no carrier: waiting for the modem to connect"));
    return Waiting("no-carrier", QStringLiteral("no carrier"));
}

bool IsAuthenticating(const InterfaceState &state)
{
    return state.authenticationSince || state.fallbackSeconds > 0;
}

Verdict Authenticating(const InterfaceReport &interface, const SystemReport &system)
{
    const InterfaceState &state = *interface.daemon;
    if (state.nextSupplicantStart)
        return NoSupplicant(*state.nextSupplicantStart, system);
    if (!state.authenticationSince)
        return Waiting("authenticating", QStringLiteral("waiting for the supplicant to authenticate with"));
    return Waiting("authenticating",
                   QStringLiteral("waiting for authentication for %1 s, unsecured fallback at %2 s")
                       .arg(Seconds(*state.authenticationSince, system.nowMs))
                       .arg(state.fallbackSeconds));
}

QString Attempts(int count)
{
    return count == 1 ? QStringLiteral("1 attempt") : QStringLiteral("%1 attempts").arg(count);
}

/// What came of the attempts where a server did answer; empty where none did.
QString UselessAnswer(const InterfaceState &state)
{
    const QString lack =
        QStringLiteral("%1 without an address: the DHCP server ").arg(Attempts(state.dhcpFailures));
    if (!state.dhcpRefuser.isEmpty())
        return lack + state.dhcpRefuser + QStringLiteral(" refuses us");
    if (!state.dhcpOfferer.isEmpty())
        return lack + state.dhcpOfferer + QStringLiteral(" offers one and gives none");
    return QString();
}

Verdict AskingDhcp(const InterfaceState &state, qint64 nowMs)
{
    QString sentence =
        QStringLiteral("asking for an address by DHCP for %1 s").arg(Seconds(*state.dhcpSince, nowMs));
    if (state.dhcpFailures > 0) {
        const QString answer = UselessAnswer(state);
        sentence +=
            QStringLiteral(", after ") +
            (answer.isEmpty() ? QStringLiteral("%1 without an answer").arg(Attempts(state.dhcpFailures))
                              : answer);
    }
    return Waiting("dhcp", sentence);
}

/// Of what ifconfig sets right: `verdict`, as long as that program works.
Verdict UnlessIfconfigFails(const ServiceState &daemon, const QString &lack, const Verdict &verdict)
{
    const QString fault = ToolFault(daemon, "ifconfig");
    return fault.isEmpty() ? verdict : Fault("tool-fails", QStringLiteral("%1: %2").arg(lack, fault));
}

Verdict WithoutStaticAddress(const ServiceState &daemon)
{
    const QString lack = QStringLiteral("its static address is missing");
    return UnlessIfconfigFails(daemon, lack, Fault("no-address", lack + QStringLiteral(" and is set again")));
}

/// What came of the attempts of the DHCP client so far.
Verdict FailedDhcp(const InterfaceState &state, const ServiceState &daemon)
{
    const QString fault = ToolFault(daemon, "dhclient");
    if (!fault.isEmpty())
        return Fault("tool-fails", fault);
    if (const QString answer = UselessAnswer(state); !answer.isEmpty())
        return Fault(state.dhcpRefuser.isEmpty() ? "dhcp-offer-only" : "dhcp-refused", answer);
    return Fault("no-dhcp-answer", QStringLiteral("no DHCP server answered ") + Attempts(state.dhcpFailures));
}

Verdict WithoutAddress(const InterfaceState &state, const SystemReport &system)
{
    if (state.isStatic)
        return WithoutStaticAddress(system.daemon.state);
    if (state.kind == QLatin1String("modem") && !state.isConnected)
        return Waiting("no-address", QStringLiteral("no address: waiting for the modem to connect"));
    if (state.dhcpFailures == 0)
        return Waiting("no-address", QStringLiteral("no address yet"));
    Verdict verdict = FailedDhcp(state, system.daemon.state);
    if (state.nextDhcpStart)
        verdict.sentence += QStringLiteral(", next in %1 s").arg(Seconds(system.nowMs, *state.nextDhcpStart));
    return verdict;
}

bool IsOwnAddress(const LinkFacts &link, const QString &address)
{
    const auto isIt = [&address](const QString &own) {
        return own.section(QLatin1Char('/'), 0, 0) == address;
    };
    return std::any_of(link.addresses.begin(), link.addresses.end(), isIt);
}

/// Of the one that carries the traffic: what is wrong with its default route.
std::optional<Verdict> WithoutGateway(const InterfaceReport &interface)
{
    const QString &gateway = interface.daemon->gateway;
    if (gateway.isEmpty())
        return std::nullopt;
    const QString lack = QStringLiteral("has an address, but its default route by %1 ").arg(gateway);
    // The kernel takes such a route.
    if (IsOwnAddress(interface.link, gateway))
        return Fault("no-gateway", lack + QStringLiteral("leads to no other host: that is its own address"));
    if (interface.link.gateway.isEmpty())
        return Fault("no-gateway", lack + QStringLiteral("is missing and is set again"));
    return std::nullopt;
}

Verdict WithAddress(const InterfaceReport &interface, const QString &carrier)
{
    const InterfaceState &state = *interface.daemon;
    if (!state.addressHolder.isEmpty())
        return Fault(
            "duplicate-address",
            QStringLiteral("has an address that another host has, too: %1").arg(state.addressHolder));
    const std::optional<Verdict> lack = carrier == state.name ? WithoutGateway(interface) : std::nullopt;
    if (lack)
        return *lack;
    if (state.isInFallback)
        return Good("connected", QStringLiteral("connected without authentication"));
    if (!carrier.isEmpty() && carrier != state.name)
        return Good("connected", QStringLiteral("has an address, while %1 carries the traffic").arg(carrier));
    // Its tool may leave the address of the connection before.
    if (state.kind == QLatin1String("modem") && !state.isConnected)
        return Waiting("not-connected", QStringLiteral("not connected: waiting for the modem to connect"));
    return Good("connected", QStringLiteral("connected"));
}

Verdict WithoutLink(const ServiceState &daemon)
{
    const QString lack = QStringLiteral("the link is down");
    return UnlessIfconfigFails(daemon, lack,
                               Waiting("link-down", lack + QStringLiteral(" and is brought up again")));
}

/// Nobody connects a modem, or brings it up, while a cable carries; beside a radio, what keeps it from taking
/// over is to be told. It may still be connected.
bool IsIdleModem(const InterfaceReport &interface, const QString &carrier)
{
    const InterfaceState &state = *interface.daemon;
    const bool isBehind = !carrier.isEmpty() && carrier != state.name;
    return state.kind == QLatin1String("modem") && isBehind && state.connectionFault.isEmpty() &&
           (!interface.link.isUp || interface.link.addresses.isEmpty());
}

/// Of an interface that the daemon manages and whose turn it is.
Verdict InUse(const InterfaceReport &interface, const SystemReport &system)
{
    const InterfaceState &state = *interface.daemon;
    if (!interface.link.radioBlock.isEmpty())
        return RadioOff(interface.link);
    if (!interface.link.isUp)
        return WithoutLink(system.daemon.state);
    if (!state.connectionFault.isEmpty())
        return Fault("not-connected", QStringLiteral("not connected: ") + state.connectionFault);
    if (!interface.link.hasCarrier)
        return WithoutCarrier(interface, system);
    if (state.definitionCount == 0 && state.kind != QLatin1String("modem"))
        return Fault("no-definition",
                     QStringLiteral("the store defines no network for a %1 interface").arg(state.kind));
    if (state.dhcpSince)
        return AskingDhcp(state, system.nowMs);
    if (IsAuthenticating(state))
        return Authenticating(interface, system);
    return interface.link.addresses.isEmpty() ? WithoutAddress(state, system)
                                              : WithAddress(interface, system.daemon.state.carrier);
}

} // namespace

Verdict Judge(const InterfaceReport &interface, const SystemReport &system)
{
    if (!interface.link.bond.isEmpty())
        return Good("port", QStringLiteral("a port of %1").arg(interface.link.bond));
    if (!system.IsDaemonKnown())
        return WithoutDaemon(interface.link);
    if (!interface.daemon)
        return Waiting("unmanaged", QStringLiteral("not managed by Corvi"));
    const InterfaceState &state = *interface.daemon;
    const QString &carrier = system.daemon.state.carrier;
    // A wired one without a carrier says so itself: any of them may be the next.
    const bool awaitsTurn = !state.isInUse && state.kind != QLatin1String("wired");
    if (state.isHeldDown || awaitsTurn || IsIdleModem(interface, carrier))
        return NotInUse(state, carrier);
    return InUse(interface, system);
}

QString DefinitionReason(const InterfaceState &state)
{
    if (state.definition.isEmpty())
        return QString();
    if (state.kind == QLatin1String("wired") && state.definition == QLatin1String("wired") + state.name)
        return QStringLiteral("named for this interface");
    if (state.definitionCount == 1)
        return QStringLiteral("the only one for a %1 interface").arg(state.kind);
    return QStringLiteral("the first by name of %1 for a %2 interface")
        .arg(state.definitionCount)
        .arg(state.kind);
}
