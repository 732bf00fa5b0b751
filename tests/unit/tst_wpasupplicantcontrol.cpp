// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "controlworld.h"
#include "fakesupplicant.h"
#include "logging.h"
#include "testsupport.h"
#include "wpasupplicantcontrol.h"

#include <QSignalSpy>
#include <QSocketNotifier>
#include <QTest>

namespace {

/// Runs what waits in the event loop now.
void Deliver()
{
    QCoreApplication::processEvents();
}

} // namespace

class TestWpaSupplicantControl : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void startsClosed();
    void knowsTheControlFolder();
    void opensAndAttaches();
    void opensWlan0ForAnEmptyName();
    void logsWhenNobodyListens();
    void closesWhenAttachIsRefused();
    void opensAgainAfterARefusal();
    void leavesNothingWhenOpenedTwice();
    void detachesWhenClosed();
    void closesTwice();
    void closesWhenDestroyed();
    void closesThoughDetachIsRefused();

    void emitsEvents_data();
    void emitsEvents();
    void dropsNoise_data();
    void dropsNoise();
    void emitsUpToTheFirstZeroByte();
    void cutsLongEvents();
    void readsOneDatagramAtATime();
    void knowsWhatWaitsBehindAnEvent_data();
    void knowsWhatWaitsBehindAnEvent();
    void passesOnWhatWasOnlyLookedAt();
    void forgetsWhatWasOnlyLookedAtWhenClosed();
    void letsOthersInBetweenEventsThatFollowEachOther();
    void outlivesAClosingWhileEventsWait();
    void emitsNothingAfterClosing();
    void ignoresANotificationWithoutConnection();
    void survivesItsOwnDeletionWhileItEmits();

    void noticesADeadSupplicant();
    void leavesALiveSupplicantAlone();
    void keepsTheConnectionWhenTheNameIsGone();
    void connectsAnewWhenOurOwnNameIsGone();
    void tellsOfTheNextNameThatGoes();
    void opensToASuccessor();
    void isClosedAfterAnOpeningThatFails();
    void readsNothingWhereNothingWaits();
    void leavesNothingAfterManyOpenings();
};

void TestWpaSupplicantControl::init()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::DEBUG);
    TestSupport::ClearLog();
}

void TestWpaSupplicantControl::cleanup()
{
    QCOMPARE(LocalNames(), 0);
    TestSupport::Remove(QStringLiteral("/var/run/wpa_supplicant"));
}

void TestWpaSupplicantControl::startsClosed()
{
    FakeSupplicant supplicant;

    WpaSupplicantControl control(nullptr);

    QVERIFY(!control.isCtrlOpen());
    QCOMPARE(supplicant.Commands(), QStringList());
}

void TestWpaSupplicantControl::knowsTheControlFolder()
{
    QCOMPARE(WpaSupplicantControl::CtrlInterfaceDir, QStringLiteral("/var/run/wpa_supplicant/"));
}

void TestWpaSupplicantControl::opensAndAttaches()
{
    FakeSupplicant supplicant(QStringLiteral("eth0"));
    WpaSupplicantControl control(nullptr);

    QVERIFY(control.openControlInterface(QStringLiteral("eth0")));

    QVERIFY(control.isCtrlOpen());
    QCOMPARE(supplicant.Commands(), QStringList{"ATTACH"});
    QVERIFY(TestSupport::LogText().endsWith(
        " :  WpaSupplicantControl -- Attached to control interface at /var/run/wpa_supplicant/eth0 \n"));
}

void TestWpaSupplicantControl::opensWlan0ForAnEmptyName()
{
    FakeSupplicant supplicant(QStringLiteral("wlan0"));
    WpaSupplicantControl control(nullptr);

    QVERIFY(control.openControlInterface(QString()));

    QCOMPARE(supplicant.Commands(), QStringList{"ATTACH"});
}

void TestWpaSupplicantControl::logsWhenNobodyListens()
{
    WpaSupplicantControl control(nullptr);

    QVERIFY(!control.openControlInterface(QStringLiteral("eth0")));

    QVERIFY(!control.isCtrlOpen());
    QVERIFY(TestSupport::LogText().endsWith(" :  WpaSupplicantControl -- Failed to open control interface at "
                                            "/var/run/wpa_supplicant/eth0 \n"));
    QCOMPARE(TestSupport::LogText().count('\n'), 1);
}

void TestWpaSupplicantControl::closesWhenAttachIsRefused()
{
    FakeSupplicant supplicant;
    supplicant.SetReply("ATTACH", "FAIL\n");
    const int descriptors = TestSupport::OpenDescriptors();
    WpaSupplicantControl control(nullptr);

    QVERIFY(!control.openControlInterface(QStringLiteral("wlan0")));

    QVERIFY(!control.isCtrlOpen());
    QCOMPARE(TestSupport::OpenDescriptors(), descriptors);
    QVERIFY(TestSupport::LogText().endsWith(
        " :  WpaSupplicantControl -- Failed to attach to control interface at "
        "/var/run/wpa_supplicant/wlan0 \n"));
    // Nothing of the connection is used again.
    QCOMPARE(control.SendCommand(QStringLiteral("STATUS")), CONTROL_ERROR);
    control.closeControlInterface();
    QCOMPARE(supplicant.Commands(), QStringList{"ATTACH"});
}

void TestWpaSupplicantControl::opensAgainAfterARefusal()
{
    FakeSupplicant supplicant;
    supplicant.SetReply("ATTACH", "FAIL\n");
    WpaSupplicantControl control(nullptr);
    QVERIFY(!control.openControlInterface(QStringLiteral("wlan0")));
    supplicant.SetReply("ATTACH", "OK\n");

    QVERIFY(control.openControlInterface(QStringLiteral("wlan0")));
}

void TestWpaSupplicantControl::leavesNothingWhenOpenedTwice()
{
    FakeSupplicant supplicant;
    const int descriptors = TestSupport::OpenDescriptors();
    {
        OpenControl control;
        QVERIFY(control.openControlInterface(QStringLiteral("wlan0")));
        QCOMPARE(LocalNames(), 1);
        QCOMPARE(control.findChildren<QSocketNotifier *>().size(), 1);
    }
    QCOMPARE(TestSupport::OpenDescriptors(), descriptors);
}

void TestWpaSupplicantControl::detachesWhenClosed()
{
    FakeSupplicant supplicant;
    OpenControl control;

    control.closeControlInterface();

    QVERIFY(!control.isCtrlOpen());
    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "DETACH"}));
    QCOMPARE(control.findChildren<QSocketNotifier *>().size(), 0);
}

void TestWpaSupplicantControl::closesTwice()
{
    FakeSupplicant supplicant;
    OpenControl control;

    control.closeControlInterface();
    control.closeControlInterface();

    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "DETACH"}));
}

void TestWpaSupplicantControl::closesWhenDestroyed()
{
    FakeSupplicant supplicant;
    {
        OpenControl control;
    }
    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "DETACH"}));
}

void TestWpaSupplicantControl::closesThoughDetachIsRefused()
{
    FakeSupplicant supplicant;
    supplicant.SetReply("DETACH", "FAIL\n");
    OpenControl control;

    control.closeControlInterface();

    QVERIFY(!control.isCtrlOpen());
}

void TestWpaSupplicantControl::emitsEvents_data()
{
    QTest::addColumn<QByteArray>("event");
    for (const char *event :
         {"<3>CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:01:00 completed [id=0 id_str=]",
          "<3>CTRL-EVENT-SIGNAL-CHANGE above=1", "<3>CTRL-EVENT-REGDOM-CHANGE init=USER type=COUNTRY",
          "<3>CTRL-EVENT-REGDOM-CHANGE init=CORE type=WORLD", "IFNAME=wlan0 <3>CTRL-EVENT-SCAN-RESULTS",
          "<2>CTRL-EVENT-SCAN-RESULTS", "<4>CTRL-EVENT-BSS-ADDED 0", "CTRL-EVENT-SCAN-STARTED",
          "<3>ctrl-event-scan-started", " <3>CTRL-EVENT-BSS-ADDED", "<3>CTRL-EVENT-EAP-STARTED", "PONG\n"})
        QTest::newRow(event) << QByteArray(event);
}

void TestWpaSupplicantControl::emitsEvents()
{
    QFETCH(QByteArray, event);
    FakeSupplicant supplicant;
    OpenControl control;
    QSignalSpy events(&control, &WpaSupplicantControl::MessageReady);

    QVERIFY(supplicant.SendEvent(event));
    Deliver();

    QCOMPARE(events.size(), 1);
    QCOMPARE(events.at(0).at(0).toString(), QString::fromLatin1(event));
}

void TestWpaSupplicantControl::dropsNoise_data()
{
    QTest::addColumn<QByteArray>("event");
    for (const char *event :
         {"<3>CTRL-EVENT-BSS-ADDED 0 02:00:00:00:01:00", "<3>CTRL-EVENT-BSS-REMOVED 0",
          "<3>CTRL-EVENT-SCAN-STARTED ", "<3>CTRL-EVENT-SCAN-RESULTS ", "<3>CTRL-EVENT-SCAN-FAILED ret=-16",
          "<3>CTRL-EVENT-REGDOM-CHANGE init=BEACON_HINT type=UNKNOWN",
          "<3>CTRL-EVENT-EAP-PEER-CERT depth=0 subject='/CN=server'"})
        QTest::newRow(event) << QByteArray(event);
}

void TestWpaSupplicantControl::dropsNoise()
{
    QFETCH(QByteArray, event);
    FakeSupplicant supplicant;
    OpenControl control;
    QSignalSpy events(&control, &WpaSupplicantControl::MessageReady);

    QVERIFY(supplicant.SendEvent(event));
    QVERIFY(supplicant.SendEvent("<3>the next"));
    QTRY_COMPARE(events.size(), 1);

    QCOMPARE(events.at(0).at(0).toString(), QStringLiteral("<3>the next"));
}

void TestWpaSupplicantControl::emitsUpToTheFirstZeroByte()
{
    FakeSupplicant supplicant;
    OpenControl control;
    QSignalSpy events(&control, &WpaSupplicantControl::MessageReady);

    QVERIFY(supplicant.SendEvent(QByteArray("<3>one\0two", 10)));
    Deliver();

    QCOMPARE(events.at(0).at(0).toString(), QStringLiteral("<3>one"));
}

void TestWpaSupplicantControl::cutsLongEvents()
{
    FakeSupplicant supplicant;
    OpenControl control;
    QSignalSpy events(&control, &WpaSupplicantControl::MessageReady);

    QVERIFY(supplicant.SendEvent("<3>" + QByteArray(20000, '\xe9')));
    Deliver();

    QCOMPARE(events.at(0).at(0).toString(), "<3>" + QString(16380, QChar(0xe9)));
}

void TestWpaSupplicantControl::readsOneDatagramAtATime()
{
    FakeSupplicant supplicant;
    OpenControl control;
    QSignalSpy events(&control, &WpaSupplicantControl::MessageReady);
    QVERIFY(supplicant.SendEvent("<3>one"));
    QVERIFY(supplicant.SendEvent("<3>two"));

    QVERIFY(QMetaObject::invokeMethod(&control, "ReadMessage"));
    QCOMPARE(events.size(), 1);

    Deliver();
    QCOMPARE(events.size(), 2);
}

void TestWpaSupplicantControl::knowsWhatWaitsBehindAnEvent_data()
{
    QTest::addColumn<QByteArray>("last");
    QTest::addColumn<bool>("waits");
    QTest::newRow("the one that is asked for") << QByteArray("<3>over 1") << true;
    QTest::newRow("another one") << QByteArray("<3>its 'over' is no beginning") << false;
}

void TestWpaSupplicantControl::knowsWhatWaitsBehindAnEvent()
{
    QFETCH(QByteArray, last);
    QFETCH(bool, waits);
    FakeSupplicant supplicant;
    OpenControl control;
    QStringList heard;
    QList<bool> answers;
    connect(&control, &WpaSupplicantControl::MessageReady, &control, [&](const QString &event) {
        answers << control.IsWaiting(QStringLiteral("<3>over"));
        heard << event;
    });
    for (const QByteArray &event : {QByteArray("<3>first"), QByteArray("<3>second"), last})
        QVERIFY(supplicant.SendEvent(event));

    QTRY_COMPARE(heard, QStringList({"<3>first", "<3>second", QString::fromLatin1(last)}));
    QCOMPARE(answers, QList<bool>({waits, waits, false}));
}

/// By somebody whom no event told to ask.
void TestWpaSupplicantControl::passesOnWhatWasOnlyLookedAt()
{
    FakeSupplicant supplicant;
    OpenControl control;
    const QSignalSpy events(&control, &WpaSupplicantControl::MessageReady);
    QVERIFY(supplicant.SendEvent("<3>one"));
    QVERIFY(supplicant.SendEvent("<3>two"));

    QVERIFY(control.IsWaiting(QStringLiteral("<3>two")));
    QCOMPARE(events.size(), 0);
    Deliver();

    QCOMPARE(events.size(), 2);
}

void TestWpaSupplicantControl::forgetsWhatWasOnlyLookedAtWhenClosed()
{
    FakeSupplicant supplicant;
    OpenControl control;
    const QSignalSpy events(&control, &WpaSupplicantControl::MessageReady);
    QVERIFY(supplicant.SendEvent("<3>of the one before"));
    QVERIFY(control.IsWaiting(QStringLiteral("<3>of")));

    QVERIFY(control.openControlInterface(QStringLiteral("wlan0")));
    Deliver();

    QCOMPARE(events.size(), 0);
}

/// As the ticks.
void TestWpaSupplicantControl::letsOthersInBetweenEventsThatFollowEachOther()
{
    FakeSupplicant supplicant;
    OpenControl control;
    int heard = 0;
    connect(&control, &WpaSupplicantControl::MessageReady, &control, [&] {
        if (++heard < 20)
            QVERIFY(supplicant.SendEvent("<3>next"));
        control.IsWaiting(QStringLiteral("<3>next"));
    });
    QVERIFY(supplicant.SendEvent("<3>first"));

    control.ReadWaiting();

    QCOMPARE(heard, 1);
    QTRY_COMPARE(heard, 20);
}

void TestWpaSupplicantControl::outlivesAClosingWhileEventsWait()
{
    FakeSupplicant supplicant;
    OpenControl control;
    const QSignalSpy events(&control, &WpaSupplicantControl::MessageReady);
    connect(&control, &WpaSupplicantControl::MessageReady, &control, [&] { control.Disconnect(); });
    QVERIFY(supplicant.SendEvent("<3>first"));
    QVERIFY(supplicant.SendEvent("<3>second"));

    control.ReadWaiting();

    QCOMPARE(events.size(), 1);
}

void TestWpaSupplicantControl::emitsNothingAfterClosing()
{
    FakeSupplicant supplicant;
    OpenControl control;
    QSignalSpy events(&control, &WpaSupplicantControl::MessageReady);
    QVERIFY(supplicant.SendEvent("<3>one"));

    control.closeControlInterface();
    Deliver();

    QCOMPARE(events.size(), 0);
}

void TestWpaSupplicantControl::ignoresANotificationWithoutConnection()
{
    WpaSupplicantControl control(nullptr);
    QSignalSpy events(&control, &WpaSupplicantControl::MessageReady);

    QVERIFY(QMetaObject::invokeMethod(&control, "ReadMessage"));

    QCOMPARE(events.size(), 0);
}

void TestWpaSupplicantControl::survivesItsOwnDeletionWhileItEmits()
{
    FakeSupplicant supplicant;
    auto *control = new WpaSupplicantControl(nullptr);
    QSignalSpy destroyed(control, &QObject::destroyed);
    QVERIFY(control->openControlInterface(QStringLiteral("wlan0")));
    connect(control, &WpaSupplicantControl::MessageReady, control, &QObject::deleteLater);

    QVERIFY(supplicant.SendEvent("<3>one"));

    QTRY_COMPARE(destroyed.size(), 1);
    QCOMPARE(supplicant.Commands().last(), QStringLiteral("DETACH"));
}

void TestWpaSupplicantControl::noticesADeadSupplicant()
{
    FakeSupplicant supplicant;
    const int descriptors = TestSupport::OpenDescriptors();
    OpenControl control;
    supplicant.Die();
    TestSupport::ClearLog();

    for (int i = 0; i < 2; ++i)
        QVERIFY(!control.CheckPeer());

    QVERIFY(!control.isCtrlOpen());
    // The supplicant's own descriptor is gone, too.
    QCOMPARE(TestSupport::OpenDescriptors(), descriptors - 1);
    QCOMPARE(LocalNames(), 0);
    QCOMPARE(TestSupport::LogText().count('\n'), 1);
    QVERIFY(TestSupport::LogText().contains("Nobody answers any more at /var/run/wpa_supplicant/wlan0"));
}

void TestWpaSupplicantControl::leavesALiveSupplicantAlone()
{
    FakeSupplicant supplicant;
    WpaSupplicantControl control(nullptr);
    control.CheckPeer();
    QVERIFY(control.openControlInterface(QStringLiteral("wlan0")));
    TestSupport::ClearLog();

    for (int i = 0; i < 10; ++i)
        QVERIFY(!control.CheckPeer());

    QVERIFY(control.isCtrlOpen());
    QCOMPARE(control.SendCommand(QStringLiteral("PING")), QStringLiteral("OK\n"));
    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "PING"}));
    QCOMPARE(TestSupport::LogText(), QString());
}

void TestWpaSupplicantControl::keepsTheConnectionWhenTheNameIsGone()
{
    FakeSupplicant supplicant;
    OpenControl control;
    TestSupport::Remove(QStringLiteral("/var/run/wpa_supplicant"));
    TestSupport::ClearLog();
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);

    for (int i = 0; i < 10; ++i)
        QVERIFY(!control.CheckPeer());

    QVERIFY(control.isCtrlOpen());
    QCOMPARE(control.SendCommand(QStringLiteral("TERMINATE")), QStringLiteral("OK\n"));
    // Told once.
    QCOMPARE(TestSupport::LogText().count('\n'), 1);
    QVERIFY(
        TestSupport::LogText().contains("WpaSupplicantControl -- The name is gone, the connection goes on "
                                        "at /var/run/wpa_supplicant/wlan0 \n"));
}

void TestWpaSupplicantControl::connectsAnewWhenOurOwnNameIsGone()
{
    FakeSupplicant supplicant;
    OpenControl control;
    const QSignalSpy messages(&control, &WpaSupplicantControl::MessageReady);
    const QStringList names =
        QDir(QStringLiteral("/tmp")).entryList({QStringLiteral("wpa_ctrl_*")}, QDir::System);
    QCOMPARE(names.size(), 1);
    QVERIFY(supplicant.SendEvent("<3>said before"));
    TestSupport::Remove(QStringLiteral("/tmp/") + names.first());
    TestSupport::ClearLog();
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);

    for (int i = 0; i < 10; ++i)
        control.CheckPeer();

    QVERIFY(control.isCtrlOpen());
    QCOMPARE(LocalNames(), 1);
    QVERIFY(supplicant.SendEvent("<3>CTRL-EVENT-CONNECTED"));
    QTRY_COMPARE_WITH_TIMEOUT(messages.count(), 2, 60000);
    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "ATTACH"}));
    QCOMPARE(TestSupport::LogText().count('\n'), 1);
    QVERIFY(
        TestSupport::LogText().contains("WpaSupplicantControl -- Our own name is gone, connecting anew at "
                                        "/var/run/wpa_supplicant/wlan0 \n"));
}

void TestWpaSupplicantControl::tellsOfTheNextNameThatGoes()
{
    WpaSupplicantControl control(nullptr);
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);

    for (int i = 0; i < 2; ++i) {
        FakeSupplicant supplicant;
        QVERIFY(control.openControlInterface(QStringLiteral("wlan0")));
        TestSupport::Remove(QStringLiteral("/var/run/wpa_supplicant"));
        control.CheckPeer();
        control.closeControlInterface();
    }

    QCOMPARE(TestSupport::LogText().count(QStringLiteral("The name is gone")), 2);
}

void TestWpaSupplicantControl::opensToASuccessor()
{
    FakeSupplicant first;
    OpenControl control;
    first.Die();
    FakeSupplicant second;

    control.CheckPeer();
    QVERIFY(!control.isCtrlOpen());
    QVERIFY(control.openControlInterface(QStringLiteral("wlan0")));

    QCOMPARE(second.Commands(), QStringList{"ATTACH"});
}

void TestWpaSupplicantControl::isClosedAfterAnOpeningThatFails()
{
    FakeSupplicant supplicant;
    OpenControl control;
    supplicant.Die();

    QVERIFY(!control.openControlInterface(QStringLiteral("wlan0")));

    QVERIFY(!control.isCtrlOpen());
}

void TestWpaSupplicantControl::readsNothingWhereNothingWaits()
{
    FakeSupplicant supplicant;
    OpenControl control;
    QSignalSpy messages(&control, &WpaSupplicantControl::MessageReady);
    TestSupport::ClearLog();

    QVERIFY(QMetaObject::invokeMethod(&control, "ReadMessage"));

    QCOMPARE(messages.size(), 0);
    QCOMPARE(TestSupport::LogText(), QString());
    QVERIFY(control.isCtrlOpen());
}

void TestWpaSupplicantControl::leavesNothingAfterManyOpenings()
{
    FakeSupplicant supplicant;
    const int descriptors = TestSupport::OpenDescriptors();
    for (int i = 0; i < 200; ++i) {
        OpenControl control;
    }

    QCOMPARE(TestSupport::OpenDescriptors(), descriptors);
    QCOMPARE(LocalNames(), 0);
}

QTEST_GUILESS_MAIN(TestWpaSupplicantControl)
#include "tst_wpasupplicantcontrol.moc"
