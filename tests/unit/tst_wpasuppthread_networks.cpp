// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "supervisorworld.h"

#include <QTest>

namespace {

const QString CONNECTED = QStringLiteral("<3>CTRL-EVENT-CONNECTED - Connection to x completed");
const QString DISCONNECTED = QStringLiteral("<3>CTRL-EVENT-DISCONNECTED reason=3 locally_generated=1");
const QByteArray HEADING = "network id / ssid / bssid / flags\n";
const QByteArray TWO = HEADING + "0\toffice\tany\t[CURRENT]\n1\tannex\tany\t\n";

const QString LIST = QStringLiteral("LIST_NETWORKS");
const QString ENABLE_ALL = QStringLiteral("ENABLE_NETWORK all");
const QString LEAVE_OFFICE = QStringLiteral("DISABLE_NETWORK 0");

} // namespace

/// Which of the networks in its file a radio's supplicant uses.
class TestWpaSuppThreadNetworks : public QObject, private SupervisedSupplicant
{
    Q_OBJECT
private slots:
    void init() { Make(); }
    void cleanup() { End(); }

    void networkIsLeftForAnother_data();
    void networkIsLeftForAnother();
    void departureIsTold();
    void networkThatIsNotLeftIsNotTold();
    void anotherNetworkThatLetUsInUnheardIsNotLeft();
    void whoeverIsNotInANetworkLeavesNone_data();
    void whoeverIsNotInANetworkLeavesNone();
    void leftNetworksAreTakenBackWhenNobodyElseLetsUsIn();
    void ticksThatWereHeldUpAreNoTime();
    void nextSupplicantHasLeftNone();
    void leftNetworksStayLeftWhileAnotherServes();
    void leftNetworksAreTakenBackWhenNobodyElseKeepsUs();
    void leftNetworksThatStayLeftAreTakenBackLater();

private:
    void Connect();
    QStringList SentAfterStatus() const;
};

/// Connected to the first of two networks.
void TestWpaSuppThreadNetworks::Connect()
{
    supplicant->SetReply("LIST_NETWORKS", TWO);
    supervisor->Supervise();
    supervisor->MessageReceived(CONNECTED);
    supplicant->ClearCommands();
}

QStringList TestWpaSuppThreadNetworks::SentAfterStatus() const
{
    QStringList commands = supplicant->Commands();
    commands.removeAll(QStringLiteral("STATUS"));
    return commands;
}

void TestWpaSuppThreadNetworks::networkIsLeftForAnother_data()
{
    QTest::addColumn<QByteArray>("networks");
    QTest::addColumn<QStringList>("commands");
    const QByteArray office = HEADING + "0\toffice\tany\t[CURRENT]\n";
    QTest::newRow("another one") << TWO << QStringList{LIST, LEAVE_OFFICE};
    QTest::newRow("the last of the list")
        << HEADING + "0\toffice\tany\t\n12\tannex\tany\t[CURRENT][P2P-PERSISTENT]\n"
        << QStringList{LIST, QStringLiteral("DISABLE_NETWORK 12")};
    QTest::newRow("a third one is not left yet") << office + "1\tannex\tany\t[DISABLED]\n2\tguests\tany\t\n"
                                                 << QStringList{LIST, LEAVE_OFFICE};
    QTest::newRow("all others are left") << office + "1\tannex\tany\t[DISABLED]\n2\tguests\tany\t[DISABLED]\n"
                                         << QStringList{LIST, ENABLE_ALL, LEAVE_OFFICE};
    QTest::newRow("two definitions of it")
        << office + "1\toffice\tany\t\n2\tannex\tany\t\n"
        << QStringList{LIST, QStringLiteral("DISABLE_NETWORK 1"), LEAVE_OFFICE};
    QTest::newRow("another definition of it alone") << office + "1\toffice\tany\t\n" << QStringList{LIST};
    QTest::newRow("the supplicant pauses the other one") << office + "1\tannex\tany\t[TEMP-DISABLED]\n"
                                                         << QStringList{LIST, LEAVE_OFFICE};
    QTest::newRow("a name with a tab") << HEADING + "0\tthe\\toffice\tany\t[CURRENT]\n1\tannex\tany\t\n"
                                       << QStringList{LIST, LEAVE_OFFICE};
    QTest::newRow("no other one") << office << QStringList{LIST};
    QTest::newRow("not the supplicant's") << HEADING + "0\toffice\tany\t\n1\tannex\tany\t\n"
                                          << QStringList{LIST};
    QTest::newRow("no list") << QByteArray("FAIL\n") << QStringList{LIST};
}

void TestWpaSuppThreadNetworks::networkIsLeftForAnother()
{
    QFETCH(QByteArray, networks);
    QFETCH(QStringList, commands);
    Connect();
    supplicant->SetReply("LIST_NETWORKS", networks);

    QCOMPARE(supervisor->LeaveNetwork(), commands.size() > 1);

    QCOMPARE(supplicant->Commands(), commands);
}

void TestWpaSuppThreadNetworks::departureIsTold()
{
    Connect();
    supplicant->SetReply("LIST_NETWORKS", HEADING + "0\tcaf\\xc3\\xa9\tany\t[CURRENT]\n1\tannex\tany\t\n");

    supervisor->LeaveNetwork();

    QCOMPARE(TestSupport::LogText().count(QString::fromUtf8(
                 "No address is to be had from the network café on wlan0 - trying another")),
             1);
}

void TestWpaSuppThreadNetworks::networkThatIsNotLeftIsNotTold()
{
    Connect();
    supplicant->SetReply("DISABLE_NETWORK 0", "FAIL\n");

    QVERIFY(!supervisor->LeaveNetwork());

    QVERIFY(!TestSupport::LogText().contains(QStringLiteral("No address is to be had")));
}

/// The one that gave no address has gone, and what told of it is not read yet.
void TestWpaSuppThreadNetworks::anotherNetworkThatLetUsInUnheardIsNotLeft()
{
    Connect();
    FakeSupplicant::Answer answer;
    answer.eventsFirst = {DISCONNECTED.toLatin1(), CONNECTED.toLatin1()};
    answer.reply = HEADING + "0\toffice\tany\t\n1\tannex\tany\t[CURRENT]\n";
    supplicant->SetAnswer("LIST_NETWORKS", answer);

    QVERIFY(!supervisor->LeaveNetwork());

    QCOMPARE(supplicant->Commands(), QStringList{LIST});
}

void TestWpaSuppThreadNetworks::whoeverIsNotInANetworkLeavesNone_data()
{
    QTest::addColumn<QString>("driver");
    QTest::addColumn<bool>("isConnected");
    QTest::newRow("a cable") << QStringLiteral("wired") << true;
    QTest::newRow("not connected") << QStringLiteral("nl80211,wext") << false;
}

void TestWpaSuppThreadNetworks::whoeverIsNotInANetworkLeavesNone()
{
    QFETCH(QString, driver);
    QFETCH(bool, isConnected);
    supplicant->SetReply("LIST_NETWORKS", TWO);
    supervisor->Supervise(QStringLiteral("wlan0"), driver);
    if (isConnected)
        supervisor->MessageReceived(CONNECTED);
    supplicant->ClearCommands();

    QVERIFY(!supervisor->LeaveNetwork());

    QVERIFY(!supplicant->Commands().contains(LIST));
}

void TestWpaSuppThreadNetworks::leftNetworksAreTakenBackWhenNobodyElseLetsUsIn()
{
    Connect();
    supervisor->LeaveNetwork();
    supervisor->MessageReceived(DISCONNECTED);
    supplicant->ClearCommands();

    supervisor->Tick(29);
    QCOMPARE(SentAfterStatus(), QStringList());
    supervisor->Tick();
    QCOMPARE(SentAfterStatus(), QStringList{ENABLE_ALL});
    supervisor->Tick(100); // Once.
    QCOMPARE(SentAfterStatus(), QStringList{ENABLE_ALL});
}

void TestWpaSuppThreadNetworks::ticksThatWereHeldUpAreNoTime()
{
    Connect();
    supervisor->LeaveNetwork();
    supervisor->MessageReceived(DISCONNECTED);

    supervisor->LagBehind(2);
    supervisor->Tick(100);

    QVERIFY(!supplicant->Commands().contains(ENABLE_ALL));
}

void TestWpaSuppThreadNetworks::nextSupplicantHasLeftNone()
{
    Connect();
    supervisor->LeaveNetwork();
    supervisor->MessageReceived(DISCONNECTED);
    supervisor->Tick(20);

    supervisor->ExpectSupplicant();
    supervisor->Tick(100);
    QVERIFY(!supplicant->Commands().contains(ENABLE_ALL));

    // And what it leaves has the whole time.
    supervisor->MessageReceived(CONNECTED);
    supervisor->LeaveNetwork();
    supervisor->MessageReceived(DISCONNECTED);
    supervisor->Tick(29);
    QVERIFY(!supplicant->Commands().contains(ENABLE_ALL));
}

void TestWpaSuppThreadNetworks::leftNetworksStayLeftWhileAnotherServes()
{
    Connect();
    supervisor->LeaveNetwork();
    supervisor->MessageReceived(DISCONNECTED);
    supervisor->Tick(29);
    supervisor->MessageReceived(CONNECTED);
    supplicant->ClearCommands();

    supervisor->Tick(100);
    QCOMPARE(SentAfterStatus(), QStringList());

    supervisor->MessageReceived(DISCONNECTED);
    supervisor->Tick(29);
    QCOMPARE(SentAfterStatus(), QStringList());
    supervisor->Tick();
    QCOMPARE(SentAfterStatus(), QStringList{ENABLE_ALL});
}

void TestWpaSuppThreadNetworks::leftNetworksAreTakenBackWhenNobodyElseKeepsUs()
{
    Connect();
    supervisor->LeaveNetwork();
    supplicant->ClearCommands();
    for (int turn = 0; turn < 3; ++turn) {
        QCOMPARE(SentAfterStatus(), QStringList());
        supervisor->MessageReceived(CONNECTED);
        supervisor->Tick(30);
        supervisor->MessageReceived(DISCONNECTED);
        supervisor->Tick(10);
    }
    QCOMPARE(SentAfterStatus(), QStringList{ENABLE_ALL});
}

void TestWpaSuppThreadNetworks::leftNetworksThatStayLeftAreTakenBackLater()
{
    Connect();
    supervisor->LeaveNetwork();
    supervisor->MessageReceived(DISCONNECTED);
    supplicant->SetReply("ENABLE_NETWORK all", "FAIL\n");
    supplicant->ClearCommands();

    supervisor->Tick(59);
    QCOMPARE(SentAfterStatus(), QStringList{ENABLE_ALL});
    supervisor->Tick();

    QCOMPARE(SentAfterStatus(), QStringList({ENABLE_ALL, ENABLE_ALL}));
}

QTEST_GUILESS_MAIN(TestWpaSuppThreadNetworks)
#include "tst_wpasuppthread_networks.moc"
