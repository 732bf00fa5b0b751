// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "closedportwatch.h"

#include "corviworld.h"
#include "eapolpeer.h"
#include "eapolwatch.h"
#include "testsupport.h"

#include <QProcess>
#include <QtTest>

using namespace std::chrono_literals;
using TestSupport::RealIp;

namespace {

const QString GATEWAY = QStringLiteral("10.1.0.1");

} // namespace

/// A port without authentication, at the gateway's end of which nobody is at first.
class TestClosedPortWatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void portWithoutAGatewayIsClosed();
    void portWhereNobodyAsksIsOpen();
    void portOfAGatewayThatAnswersIsOpen();
    void portOfAGatewayThatIsNotKnownIsOpen_data();
    void portOfAGatewayThatIsNotKnownIsOpen();
    void portBesideAnotherOneInItsSubnetIsClosed();
    void pauseGrowsUntilTheReset();
    void whatWasAskedBeforeThePauseDoesNotCount();

private:
    /// Looks each second; after how many the port is closed, 0 where it is not.
    int ClosedAfter(int looks, const QString &gateway = GATEWAY);
    /// Looks, is asked, and looks again.
    bool IsClosed(const QString &gateway = GATEWAY);
    /// Until it was heard.
    void Ask();

    EapolWatch witness; ///< listens first, and is told last
    ClosedPortWatch watch;
    ClosedPortWatch::Time now{1h};
};

void TestClosedPortWatch::init()
{
    CorviWorld::StartFromNothing();
    CorviWorld::MakeInterface("eth0");
    RealIp({"link", "set", "dev", "eth0", "up"});
    RealIp({"addr", "add", "10.1.0.2/24", "dev", "eth0"});
    QTRY_COMPARE(TestSupport::ReadFile("/sys/class/net/eth0/operstate"), QByteArray("up\n"));
    watch.Reset();
    witness.End();
    QVERIFY(!witness.HasAsked("eth0"));
}

void TestClosedPortWatch::Ask()
{
    AskAtTheFarEnd();
    QVERIFY(QTest::qWaitFor([this] { return witness.HasAsked("eth0"); }, 60000));
}

int TestClosedPortWatch::ClosedAfter(int looks, const QString &gateway)
{
    for (int i = 1; i <= looks; ++i) {
        now += 1s;
        if (watch.Look("eth0", gateway, now))
            return i;
    }
    return 0;
}

bool TestClosedPortWatch::IsClosed(const QString &gateway)
{
    if (ClosedAfter(12, gateway) != 0)
        return true;
    Ask();
    return ClosedAfter(40, gateway) != 0;
}

void TestClosedPortWatch::portWithoutAGatewayIsClosed()
{
    QCOMPARE(ClosedAfter(12), 0);
    Ask();

    QCOMPARE(ClosedAfter(40), 10);
}

void TestClosedPortWatch::portWhereNobodyAsksIsOpen()
{
    QCOMPARE(ClosedAfter(1000), 0);
}

void TestClosedPortWatch::portOfAGatewayThatAnswersIsOpen()
{
    RealIp({"-n", "far", "addr", "add", "10.1.0.1/24", "dev", "far-eth0"});
    QProcess::execute(QStringLiteral("/bin/bash"),
                      {QStringLiteral("-c"), QStringLiteral("echo >/dev/udp/%1/9").arg(GATEWAY)});
    QTRY_VERIFY_WITH_TIMEOUT(TestSupport::ReadFile("/proc/net/arp").contains(" 0x2 "), 60000);

    for (int i = 0; i < 10; ++i)
        QVERIFY(!IsClosed());
}

void TestClosedPortWatch::portOfAGatewayThatIsNotKnownIsOpen_data()
{
    QTest::addColumn<QString>("gateway");
    QTest::newRow("none") << QString();
    QTest::newRow("no address") << "router";
}

void TestClosedPortWatch::portOfAGatewayThatIsNotKnownIsOpen()
{
    QFETCH(QString, gateway);

    QVERIFY(!IsClosed(gateway));
}

/// What is sent to the gateway would go by the other one.
void TestClosedPortWatch::portBesideAnotherOneInItsSubnetIsClosed()
{
    RealIp({"addr", "flush", "dev", "eth0"});
    CorviWorld::MakeInterface("eth1");
    RealIp({"link", "set", "dev", "eth1", "up"});
    RealIp({"addr", "add", "10.1.0.3/24", "dev", "eth1"});
    RealIp({"addr", "add", "10.1.0.2/24", "dev", "eth0"});

    QVERIFY(IsClosed());
}

void TestClosedPortWatch::pauseGrowsUntilTheReset()
{
    QVERIFY(IsClosed());
    for (const auto pause : {20s, 40s, 80s, 160s, 320s, 600s, 600s}) {
        const auto closed = now;
        while (!IsClosed())
            QVERIFY(now - closed < pause + 60s);
        QVERIFY(now - closed >= pause);
    }

    watch.Reset();
    const auto reset = now;
    QVERIFY(IsClosed());
    QVERIFY(now - reset < 60s);
}

void TestClosedPortWatch::whatWasAskedBeforeThePauseDoesNotCount()
{
    QCOMPARE(ClosedAfter(12), 0);
    Ask();
    watch.End();

    QCOMPARE(ClosedAfter(100), 0);
}

QTEST_GUILESS_MAIN(TestClosedPortWatch)
#include "tst_closedportwatch.moc"
