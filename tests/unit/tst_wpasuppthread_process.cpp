// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// The supplicant's process: its end, its silence, one that was left over.

#include "fakesupplicant.h"
#include "logging.h"
#include "mountpoint.h"
#include "testsupport.h"
#include "wpasuppthreadpeer.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {

using namespace std::chrono_literals;

const QString CONFIGURATION = QStringLiteral("/tmp/wpa_supplicant.conf");

} // namespace

class TestWpaSuppThreadProcess : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void takesADeathForATerminatingEvent();
    void pauseBeforeTheNextOneIsTold();
    void deathIsNewsAfterTenMinutesOfPeace_data();
    void deathIsNewsAfterTenMinutesOfPeace();
    void noticesADeathAfterTheSocketWasLost();
    void deathWaitsForTheStepThatIsDue_data();
    void deathWaitsForTheStepThatIsDue();
    void staysWithAProcessThatLostItsSocket();
    void noticesNoDeathOfTheOneBefore();
    void followsTheOneThatItConnectsAnewTo();
    void peaceOfTheOneBeforeDoesNotCount();

    void tellsOnceThatTheSupplicantIsStopped();
    void tellsNothingOfAStateThatCannotBeRead_data();
    void tellsNothingOfAStateThatCannotBeRead();
    void asksAfterFourSilentMinutes();
    void countsEveryWordAsASign_data();
    void countsEveryWordAsASign();
    void asksNothingOfAStoppedSupplicant();
    void connectsToNoStoppedSupplicant();
    void replacesASupplicantThatAnswersNobody_data();
    void replacesASupplicantThatAnswersNobody();
    void leavesTheProcessesOfOthersAlone();

    void endsALeftOverBeforeItLaunches_data();
    void endsALeftOverBeforeItLaunches();
    void endsALeftOverThatNobodyReplaces();
    void leavesASupplicantThatRunsAlone();

private:
    void BeInPeace(int ticks);

    std::unique_ptr<FakeSupplicantProcess> supplicant;
    std::unique_ptr<WpaSuppThreadPeer> supervisor;
};

void TestWpaSuppThreadProcess::init()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
    TestSupport::ClearLog();
    TestSupport::ClearJournal();
    TestSupport::WriteFile(CONFIGURATION, "ctrl_interface=/var/run/wpa_supplicant\n");
    supplicant = std::make_unique<FakeSupplicantProcess>();
    supervisor = std::make_unique<WpaSuppThreadPeer>();
}

void TestWpaSuppThreadProcess::cleanup()
{
    supplicant.reset();
    supervisor.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    TestSupport::Remove(QStringLiteral("/var/run/wpa_supplicant"));
}

/// Under a supplicant of its own, which need not be asked whether it is there.
void TestWpaSuppThreadProcess::BeInPeace(int ticks)
{
    supplicant = std::make_unique<FakeSupplicantProcess>();
    supervisor->Supervise();
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-CONNECTED - "));
    for (int i = 0; i < ticks; ++i) {
        supervisor->NoteSilence(0);
        supervisor->Tick();
    }
}

void TestWpaSuppThreadProcess::takesADeathForATerminatingEvent()
{
    supervisor->Supervise();
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-CONNECTED - "));
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    TestSupport::ClearLog();

    supplicant->Kill();
    supervisor->Tick();

    // Done away with in the tick that sees it, as after an event before it.
    QVERIFY(!supervisor->IsRunning() && !supervisor->IsRestarting());
    QVERIFY(!supervisor->Control());
    QVERIFY(!supervisor->IsAssociated());
    QVERIFY(TestSupport::LogText().contains(
        "WpaSuppThread -- The supplicant has ended on wlan0 - another one follows "
        "within 15 s where it is needed \n"));
    QVERIFY(TestSupport::LogText().contains("WpaSuppThread::MessageReceived -- Terminating \n"));
    QCOMPARE(changes.size(), 0);
    // Nothing is run for it.
    QCOMPARE(TestSupport::Journal(), QStringList());
}

/// One that nobody lets in and that does not stay is followed by the next one after a pause, which grows.
void TestWpaSuppThreadProcess::pauseBeforeTheNextOneIsTold()
{
    for (const char *seconds : {"15", "25"}) {
        supplicant = std::make_unique<FakeSupplicantProcess>();
        supervisor->Supervise();

        supplicant->Kill();
        supervisor->Tick(2); // It is noticed, and done away with.

        QVERIFY2(TestSupport::LogText().contains(
                     QStringLiteral("another one follows within %1 s where").arg(QLatin1String(seconds))),
                 seconds);
    }
}

void TestWpaSuppThreadProcess::deathIsNewsAfterTenMinutesOfPeace_data()
{
    QTest::addColumn<int>("ticks");
    QTest::addColumn<int>("told");
    QTest::newRow("soon") << 599 << 1;
    QTest::newRow("later") << 600 << 2;
}

void TestWpaSuppThreadProcess::deathIsNewsAfterTenMinutesOfPeace()
{
    QFETCH(int, ticks);
    QFETCH(int, told);
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);

    for (const int peace : {0, ticks}) {
        BeInPeace(peace);
        supplicant->Kill();
        supervisor->Tick(2);
    }

    QCOMPARE(TestSupport::LogText().count("The supplicant has ended on wlan0"), told);
    QCOMPARE(TestSupport::LogText().count("MessageReceived -- Terminating"), told);
}

void TestWpaSuppThreadProcess::noticesADeathAfterTheSocketWasLost()
{
    supervisor->Supervise();
    supplicant->CloseSocket();
    supervisor->Tick(7); // Past the one in which the control object is made anew.
    QVERIFY(supervisor->IsRunning());

    supplicant->Kill();
    supervisor->Tick();

    QVERIFY(!supervisor->IsRunning());
}

void TestWpaSuppThreadProcess::deathWaitsForTheStepThatIsDue_data()
{
    QTest::addColumn<bool>("isEnding");
    QTest::addColumn<bool>("isStarting");
    QTest::newRow("end") << true << false;
    QTest::newRow("start") << false << true;
    QTest::newRow("new configuration") << false << false;
}

void TestWpaSuppThreadProcess::deathWaitsForTheStepThatIsDue()
{
    QFETCH(bool, isEnding);
    QFETCH(bool, isStarting);
    supervisor->Supervise();
    if (isEnding)
        supervisor->ExpectEnd();
    else if (isStarting)
        supervisor->ExpectSupplicant();
    else
        supervisor->Reconfigure();

    supplicant->Kill();
    supervisor->Tick();

    QVERIFY(!TestSupport::LogText().contains("Terminating"));
}

void TestWpaSuppThreadProcess::staysWithAProcessThatLostItsSocket()
{
    supervisor->Supervise();
    supplicant->CloseSocket();

    supervisor->Tick(30);
    QVERIFY(!supervisor->IsStopRequested());
    supervisor->Tick();

    QVERIFY(supervisor->IsStopRequested());
    QVERIFY(TestSupport::LogText().contains(" failed to connect, Stopping wpa_supplicant"));
    QVERIFY(!TestSupport::LogText().contains("Terminating"));
}

void TestWpaSuppThreadProcess::noticesNoDeathOfTheOneBefore()
{
    supervisor->Supervise();
    supervisor->Stop(WpaSuppThread::STOP_FALLBACK);
    supervisor->Tick();
    supplicant->Kill();
    TestSupport::ClearLog();

    // The next one has not answered yet.
    supervisor->Supervise();
    supervisor->Tick(3);

    QVERIFY(supervisor->IsRunning());
    QVERIFY(!TestSupport::LogText().contains("has ended"));
}

/// Somebody started another one, which took the name of the socket, and cleared /tmp.
void TestWpaSuppThreadProcess::followsTheOneThatItConnectsAnewTo()
{
    supervisor->Supervise();
    const FakeSupplicantProcess other;
    const QDir folder(QStringLiteral("/tmp"));
    const QStringList ourNames = folder.entryList({QStringLiteral("wpa_ctrl_*")}, QDir::System);
    QCOMPARE(ourNames.size(), 1);
    TestSupport::Remove(folder.filePath(ourNames.first()));
    supervisor->Tick();

    supplicant->Kill();
    supervisor->Tick();

    QVERIFY(supervisor->IsRunning());
}

void TestWpaSuppThreadProcess::peaceOfTheOneBeforeDoesNotCount()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);

    for (const int peace : {0, 599, 1}) {
        BeInPeace(peace);
        if (peace == 599) {
            supervisor->TakeOverRequest(); // As a restart does.
            continue;
        }
        supplicant->Kill();
        supervisor->Tick(2);
    }

    QCOMPARE(TestSupport::LogText().count("The supplicant has ended on wlan0"), 1);
}

void TestWpaSuppThreadProcess::tellsOnceThatTheSupplicantIsStopped()
{
    supervisor->Supervise();
    TestSupport::ClearLog();

    supplicant->Stop();
    supervisor->Tick(10);

    QVERIFY(supervisor->IsControlOpen());
    QCOMPARE(TestSupport::LogText().count('\n'), 1);
    QVERIFY(TestSupport::LogText().contains("WpaSuppThread -- The supplicant is stopped and answers nobody "
                                            "on wlan0 - after 300 s it is replaced \n"));
    TestSupport::ClearLog();

    supplicant->Continue();
    supervisor->Tick(10);

    QCOMPARE(TestSupport::LogText().count('\n'), 1);
    QVERIFY(TestSupport::LogText().contains("WpaSuppThread -- The supplicant goes on, on wlan0"));
}

void TestWpaSuppThreadProcess::tellsNothingOfAStateThatCannotBeRead_data()
{
    QTest::addColumn<bool>("wasStopped");

    QTest::newRow("ran") << false;
    QTest::newRow("was stopped") << true;
}

void TestWpaSuppThreadProcess::tellsNothingOfAStateThatCannotBeRead()
{
    QFETCH(bool, wasStopped);
    supervisor->Supervise();
    if (wasStopped)
        supplicant->Stop();
    supervisor->Tick(1);
    TestSupport::ClearLog();
    {
        const MountPoint hidden(QStringLiteral("/proc/%1").arg(supplicant->Id()));
        supervisor->Tick(10);
    }
    supervisor->Tick(1);

    QCOMPARE(TestSupport::LogText(), QString());
}

void TestWpaSuppThreadProcess::asksAfterFourSilentMinutes()
{
    FakeSupplicant answering;
    supervisor->Supervise();
    answering.ClearCommands();

    supervisor->Tick(239);
    QCOMPARE(answering.Commands(), QStringList());
    supervisor->Tick();
    QCOMPARE(answering.Commands(), QStringList{"PING"});

    // The answer counts: the silence begins anew.
    supervisor->Tick(239);
    QCOMPARE(answering.Commands(), QStringList{"PING"});
    supervisor->Tick();
    QCOMPARE(answering.Commands(), (QStringList{"PING", "PING"}));
}

void TestWpaSuppThreadProcess::countsEveryWordAsASign_data()
{
    QTest::addColumn<bool>("event");
    QTest::newRow("an event") << true;
    QTest::newRow("a status") << false;
}

void TestWpaSuppThreadProcess::countsEveryWordAsASign()
{
    QFETCH(bool, event);
    FakeSupplicant answering;
    supervisor->Supervise();
    supervisor->Tick(239);
    answering.ClearCommands();

    if (event)
        supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-EAP-STARTED"));
    else
        supervisor->CheckStatus();
    supervisor->Tick(239);

    QVERIFY(!answering.Commands().contains(QStringLiteral("PING")));
}

void TestWpaSuppThreadProcess::asksNothingOfAStoppedSupplicant()
{
    supervisor->Supervise();
    supervisor->TakeForHavingLeft(); // To be undone after 30 ticks.
    supplicant->Stop();
    QElapsedTimer timer;
    timer.start();

    supervisor->Tick(299);

    // A question would have waited 10 s for its answer.
    QVERIFY(timer.elapsed() < 10000);
    QVERIFY(!supplicant->HasEnded());
    supplicant->Continue();
    supervisor->Tick();
    // It was asked in that tick, and answered.
    supervisor->Tick(239);
    QVERIFY(!supplicant->HasEnded());
    QVERIFY(!TestSupport::LogText().contains("killed"));
}

void TestWpaSuppThreadProcess::connectsToNoStoppedSupplicant()
{
    supplicant->Stop();
    supervisor->AimAt(QStringLiteral("wlan0"));
    supervisor->ExpectSupplicant();
    QElapsedTimer timer;
    timer.start();

    supervisor->Tick(5);

    // Each attempt would have waited 10 s for its answer.
    QVERIFY(timer.elapsed() < 40000);
    QVERIFY(!supervisor->IsControlOpen());
    QVERIFY(TestSupport::LogText().contains(
        "WpaSuppThread -- The supplicant is stopped and lets nobody connect on wlan0 \n"));
    supplicant->Continue();
    supervisor->Tick();
    QVERIFY(supervisor->IsControlOpen());
}

void TestWpaSuppThreadProcess::replacesASupplicantThatAnswersNobody_data()
{
    QTest::addColumn<bool>("isStopped");
    QTest::newRow("stopped for good") << true;
    QTest::newRow("deaf") << false;
}

void TestWpaSuppThreadProcess::replacesASupplicantThatAnswersNobody()
{
    QFETCH(bool, isStopped);
    supplicant.reset();
    supplicant = std::make_unique<FakeSupplicantProcess>(QStringList{"--silent=PING", "--ignore-term"});
    supervisor->Supervise();
    if (isStopped)
        supplicant->Stop();
    supervisor->NoteSilence(298);

    supervisor->Tick();
    QVERIFY(!supplicant->HasEnded());
    supervisor->Tick();

    QVERIFY(supplicant->HasEnded(5s));
    QVERIFY(TestSupport::LogText().contains(
        "WpaSuppThread -- The supplicant has answered nobody for 300 s and is killed, to be started anew on "
        "wlan0 \n"));
    supervisor->Tick(2);
    QVERIFY(!supervisor->IsRunning());
    QVERIFY(TestSupport::LogText().contains("WpaSuppThread::MessageReceived -- Terminating \n"));
    QVERIFY(!TestSupport::LogText().contains("The supplicant has ended"));
}

void TestWpaSuppThreadProcess::leavesTheProcessesOfOthersAlone()
{
    supervisor->Supervise();
    supervisor->UseConfiguration(QStringLiteral("/etc/wpa_supplicant.conf"));
    supplicant->Stop();

    supervisor->Tick(400);

    QVERIFY(!supplicant->HasEnded());
    QVERIFY(TestSupport::LogText().contains("WpaSuppThread -- The supplicant is stopped and answers nobody "
                                            "on wlan0 - it is not ours and is left alone \n"));
    // Nothing was done about its silence, so nothing has told of its end.
    supplicant->Kill();
    supervisor->Tick();
    QVERIFY(
        TestSupport::LogText().contains("WpaSuppThread -- The supplicant has ended on wlan0 - another one "
                                        "follows within 15 s where it is needed \n"));
}

void TestWpaSuppThreadProcess::endsALeftOverBeforeItLaunches_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<bool>("isStopped");
    QTest::newRow("one that listens") << QStringList() << false;
    QTest::newRow("one on another interface") << QStringList{"-ieth0"} << false;
    QTest::newRow("one that does not listen") << QStringList{"--ignore-term"} << false;
    QTest::newRow("one that is stopped") << QStringList() << true;
}

void TestWpaSuppThreadProcess::endsALeftOverBeforeItLaunches()
{
    QFETCH(QStringList, options);
    QFETCH(bool, isStopped);
    supplicant.reset();
    supplicant = std::make_unique<FakeSupplicantProcess>(options);
    if (isStopped)
        supplicant->Stop();

    supervisor->LaunchSupplicant();

    QVERIFY(supplicant->HasEnded());
    QCOMPARE(TestSupport::Journal().size(), 1);
    QVERIFY(TestSupport::LogText().contains(
        QStringLiteral("WpaSuppThread -- Ending a supplicant that was left over, process %1 \n")
            .arg(supplicant->Id())));
}

void TestWpaSuppThreadProcess::endsALeftOverThatNobodyReplaces()
{
    supervisor->Tick(59);
    QVERIFY(!supplicant->HasEnded());

    supervisor->Tick();

    QVERIFY(supplicant->HasEnded());
}

void TestWpaSuppThreadProcess::leavesASupplicantThatRunsAlone()
{
    supervisor->Supervise();

    supervisor->Tick(200);

    QVERIFY(!supplicant->HasEnded());
}

QTEST_GUILESS_MAIN(TestWpaSuppThreadProcess)
#include "tst_wpasuppthread_process.moc"
