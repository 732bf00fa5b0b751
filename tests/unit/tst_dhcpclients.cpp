// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "dhcpclients.h"
#include "logging.h"
#include "networkdevice.h"
#include "standinclient.h"
#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QtTest>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <memory>
#include <vector>

#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

/// What is done with a device.
using Deed = std::function<void(NetworkDevice &)>;
Q_DECLARE_METATYPE(Deed)

/// Ending DHCP clients, and when a device does so.
class TestDhcpClients : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void endsThoseThatServeTheInterface_data();
    void endsThoseThatServeTheInterface();
    void endsSeveral();
    void nothingToEnd();
    void insistsWithOneThatDoesNotListen();
    void letsTheScriptFinish();
    void endsAScriptThatHangs();
    void anothersScriptLives();
    void clientWithoutWordsServesEveryInterface();
    void clientsMayEndMeanwhile();
    void programWithASimilarNameLives();
    void containersClientLives_data();
    void containersClientLives();
    void endsOneThatMayDoMoreThanWe();
    void otherUsersProcessLives();
    void deviceEndsItsClient_data();
    void deviceEndsItsClient();
    void deviceLeavesTheClientAlone_data();
    void deviceLeavesTheClientAlone();
};

void TestDhcpClients::init()
{
    TestSupport::ClearLog();
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
    TestSupport::ClearJournal();
    TestSupport::ClearAnswers();
}

void TestDhcpClients::cleanup()
{
    TestSupport::UseRights(true);
    TestSupport::Remove(QStringLiteral("/tmp/clients"));
}

void TestDhcpClients::endsThoseThatServeTheInterface_data()
{
    QTest::addColumn<QStringList>("words");
    QTest::addColumn<bool>("ends");
    QTest::newRow("ours") << QStringList{"-v", "-cf", "/etc/dhcp/dhclient.conf", "eth0"} << true;
    QTest::newRow("one of several") << QStringList{"eth0", "eth1"} << true;
    QTest::newRow("for every interface") << QStringList{"-v"} << true;
    QTest::newRow("for every interface, with a file") << QStringList{"-v", "-cf", "corvi.conf"} << true;
    QTest::newRow("for every interface, with a variable") << QStringList{"-e", "IF_METRIC=500"} << true;
    // Those of dhclient(8) that have a value, which is no interface.
    for (const char *option :
         {"-4o6", "-p", "-s", "-g", "-D", "-df", "-lf", "-pf", "-sf", "--decline-wait-time",
          "--address-prefix-len", "--dad-wait-time", "--prefix-len-hint"})
        QTest::newRow(option) << QStringList{option, "eth1"} << true;
    QTest::newRow("another's, with options behind") << QStringList{"eth1", "-v"} << false;
    QTest::newRow("another's, with a file of that name") << QStringList{"-pf", "eth0", "eth1"} << false;
    QTest::newRow("another's") << QStringList{"-v", "eth1"} << false;
    QTest::newRow("a longer name") << QStringList{"-v", "eth01"} << false;
    QTest::newRow("for IPv6 alone") << QStringList{"-6", "eth0"} << false;
}

void TestDhcpClients::endsThoseThatServeTheInterface()
{
    QFETCH(QStringList, words);
    QFETCH(bool, ends);
    StandInClient client(words);

    QCOMPARE(DhcpClients::End("eth0"), ends);

    QCOMPARE(client.Lives(), !ends);
}

void TestDhcpClients::endsSeveral()
{
    StandInClient first({"eth0"});
    StandInClient second({"-v", "eth0"});

    QVERIFY(DhcpClients::End("eth0"));

    QCOMPARE(first.EndedBy(), SIGTERM);
    QCOMPARE(second.EndedBy(), SIGTERM);
}

void TestDhcpClients::nothingToEnd()
{
    QVERIFY(!DhcpClients::End("eth0"));
}

void TestDhcpClients::insistsWithOneThatDoesNotListen()
{
    StandInClient client({"eth0"}, {}, "trap '' TERM");

    QVERIFY(DhcpClients::End("eth0"));

    QCOMPARE(client.EndedBy(), SIGKILL);
}

void TestDhcpClients::letsTheScriptFinish()
{
    StandInClient client({"eth0"});
    StandInClient script({}, {}, "echo ready; sleep 0.5; exit 7", QStringLiteral("dhclient-script"));

    QVERIFY(DhcpClients::End("eth0"));

    QVERIFY(script.waitForFinished(100));
    QCOMPARE(script.exitStatus(), QProcess::NormalExit);
    QCOMPARE(script.exitCode(), 7);
}

void TestDhcpClients::endsAScriptThatHangs()
{
    StandInClient client({"eth0"});
    StandInClient script({}, {}, {}, QStringLiteral("dhclient-script"));

    QVERIFY(DhcpClients::End("eth0"));

    QCOMPARE(script.EndedBy(), SIGKILL);
}

void TestDhcpClients::anothersScriptLives()
{
    const auto workFor = [](const char *interfaceName) {
        return [interfaceName] {
            ::setenv("interface", interfaceName, 1);
        };
    };
    StandInClient client({"eth0"});
    StandInClient script({}, workFor("eth01"), {}, QStringLiteral("dhclient-script"));
    StandInClient own({}, workFor("eth0"), {}, QStringLiteral("dhclient-script"));

    QVERIFY(DhcpClients::End("eth0"));

    QCOMPARE(own.EndedBy(), SIGKILL);
    QVERIFY(script.Lives());
}

void TestDhcpClients::clientWithoutWordsServesEveryInterface()
{
    // A program, as a script would have the shell's name for its first word.
    QDir().mkpath("/tmp/clients");
    QVERIFY(QFile::copy("/bin/cat", "/tmp/clients/dhclient"));
    QProcess client;
    client.start("/tmp/clients/dhclient", QStringList());
    QVERIFY(client.waitForStarted());

    QVERIFY(DhcpClients::End("eth0"));

    QVERIFY(client.waitForFinished(1000));
}

void TestDhcpClients::clientsMayEndMeanwhile()
{
    // Many that stay, so that a look takes a while, and many that are gone within a few milliseconds.
    std::vector<std::unique_ptr<StandInClient>> others(40);
    for (std::unique_ptr<StandInClient> &other : others)
        other = std::make_unique<StandInClient>(QStringList{"-v", "eth1"});
    QDir().mkpath("/tmp/clients/quick");
    QVERIFY(QFile::copy("/bin/true", "/tmp/clients/quick/dhclient"));
    QProcess quickOnes;
    quickOnes.start("/bin/sh", {"-c", "echo ready; while :; do /tmp/clients/quick/dhclient eth1; done"});
    QVERIFY(quickOnes.waitForReadyRead());

    for (int look = 0; look < 200; ++look)
        QVERIFY(!DhcpClients::End("eth0"));

    quickOnes.kill();
    QVERIFY(quickOnes.waitForFinished());
}

void TestDhcpClients::programWithASimilarNameLives()
{
    StandInClient client({"eth0"}, {}, {}, QStringLiteral("dhclient2"));

    QVERIFY(!DhcpClients::End("eth0"));

    QVERIFY(client.Lives());
}

void TestDhcpClients::containersClientLives_data()
{
    QTest::addColumn<bool>("hasRights");
    QTest::newRow("of a daemon with all rights") << true;
    QTest::newRow("of a daemon with few") << false;
}

void TestDhcpClients::containersClientLives()
{
    QFETCH(bool, hasRights);
    StandInClient client({"eth0"}, [] {
        if (::unshare(CLONE_NEWNET) != 0)
            ::_exit(1);
    });
    TestSupport::UseRights(hasRights);

    QVERIFY(!DhcpClients::End("eth0"));

    QVERIFY(client.Lives());
}

void TestDhcpClients::endsOneThatMayDoMoreThanWe()
{
    StandInClient client({"eth0"});
    TestSupport::UseRights(false);
    // Its namespaces are not ours to look at.
    struct stat theirs = {};
    QCOMPARE(::stat(QByteArray("/proc/" + QByteArray::number(client.processId()) + "/ns/net").constData(),
                    &theirs),
             -1);

    QVERIFY(DhcpClients::End("eth0"));

    QCOMPARE(client.EndedBy(), SIGTERM);
}

void TestDhcpClients::otherUsersProcessLives()
{
    // Another user's id exists only where it is mapped.
    if (!TestSupport::ReadFile("/proc/self/uid_map").contains("4294967295"))
        QSKIP("only root can make a process of another user; seen when the tests run as root");
    StandInClient client({"eth0"}, [] {
        if (::setuid(65534) != 0)
            ::_exit(1);
    });

    QVERIFY(!DhcpClients::End("eth0"));

    QVERIFY(client.Lives());
}

void TestDhcpClients::deviceEndsItsClient_data()
{
    QTest::addColumn<Deed>("deed");
    QTest::newRow("fixed address") << Deed([](NetworkDevice &d) { d.Up("10.0.0.5", "255.255.255.0"); });
    QTest::newRow("addresses flushed") << Deed([](NetworkDevice &d) { d.FlushIpAddress(); });
    QTest::newRow("taken down") << Deed([](NetworkDevice &d) { d.Down(); });
    QTest::newRow("no definition any more") << Deed([](NetworkDevice &d) { d.ConfigureNetwork(true); });
}

void TestDhcpClients::deviceEndsItsClient()
{
    QFETCH(Deed, deed);
    StandInClient client({"-v", "eth0"});
    StandInClient other({"-v", "wlan0"});
    NetworkDevice device("eth0", nullptr);

    deed(device);

    QCOMPARE(client.EndedBy(), SIGTERM);
    QVERIFY(other.Lives());
    QVERIFY(TestSupport::LogText().contains("NetworkDevice::EndDhcpClient eth0 was still served \n"));
}

void TestDhcpClients::deviceLeavesTheClientAlone_data()
{
    QTest::addColumn<Deed>("deed");
    QTest::newRow("brought up") << Deed([](NetworkDevice &d) { d.Up(); });
    QTest::newRow("gateway") << Deed([](NetworkDevice &d) { d.SetGateway("10.0.0.1"); });
    QTest::newRow("another interface taken down") << Deed([](NetworkDevice &d) { d.Down("eth1"); });
}

void TestDhcpClients::deviceLeavesTheClientAlone()
{
    QFETCH(Deed, deed);
    StandInClient client({"-v", "eth0"});
    NetworkDevice device("eth0", nullptr);

    deed(device);

    QVERIFY(client.Lives());
}

QTEST_GUILESS_MAIN(TestDhcpClients)
#include "tst_dhcpclients.moc"
