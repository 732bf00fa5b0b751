// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "securefile.h"
#include "servicestate.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

#include <csignal>
#include <ctime>

#include <fcntl.h>
#include <sys/stat.h>

using Outcome = ServiceStateReading::Outcome;

namespace {

/// No member as it is by default.
InterfaceState FullInterface()
{
    InterfaceState state;
    state.name = "eth0";
    state.kind = "wired";
    state.definition = "lan";
    state.definitionCount = 3;
    state.isStatic = true;
    state.isInUse = true;
    state.isHeldDown = true;
    state.isConnected = true;
    state.connectionFault = "the SIM is locked";
    state.usesSupplicant = true;
    state.isInFallback = true;
    state.authenticationSince = 123456789012;
    state.fallbackSeconds = 60;
    state.lastFailure = "EAP authentication failed";
    state.failureSince = 1795290000;
    state.nextSupplicantStart = 0;
    state.gateway = "10.0.0.1";
    state.addressHolder = "02:00:00:00:00:77";
    state.dhcpFailures = 4;
    state.dhcpRefuser = "10.0.0.2";
    state.dhcpOfferer = "10.0.0.3";
    state.dhcpSince = 5;
    state.nextDhcpStart = 6;
    return state;
}

ServiceState FullState()
{
    ServiceState state;
    state.toolFaults = QStringList{"ip crashed"};
    state.carrier = "eth0";
    state.interfaces = {FullInterface(), InterfaceState()};
    return state;
}

void Write(const QByteArray &contents)
{
    QVERIFY(QDir().mkpath(ServiceState::FOLDER));
    QVERIFY(SecureFile::Replace(ServiceState::PATH, contents, 0644));
}

/// As the file of another process.
QByteArray OfProcess(const QJsonObject &process)
{
    QJsonObject object = QJsonDocument::fromJson(FullState().ToJson()).object();
    object.insert("process", process);
    return QJsonDocument(object).toJson();
}

/// As the file of a process with another id or start time.
QByteArray OfProcess(const QString &key, const QJsonValue &value)
{
    QJsonObject process = QJsonDocument::fromJson(FullState().ToJson()).object().value("process").toObject();
    process.insert(key, value);
    return OfProcess(process);
}

time_t MonotonicSeconds()
{
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

} // namespace

/// The daemon's state on its way through the file.
class TestServiceState : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void isReadAsItWasWritten();
    void everyMemberCounts();
    void namesAreThoseThatOtherVersionsRead();
    void fileOfADeadProcessIsStale_data();
    void fileOfADeadProcessIsStale();
    void stoppedProcessIsSeen();
    void silenceBeginsWithTheLastTick();
    void silenceIsNotMeasuredByTheSystemsClock();
    void missingFileIsAbsent();
    void damagedFileIsUnreadable_data();
    void damagedFileIsUnreadable();
};

void TestServiceState::init()
{
    QDir(ServiceState::FOLDER).removeRecursively();
}

void TestServiceState::isReadAsItWasWritten()
{
    Write(FullState().ToJson());

    const ServiceStateReading reading = ReadServiceState();

    QCOMPARE(reading.outcome, Outcome::Read);
    QCOMPARE(qint64(reading.pid), QCoreApplication::applicationPid());
    QVERIFY(reading.state == FullState());
}

void TestServiceState::everyMemberCounts()
{
    QJsonObject full = QJsonDocument::fromJson(FullState().ToJson()).object();
    const QJsonObject interface = full.value("interfaces").toArray().first().toObject();
    const QStringList keys = interface.keys();
    QCOMPARE(int(keys.size()), 23);
    for (const QString &key : keys) {
        QJsonObject lacking = interface;
        lacking.remove(key);
        full.insert("interfaces", QJsonArray{lacking, QJsonObject()});

        Write(QJsonDocument(full).toJson());

        QVERIFY2(!(ReadServiceState().state == FullState()), qPrintable(key));
    }
}

void TestServiceState::namesAreThoseThatOtherVersionsRead()
{
    const QJsonObject object = QJsonDocument::fromJson(FullState().ToJson()).object();

    QCOMPARE(object.keys(), QStringList({"carrier", "interfaces", "process", "toolFaults", "version"}));
    QCOMPARE(object.value("process").toObject().keys(), QStringList({"pid", "startTime"}));
    QCOMPARE(object.value("interfaces").toArray().first().toObject().keys(),
             QStringList({"addressHolder",
                          "authenticationSinceMs",
                          "connected",
                          "connectionFault",
                          "definition",
                          "definitionCount",
                          "dhcpFailures",
                          "dhcpOfferer",
                          "dhcpRefuser",
                          "dhcpSinceMs",
                          "failureSinceUtc",
                          "fallbackSeconds",
                          "gateway",
                          "heldDown",
                          "inFallback",
                          "inUse",
                          "kind",
                          "lastFailure",
                          "name",
                          "nextDhcpStartMs",
                          "nextSupplicantStartMs",
                          "staticAddress",
                          "usesSupplicant"}));
}

void TestServiceState::fileOfADeadProcessIsStale_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::newRow("no such process") << OfProcess("pid", 4000000);
    QTest::newRow("another process with this id") << OfProcess("startTime", "1");
    QTest::newRow("no start time") << OfProcess("startTime", "");
    QTest::newRow("no such process, no start time")
        << QByteArray(R"({"version":1,"process":{"pid":4000000}})");
}

void TestServiceState::fileOfADeadProcessIsStale()
{
    QFETCH(QByteArray, contents);
    Write(contents);

    const ServiceStateReading reading = ReadServiceState();

    QCOMPARE(reading.outcome, Outcome::Stale);
    QVERIFY(reading.state == ServiceState());
}

void TestServiceState::stoppedProcessIsSeen()
{
    QProcess process;
    process.start("sleep", {"1000"});
    QVERIFY(process.waitForStarted());
    const auto pid = static_cast<pid_t>(process.processId());
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    QVERIFY(stat.open(QIODevice::ReadOnly));
    Write(OfProcess({{"pid", pid}, {"startTime", QString(stat.readAll().split(' ').at(21))}}));
    QVERIFY(!ReadServiceState().isStopped);

    ::kill(pid, SIGSTOP);

    QTRY_VERIFY(ReadServiceState().isStopped);
    QCOMPARE(ReadServiceState().outcome, Outcome::Read);
    process.kill();
    process.waitForFinished();
}

void TestServiceState::silenceBeginsWithTheLastTick()
{
    QVERIFY(!ServiceState::Freshen());
    Write(FullState().ToJson());
    const QByteArray path = QFile::encodeName(ServiceState::PATH);
    const timespec times[] = {{0, UTIME_OMIT}, {MonotonicSeconds() - 300, 0}};
    QCOMPARE(::utimensat(AT_FDCWD, path.constData(), times, 0), 0);
    QVERIFY(ReadServiceState().silentSeconds >= 300);

    QVERIFY(ServiceState::Freshen());

    QVERIFY(ReadServiceState().silentSeconds < 300);
}

/// Setting the system's clock, by years where it had lost its time, makes no silence.
void TestServiceState::silenceIsNotMeasuredByTheSystemsClock()
{
    Write(FullState().ToJson());

    const auto before = MonotonicSeconds();
    QVERIFY(ServiceState::Freshen());
    const auto after = MonotonicSeconds();

    struct stat info = {};
    QCOMPARE(::stat(QFile::encodeName(ServiceState::PATH).constData(), &info), 0);
    QVERIFY(before <= info.st_mtime && info.st_mtime <= after);
    // As a version before this one left it.
    QCOMPARE(::utimensat(AT_FDCWD, QFile::encodeName(ServiceState::PATH).constData(), nullptr, 0), 0);
    QCOMPARE(ReadServiceState().silentSeconds, qint64(0));
}

void TestServiceState::missingFileIsAbsent()
{
    QCOMPARE(ReadServiceState().outcome, Outcome::Absent);
}

void TestServiceState::damagedFileIsUnreadable_data()
{
    const QString damaged = "it is damaged or of a version that this program does not know";
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<QString>("reason");
    QTest::newRow("empty") << QByteArray() << damaged;
    QTest::newRow("cut") << FullState().ToJson().left(100) << damaged;
    QTest::newRow("later version") << FullState().ToJson().replace("\"version\": 1", "\"version\": 2")
                                   << damaged;
    QTest::newRow("too large") << QByteArray(9 * 1024 * 1024, ' ') << "is larger than 8 MiB";
}

void TestServiceState::damagedFileIsUnreadable()
{
    QFETCH(QByteArray, contents);
    Write(contents);

    const ServiceStateReading reading = ReadServiceState();

    QCOMPARE(reading.outcome, Outcome::Unreadable);
    QTEST(reading.error, "reason");
}

QTEST_GUILESS_MAIN(TestServiceState)
#include "tst_servicestate.moc"
