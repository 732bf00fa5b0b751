// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "fastclock.h"
#include "supervisorworld.h"

#include <QDir>
#include <QTest>

namespace {

using namespace std::chrono_literals;

const QByteArray CONNECTED = "<3>CTRL-EVENT-CONNECTED - Connection to x completed";
const QByteArray DISCONNECTED = "<3>CTRL-EVENT-DISCONNECTED reason=3";
const QByteArray EAP_FAILURE = "<3>CTRL-EVENT-EAP-FAILURE EAP authentication failed";
const QByteArray EAP_SUCCESS = "<3>CTRL-EVENT-EAP-SUCCESS EAP authentication completed successfully";

} // namespace

/// A connection whose event the supervisor has missed, where the status does not tell of it at once.
class TestWpaSuppThreadMissed : public QObject, private SupervisedSupplicant
{
    Q_OBJECT
private slots:
    void init() { Make(); }
    void cleanup() { End(); }

    void takesUpNoSuccessBeforeTheStatusSaysIt();
    void asksUntilTheStatusSaysIt();
    void asksAfterGrowingPauses();
    void takenUpSuccessCallsOffNoLaterStop();
    void lastOfTheDroppedEventsCounts_data();
    void lastOfTheDroppedEventsCounts();
    void successAfterAFailureCounts_data();
    void successAfterAFailureCounts();
    void stateOnTheWayIsAskedAgain_data();
    void stateOnTheWayIsAskedAgain();
    void reauthenticationCallsOffAStop();
    void endThatCameWithoutAConnectionIsTakenUp();
    void endThatIsOverIsNotTakenUp();
    void successThatFoundNoRoomIsTakenUp_data();
    void successThatFoundNoRoomIsTakenUp();

private:
    /// What the supplicant says until then is lost.
    static void LoseOurName();
    int Asked() const { return static_cast<int>(supplicant->Commands().count(QStringLiteral("STATUS"))); }
};

void TestWpaSuppThreadMissed::LoseOurName()
{
    const QStringList names =
        QDir(QStringLiteral("/tmp")).entryList({QStringLiteral("wpa_ctrl_*")}, QDir::System);
    QCOMPARE(names.size(), 1);
    TestSupport::Remove(QStringLiteral("/tmp/") + names.first());
}

/// What was known is of before.
void TestWpaSuppThreadMissed::takesUpNoSuccessBeforeTheStatusSaysIt()
{
    supervisor->Supervise();
    supervisor->TakeForAssociated();
    supplicant->SetReply("STATUS", "FAIL\n");
    LoseOurName();

    supervisor->Tick(2);

    QCOMPARE(Asked(), 1);
    QVERIFY(!supervisor->TakeMissedSuccess());
}

void TestWpaSuppThreadMissed::asksUntilTheStatusSaysIt()
{
    supervisor->Supervise();
    supplicant->SetReply("STATUS", "FAIL\n");
    LoseOurName();
    supervisor->Tick();
    supplicant->SetReply("STATUS", "wpa_state=COMPLETED\n");

    FastClock::Advance(10s);
    supervisor->Tick();

    QVERIFY(supervisor->TakeMissedSuccess());
    // Nothing is left to ask.
    FastClock::Advance(60s);
    supervisor->Tick(3);
    QCOMPARE(Asked(), 2);
}

/// Each question that nobody answers keeps the service for 10 s.
void TestWpaSuppThreadMissed::asksAfterGrowingPauses()
{
    supervisor->Supervise();
    supplicant->SetReply("STATUS", "FAIL\n");
    LoseOurName();
    supervisor->Tick();

    int asked = 1;
    for (const auto pause : {10s, 20s, 40s, 60s, 60s}) {
        FastClock::Advance(pause / 2);
        supervisor->Tick();
        QCOMPARE(Asked(), asked);
        FastClock::Advance(pause / 2);
        supervisor->Tick();
        QCOMPARE(Asked(), ++asked);
    }
}

void TestWpaSuppThreadMissed::takenUpSuccessCallsOffNoLaterStop()
{
    supervisor->Supervise();
    supplicant->SetReply("STATUS", "wpa_state=COMPLETED\n");
    LoseOurName();
    supervisor->Tick();
    QVERIFY(supervisor->TakeMissedSuccess());

    supervisor->Stop(WpaSuppThread::STOP_GIVEN_UP);
    QVERIFY(!supervisor->TakeMissedSuccess());
    supervisor->Tick();

    QVERIFY(supplicant->Commands().contains("TERMINATE"));
}

void TestWpaSuppThreadMissed::lastOfTheDroppedEventsCounts_data()
{
    QTest::addColumn<QList<QByteArray>>("dropped");
    QTest::addColumn<QByteArray>("status");
    QTest::addColumn<bool>("wasTold");
    QTest::addColumn<bool>("associated");
    QTest::addColumn<bool>("success");
    QTest::addColumn<bool>("end");
    const QByteArray completed = "wpa_state=COMPLETED\n";
    const QByteArray scanning = "wpa_state=SCANNING\n";
    QTest::newRow("came and went") << QList<QByteArray>{CONNECTED, DISCONNECTED} << scanning << false << false
                                   << false << false;
    QTest::newRow("went") << QList<QByteArray>{DISCONNECTED} << scanning << true << false << false << true;
    QTest::newRow("went and came") << QList<QByteArray>{DISCONNECTED, CONNECTED} << completed << true << true
                                   << true << false;
    QTest::newRow("came once more") << QList<QByteArray>{CONNECTED} << completed << true << true << false
                                    << false;
    QTest::newRow("came once more and gets new keys")
        << QList<QByteArray>{CONNECTED} << QByteArray("wpa_state=GROUP_HANDSHAKE\n") << true << false << false
        << false;
}

void TestWpaSuppThreadMissed::lastOfTheDroppedEventsCounts()
{
    QFETCH(QList<QByteArray>, dropped);
    QFETCH(QByteArray, status);
    QFETCH(bool, wasTold);
    supervisor->Supervise();
    if (wasTold)
        supervisor->MessageReceived(QString::fromLatin1(CONNECTED));
    FakeSupplicant::Answer answer;
    answer.eventsFirst = dropped;
    supplicant->SetAnswer("RECONFIGURE", answer);
    supplicant->SetReply("STATUS", status);

    supervisor->Reconfigure();
    supervisor->Tick(3);

    QCOMPARE(Asked(), 1);
    QTEST(supervisor->IsAssociated(), "associated");
    QTEST(supervisor->TakeMissedSuccess(), "success");
    QTEST(supervisor->TakeMissedEnd(), "end");
    QVERIFY(!supervisor->TakeMissedEnd()); // It is told once.
}

/// A radio that roams, or gets new keys, is between two states of one connection.
void TestWpaSuppThreadMissed::stateOnTheWayIsAskedAgain_data()
{
    QTest::addColumn<QString>("driver");
    QTest::addColumn<QByteArray>("state");
    QTest::addColumn<bool>("isEnd");
    const QString radio = QStringLiteral("nl80211,wext");
    for (const char *const state :
         {"AUTHENTICATING", "ASSOCIATING", "ASSOCIATED", "4WAY_HANDSHAKE", "GROUP_HANDSHAKE"})
        QTest::newRow(state) << radio << QByteArray(state) << false;
    for (const char *const state : {"DISCONNECTED", "INACTIVE", "SCANNING", "INTERFACE_DISABLED"})
        QTest::newRow(state) << radio << QByteArray(state) << true;
    QTest::newRow("cable") << QStringLiteral("wired") << QByteArray("ASSOCIATED") << true;
}

void TestWpaSuppThreadMissed::stateOnTheWayIsAskedAgain()
{
    QFETCH(QString, driver);
    QFETCH(QByteArray, state);
    supervisor->Supervise(QStringLiteral("wlan0"), driver);
    supervisor->MessageReceived(QString::fromLatin1(CONNECTED));
    supplicant->SetReply("STATUS", "wpa_state=" + state + '\n');
    LoseOurName();

    supervisor->Tick(2);

    QTEST(supervisor->TakeMissedEnd(), "isEnd");
    FastClock::Advance(10s);
    supplicant->SetReply("STATUS", "wpa_state=COMPLETED\n");
    supervisor->Tick(2);
    QFETCH(bool, isEnd);
    QCOMPARE(supervisor->IsAssociated(), !isEnd);
    QVERIFY(!supervisor->TakeMissedSuccess()); // It was told.
}

void TestWpaSuppThreadMissed::reauthenticationCallsOffAStop()
{
    supervisor->Supervise(QStringLiteral("wlan0"), QStringLiteral("wired"));
    supervisor->MessageReceived(QString::fromLatin1(CONNECTED));
    supervisor->MessageReceived(QString::fromLatin1(EAP_FAILURE));
    supervisor->Stop(WpaSuppThread::STOP_FALLBACK);

    supervisor->MessageReceived(QString::fromLatin1(EAP_SUCCESS));
    supervisor->Tick();

    QVERIFY(!supplicant->Commands().contains("TERMINATE"));
    QVERIFY(supervisor->IsAssociated());
}

void TestWpaSuppThreadMissed::endThatCameWithoutAConnectionIsTakenUp()
{
    supervisor->Supervise();
    supervisor->MessageReceived(QString::fromLatin1(CONNECTED));
    supplicant->SetReply("STATUS", "wpa_state=SCANNING\n");
    LoseOurName();

    supervisor->Tick(2);

    QVERIFY(supervisor->TakeMissedEnd());
    QCOMPARE(TestSupport::LogText().count("MessageReceived -- disconnected"), 1);
    // What comes after it is news.
    supplicant->SetReply("STATUS", "wpa_state=COMPLETED\n");
    LoseOurName();
    supervisor->Tick(2);
    QVERIFY(supervisor->TakeMissedSuccess());
}

/// Here the next success is heard before the end is taken up.
void TestWpaSuppThreadMissed::endThatIsOverIsNotTakenUp()
{
    supervisor->Supervise();
    supervisor->MessageReceived(QString::fromLatin1(CONNECTED));
    supplicant->SetReply("STATUS", "wpa_state=SCANNING\n");
    LoseOurName();
    supervisor->Tick(2);

    QVERIFY(supplicant->SendEvent(CONNECTED));

    QVERIFY(!supervisor->TakeMissedEnd());
    QVERIFY(supervisor->IsAssociated());
}

/// While the service was busy: the queue of its socket holds ten words, where nobody has widened it.
void TestWpaSuppThreadMissed::successThatFoundNoRoomIsTakenUp_data()
{
    QTest::addColumn<QList<QByteArray>>("events");
    QTest::newRow("after an end") << QList<QByteArray>{DISCONNECTED};
    QTest::newRow("after the way to it") << QList<QByteArray>{DISCONNECTED, "<3>CTRL-EVENT-EAP-STARTED"};
}

void TestWpaSuppThreadMissed::successThatFoundNoRoomIsTakenUp()
{
    QFETCH(QList<QByteArray>, events);
    supervisor->Supervise();
    supplicant->SetReply("STATUS", "wpa_state=COMPLETED\n");
    for (const QByteArray &event : qAsConst(events))
        QVERIFY(supplicant->SendEvent(event));
    QVERIFY(supervisor->IsEndUnread());

    supervisor->HearUnread();
    supervisor->Tick(4);
    QVERIFY(!supervisor->TakeMissedSuccess());
    supervisor->Tick(2);

    QVERIFY(supervisor->TakeMissedSuccess());
    QCOMPARE(Asked(), 1);
    // One that comes alone is heard.
    supervisor->MessageReceived(QString::fromLatin1(DISCONNECTED));
    supervisor->Tick(10);
    QCOMPARE(Asked(), 1);
}

/// A wired supplicant says only once that it is connected, and stays so for itself when the authentication
/// fails later on.
void TestWpaSuppThreadMissed::successAfterAFailureCounts_data()
{
    QTest::addColumn<QString>("driver");
    QTest::addColumn<QList<QByteArray>>("events");
    QTest::addColumn<bool>("associated");
    QTest::addColumn<bool>("expected");
    const QString wired = QStringLiteral("wired");
    const QString radio = QStringLiteral("nl80211,wext");
    QTest::newRow("after a failure") << wired << QList<QByteArray>{CONNECTED, EAP_FAILURE, EAP_SUCCESS}
                                     << true << true;
    QTest::newRow("that is told itself")
        << wired << QList<QByteArray>{CONNECTED, EAP_FAILURE, EAP_SUCCESS, CONNECTED} << true << false;
    QTest::newRow("after another failure")
        << wired << QList<QByteArray>{CONNECTED, EAP_FAILURE, EAP_SUCCESS, EAP_FAILURE, EAP_SUCCESS} << true
        << true;
    QTest::newRow("after a success") << wired << QList<QByteArray>{CONNECTED, EAP_SUCCESS} << true << false;
    QTest::newRow("before the first connection")
        << wired << QList<QByteArray>{EAP_FAILURE, EAP_SUCCESS} << false << false;
    QTest::newRow("after the end of the connection")
        << wired << QList<QByteArray>{CONNECTED, DISCONNECTED, EAP_SUCCESS} << false << false;
    // The exchange of keys is still to come.
    QTest::newRow("of a radio") << radio << QList<QByteArray>{CONNECTED, EAP_FAILURE, EAP_SUCCESS} << false
                                << false;
}

void TestWpaSuppThreadMissed::successAfterAFailureCounts()
{
    QFETCH(QString, driver);
    QFETCH(QList<QByteArray>, events);
    supervisor->Supervise(QStringLiteral("wlan0"), driver);

    for (const QByteArray &event : qAsConst(events))
        supervisor->MessageReceived(QString::fromLatin1(event));

    QTEST(supervisor->IsAssociated(), "associated");
    QTEST(supervisor->TakeMissedSuccess(), "expected");
    QVERIFY(!supervisor->TakeMissedSuccess());
}

QTEST_GUILESS_MAIN(TestWpaSuppThreadMissed)
#include "tst_wpasuppthread_missed.moc"
