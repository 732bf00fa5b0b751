// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"

#include <QDir>
#include <QProcess>
#include <QRegularExpression>

#include <csignal>

using namespace CorviWorld;
using namespace TestSupport;

namespace {

const QString CORE_FOLDER = QStringLiteral("/tmp/cores");
const QByteArray CANARY = "canary-in-the-mine";
/// Runs a program as a user who is root only by name, as root may look into every process.
const QStringList WITHOUT_RIGHTS{"--bounding-set=-all", "--inh-caps=-all"};

qint64 ResidentKib(qint64 processId)
{
    const QByteArray status = ReadFile(QStringLiteral("/proc/%1/status").arg(processId));
    return QRegularExpression("VmRSS:\\s+(\\d+) kB").match(status).captured(1).toLongLong();
}

/// Whether another process of the same user can read this one's memory. Its environment is a part of it.
bool IsOpenToItsUser(qint64 processId)
{
    QProcess reader;
    reader.start("setpriv",
                 WITHOUT_RIGHTS + QStringList{"cat", QStringLiteral("/proc/%1/environ").arg(processId)});
    reader.waitForFinished();
    return !reader.readAllStandardOutput().isEmpty();
}

const QStringList BOTH_KEYS{"wpa_passphrase KeyOne 'long enough'", "wpa_passphrase KeyTwo 'long enough'"};

/// The store with two more networks, which the stand-in of the tool has keys for.
QByteArray WithKeys(QByteArray store)
{
    Answer("wpa_passphrase", "echo psk=" + QByteArray(64, 'a'));
    QByteArray networks;
    for (const char *name : {"KeyOne", "KeyTwo"})
        networks += QByteArray("<network><name>") + name + "</name><ssid>" + name +
                    "</ssid><securityMode>WPA Personal 1/2</securityMode>"
                    "<passphrase>long enough</passphrase></network>";
    return store.replace("</networkconfig>", networks + "</networkconfig>");
}

/// They run side by side.
QStringList KeyRuns()
{
    QStringList runs = JournalOf("wpa_passphrase");
    runs.sort();
    return runs;
}

} // namespace

/// What becomes of the daemon's memory: its secrets, and what it needs no more.
class TestCorviMemory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void crashLeavesNoCore();
    void toolsLeaveNoCore();
    void memoryIsClosedToItsUser();
    void hugeOutputIsForgotten();
    void rescanDerivesEachKeyAnew();
    void adapterMadeAnewDerivesEachKeyAnew();

private:
    void Start(const QString &program, const QStringList &arguments = {});

    QProcess process;
};

void TestCorviMemory::init()
{
    StartFromNothing();
    QVERIFY(QDir().mkpath(CORE_FOLDER));
    process.setWorkingDirectory(CORE_FOLDER);
    // The address sanitizer would turn the signal into an exit of its own.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("ASAN_OPTIONS", "handle_segv=0");
    process.setProcessEnvironment(environment);
}

void TestCorviMemory::cleanup()
{
    process.kill();
    process.waitForFinished();
    Remove(CORE_FOLDER);
}

void TestCorviMemory::Start(const QString &program, const QStringList &arguments)
{
    process.start(program, arguments);
    QVERIFY2(process.waitForStarted(), qPrintable(process.errorString()));
}

void TestCorviMemory::crashLeavesNoCore()
{
    if (ReadFile("/proc/sys/kernel/core_pattern").trimmed() != "core")
        QSKIP("this machine's core files go elsewhere");
    // One that is not guarded leaves its core here.
    Start("sh", {"-c", "ulimit -c unlimited; kill -SEGV $$"});
    process.waitForFinished();
    QCOMPARE(EntryCount(CORE_FOLDER), 1);
    Remove(CORE_FOLDER + "/core");
    WriteStore(
        "<x><network><name>Office</name><ssid>Office</ssid><securityMode>WPA Personal 1/2</securityMode>"
        "<passphrase>" +
        CANARY + "</passphrase></network></x>");
    MakeInterface("wlan0");

    Start("sh",
          {"-c", "ulimit -c unlimited; exec " + qEnvironmentVariable("CORVI_BUILD_DIR") + "/bin/corvi"});
    QTRY_VERIFY_WITH_TIMEOUT(LogText().contains("Corvi::Loop Force Rescan"), 30000);
    QTRY_VERIFY_WITH_TIMEOUT(ReadFile("/tmp/wpa_supplicant.conf").contains("network="), 30000);
    QCOMPARE(::kill(static_cast<pid_t>(process.processId()), SIGSEGV), 0);
    QVERIFY(process.waitForFinished());

    QCOMPARE(process.exitStatus(), QProcess::CrashExit);
    QCOMPARE(EntryCount(CORE_FOLDER), 0);
}

void TestCorviMemory::toolsLeaveNoCore()
{
    Answer("setup_resolved", "ulimit -Hc >/tmp/limit.new; mv /tmp/limit.new /tmp/limit");
    Remove("/tmp/limit");

    Start("sh",
          {"-c", "ulimit -c unlimited; exec " + qEnvironmentVariable("CORVI_BUILD_DIR") + "/bin/corvi"});

    QTRY_COMPARE_WITH_TIMEOUT(ReadFile("/tmp/limit"), QByteArray("0\n"), 30000);
}

void TestCorviMemory::memoryIsClosedToItsUser()
{
    Start("setpriv", WITHOUT_RIGHTS + QStringList{"sleep", "60"});
    QTRY_VERIFY(IsOpenToItsUser(process.processId()));
    process.kill();
    process.waitForFinished();

    Start("setpriv", WITHOUT_RIGHTS + QStringList{qEnvironmentVariable("CORVI_BUILD_DIR") + "/bin/corvi"});
    QTRY_VERIFY_WITH_TIMEOUT(LogText().contains("Corvi::Start()"), 30000);

    QVERIFY(!IsOpenToItsUser(process.processId()));
}

void TestCorviMemory::hugeOutputIsForgotten()
{
#ifdef __SANITIZE_ADDRESS__
    QSKIP("The sanitizer's own allocator gives little back.");
#endif
    MakeMachine(LAN_DHCP, {"eth0"});
    WriteFile(DEBUG_FLAG, "");
    // Less at first, so that everything is in memory that is in use from then on. With an address there is no
    // further attempt, which would be under way when the memory is measured on a slow machine.
    Answer("dhclient",
           "ip addr replace 10.0.0.5/24 dev eth0\n"
           "[ -e /tmp/second ] || { echo bound to 10.0.0.5; exit; }; yes 0123456789 | head -c 3000000");
    Remove("/tmp/second");
    Start(qEnvironmentVariable("CORVI_BUILD_DIR") + "/bin/corvi");
    const QString done = QStringLiteral("NetworkDevice::ConfigureNetwork -- end");
    QTRY_VERIFY_WITH_TIMEOUT(LogText().contains(done), 30000);
    const qint64 before = ResidentKib(process.processId());
    QVERIFY(before > 0);

    // The C library keeps what is freed only after it has seen a block of that size.
    WriteFile("/tmp/second", "");
    for (int attempt = 2; attempt <= 4; ++attempt) {
        WriteFile("/tmp/refresh_network", "");
        QTRY_VERIFY_WITH_TIMEOUT(LogText().count(done) >= attempt, 60000);
        QCOMPARE(QFileInfo("/tmp/dhclient.log").size(), 3000000);
    }

    const qint64 more = ResidentKib(process.processId()) - before;
    // Unguarded it was 12 MB; what stays are holes between the small blocks that lines were kept in.
    QVERIFY2(more < 4096, qPrintable(QString::number(more)));
}

void TestCorviMemory::rescanDerivesEachKeyAnew()
{
    MakeMachine(WithKeys("<networkconfig></networkconfig>"), {"wlan0"});
    CorviPeer corvi;
    corvi.Init();
    QCOMPARE(KeyRuns(), BOTH_KEYS);
    Forget();

    corvi.Init();

    QCOMPARE(KeyRuns(), BOTH_KEYS);
}

void TestCorviMemory::adapterMadeAnewDerivesEachKeyAnew()
{
    MakeMachine(WithKeys(LAN_STATIC), {"eth0", "wlan0"});
    CorviPeer corvi;
    corvi.Tick(2);
    QCOMPARE(KeyRuns(), BOTH_KEYS);
    Forget();

    RealIp({"link", "delete", "dev", "wlan0"});
    MakeInterface("wlan0");
    corvi.Tick(2);

    QCOMPARE(KeyRuns(), BOTH_KEYS);
}

QTEST_GUILESS_MAIN(TestCorviMemory)
#include "tst_corvi_memory.moc"
