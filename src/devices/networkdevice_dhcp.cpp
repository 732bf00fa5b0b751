// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "networkdevice.h"

#include "defaultroute.h"
#include "interfacekind.h"
#include "logging.h"
#include "paths.h"
#include "processmemory.h"
#include "processsignals.h"
#include "program.h"
#include "securefile.h"
#include "timing.h"
#include "utils.h"
#include "zebnetconfig.h"
#include "zebsystem.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSaveFile>

#include <algorithm>
#include <cerrno>
#include <optional>

#include <net/if.h>

namespace {

const QString RESOLV_CONF = QStringLiteral("/etc/resolv.conf");
const QString HOST_LIST = QStringLiteral("/tmp/.hostlist");
/// Where the client's hook keeps the MTU that an interface had before a server asked for another one.
const QString MTU_BEFORE = QStringLiteral("/run/corvi-mtu-before.");
/// Says to the client's hook, one file an interface, that the definition has name servers of its own.
const QString OWN_RESOLVER = QStringLiteral("/run/corvi-own-resolver.");
/// The resolver's file cannot be written.
const QString NO_ACCESS = QStringLiteral("no access");
/// The gateway of a default route that has none.
const QString LINK_ITSELF = QStringLiteral("0.0.0.0");
const QString DHCLIENT = QStringLiteral("dhclient");
const QString SCRIPT_FAILS = QStringLiteral("declines what it is offered, as its script fails: see ");
const QString SCRIPT_SETS_NONE = QStringLiteral("has an address that its script does not set: see ");
const QString STOP_DHCLIENT = QStringLiteral("/usr/network/stop_dhclient.sh");

/// In characters; one of an ordinary attempt has about a thousand.
constexpr int LARGE_TRANSCRIPT = 100000;
/// A link that is only negotiated anew, as for another MTU, is back by then.
constexpr int LINK_LOSS_LIMIT_MS = 5000;

/// Empty when there is no such file, nothing when it cannot be read.
std::optional<QByteArray> ReadResolver()
{
    return QFile::exists(RESOLV_CONF) ? SecureFile::ReadRegular(RESOLV_CONF) : QByteArray();
}

/// An empty second server gives a bare "nameserver " line, which resolvers skip.
QByteArray ResolverLines(const QString &dns1, const QString &dns2, const QString &domain)
{
    QString lines =
        QStringLiteral("nameserver ") + dns1 + QStringLiteral("\nnameserver ") + dns2 + QLatin1Char('\n');
    if (!domain.isEmpty())
        lines += QStringLiteral("search ") + domain + QLatin1Char('\n');
    return lines.toUtf8();
}

/// A link into a folder that is gone, through which nobody can write.
bool IsResolverLinkToNowhere()
{
    const QFileInfo link(RESOLV_CONF);
    return link.isSymLink() && !QFileInfo(link.symLinkTarget()).dir().exists();
}

/// Puts the contents in place in one step, so that a program that resolves a name meanwhile reads the old or
/// the new file, never a part. A symbolic link at the path is followed and stays. A file that is a mount
/// point of its own cannot be replaced and is written in place.
bool ReplaceResolver(const QByteArray &contents)
{
    QSaveFile replacement(RESOLV_CONF);
    if (replacement.open(QIODevice::WriteOnly)) {
        if (replacement.write(contents) != contents.size() || !replacement.flush())
            return false; // The disk is full: the old file is better than a part of the new one.
        if (replacement.commit())
            return true;
    }
    QFile file(RESOLV_CONF);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(contents) == contents.size() &&
           file.flush();
}

/// The kernel's number of the interface, which another one of the same name does not have; 0 for none.
/// Nothing where it cannot be told.
std::optional<unsigned int> IndexOf(const QByteArray &interfaceName)
{
    const unsigned int index = ::if_nametoindex(interfaceName.constData());
    return index != 0 || errno == ENODEV ? std::make_optional(index) : std::nullopt;
}

/// The client declines an address for which its script has failed, as by a hook that a power failure cut off.
bool HasScriptFailed(const QString &transcript)
{
    return transcript.contains(QStringLiteral("DHCPDECLINE "));
}

/// What the client printed. Where the adapter or the cable is pulled, or we are to end, it would go on to its
/// limit, and hold the supervision. One that renews an address that is there is waited for at the end, as the
/// address is to outlive us.
QString RunClient(const QString &interfaceName, const QStringList &options)
{
    const QStringList arguments = QStringList{QStringLiteral("-v"), QStringLiteral("-cf"), DHCLIENT_CONF} +
                                  options + QStringList(interfaceName);
    Log(Level::TRACE) << "NetworkDevice::Dhclient"
                      << "dhclient" << arguments;
    const QByteArray kernelName = QFile::encodeName(interfaceName);
    const unsigned int index = IndexOf(kernelName).value_or(0);
    QElapsedTimer linkSeen;
    const auto isPointless = [&] {
        const QByteArray carrier = LinkAttribute(interfaceName, "carrier");
        if (carrier == "1")
            linkSeen.start();
        const bool isLinkLost =
            carrier == "0" && linkSeen.isValid() && linkSeen.hasExpired(LINK_LOSS_LIMIT_MS);
        const bool isGone = index != 0 && IndexOf(kernelName).value_or(index) != index;
        return isLinkLost || isGone || (options.isEmpty() && ProcessSignals::IsEndAsked());
    };
    return Utils::ExecuteMerged(DHCLIENT, arguments, PROGRAM_TIME_LIMIT_MS, isPointless)
        .join(QLatin1Char('\n'));
}

} // namespace

bool NetworkDevice::Dhclient(const QString &interfaceName)
{
    Log(Level::TRACE) << "NetworkDevice::Dhclient" << interfaceName;
    Utils::Execute(STOP_DHCLIENT, {}, false);
    Log(Level::TRACE) << "NetworkDevice::Dhclient"
                      << "dhclient stopped";
    FlushIpAddress();
    return StartDhcpClient(interfaceName, {});
}

bool NetworkDevice::StartDhcpClient(const QString &interfaceName, const QStringList &options)
{
    QString transcript = RunClient(interfaceName, options);
    // Kept for people only: without it the attempt counts all the same.
    static_cast<void>(SecureFile::Replace(CORVI_DHCP_LOG, transcript.toUtf8(), 0600));
    const bool isBound = transcript.contains(QStringLiteral("bound to"));
    if (isBound) {
        reports->leases.Over();
        reports->refusal.Over();
        TellOfLostResolver(transcript);
        TellOfLostGateway(transcript);
    } else {
        if (HasScriptFailed(transcript))
            Program::TellFault(DHCLIENT, SCRIPT_FAILS + CORVI_DHCP_LOG);
        TellOfRefusal(transcript);
        DropDamagedLeases(transcript);
    }
    if (transcript.size() > LARGE_TRANSCRIPT) {
        // Its lines lay between blocks that stay, which keeps the C library from giving them back by itself.
        transcript = QString();
        ProcessMemory::GiveBackNow();
    }
    return isBound;
}

/// The client goes by how its script ended, and not by what is there then.
void NetworkDevice::NoteUnsetLease()
{
    ++dhcpFailures;
    dhcpRefuser.clear();
    dhcpOfferer.clear();
    if (isRunning) // Of an adapter that was pulled meanwhile, others tell.
        Program::TellFault(DHCLIENT, SCRIPT_SETS_NONE + CORVI_DHCP_LOG);
}

/// The client's script writes the name servers of a lease, and nobody looks at how that ended: with an
/// address and without a resolver, all seems well and no name is found. The client itself never names the
/// file; what its hooks or other programs say of it is no word of the script's.
void NetworkDevice::TellOfLostResolver(const QString &transcript)
{
    // The shell's own sentence on the file, or on the new one beside it, or that of our hook, which looks
    // before.
    static const QRegularExpression complaint(
        QStringLiteral("dhclient-script: \\d+: cannot create \\S*resolv\\.conf\\S*: [^\\n]*|"
                       "/etc/resolv\\.conf cannot be written and stays as it is"));
    const QRegularExpressionMatch match = complaint.match(transcript);
    if (!match.hasMatch()) {
        reports->leasedResolver.Over();
        return;
    }
    LogOnce(reports->leasedResolver)
        << "NetworkDevice::Dhclient - the lease's name servers cannot be written on" << name << "--"
        << match.captured();
}

/// A gateway that the address cannot reach leaves no route behind, and classless routes let none be set. The
/// client's script says nothing of it. Our hook does.
void NetworkDevice::TellOfLostGateway(const QString &transcript)
{
    static const QRegularExpression complaint(
        QStringLiteral("the gateway [0-9.]+ is (?:outside the subnet|the broadcast address) of [0-9./]+|"
                       "the classless routes have none and come in the place of the gateway [0-9.]+"));
    const QRegularExpressionMatch match = complaint.match(transcript);
    if (!match.hasMatch()) {
        reports->leasedGateway.Over();
        return;
    }
    LogOnce(reports->leasedGateway) << "NetworkDevice::Dhclient - no default route on" << name
                                    << "-- the lease is wrong:" << match.captured();
}

/// A server that refuses us is another fault than none that answers, and is mended elsewhere. So is one that
/// offers an address and never gives it, or whose offer is no use, as one without a lease time. Where the
/// link went, the next one may lead to another server.
void NetworkDevice::TellOfRefusal(const QString &transcript)
{
    static const QRegularExpression refusal(QStringLiteral("DHCPNAK from ([0-9.]+)"));
    static const QRegularExpression offer(QStringLiteral("DHCPOFFER (?:of [0-9.]+ )?from ([0-9.]+)"));
    QRegularExpressionMatch match = refusal.match(transcript);
    const bool isRefused = match.hasMatch();
    if (!isRefused && !HasScriptFailed(transcript))
        match = offer.match(transcript);
    dhcpRefuser = isRefused ? match.captured(1) : QString();
    dhcpOfferer = isRefused ? QString() : match.captured(1);
    if (!match.hasMatch())
        return;
    const QString deed =
        isRefused ? QStringLiteral("refuses us") : QStringLiteral("offers an address and gives none");
    const QString line = QStringLiteral("NetworkDevice::Dhclient - a DHCP server %1 on %2 -- %3")
                             .arg(deed, name, match.captured());
    if (WasCutShort())
        Log(Level::TRACE) << line;
    else
        LogOnce(reports->refusal, deed) << line;
}

/// The file in which the client keeps its leases is written in place, so a power failure can cut it anywhere.
/// The client reads past most damage, but some ends it before it has asked a server, at each attempt anew.
void NetworkDevice::DropDamagedLeases(const QString &transcript)
{
    const bool hasEnded = transcript.trimmed().endsWith(QStringLiteral("exiting."));
    // The second is all that it says of a name that is cut and goes on with what was written later.
    const bool isDamaged = transcript.contains(QString(DHCP_LEASES + QStringLiteral(" line "))) ||
                           transcript.contains(QStringLiteral("Can't allocate interface "));
    if (!hasEnded || !isDamaged)
        return;
    const bool isGone = SecureFile::Remove(DHCP_LEASES);
    LogOnce(reports->leases, QString::number(isGone))
        << "NetworkDevice::Dhclient - the client cannot read its earlier leases on" << name << "--"
        << DHCP_LEASES << (isGone ? "is removed" : "cannot be removed");
}

/// The default route of the lease, be it the one in use or not. False when there is no default route at all.
bool NetworkDevice::LearnLeasedRoute()
{
    const QVector<DefaultRoute> routes = ReadDefaultRoutes();
    const auto ours = std::find_if(routes.begin(), routes.end(), [this](const DefaultRoute &route) {
        return route.interfaceName == name && route.gateway != LINK_ITSELF;
    });
    if (ours != routes.end()) {
        leasedGateway = ours->gateway;
        leasedMetric = ours->metric;
        leasedGatewayAddress = ipAddress;
    }
    return !routes.isEmpty();
}

/// What a server asked for on the network before has no place where no server is asked. From one server to
/// the next, the client's hook sees to it.
void NetworkDevice::TakeBackDhcpMtu()
{
    const QString path = MTU_BEFORE + name;
    const QByteArray mtu = SecureFile::ReadRegular(path).value_or(QByteArray()).trimmed();
    if (mtu.isEmpty())
        return;
    SetMtu(name, QString::fromLatin1(mtu));
    carrierLosses.ExpectOne(CarrierLosses::Time::clock::now());
    QFile::remove(path);
}

/// A client in the background may get its lease, or a lease with other servers, at any time later, and would
/// write its name servers in place of the definition's.
void NetworkDevice::ClaimResolver(bool isOurs)
{
    const QString path = OWN_RESOLVER + name;
    if (!isOurs) {
        QFile::remove(path);
        return;
    }
    if (SecureFile::Replace(path, QByteArray(), 0644)) {
        reports->claim.Over();
        return;
    }
    const QString reason = qt_error_string();
    LogOnce(reports->claim) << "NetworkDevice::ClaimResolver - the DHCP client cannot be told to"
                            << "leave the name servers alone:" << path << reason;
}

bool NetworkDevice::ClearDNS()
{
    return !QFile::exists(RESOLV_CONF) || QFile::remove(RESOLV_CONF);
}

void NetworkDevice::SetDNS(const QString &dns1, const QString &dns2, const QString &domain)
{
    WriteResolver(QByteArray(), dns1, dns2, domain);
}

/// A resolver service that ends takes the folder of its file along, and what is left is a link that cannot be
/// written through, however often it is tried. A file takes its place, in one step: where it cannot be
/// written either, the link stays.
void NetworkDevice::ApplyResolverAgain()
{
    if (IsResolverLinkToNowhere() &&
        SecureFile::Replace(RESOLV_CONF,
                            ResolverLines(currentConfig->dns1, currentConfig->dns2, currentConfig->domain),
                            0644)) {
        reports->resolver.Over();
        Log(Level::NOTICE) << "NetworkDevice::ApplyResolverAgain - a file takes the place of the link"
                           << RESOLV_CONF << "into a folder that is gone";
    }
    ApplyResolver();
}

/// Its lines say "SetDNS", as those of a replaced file do: kept as they are.
void NetworkDevice::AppendDNS(const QString &dns1, const QString &dns2, const QString &domain)
{
    // Without the servers that stand there, appending would lose them.
    if (const auto earlier = ReadResolver())
        WriteResolver(*earlier, dns1, dns2, domain);
    else
        ReportNoResolver();
}

void NetworkDevice::WriteResolver(const QByteArray &earlier, const QString &dns1, const QString &dns2,
                                  const QString &domain)
{
    const QByteArray contents = earlier + ResolverLines(dns1, dns2, domain);
    if (contents == ReadResolver()) {
        // Left alone, so that whoever watches the file is not woken for nothing.
        Log(Level::TRACE) << "NetworkDevice::SetDNS -  " << dns1 << ", " << dns2 << domain;
    } else if (ReplaceResolver(contents)) {
        // Where some other program keeps changing the file back, that is told once.
        LogOnce(reports->resolver, QString::fromUtf8(contents))
            << "NetworkDevice::SetDNS -  " << dns1 << ", " << dns2 << domain;
    } else {
        ReportNoResolver();
    }
}

void NetworkDevice::ReportNoResolver()
{
    isResolverDue = true;
    LogOnce(reports->resolver, NO_ACCESS) << "NetworkDevice::SetDNS -  Unable to access resolv.conf";
}

void NetworkDevice::SetHosts(const QStringList &lines)
{
    QString text;
    for (const QString &line : lines)
        text += line + QLatin1Char('\n');
    areHostsDue = !SecureFile::Replace(HOST_LIST, text.toUtf8(), 0644);
    if (areHostsDue) {
        LogOnce(reports->hosts) << "NetworkDevice::SetHosts -  Unable to access hosts";
        return;
    }
    // Shell lines because only the shell's environment knows HOSTNAME.
    ZebSystem::execShell(QStringLiteral("echo \"127.0.0.1\tlocalhost\" >> /tmp/.hostlist"));
    ZebSystem::execShell(
        QStringLiteral("echo \"127.0.0.1\t$HOSTNAME.localdomain $HOSTNAME \" >> /tmp/.hostlist"));
    areHostsDue = !Utils::Succeeds(QStringLiteral("update_hosts"), {});
    if (areHostsDue)
        LogOnce(reports->hosts, QStringLiteral("merge"))
            << "NetworkDevice::SetHosts - update_hosts fails, the hosts of" << name
            << "are tried again later";
    else
        reports->hosts.Over();
}
