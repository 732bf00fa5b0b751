// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "supplicantprocess.h"

#include "fakesupplicant.h"
#include "mountpoint.h"
#include "resourcelimit.h"
#include "testsupport.h"

#include <QProcess>
#include <QTest>

#include <csignal>
#include <memory>
#include <optional>
#include <utility>

#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

const QString CONFIGURATION = QStringLiteral("/tmp/wpa_supplicant.conf");

} // namespace

class TestSupplicantProcess : public QObject
{
    Q_OBJECT
private slots:
    void seesTheEndOfAProcess();
    void knowsAProcessThatEndedBeforeItWasHeld();
    void takesWhatCannotBeHeldForAlive();
    void seesAStoppedProcess();
    void knowsNothingOfAStateThatCannotBeRead();
    void knowsItsOwnByCommandLine();
    void findsItsOwn();
    void takesNoneOfAnotherNetworkForItsOwn();
    void namesTheInterfacesOfOthers_data();
    void namesTheInterfacesOfOthers();
    void namesTheInterfaceOfTheFirstOption();
    void endsAProcess();
    void waitsOnWhenInterrupted();
    void canBeMoved();
    void staysGoneWhenMoved();
};

void TestSupplicantProcess::seesTheEndOfAProcess()
{
    FakeSupplicantProcess supplicant;
    const SupplicantProcess process(supplicant.Id());
    QVERIFY(!process.HasEnded());
    QVERIFY(!process.HasEndedWithin(20ms));

    supplicant.Kill();

    // A zombie by now.
    QVERIFY(process.HasEnded());
}

void TestSupplicantProcess::knowsAProcessThatEndedBeforeItWasHeld()
{
    auto supplicant = std::make_unique<FakeSupplicantProcess>();
    const pid_t id = supplicant->Id();
    supplicant.reset();

    const SupplicantProcess process(id);

    QVERIFY(process.HasEnded());
    QCOMPARE(process.IsStopped(), std::nullopt);
}

void TestSupplicantProcess::takesWhatCannotBeHeldForAlive()
{
    FakeSupplicantProcess supplicant;
    std::optional<ResourceLimit> noDescriptors(std::in_place, RLIMIT_NOFILE, 0);
    const SupplicantProcess process(supplicant.Id());
    noDescriptors.reset();

    supplicant.Kill();

    QVERIFY(!process.HasEnded());
}

void TestSupplicantProcess::seesAStoppedProcess()
{
    FakeSupplicantProcess supplicant;
    const SupplicantProcess process(supplicant.Id());
    QCOMPARE(process.IsStopped(), std::optional<bool>(false));

    supplicant.Stop();
    QCOMPARE(process.IsStopped(), std::optional<bool>(true));
    QVERIFY(!process.HasEnded());

    supplicant.Continue();
    QCOMPARE(process.IsStopped(), std::optional<bool>(false));

    supplicant.Kill();
    QCOMPARE(process.IsStopped(), std::nullopt);
}

void TestSupplicantProcess::knowsNothingOfAStateThatCannotBeRead()
{
    FakeSupplicantProcess supplicant;
    const SupplicantProcess process(supplicant.Id());
    supplicant.Stop();
    const MountPoint hidden(QStringLiteral("/proc/%1").arg(supplicant.Id()));

    QCOMPARE(process.IsStopped(), std::nullopt);
    QVERIFY(!process.HasEnded());
}

void TestSupplicantProcess::knowsItsOwnByCommandLine()
{
    FakeSupplicantProcess supplicant;
    const SupplicantProcess process(supplicant.Id());

    QVERIFY(process.IsLaunchedWith(CONFIGURATION));
    // Another file, and another program.
    QVERIFY(!process.IsLaunchedWith(QStringLiteral("/etc/wpa_supplicant.conf")));
    QVERIFY(!process.IsLaunchedWith(QStringLiteral("/tmp/wpa_supplicant")));
    QProcess shell;
    shell.start(QStringLiteral("sh"), {"-c", "echo up; read line", "sh", "-c/tmp/wpa_supplicant.conf"});
    QVERIFY(shell.waitForReadyRead());
    QVERIFY(!SupplicantProcess(static_cast<pid_t>(shell.processId())).IsLaunchedWith(CONFIGURATION));
    shell.closeWriteChannel();
    QVERIFY(shell.waitForFinished());
}

void TestSupplicantProcess::findsItsOwn()
{
    QVERIFY(SupplicantProcess::FindWith(CONFIGURATION).empty());
    FakeSupplicantProcess supplicant;

    const std::vector<SupplicantProcess> found = SupplicantProcess::FindWith(CONFIGURATION);

    QCOMPARE(found.size(), size_t(1));
    QCOMPARE(found.front().Id(), supplicant.Id());
    QVERIFY(SupplicantProcess::FindWith(QStringLiteral("/etc/wpa_supplicant.conf")).empty());
}

void TestSupplicantProcess::takesNoneOfAnotherNetworkForItsOwn()
{
    // A container may have its own file under this name.
    QProcess supplicant;
    supplicant.start("unshare",
                     {"--net", "bash", "-c",
                      "exec -a wpa_supplicant bash -c 'echo up; read line' x -c/tmp/wpa_supplicant.conf"});
    QVERIFY(supplicant.waitForReadyRead());

    QVERIFY(SupplicantProcess::FindWith(CONFIGURATION).empty());

    supplicant.closeWriteChannel();
    QVERIFY(supplicant.waitForFinished());
}

void TestSupplicantProcess::namesTheInterfacesOfOthers_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("options");
    QTest::addColumn<QStringList>("expected");
    const QString other = QStringLiteral("wpa_supplicant");
    QTest::newRow("of a service") << other << "-c/etc/wlan0.conf -iwlan0" << QStringList{"wlan0"};
    QTest::newRow("by hand") << "/sbin/wpa_supplicant"
                             << "-i eth0 -c /etc/eth0.conf" << QStringList{"eth0"};
    QTest::newRow("for several") << other << "-i eth0 -N -iwlan0" << (QStringList{"eth0", "wlan0"});
    QTest::newRow("ours") << other << "-B -iwlan0 -c/tmp/wpa_supplicant.conf" << QStringList();
    QTest::newRow("for none") << other << "-u -s" << QStringList();
    QTest::newRow("another program") << "hostapd"
                                     << "-i wlan0" << QStringList();
    QTest::newRow("in another network") << "elsewhere"
                                        << "-iwlan0" << QStringList();
}

void TestSupplicantProcess::namesTheInterfacesOfOthers()
{
    QFETCH(QString, program);
    QFETCH(QString, options);
    const bool isElsewhere = program == QLatin1String("elsewhere");
    const QString name = isElsewhere ? QStringLiteral("wpa_supplicant") : program;
    const QString script = "exec -a " + name + " bash -c 'echo up; read line' " + options;
    QProcess process;
    const QStringList command{"bash", "-c", script};
    process.start(isElsewhere ? "unshare" : "env", isElsewhere ? QStringList{"--net"} + command : command);
    QVERIFY(process.waitForReadyRead());

    QTEST(SupplicantProcess::ForeignInterfaces(CONFIGURATION), "expected");

    process.closeWriteChannel();
    QVERIFY(process.waitForFinished());
}

void TestSupplicantProcess::namesTheInterfaceOfTheFirstOption()
{
    // An option of the same letter lets this program pass for one.
    QProcess process;
    process.start("bash", {"-c", "exec -a wpa_supplicant grep -i eth0 --line-buffered"});
    process.write("eth0\n");
    QVERIFY(process.waitForReadyRead());

    QCOMPARE(SupplicantProcess::ForeignInterfaces(CONFIGURATION), QStringList{"eth0"});

    process.closeWriteChannel();
    QVERIFY(process.waitForFinished());
}

void TestSupplicantProcess::endsAProcess()
{
    FakeSupplicantProcess supplicant;
    const SupplicantProcess process(supplicant.Id());

    process.SendSignal(SIGTERM);

    QVERIFY(process.HasEndedWithin(5s));
}

void TestSupplicantProcess::waitsOnWhenInterrupted()
{
    FakeSupplicantProcess supplicant;
    const SupplicantProcess process(supplicant.Id());
    std::signal(SIGALRM, [](int) {});
    const itimerval often{{0, 10'000}, {0, 10'000}};
    QCOMPARE(setitimer(ITIMER_REAL, &often, nullptr), 0);
    QProcess killer;
    killer.start(QStringLiteral("sh"), {"-c", QStringLiteral("sleep 0.3; kill -9 %1").arg(supplicant.Id())});

    const bool hasEnded = process.HasEndedWithin(30s);

    const itimerval never{};
    QCOMPARE(setitimer(ITIMER_REAL, &never, nullptr), 0);
    std::signal(SIGALRM, SIG_DFL);
    QVERIFY(hasEnded);
    QVERIFY(killer.waitForFinished());
}

void TestSupplicantProcess::canBeMoved()
{
    FakeSupplicantProcess supplicant;
    const int descriptors = TestSupport::EntryCount(QStringLiteral("/proc/self/fd"));
    SupplicantProcess last(getpid());
    {
        SupplicantProcess first(supplicant.Id());
        SupplicantProcess second(std::move(first));
        last = std::move(second);
    }
    QVERIFY(!last.HasEnded());
    // One holds one descriptor.
    QCOMPARE(TestSupport::EntryCount(QStringLiteral("/proc/self/fd")), descriptors + 1);

    supplicant.Kill();

    QCOMPARE(last.Id(), supplicant.Id());
    QVERIFY(last.HasEnded());
}

void TestSupplicantProcess::staysGoneWhenMoved()
{
    auto supplicant = std::make_unique<FakeSupplicantProcess>();
    const pid_t id = supplicant->Id();
    supplicant.reset();
    SupplicantProcess process(getpid());

    process = SupplicantProcess(SupplicantProcess(id));

    QVERIFY(process.HasEnded());
}

QTEST_GUILESS_MAIN(TestSupplicantProcess)
#include "tst_supplicantprocess.moc"
