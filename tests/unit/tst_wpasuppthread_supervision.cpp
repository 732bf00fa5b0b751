// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// The tick of a supplicant that runs: the control connection, and the count of ticks without an association.

#include "debugoutput.h"
#include "managersocket.h"
#include "supervisorworld.h"
#include "wpasupplicantcontrol.h"

#include <QCoreApplication>
#include <QDir>
#include <QSignalSpy>
#include <QTest>

#include <memory>

class TestWpaSuppThreadSupervision : public QObject, private SupervisedSupplicant
{
    Q_OBJECT
private slots:
    void initTestCase() { qputenv("CORVI_JOURNAL", "1"); } // asked for once, with the first line
    void init() { Make(); }
    void cleanup() { End(); }

    void sendsNothingWhenThereIsNothingToDo();
    void logsNothingWhenThereIsNothingToDo();
    void reopensALostConnection();
    void recreatesTheConnectionAfterSixFailures();
    void countsTheRecreatedConnectionFromTheNextTick();
    void startsCountingFailuresAfresh();
    void countsTwiceWithoutConnection();
    void stopsAfterThirtyOneTicksWithoutConnection();
    void successDoesNotCallTheGivingUpOff();
    void reportsThePasswordWhileItGivesUp();
    void countsOnFromAnOddCount();
    void goesOnWithoutConnectionWhileAssociated();
    void recreatesTheConnectionEverySixTicks();
    void forgetsTheTicksWhenAssociated();
    void saysEverySixtyTicksThatItCannotConnect();
    void tellsNothingOfASocketThatIsLostBeforeAStop();
    void noticesALostSocketWithinTwoTicks();
    void hearsWhatWasSaidBeforeTheSocketWasLost();
    void endsInIdleAfterALostSocket();
    void staysWhenTheControlFolderIsRemoved();
    void survivesARefusedAttach();
    void stopsAfterATerminatingEvent();
    void journalNamesItsInterface();
};

void TestWpaSuppThreadSupervision::sendsNothingWhenThereIsNothingToDo()
{
    supervisor->Supervise();
    supervisor->TakeForAssociated();
    supplicant->ClearCommands();

    supervisor->Tick(100);

    QCOMPARE(supplicant->Commands(), QStringList());
}

void TestWpaSuppThreadSupervision::logsNothingWhenThereIsNothingToDo()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::VERBOSE);
    supervisor->Supervise();
    TestSupport::ClearLog();

    supervisor->Tick(100);

    QCOMPARE(TestSupport::LogText(), QString());
}

void TestWpaSuppThreadSupervision::reopensALostConnection()
{
    supplicant.reset();
    supervisor->Supervise();
    supervisor->Tick(3);
    QCOMPARE(supervisor->OpenFailures(), 3);
    supplicant = std::make_unique<FakeSupplicant>();
    supplicant->SetReply("STATUS", "wpa_state=COMPLETED\n");
    supervisor->AskForStatus();

    supervisor->Tick();

    QVERIFY(supervisor->IsControlOpen());
    // The status is read at once, and not again for the request that was waiting.
    supervisor->Tick();
    QCOMPARE(supplicant->Commands(), (QStringList{"ATTACH", "STATUS"}));
    QVERIFY(supervisor->IsAssociated());
    QCOMPARE(supervisor->OpenFailures(), 0);
    QCOMPARE(supervisor->UnassociatedTicks(), 0);
}

void TestWpaSuppThreadSupervision::recreatesTheConnectionAfterSixFailures()
{
    supplicant.reset();
    supervisor->Supervise();
    const WpaSupplicantControl *const first = supervisor->Control();
    supervisor->Tick(5);
    QCOMPARE(supervisor->Control(), first);
    QCOMPARE(supervisor->OpenFailures(), 5);
    TestSupport::ClearLog();

    supervisor->Tick();

    QVERIFY(supervisor->Control() != first);
    QCOMPARE(supervisor->OpenFailures(), 0);
    QCOMPARE(TestSupport::LogText().count("WpaSuppThread::RestartWpaCtl \n"), 1);
}

void TestWpaSuppThreadSupervision::countsTheRecreatedConnectionFromTheNextTick()
{
    supplicant.reset();
    supervisor->Supervise();
    supervisor->Tick(5);
    supplicant = std::make_unique<FakeSupplicant>();
    // Only a new control object drops the folder from the name, so that of the sixth failure is the first to
    // open.
    supervisor->AimAt(QStringLiteral("/var/run/wpa_supplicant/wlan0"));

    supervisor->Tick();

    QVERIFY(supervisor->IsControlOpen());
    QCOMPARE(supervisor->UnassociatedTicks(), 12);
    QCOMPARE(supplicant->Commands(), QStringList{"ATTACH"});
    supervisor->Tick();
    QCOMPARE(supervisor->UnassociatedTicks(), 13);
}

void TestWpaSuppThreadSupervision::startsCountingFailuresAfresh()
{
    supervisor->Supervise();
    supervisor->NoteCounts(5, 0);

    supervisor->Tick();

    QCOMPARE(supervisor->OpenFailures(), 0);
}

void TestWpaSuppThreadSupervision::countsTwiceWithoutConnection()
{
    supplicant.reset();
    supervisor->Supervise();

    supervisor->Tick(4);

    QCOMPARE(supervisor->UnassociatedTicks(), 8);
}

void TestWpaSuppThreadSupervision::stopsAfterThirtyOneTicksWithoutConnection()
{
    supplicant.reset();
    supervisor->Supervise();
    supervisor->Tick(30);
    QVERIFY(!supervisor->IsStopRequested());
    QCOMPARE(supervisor->UnassociatedTicks(), 60);
    const DebugOutput output;

    supervisor->Tick();

    QCOMPARE(DebugOutput::Take(), QStringList{"Stopping wpa_supplicant"});
    QVERIFY(supervisor->IsStopRequested());
    QVERIFY(supervisor->IsRunning());
    QCOMPARE(LastLogLine(), QStringLiteral(" failed to connect, Stopping wpa_supplicant "));
    // The give-up leaves out the second count.
    QCOMPARE(supervisor->UnassociatedTicks(), 61);
    supervisor->Tick();
    QVERIFY(!supervisor->IsRunning());
    QCOMPARE(TestSupport::Journal(), QStringList());
}

void TestWpaSuppThreadSupervision::successDoesNotCallTheGivingUpOff()
{
    // The stop before this one waited for a success.
    supervisor->Supervise();
    supervisor->Stop(WpaSuppThread::STOP_GIVEN_UP);
    supervisor->Tick();
    QVERIFY(!supervisor->IsRunning());
    supplicant.reset();
    supervisor->Supervise();
    supervisor->NoteCounts(5, 60);
    // Of the sixth failure there is a new control object, and only that finds this name.
    supplicant = std::make_unique<FakeSupplicant>();
    supervisor->AimAt(QStringLiteral("/var/run/wpa_supplicant/wlan0"));
    supervisor->Tick();
    QVERIFY(supervisor->IsStopRequested() && supervisor->IsControlOpen());
    QVERIFY(supplicant->SendEvent("<3>CTRL-EVENT-CONNECTED - Connection to x completed"));

    supervisor->Tick();

    QVERIFY(!supervisor->IsRunning());
}

void TestWpaSuppThreadSupervision::reportsThePasswordWhileItGivesUp()
{
    supplicant.reset();
    supervisor->Supervise();
    supervisor->Tick(30);
    supervisor->SuspectPassword();

    supervisor->Tick();

    QVERIFY(supervisor->IsStopRequested());
    QVERIFY(TestSupport::WaitForJournal(1));
    QVERIFY(TestSupport::Journal().first().startsWith("warning 2 "));
}

void TestWpaSuppThreadSupervision::countsOnFromAnOddCount()
{
    supervisor->Supervise();
    supervisor->Tick();
    QCOMPARE(supervisor->UnassociatedTicks(), 1);
    supplicant->Die();

    // From an odd count the second count of a tick reaches the limit.
    supervisor->Tick(30);
    QCOMPARE(supervisor->UnassociatedTicks(), 61);
    QVERIFY(!supervisor->IsStopRequested());

    supervisor->Tick();
    QVERIFY(supervisor->IsStopRequested());
}

void TestWpaSuppThreadSupervision::goesOnWithoutConnectionWhileAssociated()
{
    supplicant.reset();
    supervisor->Supervise();
    supervisor->TakeForAssociated();

    for (int i = 0; i < 100; ++i) {
        supervisor->Tick();
        QVERIFY(!supervisor->IsStopRequested());
    }
}

void TestWpaSuppThreadSupervision::recreatesTheConnectionEverySixTicks()
{
    supplicant.reset();
    supervisor->Supervise();
    QList<int> ticks;

    for (int tick = 1; tick <= 30; ++tick) {
        TestSupport::ClearLog();
        supervisor->Tick();
        if (TestSupport::LogText().contains(QStringLiteral("WpaSuppThread::RestartWpaCtl \n")))
            ticks << tick;
    }

    QCOMPARE(ticks, (QList<int>{6, 12, 18, 24, 30}));
}

void TestWpaSuppThreadSupervision::forgetsTheTicksWhenAssociated()
{
    supervisor->Supervise();
    supervisor->Tick(59);
    QCOMPARE(supervisor->UnassociatedTicks(), 59);
    supervisor->TakeForAssociated();

    supervisor->Tick();

    QCOMPARE(supervisor->UnassociatedTicks(), 0);
}

void TestWpaSuppThreadSupervision::saysEverySixtyTicksThatItCannotConnect()
{
    supervisor->Supervise();
    const DebugOutput output;

    for (int i = 0; i < 2; ++i) {
        supervisor->Tick(60);
        QCOMPARE(DebugOutput::Take(), QStringList());
        supervisor->Tick();
        QCOMPARE(DebugOutput::Take(), QStringList{"wpa_supplicant can't connect to specified AP"});
    }
    QVERIFY(supervisor->IsRunning());
    QVERIFY(!supervisor->IsStopRequested());
}

void TestWpaSuppThreadSupervision::tellsNothingOfASocketThatIsLostBeforeAStop()
{
    supervisor->Supervise();
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    TestSupport::ClearLog();
    supplicant->Die();
    supervisor->OnStopSupplicant();

    supervisor->Tick();

    QCOMPARE(TestSupport::LogText(), QString());
}

void TestWpaSuppThreadSupervision::noticesALostSocketWithinTwoTicks()
{
    supervisor->Supervise();
    supervisor->TakeForAssociated();
    supervisor->Tick();
    supplicant->ClearCommands();
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);
    TestSupport::ClearLog();

    supplicant->Die();
    supervisor->Tick(2);

    QVERIFY(!supervisor->IsControlOpen());
    QVERIFY(!supervisor->IsAssociated());
    QVERIFY(supervisor->IsRunning());
    QCOMPARE(changes.size(), 0);
    QCOMPARE(TestSupport::LogText().count("Nobody answers any more"), 1);
}

void TestWpaSuppThreadSupervision::hearsWhatWasSaidBeforeTheSocketWasLost()
{
    supervisor->Supervise();
    supervisor->TakeForAssociated();
    QSignalSpy changes(supervisor.get(), &WpaSuppThread::associatedChanged);

    // A tick that waited for a busy main thread comes before the notifier.
    QVERIFY(supplicant->SendEvent("<3>CTRL-EVENT-DISCONNECTED reason=3"));
    QVERIFY(supplicant->SendEvent("<3>CTRL-EVENT-TERMINATING "));
    supplicant->Die();
    supervisor->Tick();

    QVERIFY(!supervisor->IsRunning());
    QCOMPARE(changes, (QList<QList<QVariant>>{{false}}));
}

void TestWpaSuppThreadSupervision::endsInIdleAfterALostSocket()
{
    supervisor->Supervise();
    supervisor->TakeForAssociated();
    supervisor->Tick();
    supplicant->Die();
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    TestSupport::ClearLog();

    supervisor->Tick(32);

    QVERIFY(!supervisor->IsRunning() && !supervisor->IsRestarting());
    // What an operator reads of 32 ticks: the death and the end.
    QCOMPARE(LogLineCount(), 2);
}

void TestWpaSuppThreadSupervision::staysWhenTheControlFolderIsRemoved()
{
    supervisor->Supervise();
    supervisor->TakeForAssociated();
    TestSupport::Remove(QStringLiteral("/var/run/wpa_supplicant"));
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    TestSupport::ClearLog();

    supervisor->Tick(40);

    QVERIFY(supervisor->IsControlOpen());
    QVERIFY(supervisor->IsAssociated());
    // What an operator reads of 40 ticks.
    QCOMPARE(LogLineCount(), 1);
    // So that a stop still reaches it, and no second one is started beside it.
    supervisor->Stop(WpaSuppThread::STOP_FALLBACK);
    supervisor->Tick();
    QVERIFY(supplicant->Commands().contains("TERMINATE"));
}

void TestWpaSuppThreadSupervision::survivesARefusedAttach()
{
    supplicant->SetReply("ATTACH", "FAIL\n");
    supervisor->Supervise();

    supervisor->Tick(7);
    QVERIFY(!supervisor->IsControlOpen());
    supplicant->SetReply("ATTACH", "OK\n");
    supervisor->Tick();

    QVERIFY(supervisor->IsControlOpen());
}

void TestWpaSuppThreadSupervision::stopsAfterATerminatingEvent()
{
    supervisor->Supervise();
    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-CONNECTED"));
    supplicant->Die();

    supervisor->MessageReceived(QStringLiteral("<3>CTRL-EVENT-TERMINATING "));
    QVERIFY(supervisor->IsRunning());
    supervisor->Tick();

    QVERIFY(!supervisor->IsRunning() && !supervisor->IsRestarting() && !supervisor->Control());
    QCOMPARE(TestSupport::Journal(), QStringList());
}

void TestWpaSuppThreadSupervision::journalNamesItsInterface()
{
    QVERIFY(QDir().mkpath("/run/systemd/journal"));
    ManagerSocket journal("/run/systemd/journal/socket");
    QVERIFY(journal.bound);
    supervisor->AimAt("wlan0");

    supervisor->MessageReceived("<3>CTRL-EVENT-CONNECTED - Connection to x completed");

    QCOMPARE(journal.Heard(), QByteArray("SYSLOG_IDENTIFIER=corvi\nPRIORITY=5\nINTERFACE=wlan0\n"
                                         "MESSAGE=WpaSuppThread::MessageReceived -- connected\n"));
    TestSupport::Remove("/run/systemd/journal");
}

QTEST_GUILESS_MAIN(TestWpaSuppThreadSupervision)
#include "tst_wpasuppthread_supervision.moc"
