// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// Each restart blocks for 7.1 s, so a test looks at all that one restart shows.

#include "fakesupplicant.h"
#include "logging.h"
#include "testsupport.h"
#include "wpasuppthreadpeer.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <memory>

namespace {

const QString CONFIGURATION = QStringLiteral("/tmp/wpa_supplicant.conf");
const QString SUPPLICANT_LOG = QStringLiteral("/var/log/wpa_supplicant.log");
const QString LAUNCH =
    QStringLiteral("wpa_supplicant -B '' -i%1 -D%2 -c/tmp/wpa_supplicant.conf -f/var/log/wpa_supplicant.log");

} // namespace

class TestWpaSuppThreadRestart : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void startsTheSupplicant();
    void keepsAStartOverTheStopThatItWaitedFor();
    void replacesARunningSupplicant();
    void reachesTheSupplicantOfACancelledStart_data();
    void reachesTheSupplicantOfACancelledStart();
    void reachesTheSupplicantOfAnEarlierStart();
    void endsInIdleWithoutConfiguration();
};

void TestWpaSuppThreadRestart::init()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
    TestSupport::ClearLog();
    TestSupport::ClearJournal();
    TestSupport::WriteFile(CONFIGURATION, "ctrl_interface=/var/run/wpa_supplicant\n");
}

void TestWpaSuppThreadRestart::cleanup()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    TestSupport::Remove(QStringLiteral("/var/run/wpa_supplicant"));
    QCOMPARE(QDir(QStringLiteral("/tmp")).entryList({"wpa_ctrl_*"}, QDir::System).size(), 0);
}

void TestWpaSuppThreadRestart::startsTheSupplicant()
{
    WpaSuppThreadPeer supervisor;
    QSignalSpy changes(&supervisor, &WpaSuppThread::associatedChanged);
    supervisor.SuspectPassword();
    supervisor.NoteSsid(QStringLiteral("before"));
    supervisor.TakeForAssociated();
    supervisor.Pause(60);
    // Told while the old state is still in force.
    QString seenInterface;
    bool seenAssociated = false;
    connect(&supervisor, &WpaSuppThread::associatedChanged, &supervisor, [&] {
        seenInterface = supervisor.Interface();
        seenAssociated = supervisor.IsAssociated();
    });
    // A stop asked for just before does not cancel the start.
    supervisor.Stop(WpaSuppThread::STOP_BEFORE_START);
    TestSupport::ClearLog();
    bool hasFired = false;
    QTimer::singleShot(0, &supervisor, [&] { hasFired = true; });
    QElapsedTimer timer;
    timer.start();

    supervisor.Start(QStringLiteral("eth0"), QStringLiteral("wired"), QStringLiteral("peap"));

    const qint64 elapsed = timer.elapsed();
    QVERIFY(!hasFired);
    QVERIFY2(elapsed >= 7110 && elapsed < 60000, qPrintable(QString::number(elapsed)));
    QCOMPARE(TestSupport::Journal(),
             (QStringList{"mkdir -p /var/run/wpa_supplicant", LAUNCH.arg("eth0", "wired")}));
    QCOMPARE(changes, (QList<QList<QVariant>>{{false}}));
    QCOMPARE(seenInterface, QStringLiteral("wlan0"));
    QVERIFY(seenAssociated);
    QCOMPARE(supervisor.Interface(), QStringLiteral("eth0"));
    QCOMPARE(supervisor.Driver(), QStringLiteral("wired"));
    QCOMPARE(supervisor.Method(), QStringLiteral("peap"));
    QCOMPARE(supervisor.StatusText(), QStringLiteral("Starting"));
    QCOMPARE(supervisor.Ssid(), QString());
    QVERIFY(supervisor.IsRestarting());
    QVERIFY(!supervisor.IsRunning());
    QVERIFY(!supervisor.IsAssociated());
    QVERIFY(supervisor.IsWired());
    QVERIFY(!supervisor.IsStopRequested());
    QVERIFY(!supervisor.SuspectsPassword());
    QVERIFY(!supervisor.IsPausing());
    const QString text = TestSupport::LogText();
    int from = 0;
    for (const char *line :
         {"WpaSuppThread::Start eth0 wired peap \n", "WpaSuppThread::RestartSupplicant eth0 wired true \n",
          "WpaSupplicant::Start supplicant is still running need to make sure it stops before continuing \n",
          "WpaSupplicant::StopSupplicant STOP wpa \n",
          "WpaSupplicant::Start we should have stopped by now \n",
          "WpaSuppThread::Start -- Start wpa_supplicant \n"}) {
        from = static_cast<int>(text.indexOf(QLatin1String(line), from));
        QVERIFY2(from >= 0, line);
    }
}

void TestWpaSuppThreadRestart::keepsAStartOverTheStopThatItWaitedFor()
{
    FakeSupplicant supplicant(QStringLiteral("eth0"));
    WpaSuppThreadPeer supervisor;
    supervisor.Start(QStringLiteral("eth0"), QStringLiteral("wired"), QString());
    TestSupport::ClearLog();

    // The first tick finishes the stop, as it would without a start.
    supervisor.Tick();
    QVERIFY(TestSupport::LogText().contains("WpaSuppThread::run  stoppingSupplicant set"));
    QVERIFY(!supervisor.IsRunning());
    QVERIFY(!supervisor.IsEnding());
    // Nobody may start a second one now.
    QVERIFY(supervisor.IsRestarting());
    QCOMPARE(supplicant.Commands(), QStringList());

    supervisor.Tick();
    QVERIFY(supervisor.IsRunning());
    QVERIFY(!supervisor.IsRestarting());
    QVERIFY(supervisor.IsControlOpen());
    QVERIFY(supervisor.IsWired());
    supervisor.Tick(10);
    QVERIFY(supervisor.IsRunning());
    // Once, as nothing was heard of it: the supplicant may have connected before anyone listened.
    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "STATUS"}));
}

void TestWpaSuppThreadRestart::replacesARunningSupplicant()
{
    FakeSupplicant supplicant(QStringLiteral("eth0"));
    FakeSupplicant::Answer answer;
    answer.eventsFirst = {"<3>CTRL-EVENT-SIGNAL-CHANGE"};
    supplicant.SetAnswer("TERMINATE", answer);
    WpaSuppThreadPeer supervisor;
    supervisor.Supervise(QStringLiteral("eth0"), QStringLiteral("wired"));

    supervisor.Start(QStringLiteral("wlan0"), QStringLiteral("nl80211,wext"), QString());
    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "TERMINATE"}));
    // What the old one says while it ends must not end the new one.
    QVERIFY(supplicant.SendEvent("<3>CTRL-EVENT-TERMINATING "));
    FakeSupplicant successor(QStringLiteral("wlan0"));
    supervisor.Tick();
    QCoreApplication::processEvents();
    supervisor.Tick(3);

    QVERIFY(supervisor.IsRunning());
    QVERIFY(supervisor.IsControlOpen());
    QVERIFY(!supervisor.IsWired());
    QCOMPARE(successor.Commands(), QStringList{"ATTACH"});
    QCOMPARE(TestSupport::Journal().last(), LAUNCH.arg("wlan0", "nl80211,wext"));
}

void TestWpaSuppThreadRestart::reachesTheSupplicantOfACancelledStart_data()
{
    QTest::addColumn<int>("ticksBefore");
    QTest::newRow("before the first tick") << 0;
    QTest::newRow("between the two ticks") << 1;
}

void TestWpaSuppThreadRestart::reachesTheSupplicantOfACancelledStart()
{
    QFETCH(int, ticksBefore);
    FakeSupplicant supplicant(QStringLiteral("eth0"));
    WpaSuppThreadPeer supervisor;
    supervisor.Start(QStringLiteral("eth0"), QStringLiteral("wired"), QString());
    supervisor.Tick(ticksBefore);

    supervisor.Stop(WpaSuppThread::STOP_FALLBACK);
    supervisor.Tick();

    // Told to end, though no connection to it had been made yet.
    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "TERMINATE"}));
    QVERIFY(!supervisor.IsRunning() && !supervisor.IsRestarting());
    supervisor.Tick(5);
    QVERIFY(!supervisor.IsRunning() && !supervisor.IsRestarting());
    QVERIFY(!supervisor.Control());
}

void TestWpaSuppThreadRestart::reachesTheSupplicantOfAnEarlierStart()
{
    FakeSupplicant supplicant(QStringLiteral("eth0"));
    WpaSuppThreadPeer supervisor;
    QSignalSpy changes(&supervisor, &WpaSuppThread::associatedChanged);
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    QElapsedTimer timer;
    timer.start();
    supervisor.Start(QStringLiteral("eth0"), QStringLiteral("wired"), QString());

    supervisor.Start(QStringLiteral("eth0"), QStringLiteral("wired"), QString());

    // Two full sequences, and each emits, though nobody was associated. An operator is told of the first.
    QCOMPARE(TestSupport::LogText().count("WpaSuppThread::Start"), 1);
    QVERIFY(timer.elapsed() >= 14200);
    QCOMPARE(changes, (QList<QList<QVariant>>{{false}, {false}}));
    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "TERMINATE"}));
    supervisor.Tick(2);
    QVERIFY(supervisor.IsRunning());
    QVERIFY(supervisor.IsControlOpen());
}

void TestWpaSuppThreadRestart::endsInIdleWithoutConfiguration()
{
    TestSupport::Remove(CONFIGURATION);
    TestSupport::WriteFile(SUPPLICANT_LOG, "old");
    WpaSuppThreadPeer supervisor;
    QSignalSpy changes(&supervisor, &WpaSuppThread::associatedChanged);
    supervisor.NoteCounts(3, 30);

    supervisor.Start(QStringLiteral("eth0"), QStringLiteral("wired"), QString());

    QCOMPARE(TestSupport::Journal(), QStringList{"mkdir -p /var/run/wpa_supplicant"});
    QVERIFY(supervisor.IsRestarting());
    // What comes before a launch has happened.
    QVERIFY(!QFile::exists(SUPPLICANT_LOG));
    QCOMPARE(changes, (QList<QList<QVariant>>{{false}}));
    QCOMPARE(supervisor.StatusText(), QStringLiteral("Stopping"));
    QVERIFY(supervisor.IsWired());
    QCOMPARE(supervisor.OpenFailures(), 0);
    QCOMPARE(supervisor.UnassociatedTicks(), 0);
    supervisor.Tick(2);
    QVERIFY(!supervisor.IsRestarting() && !supervisor.IsRunning());
    QVERIFY(!supervisor.Control());
}

QTEST_GUILESS_MAIN(TestWpaSuppThreadRestart)
#include "tst_wpasuppthread_restart.moc"
