// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "servicestate.h"

#include "processstat.h"
#include "securefile.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>

#include <algorithm>
#include <ctime>
#include <tuple>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

const QString ServiceState::FOLDER = QStringLiteral("/run/corvi");
const QString ServiceState::PATH = FOLDER + QStringLiteral("/state.json");

namespace {

constexpr int VERSION = 1;
/// Many times what a thousand interfaces need.
constexpr int SIZE_LIMIT_MIB = 8;
/// Of the fields behind the command's name in /proc/PID/stat (proc(5)), which begin with the third one.
constexpr int START_TIME_FIELD = 22 - 3;

const QString PROCESS = QStringLiteral("process");
const QString PID = QStringLiteral("pid");
const QString START_TIME = QStringLiteral("startTime");
const QString CARRIER = QStringLiteral("carrier");
const QString TOOL_FAULTS = QStringLiteral("toolFaults");
const QString INTERFACES = QStringLiteral("interfaces");

struct ProcessFacts
{
    /// In the kernel's own count; with its id it names a process for good. Empty when there is none.
    QString startTime;
    bool isStopped = false;
};

ProcessFacts ReadProcess(pid_t pid)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QByteArray line = file.readAll();
    // The command's name may hold blanks and brackets itself.
    const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
    return {QString::fromLatin1(fields.value(START_TIME_FIELD)),
            ProcessStat::IsStopped(line).value_or(false)};
}

/// Writes and reads a member under the same name, so that the two cannot differ.
class Writer
{
public:
    void Member(const char *key, const QString &value) { object.insert(QLatin1String(key), value); }
    void Member(const char *key, bool value) { object.insert(QLatin1String(key), value); }
    void Member(const char *key, int value) { object.insert(QLatin1String(key), value); }
    void Member(const char *key, qint64 value) { object.insert(QLatin1String(key), value); }
    void Member(const char *key, const std::optional<qint64> &value)
    {
        if (value)
            Member(key, *value);
    }

    QJsonObject object;
};

class Reader
{
public:
    explicit Reader(const QJsonObject &source) : object(source) {}

    void Member(const char *key, QString &value) const { value = At(key).toString(); }
    void Member(const char *key, bool &value) const { value = At(key).toBool(); }
    void Member(const char *key, int &value) const { value = At(key).toInt(); }
    void Member(const char *key, qint64 &value) const { value = static_cast<qint64>(At(key).toDouble()); }
    void Member(const char *key, std::optional<qint64> &value) const
    {
        if (At(key).isDouble())
            value = static_cast<qint64>(At(key).toDouble());
    }

private:
    QJsonValue At(const char *key) const { return object.value(QLatin1String(key)); }

    const QJsonObject object;
};

template <typename Visitor, typename State> void VisitMembers(Visitor &visitor, State &state)
{
    visitor.Member("name", state.name);
    visitor.Member("kind", state.kind);
    visitor.Member("definition", state.definition);
    visitor.Member("definitionCount", state.definitionCount);
    visitor.Member("staticAddress", state.isStatic);
    visitor.Member("inUse", state.isInUse);
    visitor.Member("heldDown", state.isHeldDown);
    visitor.Member("connected", state.isConnected);
    visitor.Member("connectionFault", state.connectionFault);
    visitor.Member("usesSupplicant", state.usesSupplicant);
    visitor.Member("inFallback", state.isInFallback);
    visitor.Member("authenticationSinceMs", state.authenticationSince);
    visitor.Member("fallbackSeconds", state.fallbackSeconds);
    visitor.Member("lastFailure", state.lastFailure);
    visitor.Member("failureSinceUtc", state.failureSince);
    visitor.Member("nextSupplicantStartMs", state.nextSupplicantStart);
    visitor.Member("gateway", state.gateway);
    visitor.Member("addressHolder", state.addressHolder);
    visitor.Member("dhcpFailures", state.dhcpFailures);
    visitor.Member("dhcpRefuser", state.dhcpRefuser);
    visitor.Member("dhcpOfferer", state.dhcpOfferer);
    visitor.Member("dhcpSinceMs", state.dhcpSince);
    visitor.Member("nextDhcpStartMs", state.nextDhcpStart);
}

auto Tied(const InterfaceState &s)
{
    return std::tie(s.name, s.kind, s.definition, s.definitionCount, s.isStatic, s.isInUse, s.isHeldDown,
                    s.isConnected, s.connectionFault, s.usesSupplicant, s.isInFallback, s.authenticationSince,
                    s.fallbackSeconds, s.lastFailure, s.failureSince, s.nextSupplicantStart, s.gateway,
                    s.addressHolder, s.dhcpFailures, s.dhcpRefuser, s.dhcpOfferer, s.dhcpSince,
                    s.nextDhcpStart);
}

ServiceState FromJson(const QJsonObject &object)
{
    ServiceState state;
    state.carrier = object.value(CARRIER).toString();
    const QJsonArray faults = object.value(TOOL_FAULTS).toArray();
    for (const QJsonValue &fault : faults)
        state.toolFaults.append(fault.toString());
    const QJsonArray interfaces = object.value(INTERFACES).toArray();
    for (const QJsonValue &entry : interfaces) {
        const Reader reader(entry.toObject());
        InterfaceState interface;
        VisitMembers(reader, interface);
        state.interfaces.append(interface);
    }
    return state;
}

/// What the file's time of modification is in: a system clock that is set would show a silence of years.
timespec MonotonicTime()
{
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

ServiceStateReading Failure(const QString &reason)
{
    ServiceStateReading reading;
    reading.outcome = ServiceStateReading::Outcome::Unreadable;
    reading.error = reason;
    return reading;
}

} // namespace

bool InterfaceState::operator==(const InterfaceState &other) const
{
    return Tied(*this) == Tied(other);
}

bool ServiceState::operator==(const ServiceState &other) const
{
    return toolFaults == other.toolFaults && carrier == other.carrier && interfaces == other.interfaces;
}

QByteArray ServiceState::ToJson() const
{
    QJsonArray entries;
    for (const InterfaceState &interface : interfaces) {
        Writer writer;
        VisitMembers(writer, interface);
        entries.append(writer.object);
    }
    const QJsonObject process{{PID, ::getpid()}, {START_TIME, ReadProcess(::getpid()).startTime}};
    const QJsonObject object{{QStringLiteral("version"), VERSION},
                             {PROCESS, process},
                             {TOOL_FAULTS, QJsonArray::fromStringList(toolFaults)},
                             {CARRIER, carrier},
                             {INTERFACES, entries}};
    return QJsonDocument(object).toJson();
}

bool ServiceState::Freshen()
{
    const timespec times[] = {{0, UTIME_OMIT}, MonotonicTime()};
    return ::utimensat(AT_FDCWD, QFile::encodeName(PATH).constData(), times, AT_SYMLINK_NOFOLLOW) == 0;
}

ServiceStateReading ReadServiceState()
{
    if (!QFile::exists(ServiceState::PATH))
        return {};
    const SecureFile::Reading file = SecureFile::Read(ServiceState::PATH, SIZE_LIMIT_MIB);
    if (!file.problem.isEmpty())
        return Failure(file.problem);
    const QJsonObject object = QJsonDocument::fromJson(file.contents).object();
    if (object.value(QStringLiteral("version")).toInt() != VERSION)
        return Failure(QStringLiteral("it is damaged or of a version that this program does not know"));
    const QJsonObject process = object.value(PROCESS).toObject();
    ServiceStateReading reading;
    reading.pid = process.value(PID).toInt();
    // The number alone may have gone to another process since.
    const QString startTime = process.value(START_TIME).toString();
    const ProcessFacts facts = ReadProcess(reading.pid);
    const bool runs = !startTime.isEmpty() && facts.startTime == startTime;
    reading.isStopped = runs && facts.isStopped;
    reading.silentSeconds = std::max<qint64>(0, MonotonicTime().tv_sec - file.info.st_mtime);
    reading.outcome = runs ? ServiceStateReading::Outcome::Read : ServiceStateReading::Outcome::Stale;
    if (runs)
        reading.state = FromJson(object);
    return reading;
}
