// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wpactrl.h"

#include "ctrlconnection.h"
#include "fakesupplicant.h"
#include "resourcelimit.h"
#include "testsupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>

#include <atomic>
#include <chrono>
#include <csignal>
#include <memory>
#include <thread>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

struct Reply
{
    int result;
    QByteArray text;
};

Reply Request(const Ctrl &ctrl, const QByteArray &command, size_t room = 4096,
              WpaCtrlMessageCallback callback = nullptr)
{
    QByteArray buffer(static_cast<int>(room), '\0');
    size_t length = room;
    const int result = wpa_ctrl_request(ctrl.get(), command.constData(), static_cast<size_t>(command.size()),
                                        buffer.data(), &length, callback);
    if (result != 0)
        return {result, QByteArray()};
    return {result, buffer.left(static_cast<int>(length))};
}

QList<QByteArray> seenEvents;
void RememberEvent(char *message, size_t length)
{
    // Terminated in place: the text ends where the length says.
    seenEvents.append(QByteArray(message));
    QCOMPARE(size_t(seenEvents.last().size()), length);
}

} // namespace

class TestWpaCtrl : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void returnsTheReply_data();
    void returnsTheReply();
    void cutsALongReply();
    void dropsEventsBeforeTheReply();
    void handsEventsToTheCallback();
    void terminatesAnEventThatFillsTheBuffer();
    void survivesAFloodOfEvents();
    void waitsAfreshAfterAnInterruption();
    void waitsAfreshAfterAnEvent();
    void sendsOnceThereIsRoom();
    void pausesAWholeSecondInSpiteOfSignals();
    void returnsAnErrorOfTheWait();
    void returnsAnErrorOfTheReceive();
    void failsAtOnceWhenThePeerIsGone();
    void endsTheWaitWhenThePeerDies();

    void attaches_data();
    void attaches();
    void attachesBehindEvents_data();
    void attachesBehindEvents();
    void detaches_data();
    void detaches();
    void receivesWithoutWaiting();

    void seesAPeerAlive();
    void keepsWaitingDatagramsWhenItLooks();
    void seesADeadPeer();
    void isNotFooledByASuccessor();
    void seesAPeerWhoseNameWasRemoved();
    void sendsNothingToLook();
    void seesTheLifeOfAnAbstractPeer();
    void namesTheProcessThatReplies();
    void namesTheProcessOfAnEmptyReply();
};

void TestWpaCtrl::init()
{
    seenEvents.clear();
}

void TestWpaCtrl::cleanup()
{
    QCOMPARE(LocalNames(), QStringList());
    TestSupport::Remove(QStringLiteral("/var/run/wpa_supplicant"));
}

void TestWpaCtrl::returnsTheReply_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("plain") << QByteArray("PONG\n");
    QTest::newRow("empty datagram") << QByteArray("");
    QTest::newRow("with a zero byte") << QByteArray("a\0b", 3);
    QTest::newRow("six bytes like an event's prefix") << QByteArray("IFNAME");
    QTest::newRow("event mark inside") << QByteArray("x<3>");
}

void TestWpaCtrl::returnsTheReply()
{
    QFETCH(QByteArray, reply);
    FakeSupplicant supplicant;
    supplicant.SetReply("PING", reply);
    const Ctrl ctrl = Open();

    const Reply got = Request(ctrl, "PING");

    QCOMPARE(got.result, 0);
    QCOMPARE(got.text, reply);
    QCOMPARE(supplicant.Commands(), QStringList{"PING"});
}

void TestWpaCtrl::cutsALongReply()
{
    FakeSupplicant supplicant;
    supplicant.SetReply("PING", QByteArray(5000, 'x'));
    const Ctrl ctrl = Open();

    QCOMPARE(Request(ctrl, "PING", 10).text, QByteArray(10, 'x'));
}

void TestWpaCtrl::dropsEventsBeforeTheReply()
{
    FakeSupplicant supplicant;
    FakeSupplicant::Answer answer;
    answer.eventsFirst = {"<3>CTRL-EVENT-CONNECTED", "<", "IFNAME=wlan0 <3>X", "IFNAME="};
    answer.reply = "PONG\n";
    supplicant.SetAnswer("PING", answer);
    const Ctrl ctrl = Open();

    QCOMPARE(Request(ctrl, "PING").text, QByteArray("PONG\n"));

    char buffer[64];
    size_t length = sizeof(buffer);
    QVERIFY(wpa_ctrl_recv(ctrl.get(), buffer, &length) < 0);
}

void TestWpaCtrl::handsEventsToTheCallback()
{
    FakeSupplicant supplicant;
    FakeSupplicant::Answer answer;
    answer.eventsFirst = {"<3>one", "IFNAME=wlan0 <3>two"};
    supplicant.SetAnswer("PING", answer);
    const Ctrl ctrl = Open();

    QCOMPARE(Request(ctrl, "PING", 4096, RememberEvent).text, QByteArray("OK\n"));

    QCOMPARE(seenEvents, (QList<QByteArray>{"<3>one", "IFNAME=wlan0 <3>two"}));
}

void TestWpaCtrl::terminatesAnEventThatFillsTheBuffer()
{
    FakeSupplicant supplicant;
    FakeSupplicant::Answer answer;
    answer.eventsFirst = {"<3>45678"};
    supplicant.SetAnswer("PING", answer);
    const Ctrl ctrl = Open();

    QCOMPARE(Request(ctrl, "PING", 8, RememberEvent).result, 0);

    QCOMPARE(seenEvents, QList<QByteArray>{"<3>4567"});
}

void TestWpaCtrl::survivesAFloodOfEvents()
{
    FakeSupplicant supplicant;
    FakeSupplicant::Answer answer;
    for (int i = 0; i < 5000; ++i)
        answer.eventsFirst.append("<3>CTRL-EVENT-SCAN-STARTED " + QByteArray::number(i));
    answer.reply = "PONG\n";
    supplicant.SetAnswer("PING", answer);
    const Ctrl ctrl = Open();

    QCOMPARE(Request(ctrl, "PING").text, QByteArray("PONG\n"));
}

void TestWpaCtrl::waitsAfreshAfterAnInterruption()
{
    FakeSupplicant supplicant;
    FakeSupplicant::Answer answer;
    answer.delayMs = 11000;
    supplicant.SetAnswer("PING", answer);
    const Ctrl ctrl = Open();
    // A handler without SA_RESTART: the wait itself is interrupted.
    struct sigaction action
    {
    };
    action.sa_handler = [](int) {
    };
    sigaction(SIGUSR1, &action, nullptr);
    const pthread_t self = pthread_self();
    std::thread interrupter([self] {
        std::this_thread::sleep_for(std::chrono::seconds(3));
        pthread_kill(self, SIGUSR1);
    });

    const Reply reply = Request(ctrl, "PING");

    interrupter.join();
    QCOMPARE(reply.text, QByteArray("OK\n"));
}

void TestWpaCtrl::waitsAfreshAfterAnEvent()
{
    FakeSupplicant supplicant;
    FakeSupplicant::Answer answer;
    answer.delayMs = 11000;
    supplicant.SetAnswer("PING", answer);
    const Ctrl ctrl = Open();
    QCOMPARE(wpa_ctrl_attach(ctrl.get()), 0);
    std::thread sender([&supplicant] {
        std::this_thread::sleep_for(std::chrono::seconds(3));
        supplicant.SendEvent("<3>event");
    });

    const Reply reply = Request(ctrl, "PING");

    sender.join();
    QCOMPARE(reply.text, QByteArray("OK\n"));
}

void TestWpaCtrl::sendsOnceThereIsRoom()
{
    FakeSupplicant supplicant;
    const Ctrl ctrl = Open();
    supplicant.Freeze();
    while (send(ctrl->s, "<ignored by nobody>", 1, 0) == 1)
        continue;
    supplicant.SetSilent("<");
    std::thread thawer([&supplicant] {
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        supplicant.Thaw();
    });
    QElapsedTimer timer;
    timer.start();

    const Reply reply = Request(ctrl, "PING");

    const qint64 elapsed = timer.elapsed();
    thawer.join();
    QCOMPARE(reply.text, QByteArray("OK\n"));
    // Tried again a second apart.
    QVERIFY2(elapsed >= 2000, qPrintable(QString::number(elapsed)));
}

void TestWpaCtrl::pausesAWholeSecondInSpiteOfSignals()
{
    FakeSupplicant supplicant;
    const Ctrl ctrl = Open();
    supplicant.Freeze();
    while (send(ctrl->s, "<ignored by nobody>", 1, 0) == 1)
        continue;
    supplicant.SetSilent("<");
    struct sigaction ignoring = {};
    ignoring.sa_handler = [](int) {
    };
    struct sigaction before = {};
    sigaction(SIGUSR2, &ignoring, &before);
    const pthread_t self = pthread_self();
    std::thread disturber([&supplicant, self] {
        // Room there is soon, yet the next try is a second away.
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        supplicant.Thaw();
        for (int i = 0; i < 5; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            pthread_kill(self, SIGUSR2);
        }
    });
    QElapsedTimer timer;
    timer.start();

    const Reply reply = Request(ctrl, "PING");

    const qint64 elapsed = timer.elapsed();
    disturber.join();
    sigaction(SIGUSR2, &before, nullptr);
    QCOMPARE(reply.text, QByteArray("OK\n"));
    QVERIFY2(elapsed >= 1000, qPrintable(QString::number(elapsed)));
}

void TestWpaCtrl::returnsAnErrorOfTheWait()
{
    FakeSupplicant supplicant;
    const Ctrl ctrl = Open();
    // poll(2) refuses more entries than there may be descriptors.
    const ResourceLimit limit(RLIMIT_NOFILE, 0);

    QCOMPARE(Request(ctrl, "PING").result, -1);
}

void TestWpaCtrl::returnsAnErrorOfTheReceive()
{
    FakeSupplicant supplicant;
    const Ctrl ctrl = Open();
    size_t length = 10;

    // Nowhere to put the reply: EFAULT.
    QCOMPARE(wpa_ctrl_request(ctrl.get(), "PING", 4, nullptr, &length, nullptr), -1);

    QCOMPARE(supplicant.Commands(), QStringList{"PING"});
}

void TestWpaCtrl::failsAtOnceWhenThePeerIsGone()
{
    FakeSupplicant supplicant;
    const Ctrl ctrl = Open();
    supplicant.Die();
    QElapsedTimer timer;
    timer.start();

    QCOMPARE(Request(ctrl, "PING").result, -1);

    // Far from the ten seconds that a reply may take.
    QVERIFY(timer.elapsed() < 10000);
}

void TestWpaCtrl::endsTheWaitWhenThePeerDies()
{
    FakeSupplicant supplicant;
    FakeSupplicant::Answer answer;
    answer.delayMs = 500;
    answer.dies = true;
    supplicant.SetAnswer("PING", answer);
    const Ctrl ctrl = Open();
    QElapsedTimer timer;
    timer.start();

    QCOMPARE(Request(ctrl, "PING").result, -1);

    const qint64 elapsed = timer.elapsed();
    QVERIFY2(elapsed >= 500 && elapsed < 10000, qPrintable(QString::number(elapsed)));
}

void TestWpaCtrl::attaches_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<int>("expected");
    QTest::newRow("OK") << QByteArray("OK\n") << 0;
    QTest::newRow("refused") << QByteArray("FAIL\n") << -1;
    QTest::newRow("without line feed") << QByteArray("OK") << -1;
    QTest::newRow("more after it") << QByteArray("OK\n\n") << -1;
    QTest::newRow("three other bytes") << QByteArray("ok\n") << -1;
    QTest::newRow("nothing") << QByteArray("") << -1;
    QTest::newRow("longer than there is room for") << QByteArray("OK\n          ") << -1;
}

void TestWpaCtrl::attaches()
{
    QFETCH(QByteArray, reply);
    FakeSupplicant supplicant;
    supplicant.SetReply("ATTACH", reply);
    const Ctrl ctrl = Open();

    QTEST(wpa_ctrl_attach(ctrl.get()), "expected");

    QCOMPARE(supplicant.Commands(), QStringList{"ATTACH"});
}

void TestWpaCtrl::attachesBehindEvents_data()
{
    QTest::addColumn<QByteArray>("event");
    QTest::newRow("short") << QByteArray("<3>A");
    QTest::newRow("cut") << QByteArray("<3>CTRL-EVENT-CONNECTED - ");
    QTest::newRow("with its interface, short") << QByteArray("IFNAME=x A");
    QTest::newRow("with its interface, cut") << QByteArray("IFNAME=wlan0 <3>CTRL-EVENT-CONNECTED - ");
}

void TestWpaCtrl::attachesBehindEvents()
{
    QFETCH(QByteArray, event);
    FakeSupplicant supplicant;
    FakeSupplicant::Answer answer;
    answer.eventsFirst = {event, event};
    supplicant.SetAnswer("ATTACH", answer);
    const Ctrl ctrl = Open();

    QCOMPARE(wpa_ctrl_attach(ctrl.get()), 0);
}

void TestWpaCtrl::detaches_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<int>("expected");
    QTest::newRow("OK") << QByteArray("OK\n") << 0;
    QTest::newRow("refused") << QByteArray("FAIL\n") << -1;
}

void TestWpaCtrl::detaches()
{
    QFETCH(QByteArray, reply);
    FakeSupplicant supplicant;
    supplicant.SetReply("DETACH", reply);
    const Ctrl ctrl = Open();

    QTEST(wpa_ctrl_detach(ctrl.get()), "expected");

    QCOMPARE(supplicant.Commands(), QStringList{"DETACH"});
}

void TestWpaCtrl::receivesWithoutWaiting()
{
    FakeSupplicant supplicant;
    const Ctrl ctrl = Open();
    QCOMPARE(wpa_ctrl_attach(ctrl.get()), 0);
    char buffer[4];
    size_t length = sizeof(buffer);
    QVERIFY(wpa_ctrl_recv(ctrl.get(), buffer, &length) < 0);
    QVERIFY(supplicant.SendEvent("<3>event"));

    QCOMPARE(wpa_ctrl_recv(ctrl.get(), buffer, &length), 0);

    QCOMPARE(QByteArray(buffer, static_cast<int>(length)), QByteArray("<3>e"));
}

void TestWpaCtrl::seesAPeerAlive()
{
    FakeSupplicant supplicant;
    const Ctrl ctrl = Open();

    QVERIFY(wpa_ctrl_peer_alive(ctrl.get()));
    supplicant.Freeze();
    QVERIFY(wpa_ctrl_peer_alive(ctrl.get()));
}

void TestWpaCtrl::keepsWaitingDatagramsWhenItLooks()
{
    FakeSupplicant supplicant;
    const Ctrl ctrl = Open();
    QCOMPARE(wpa_ctrl_attach(ctrl.get()), 0);
    QVERIFY(supplicant.SendEvent("<3>event"));

    QVERIFY(wpa_ctrl_peer_alive(ctrl.get()));

    char buffer[64];
    size_t length = sizeof(buffer);
    QCOMPARE(wpa_ctrl_recv(ctrl.get(), buffer, &length), 0);
    QCOMPARE(length, size_t(8));
}

void TestWpaCtrl::seesADeadPeer()
{
    FakeSupplicant supplicant;
    const Ctrl ctrl = Open();

    supplicant.Die();

    QVERIFY(!wpa_ctrl_peer_alive(ctrl.get()));
}

void TestWpaCtrl::isNotFooledByASuccessor()
{
    FakeSupplicant first;
    const Ctrl ctrl = Open();

    first.Die();
    FakeSupplicant second;

    QVERIFY(!wpa_ctrl_peer_alive(ctrl.get()));
    QCOMPARE(Request(ctrl, "PING").result, -1);
    QCOMPARE(second.Commands(), QStringList());
}

void TestWpaCtrl::seesAPeerWhoseNameWasRemoved()
{
    FakeSupplicant supplicant;
    const Ctrl ctrl = Open();
    TestSupport::Remove(QStringLiteral("/var/run/wpa_supplicant"));

    QVERIFY(wpa_ctrl_peer_alive(ctrl.get()));
    QCOMPARE(Request(ctrl, "PING").text, QByteArray("OK\n"));

    supplicant.Die();
    QVERIFY(!wpa_ctrl_peer_alive(ctrl.get()));
}

void TestWpaCtrl::sendsNothingToLook()
{
    FakeSupplicant supplicant;
    const Ctrl ctrl = Open();

    for (int i = 0; i < 100; ++i)
        QVERIFY(wpa_ctrl_peer_alive(ctrl.get()));
    Request(ctrl, "PING");

    QCOMPARE(supplicant.Commands(), QStringList{"PING"});
}

void TestWpaCtrl::seesTheLifeOfAnAbstractPeer()
{
    FakeSupplicant supplicant(Address(QByteArray("\0corvi", 6)));
    const Ctrl ctrl = Open("@abstract:corvi");
    QVERIFY(wpa_ctrl_peer_alive(ctrl.get()));

    supplicant.Die();

    QVERIFY(!wpa_ctrl_peer_alive(ctrl.get()));
}

void TestWpaCtrl::namesTheProcessThatReplies()
{
    FakeSupplicantProcess supplicant;
    const Ctrl ctrl = Open();
    QCOMPARE(ctrl->peer, 0);

    QCOMPARE(wpa_ctrl_attach(ctrl.get()), 0);

    QCOMPARE(ctrl->peer, supplicant.Id());
}

void TestWpaCtrl::namesTheProcessOfAnEmptyReply()
{
    FakeSupplicant supplicant;
    supplicant.SetReply("PING", "");
    const Ctrl ctrl = Open();
    char reply[8];
    size_t length = sizeof(reply);

    QCOMPARE(wpa_ctrl_request(ctrl.get(), "PING", 4, reply, &length, nullptr), 0);

    QCOMPARE(ctrl->peer, getpid());
}

QTEST_GUILESS_MAIN(TestWpaCtrl)
#include "tst_wpactrl.moc"
