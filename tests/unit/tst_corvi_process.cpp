// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "managersocket.h"

#include <QProcess>
#include <QSharedMemory>

#include <csignal>

using namespace CorviWorld;
using namespace TestSupport;

namespace {

QDateTime TimeOfLine(const QString &text)
{
    const QString line = TestSupport::LogText().split(QLatin1Char('\n')).filter(text).value(0);
    return QDateTime::fromString(line.left(23), QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
}

} // namespace

/// The daemon as built, as a process of its own.
class TestCorviProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void firstRescanComesAfterASecond();
    void startIsToldInEightLines_data();
    void startIsToldInEightLines();
    void killFileEndsTheProcessAfterTheSetup();
    void killFileOfAnEarlierRunIsForgotten();
    void killFileEndsARescanTickToo();
    void killFileCleansNothingUp();
    void killFileOutlivesARefusedStart();
    void killFileIsNotLeftToTheNextDaemon();
    void signalEndsTheProcess_data();
    void signalEndsTheProcess();
    void hangUpSignalReloads();
    void secondDaemonAttachesToTheSegment();
    void secondDaemonEndsAndSaysWhy();
    void eventsReachAListener();
    void goodStoreIsKeptForTheNextStart();
    void argumentsAreUtf8InEveryLocale();
    void closedStreamsLeadNowhere();
    void statusOfTheLoopIsThatOfTheProcess();
    void serviceManagerHearsOfTheStartAndOfEveryTick();

private:
    static QString Daemon() { return qEnvironmentVariable("CORVI_BUILD_DIR") + "/bin/corvi"; }
    void Start(const QStringList &environment = {}, const QStringList &arguments = {});
    /// By a program that becomes the daemon.
    void StartThrough(const QString &program, const QStringList &arguments,
                      const QStringList &environment = {});
    bool WaitForLine(const QString &line, int timeoutMs = 60000);

    std::unique_ptr<QProcess> daemon;
};

void TestCorviProcess::init()
{
    StartFromNothing();
    // A daemon that was ended leaves its segment, which goes with the last one to detach.
    QSharedMemory left(QStringLiteral("com.qarbo.zebnetstatus"));
    left.attach();
}

void TestCorviProcess::cleanup()
{
    if (!daemon)
        return;
    daemon->kill();
    daemon->waitForFinished();
    daemon.reset();
}

void TestCorviProcess::Start(const QStringList &environment, const QStringList &arguments)
{
    StartThrough(Daemon(), arguments, environment);
}

void TestCorviProcess::StartThrough(const QString &program, const QStringList &arguments,
                                    const QStringList &environment)
{
    daemon = std::make_unique<QProcess>();
    daemon->setProcessChannelMode(QProcess::MergedChannels);
    daemon->setEnvironment(QProcess::systemEnvironment() + environment);
    daemon->start(program, arguments);
    QVERIFY2(daemon->waitForStarted(), qPrintable(daemon->errorString()));
}

bool TestCorviProcess::WaitForLine(const QString &line, int timeoutMs)
{
    return QTest::qWaitFor([&line] { return LogLines().contains(line); }, timeoutMs);
}

void TestCorviProcess::firstRescanComesAfterASecond()
{
    Start();

    QVERIFY(WaitForLine("Corvi::Loop Force Rescan "));
    const qint64 delay = TimeOfLine("Corvi::Start()").msecsTo(TimeOfLine("Corvi::Loop Force Rescan "));
    QVERIFY2(delay >= 900 && delay < 3000, qPrintable(QString::number(delay)));
}

void TestCorviProcess::startIsToldInEightLines_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("no arguments") << QStringList();
    // It takes none, and looks at none.
    QTest::newRow("arguments") << QStringList({"--help", "--version", "-c", "foo", "bar"});
}

void TestCorviProcess::startIsToldInEightLines()
{
    QFETCH(QStringList, arguments);
    WriteStore("<networkconfig/>");

    Start({}, arguments);

    QVERIFY(WaitForLine("Corvi::Loop Force Rescan "));
    QStringList lines = LogLines();
    QVERIFY(lines.value(1).startsWith("BUILD TIME "));
    lines.removeAt(1);
    QCOMPARE(lines,
             QStringList({"Corvi::Corvi", "Logginglevel = 2", "Corvi::Corvi  Created", "Corvi::Start()",
                          "Corvi::LoopTimer started", "Logginglevel = 2", "Corvi::Loop Force Rescan "}));
}

void TestCorviProcess::killFileEndsTheProcessAfterTheSetup()
{
    WriteStore(LAN_STATIC);
    WriteFile(DEBUG_FLAG, "");
    MakeInterface("eth0");
    // The file appears in the middle of a tick's work.
    Answer("route", "touch /tmp/kill_corvi");

    Start();

    QVERIFY(daemon->waitForFinished(10000));
    QCOMPARE(daemon->exitStatus(), QProcess::NormalExit);
    QCOMPARE(daemon->exitCode(), 0);
    const QStringList lines = LogLines();
    QCOMPARE(lines.mid(lines.size() - 2),
             QStringList({"Corvi::onWiredStateChange(bool state)  complete", "Corvi::LoopTimer exit"}));
    QVERIFY(!daemon->readAll().contains("Corvi::LoopTimer exit"));
    // At once: nobody tells the supervisor.
    QCOMPARE(lines.filter("WpaSuppThread::Stop"), QStringList{"WpaSuppThread::Stop 2 false 0"});
}

void TestCorviProcess::killFileOfAnEarlierRunIsForgotten()
{
    WriteFile(KILL_FLAG, "");

    Start();

    QVERIFY(WaitForLine("Corvi::Loop Force Rescan "));
    QVERIFY(!daemon->waitForFinished(1500));
    QVERIFY(!QFile::exists(KILL_FLAG));
}

void TestCorviProcess::killFileEndsARescanTickToo()
{
    Start();
    QVERIFY(WaitForLine("Corvi::Start()"));

    WriteFile(KILL_FLAG, "");

    QVERIFY(daemon->waitForFinished(60000));
    QCOMPARE(daemon->exitCode(), 0);
    const QStringList lines = LogLines();
    QCOMPARE(lines.count("Corvi::Loop Force Rescan "), 1);
    QCOMPARE(lines.last(), QString("Corvi::LoopTimer exit"));
}

void TestCorviProcess::killFileCleansNothingUp()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    QProcess programs[2];
    const QStringList names{"wpa_supplicant", "dhclient"};
    for (int i = 0; i < 2; ++i) {
        Remove("/tmp/running/" + names.at(i));
        WriteFile("/tmp/running/" + names.at(i), ReadFile("/bin/sleep"));
        QFile::setPermissions("/tmp/running/" + names.at(i), QFile::ReadOwner | QFile::ExeOwner);
        programs[i].start("/tmp/running/" + names.at(i), {"600"});
        QVERIFY(programs[i].waitForStarted());
    }
    Start();
    QVERIFY(QTest::qWaitFor([] { return RealIp({"addr", "show", "eth0"}).contains("10.1.0.2"); }, 10000));
    WriteFile(SUPPLICANT_FILE, "network={}");

    WriteFile(KILL_FLAG, "");
    QVERIFY(daemon->waitForFinished(10000));

    QVERIFY(QFile::exists(KILL_FLAG));
    QCOMPARE(ReadFile(SUPPLICANT_FILE), QByteArray("network={}"));
    QVERIFY(RealIp({"addr", "show", "eth0"}).contains("10.1.0.2"));
    for (QProcess &program : programs) {
        QCOMPARE(program.state(), QProcess::Running);
        program.kill();
        program.waitForFinished();
    }
    QCOMPARE(JournalOf("killall") + JournalOf("stop_dhclient"), QStringList());
}

void TestCorviProcess::killFileOutlivesARefusedStart()
{
    Start();
    QVERIFY(WaitForLine("Corvi::Start()"));
    const std::unique_ptr<QProcess> first = std::move(daemon);
    // As one that is too busy to see the file for longer than another start waits for its end.
    ::kill(static_cast<pid_t>(first->processId()), SIGSTOP);
    WriteFile(KILL_FLAG, "");

    Start();
    QVERIFY(daemon->waitForFinished(60000));
    QCOMPARE(daemon->exitCode(), 1);
    ::kill(static_cast<pid_t>(first->processId()), SIGCONT);

    QVERIFY(first->waitForFinished(60000));
    QCOMPARE(first->exitCode(), 0);
    QCOMPARE(LogLines().last(), QString("Corvi::LoopTimer exit"));
}

void TestCorviProcess::killFileIsNotLeftToTheNextDaemon()
{
    Start();
    QVERIFY(WaitForLine("Corvi::Start()"));
    const std::unique_ptr<QProcess> first = std::move(daemon);
    ::kill(static_cast<pid_t>(first->processId()), SIGSTOP);
    WriteFile(KILL_FLAG, "");
    // The start that is refused runs this once it has taken the file away.
    Remove(DHCLIENT_CONF);
    Answer("init_hostname",
           QByteArray("kill -9 PID; while grep -qs '^State:.[^Z]' /proc/PID/status; do sleep 0.01; done")
               .replace("PID", QByteArray::number(first->processId())));

    Start();
    QVERIFY(daemon->waitForFinished(60000));

    QCOMPARE(daemon->exitCode(), 1);
    QVERIFY(!QFile::exists(KILL_FLAG));
}

void TestCorviProcess::signalEndsTheProcess_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGINT") << SIGINT;
}

void TestCorviProcess::signalEndsTheProcess()
{
    QFETCH(int, number);
    WriteFile(DEBUG_FLAG, "");
    Start();
    // Not before: system(3), which the rescan calls, ignores SIGINT meanwhile.
    QVERIFY(WaitForLine("Corvi::Init() Complete"));

    ::kill(static_cast<pid_t>(daemon->processId()), number);

    QVERIFY(daemon->waitForFinished(60000));
    QCOMPARE(daemon->exitStatus(), QProcess::NormalExit);
    QCOMPARE(daemon->exitCode(), 0);
    QCOMPARE(LogLines().filter("WpaSuppThread::Stop").last(), QString("WpaSuppThread::Stop 0 false 0"));
    QVERIFY(!daemon->readAll().contains("QThread"));
}

void TestCorviProcess::hangUpSignalReloads()
{
    WriteFile(DEBUG_FLAG, "");
    Start();
    QVERIFY(WaitForLine("Corvi::Init() Complete"));

    ::kill(static_cast<pid_t>(daemon->processId()), SIGHUP);

    QVERIFY(QTest::qWaitFor([] { return LogCount("Corvi::Init() Complete") == 2; }, 10000));
    QCOMPARE(daemon->state(), QProcess::Running);
}

void TestCorviProcess::secondDaemonAttachesToTheSegment()
{
    WriteFile(DEBUG_FLAG, "");
    Start();
    QVERIFY(WaitForLine("Corvi::Start()"));
    QVERIFY(!LogLines().contains("Corvi::run - Attached to shared memory segment"));
    const std::unique_ptr<QProcess> first = std::move(daemon);

    Start();

    QVERIFY(WaitForLine("Corvi::run - Attached to shared memory segment"));
    first->kill();
    first->waitForFinished();
}

void TestCorviProcess::secondDaemonEndsAndSaysWhy()
{
    Start();
    QVERIFY(WaitForLine("Corvi::Start()"));
    const std::unique_ptr<QProcess> first = std::move(daemon);
    const QString reason = QString("another daemon is at work, process %1: this one ends and leaves its "
                                   "networks as they are")
                               .arg(first->processId());

    // The log is told once, nor do the lines of a start come again and again.
    for (int i = 0; i < 2; ++i) {
        Start();
        QVERIFY(daemon->waitForFinished(60000));
        QCOMPARE(daemon->exitStatus(), QProcess::NormalExit);
        QCOMPARE(daemon->exitCode(), 1);
        QVERIFY(daemon->readAll().contains("corvi: " + reason.toUtf8() + '\n'));
        QCOMPARE(LogCount("main() - " + reason), 1);
        QCOMPARE(LogCount("Corvi::Corvi"), 2);
        QCOMPARE(LogCount("Corvi::Start()"), 1);
    }
    first->kill();
    first->waitForFinished();
}

void TestCorviProcess::eventsReachAListener()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    EventListener listener;
    Start();

    QVERIFY(WaitForLine("Wired Device Connected 1"));

    Events events;
    QTRY_VERIFY((events += listener.Take()).size() >= 2);
    QCOMPARE(events, Events({ASSOCIATION_UP, ADDRESS_PRESENT}));
}

void TestCorviProcess::goodStoreIsKeptForTheNextStart()
{
    WriteStore(LAN_STATIC);

    Start();

    QTRY_VERIFY(ReadFile("/var/lib/corvi/last-good.xml").contains("<name>lan</name>"));
}

void TestCorviProcess::argumentsAreUtf8InEveryLocale()
{
    WriteStore("<networkconfig><network><name>Cafe</name><securityMode>WPA Personal 1/2</securityMode>"
               "<ssid>Caf\xc3\xa9</ssid><passphrase>long enough</passphrase></network></networkconfig>");
    MakeInterface("wlan0");

    Start({"LC_ALL=C"});

    QVERIFY(QTest::qWaitFor([] { return !JournalOf("wpa_passphrase").isEmpty(); }, 5000));
    QVERIFY2(JournalOf("wpa_passphrase").first().contains(QString::fromUtf8("Caf\xc3\xa9")),
             qPrintable(JournalOf("wpa_passphrase").first()));
}

void TestCorviProcess::closedStreamsLeadNowhere()
{
    StartThrough("sh", {"-c", "exec \"$0\" <&- >&- 2>&-", Daemon()});

    QVERIFY(WaitForLine("Corvi::Start()"));
    for (int fd = 0; fd < 3; ++fd)
        QCOMPARE(QFile::symLinkTarget(QString("/proc/%1/fd/%2").arg(daemon->processId()).arg(fd)),
                 QString("/dev/null"));
}

void TestCorviProcess::statusOfTheLoopIsThatOfTheProcess()
{
    // Something in the process ends its event loop with 7.
    Start({QString("LD_PRELOAD=") + EXIT_WITH_SEVEN, "ASAN_OPTIONS=verify_asan_link_order=0"});

    QVERIFY(daemon->waitForFinished(10000));
    QCOMPARE(daemon->exitStatus(), QProcess::NormalExit);
    QCOMPARE(daemon->exitCode(), 7);
}

void TestCorviProcess::serviceManagerHearsOfTheStartAndOfEveryTick()
{
    ManagerSocket manager("/tmp/notify");
    QVERIFY(manager.bound);
    Start({"NOTIFY_SOCKET=/tmp/notify"});

    QByteArray heard;
    QTRY_COMPARE((heard += manager.Heard()).left(27), QByteArray("READY=1WATCHDOG=1WATCHDOG=1"));
}

QTEST_GUILESS_MAIN(TestCorviProcess)
#include "tst_corvi_process.moc"
