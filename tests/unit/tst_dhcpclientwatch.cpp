// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "dhcpclientwatch.h"
#include "standinclient.h"

#include <QtTest>

#include <memory>

using namespace std::chrono_literals;

namespace {

const DhcpClientWatch::Time NOW = DhcpClientWatch::Time() + 1h;
const QString ADDRESS = QStringLiteral("10.0.0.5");

std::unique_ptr<StandInClient> StartClient(const QString &interfaceName = QStringLiteral("eth0"))
{
    return std::make_unique<StandInClient>(QStringList{"-v", interfaceName});
}

/// When a start is due, of the seconds from one to another, both included.
QList<int> StartsDue(DhcpClientWatch &watch, int first, int last)
{
    QList<int> due;
    for (int second = first; second <= last; ++second) {
        if (watch.NoticeEnd("eth0", ADDRESS, NOW + std::chrono::seconds(second)))
            due << second;
    }
    return due;
}

} // namespace

/// Noticing that the DHCP client of an interface has ended.
class TestDhcpClientWatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { TestSupport::Remove(QStringLiteral("/tmp/clients")); }

    void clientThatLivesIsLeftAlone();
    void addressThatIsNewIsNotSteadyYet();
    void clientThatEndedIsMissed();
    void clientThatSomebodyStartedIsAdopted();
    void clientThatIsReplacedAtLeisureIsNotMissed();
    void anothersClientDoesNotCount();
    void clientThatWasNeverSeenIsNotMissed();
    void leasedAddressMissesAClientThatWasNeverSeen_data();
    void leasedAddressMissesAClientThatWasNeverSeen();
    void addressThatSomebodySetInsteadNeedsNone();
    void lateClientIsSeenWithItsAddress();
    void clientsThatEndAgainAndAgainWait();
    void clientThatServedForAMinuteIsMissedAfresh();
    void descriptorsAreGivenBack();
};

void TestDhcpClientWatch::clientThatLivesIsLeftAlone()
{
    const auto client = StartClient();
    DhcpClientWatch watch;

    QCOMPARE(StartsDue(watch, 0, 100), QList<int>());
    QVERIFY(watch.IsSteady());
}

void TestDhcpClientWatch::addressThatIsNewIsNotSteadyYet()
{
    const auto client = StartClient();
    DhcpClientWatch watch;
    StartsDue(watch, 0, 100);

    watch.Begin("eth0", "10.0.0.6", NOW + 101s);

    QVERIFY(!watch.IsSteady());
}

void TestDhcpClientWatch::clientThatEndedIsMissed()
{
    auto client = StartClient();
    DhcpClientWatch watch;
    StartsDue(watch, 0, 3);

    client.reset();

    QCOMPARE(StartsDue(watch, 4, 30), QList<int>{20});
    QVERIFY(!watch.IsSteady());
}

void TestDhcpClientWatch::clientThatSomebodyStartedIsAdopted()
{
    auto client = StartClient();
    DhcpClientWatch watch;
    StartsDue(watch, 0, 3);
    client = StartClient();

    QCOMPARE(StartsDue(watch, 4, 60), QList<int>());

    client.reset();
    QCOMPARE(StartsDue(watch, 61, 80).size(), 1);
}

void TestDhcpClientWatch::clientThatIsReplacedAtLeisureIsNotMissed()
{
    auto client = StartClient();
    DhcpClientWatch watch;
    StartsDue(watch, 0, 3);
    client.reset();
    StartsDue(watch, 4, 15);

    client = StartClient();

    QCOMPARE(StartsDue(watch, 16, 60), QList<int>());
}

void TestDhcpClientWatch::anothersClientDoesNotCount()
{
    auto client = StartClient();
    const auto another = StartClient("eth1");
    DhcpClientWatch watch;
    StartsDue(watch, 0, 3);

    client.reset();

    QCOMPARE(StartsDue(watch, 4, 30).size(), 1);
}

/// The platform's may have another name.
void TestDhcpClientWatch::clientThatWasNeverSeenIsNotMissed()
{
    DhcpClientWatch watch;

    QCOMPARE(StartsDue(watch, 0, 100), QList<int>());
}

void TestDhcpClientWatch::leasedAddressMissesAClientThatWasNeverSeen_data()
{
    QTest::addColumn<QByteArray>("lastLease");
    QTest::addColumn<QList<int>>("due");
    QTest::newRow("leased") << QByteArray("10.0.0.5|10.0.0.1|\n") << QList<int>{20};
    QTest::newRow("another one was") << QByteArray("10.0.0.55|10.0.0.5|\n") << QList<int>();
}

void TestDhcpClientWatch::leasedAddressMissesAClientThatWasNeverSeen()
{
    QFETCH(QByteArray, lastLease);
    const QString path = QStringLiteral("/run/corvi-last-lease.eth0");
    TestSupport::WriteFile(path, lastLease);
    const auto removal = qScopeGuard([path] { TestSupport::Remove(path); });
    DhcpClientWatch watch;

    QTEST(StartsDue(watch, 0, 29), "due");
}

void TestDhcpClientWatch::addressThatSomebodySetInsteadNeedsNone()
{
    auto client = StartClient();
    DhcpClientWatch watch;
    watch.NoticeEnd("eth0", "10.0.0.4", NOW);

    client.reset();

    QCOMPARE(StartsDue(watch, 1, 100), QList<int>());
}

void TestDhcpClientWatch::lateClientIsSeenWithItsAddress()
{
    DhcpClientWatch watch;
    watch.NoticeEnd("eth0", "10.0.0.4", NOW);
    auto client = StartClient();
    StartsDue(watch, 1, 3);

    client.reset();

    QCOMPARE(StartsDue(watch, 4, 30).size(), 1);
}

void TestDhcpClientWatch::clientsThatEndAgainAndAgainWait()
{
    auto client = StartClient();
    DhcpClientWatch watch;
    StartsDue(watch, 0, 0);
    client.reset();

    QList<int> starts;
    for (int second = 1; second <= 300; ++second) {
        if (StartsDue(watch, second, second).isEmpty())
            continue;
        starts << second;
        watch.Begin("eth0", ADDRESS, NOW + std::chrono::seconds(second)); // Its client ended at once.
    }

    QCOMPARE(starts, QList<int>({20, 40, 80, 140, 200, 260}));
}

void TestDhcpClientWatch::clientThatServedForAMinuteIsMissedAfresh()
{
    auto client = StartClient();
    DhcpClientWatch watch;
    StartsDue(watch, 0, 0);
    client.reset();
    QCOMPARE(StartsDue(watch, 1, 20), QList<int>{20});
    client = StartClient();
    watch.Begin("eth0", ADDRESS, NOW + 20s);
    StartsDue(watch, 21, 100);

    client.reset();

    QCOMPARE(StartsDue(watch, 101, 130), QList<int>{120});
}

void TestDhcpClientWatch::descriptorsAreGivenBack()
{
    const auto client = StartClient();
    const int before = TestSupport::OpenDescriptors();
    {
        DhcpClientWatch watch;
        StartsDue(watch, 0, 30);
    }
    QCOMPARE(TestSupport::OpenDescriptors(), before);
}

QTEST_GUILESS_MAIN(TestDhcpClientWatch)
#include "tst_dhcpclientwatch.moc"
