// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "logging.h"
#include "mountpoint.h"
#include "networkdevice.h"
#include "testsupport.h"

#include <QFileInfo>
#include <QScopeGuard>
#include <QtTest>

#include <sys/mount.h>
#include <sys/stat.h>

namespace {

const QString RESOLV_CONF = QStringLiteral("/etc/resolv.conf");
const QString HOST_LIST = QStringLiteral("/tmp/.hostlist");
const QByteArray LOOPBACK_LINES =
    "127.0.0.1\tlocalhost\n127.0.0.1\tcorvi-sandbox.localdomain corvi-sandbox \n";

mode_t ModeOf(const QString &path)
{
    struct stat info = {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
}

} // namespace

/// The resolver's file and the host list.
class TestNetworkDeviceResolver : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void clearDnsRemovesTheFile();
    void clearDnsWithoutFileSucceeds();
    void clearDnsTellsAFailure();
    void clearDnsLogsNothing_data();
    void clearDnsLogsNothing();
    void resolverHoldsTheServers_data();
    void resolverHoldsTheServers();
    void resolverIsReplacedInOneStep();
    void resolverIsAppendedTo_data();
    void resolverIsAppendedTo();
    void resolverThatCannotBeReadIsLeft();
    void resolverLinkIsKept_data();
    void resolverLinkIsKept();
    void resolverLinkIntoAFolderThatIsGoneIsLeftAtFirst();
    void resolverStaysReadableByAll();
    void resolverThatIsAMountPointIsWrittenInPlace();
    void resolverIsLogged();
    void unchangedResolverIsNoNews();
    void resolverThatCannotBeWrittenIsLogged_data();
    void resolverThatCannotBeWrittenIsLogged();
    void fullDiskKeepsTheResolver();
    void hostListHoldsLinesAndLoopback_data();
    void hostListHoldsLinesAndLoopback();
    void loopbackLinesAreGivenToTheShell();
    void hostListIsHandedToTheSystem();
    void unchangedHostListIsHandedOverAgain();
    void hostListIsNotLogged();
    void hostListIsReadableByAll();
    void hostListDoesNotFollowALink();
    void hostListThatCannotBeWrittenIsLogged();
    void hostListThatIsNotTakenIsNewsAfterOneThatWas();
};

void TestNetworkDeviceResolver::init()
{
    TestSupport::RestorePrograms();
    TestSupport::ClearJournal();
    TestSupport::ClearAnswers();
    for (const QString &path : {RESOLV_CONF, HOST_LIST, QStringLiteral("/run/resolver")})
        TestSupport::Remove(path);
    TestSupport::ClearLog();
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
}

void TestNetworkDeviceResolver::clearDnsRemovesTheFile()
{
    TestSupport::WriteFile(RESOLV_CONF, "nameserver 1.1.1.1\n");
    NetworkDevice device("eth0", nullptr);

    QVERIFY(device.ClearDNS());

    QVERIFY(!QFile::exists(RESOLV_CONF));
}

void TestNetworkDeviceResolver::clearDnsWithoutFileSucceeds()
{
    NetworkDevice device("eth0", nullptr);

    QVERIFY(device.ClearDNS());
}

void TestNetworkDeviceResolver::clearDnsTellsAFailure()
{
    QVERIFY(QDir().mkpath(RESOLV_CONF));
    NetworkDevice device("eth0", nullptr);

    QVERIFY(!device.ClearDNS());
}

void TestNetworkDeviceResolver::clearDnsLogsNothing_data()
{
    QTest::addColumn<bool>("isThere");
    QTest::addColumn<bool>("isFolder");

    QTest::newRow("file") << true << false;
    QTest::newRow("no file") << false << false;
    QTest::newRow("cannot be removed") << true << true;
}

void TestNetworkDeviceResolver::clearDnsLogsNothing()
{
    QFETCH(bool, isThere);
    QFETCH(bool, isFolder);
    if (isThere && isFolder)
        QVERIFY(QDir().mkpath(RESOLV_CONF));
    else if (isThere)
        TestSupport::WriteFile(RESOLV_CONF, "nameserver 1.1.1.1\n");
    NetworkDevice device("eth0", nullptr);
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::VERBOSE);
    TestSupport::ClearLog();

    device.ClearDNS();

    QCOMPARE(TestSupport::LogText(), QString());
}

void TestNetworkDeviceResolver::resolverHoldsTheServers_data()
{
    QTest::addColumn<QString>("dns1");
    QTest::addColumn<QString>("dns2");
    QTest::addColumn<QString>("domain");
    QTest::addColumn<QByteArray>("contents");

    QTest::newRow("all given") << "1.1.1.1"
                               << "9.9.9.9"
                               << "example.org"
                               << QByteArray("nameserver 1.1.1.1\nnameserver 9.9.9.9\nsearch example.org\n");
    QTest::newRow("no domain") << "1.1.1.1"
                               << "9.9.9.9"
                               << "" << QByteArray("nameserver 1.1.1.1\nnameserver 9.9.9.9\n");
    QTest::newRow("no second server") << "1.1.1.1"
                                      << ""
                                      << "" << QByteArray("nameserver 1.1.1.1\nnameserver \n");
    QTest::newRow("nothing") << ""
                             << ""
                             << "" << QByteArray("nameserver \nnameserver \n");
}

void TestNetworkDeviceResolver::resolverHoldsTheServers()
{
    QFETCH(QString, dns1);
    QFETCH(QString, dns2);
    QFETCH(QString, domain);
    TestSupport::WriteFile(RESOLV_CONF,
                           "nameserver 192.0.2.1\nsearch a.much.longer.domain.than.the.new.one\n");
    NetworkDevice device("eth0", nullptr);

    device.SetDNS(dns1, dns2, domain);

    QTEST(TestSupport::ReadFile(RESOLV_CONF), "contents");
}

void TestNetworkDeviceResolver::resolverIsReplacedInOneStep()
{
    TestSupport::WriteFile(RESOLV_CONF, "old\n");
    QFile reader(RESOLV_CONF);
    QVERIFY(reader.open(QIODevice::ReadOnly));
    const int filesBefore = TestSupport::EntryCount("/etc");
    NetworkDevice device("eth0", nullptr);

    device.SetDNS("1.1.1.1", "", "");

    QCOMPARE(reader.readAll(), QByteArray("old\n"));
    QCOMPARE(TestSupport::EntryCount("/etc"), filesBefore);
}

void TestNetworkDeviceResolver::resolverIsAppendedTo_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("after");

    const QByteArray lines = "nameserver 1.1.1.1\nnameserver 9.9.9.9\nsearch example.org\n";
    QTest::newRow("to servers") << QByteArray("nameserver 8.8.8.8\n") << "nameserver 8.8.8.8\n" + lines;
    QTest::newRow("to no file") << QByteArray() << lines;
}

void TestNetworkDeviceResolver::resolverIsAppendedTo()
{
    QFETCH(QByteArray, before);
    if (!before.isEmpty())
        TestSupport::WriteFile(RESOLV_CONF, before);
    NetworkDevice device("eth0", nullptr);

    device.AppendDNS("1.1.1.1", "9.9.9.9", "example.org");

    QTEST(TestSupport::ReadFile(RESOLV_CONF), "after");
    QVERIFY(TestSupport::LogText().contains(" NetworkDevice::SetDNS -   1.1.1.1 ,  9.9.9.9 example.org \n"));
}

void TestNetworkDeviceResolver::resolverThatCannotBeReadIsLeft()
{
    QCOMPARE(::mkfifo("/etc/resolv.conf", 0644), 0);
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    NetworkDevice device("eth0", nullptr);

    device.AppendDNS("1.1.1.1", "9.9.9.9", "example.org");

    struct stat info = {};
    QVERIFY(::stat("/etc/resolv.conf", &info) == 0 && S_ISFIFO(info.st_mode));
    QVERIFY(TestSupport::LogText().contains(" NetworkDevice::SetDNS -  Unable to access resolv.conf \n"));
}

void TestNetworkDeviceResolver::resolverLinkIsKept_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<bool>("exists");

    QTest::newRow("to a file") << "/run/resolver/resolv.conf" << true;
    QTest::newRow("relative") << "../run/resolver/resolv.conf" << true;
    QTest::newRow("to no file yet") << "/run/resolver/resolv.conf" << false;
}

void TestNetworkDeviceResolver::resolverLinkIsKept()
{
    QFETCH(QString, target);
    QFETCH(bool, exists);
    QVERIFY(QDir().mkpath("/run/resolver"));
    if (exists)
        TestSupport::WriteFile("/run/resolver/resolv.conf", "nameserver 8.8.8.8\n");
    QVERIFY(QFile::link(target, RESOLV_CONF));
    NetworkDevice device("eth0", nullptr);

    device.SetDNS("1.1.1.1", "9.9.9.9", "");

    QVERIFY(QFileInfo(RESOLV_CONF).isSymLink());
    QCOMPARE(TestSupport::ReadFile("/run/resolver/resolv.conf"),
             QByteArray("nameserver 1.1.1.1\nnameserver 9.9.9.9\n"));
}

void TestNetworkDeviceResolver::resolverLinkIntoAFolderThatIsGoneIsLeftAtFirst()
{
    // As a resolver service leaves it behind when it ends.
    QVERIFY(QFile::link("../run/gone/resolv.conf", RESOLV_CONF));
    NetworkDevice device("eth0", nullptr);

    device.SetDNS("1.1.1.1", "9.9.9.9", "");

    QVERIFY(QFileInfo(RESOLV_CONF).isSymLink());
    QVERIFY(TestSupport::LogText().contains(" NetworkDevice::SetDNS -  Unable to access resolv.conf \n"));
}

void TestNetworkDeviceResolver::resolverStaysReadableByAll()
{
    NetworkDevice device("eth0", nullptr);

    device.SetDNS("1.1.1.1", "", "");
    QCOMPARE(ModeOf(RESOLV_CONF), mode_t(0644));

    device.SetDNS("1.1.1.1", "", "");
    QCOMPARE(ModeOf(RESOLV_CONF), mode_t(0644));
}

void TestNetworkDeviceResolver::resolverThatIsAMountPointIsWrittenInPlace()
{
    TestSupport::WriteFile(RESOLV_CONF, QByteArray());
    TestSupport::WriteFile("/run/mounted", "nameserver 192.0.2.1\nsearch a.long.domain.example.org\n");
    QCOMPARE(::mount("/run/mounted", "/etc/resolv.conf", nullptr, MS_BIND, nullptr), 0);
    const auto unmounter = qScopeGuard([] { ::umount2("/etc/resolv.conf", MNT_DETACH); });
    NetworkDevice device("eth0", nullptr);

    device.SetDNS("1.1.1.1", "9.9.9.9", "");

    QCOMPARE(TestSupport::ReadFile("/run/mounted"), QByteArray("nameserver 1.1.1.1\nnameserver 9.9.9.9\n"));
}

void TestNetworkDeviceResolver::unchangedResolverIsNoNews()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    NetworkDevice device("eth0", nullptr);

    device.SetDNS("1.1.1.1", "9.9.9.9", "example.org");
    struct stat before = {};
    QCOMPARE(::stat("/etc/resolv.conf", &before), 0);
    device.SetDNS("1.1.1.1", "9.9.9.9", "example.org");

    QCOMPARE(TestSupport::LogText().count("NetworkDevice::SetDNS"), 1);
    struct stat after = {};
    QCOMPARE(::stat("/etc/resolv.conf", &after), 0);
    QCOMPARE(after.st_ino, before.st_ino);
}

void TestNetworkDeviceResolver::resolverIsLogged()
{
    NetworkDevice device("eth0", nullptr);

    for (int i = 0; i < 2; ++i) // The second time there is nothing to write.
        device.SetDNS("1.1.1.1", "9.9.9.9", "example.org");

    QCOMPARE(TestSupport::LogText().count(" NetworkDevice::SetDNS -   1.1.1.1 ,  9.9.9.9 example.org \n"), 2);
}

void TestNetworkDeviceResolver::resolverThatCannotBeWrittenIsLogged_data()
{
    QTest::addColumn<bool>("append");

    QTest::newRow("SetDNS") << false;
    QTest::newRow("AppendDNS") << true;
}

void TestNetworkDeviceResolver::resolverThatCannotBeWrittenIsLogged()
{
    QFETCH(bool, append);
    QVERIFY(QDir().mkpath(RESOLV_CONF));
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    NetworkDevice device("eth0", nullptr);

    if (append)
        device.AppendDNS("1.1.1.1", "9.9.9.9", "example.org");
    else
        device.SetDNS("1.1.1.1", "9.9.9.9", "example.org");

    QVERIFY(QFileInfo(RESOLV_CONF).isDir());
    const QString log = TestSupport::LogText();
    QVERIFY(log.contains(" NetworkDevice::SetDNS -  Unable to access resolv.conf \n"));
    QVERIFY2(!log.contains("1.1.1.1"), qPrintable(log));
}

void TestNetworkDeviceResolver::fullDiskKeepsTheResolver()
{
    // Room for the old file alone. The folder is reached through a link, so that /etc stays as it is.
    QVERIFY(QDir().mkpath("/run/resolver"));
    QCOMPARE(::mount("full", "/run/resolver", "tmpfs", 0, "size=4k"), 0);
    const auto unmounter = qScopeGuard([] { ::umount2("/run/resolver", MNT_DETACH); });
    TestSupport::WriteFile("/run/resolver/resolv.conf", "nameserver 192.0.2.1\n");
    QVERIFY(QFile::link("/run/resolver/resolv.conf", RESOLV_CONF));
    NetworkDevice device("eth0", nullptr);

    device.SetDNS("1.1.1.1", "9.9.9.9", "example.org");

    QCOMPARE(TestSupport::ReadFile("/run/resolver/resolv.conf"), QByteArray("nameserver 192.0.2.1\n"));
    QVERIFY(TestSupport::LogText().contains(" NetworkDevice::SetDNS -  Unable to access resolv.conf \n"));
    QCOMPARE(TestSupport::EntryCount("/run/resolver"), 1);
}

void TestNetworkDeviceResolver::hostListHoldsLinesAndLoopback_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QByteArray>("contents");

    QTest::newRow("none") << QStringList() << LOOPBACK_LINES;
    QTest::newRow("two, in order") << QStringList{"10.0.0.9 printer", "10.0.0.1 gate"}
                                   << "10.0.0.9 printer\n10.0.0.1 gate\n" + LOOPBACK_LINES;
    QTest::newRow("text for a shell stays text")
        << QStringList{"10.0.0.9 $(touch /tmp/ran) `id` \"quoted\""}
        << "10.0.0.9 $(touch /tmp/ran) `id` \"quoted\"\n" + LOOPBACK_LINES;
}

void TestNetworkDeviceResolver::hostListHoldsLinesAndLoopback()
{
    QFETCH(QStringList, lines);
    TestSupport::WriteFile(HOST_LIST, "an earlier list\n");
    NetworkDevice device("eth0", nullptr);

    device.SetHosts(lines);

    QTEST(TestSupport::ReadFile(HOST_LIST), "contents");
    QVERIFY(!QFile::exists("/tmp/ran"));
}

void TestNetworkDeviceResolver::loopbackLinesAreGivenToTheShell()
{
    // A shell that keeps the lines it is given.
    TestSupport::RemoveProgram("sh");
    const auto restorer = qScopeGuard([] {
        TestSupport::Remove("/usr/bin/sh");
        TestSupport::RestorePrograms();
    });
    TestSupport::WriteFile("/usr/bin/sh", "#!/bin/bash\nprintf '%s\\n' \"$2\" >>/tmp/shell.lines\n");
    TestSupport::SetMode("/usr/bin/sh", 0755);
    TestSupport::Remove("/tmp/shell.lines");
    NetworkDevice device("eth0", nullptr);

    device.SetHosts({});

    QCOMPARE(TestSupport::ReadFile("/tmp/shell.lines"),
             QByteArray("echo \"127.0.0.1\tlocalhost\" >> /tmp/.hostlist\n"
                        "echo \"127.0.0.1\t$HOSTNAME.localdomain $HOSTNAME \" >> /tmp/.hostlist\n"));
}

void TestNetworkDeviceResolver::hostListIsHandedToTheSystem()
{
    TestSupport::Answer("update_hosts", "cp /tmp/.hostlist /tmp/seen");
    NetworkDevice device("eth0", nullptr);

    device.SetHosts({"10.0.0.9 printer"});

    QCOMPARE(TestSupport::Journal(), QStringList{"update_hosts"});
    QCOMPARE(TestSupport::ReadFile("/tmp/seen"), "10.0.0.9 printer\n" + LOOPBACK_LINES);
}

void TestNetworkDeviceResolver::unchangedHostListIsHandedOverAgain()
{
    NetworkDevice device("eth0", nullptr);

    device.SetHosts({"10.0.0.9 printer"});
    device.SetHosts({"10.0.0.9 printer"});

    QCOMPARE(TestSupport::Journal(), (QStringList{"update_hosts", "update_hosts"}));
}

void TestNetworkDeviceResolver::hostListIsNotLogged()
{
    NetworkDevice device("eth0", nullptr);
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::VERBOSE);
    TestSupport::ClearLog();

    device.SetHosts({"10.0.0.9 printer"});

    QCOMPARE(TestSupport::LogText(), QString());
}

void TestNetworkDeviceResolver::hostListIsReadableByAll()
{
    NetworkDevice device("eth0", nullptr);

    device.SetHosts({});

    QCOMPARE(ModeOf(HOST_LIST), mode_t(0644));
}

void TestNetworkDeviceResolver::hostListDoesNotFollowALink()
{
    TestSupport::WriteFile("/tmp/victim", "untouched");
    QVERIFY(QFile::link("/tmp/victim", HOST_LIST));
    NetworkDevice device("eth0", nullptr);

    device.SetHosts({"10.0.0.9 printer"});

    QCOMPARE(TestSupport::ReadFile("/tmp/victim"), QByteArray("untouched"));
    QCOMPARE(TestSupport::ReadFile(HOST_LIST), "10.0.0.9 printer\n" + LOOPBACK_LINES);
}

void TestNetworkDeviceResolver::hostListThatCannotBeWrittenIsLogged()
{
    QVERIFY(QDir().mkpath(HOST_LIST));
    const MountPoint taken(HOST_LIST);
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    NetworkDevice device("eth0", nullptr);

    device.SetHosts({"10.0.0.9 printer"});

    QVERIFY(TestSupport::LogText().contains(" NetworkDevice::SetHosts -  Unable to access hosts \n"));
    QCOMPARE(TestSupport::Journal(), QStringList());
}

void TestNetworkDeviceResolver::hostListThatIsNotTakenIsNewsAfterOneThatWas()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    NetworkDevice device("eth0", nullptr);

    for (const char *const answer : {"exit 1", "exit 1", "exit 0", "exit 1"}) {
        TestSupport::Answer("update_hosts", answer);
        device.SetHosts({"10.0.0.9 printer"});
    }

    QCOMPARE(TestSupport::LogText().count(
                 " NetworkDevice::SetHosts - update_hosts fails, the hosts of eth0 are tried again later \n"),
             2);
}

QTEST_GUILESS_MAIN(TestNetworkDeviceResolver)
#include "tst_networkdevice_resolver.moc"
