// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "testsupport.h"

#include <QDir>
#include <QProcess>
#include <QtTest>

#include <unistd.h>

namespace {

QByteArray OutputOf(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished();
    return process.readAllStandardOutput();
}

} // namespace

/// The sandbox, the recorder and the helpers around them, which every other test trusts.
class TestTestSupport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void sandboxShowsOnlyItsOwnInterfaces();
    void sandboxCanWriteSystemFolders_data();
    void sandboxCanWriteSystemFolders();
    void journalHoldsNamesAndArguments_data();
    void journalHoldsNamesAndArguments();
    void journalKeepsTheNameWithoutTheFolder();
    void journalLinesOfProgramsAtOnceStayWhole();
    void answerGivesOutputAndStatus();
    void answerCanCrash();
    void answerSeesTheRealPrograms();
    void removedProgramCannotBeStarted();
    void addedProgramIsRecorded();
    void cableDecidesCarrier();
    void storeIsWrittenWhereTheDaemonReadsIt();
};

void TestTestSupport::init()
{
    TestSupport::RestorePrograms();
    TestSupport::ClearJournal();
    TestSupport::ClearAnswers();
    TestSupport::RemoveInterfaces();
}

void TestTestSupport::sandboxShowsOnlyItsOwnInterfaces()
{
    QCOMPARE(QDir("/sys/class/net").entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList{"lo"});
    QCOMPARE(getppid(), 1);
}

void TestTestSupport::sandboxCanWriteSystemFolders_data()
{
    QTest::addColumn<QString>("path");

    for (const char *path : {"/etc/resolv.conf", "/tmp/file", "/run/file", "/var/log/file",
                             "/var/lib/dhcp/file", "/usr/network/file", "/usr/sbin/file"})
        QTest::newRow(path) << path;
}

void TestTestSupport::sandboxCanWriteSystemFolders()
{
    QFETCH(QString, path);

    TestSupport::WriteFile(path, "new content");

    QCOMPARE(TestSupport::ReadFile(path), QByteArray("new content"));
}

void TestTestSupport::journalHoldsNamesAndArguments_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("line");

    QTest::newRow("no arguments") << "update_hosts" << QStringList{} << "update_hosts";
    QTest::newRow("plain arguments") << "ip" << QStringList{"addr", "flush", "eth0"} << "ip addr flush eth0";
    QTest::newRow("address with prefix") << "ip" << QStringList{"10.0.0.1/24"} << "ip 10.0.0.1/24";
    QTest::newRow("empty argument") << "route" << QStringList{"add", ""} << "route add ''";
    QTest::newRow("blank in argument") << "wpa_cli" << QStringList{"a b"} << "wpa_cli 'a b'";
    QTest::newRow("quote in argument") << "wpa_cli" << QStringList{"it's"} << "wpa_cli 'it'\\''s'";
    QTest::newRow("beyond ASCII") << "wpa_cli" << QStringList{QStringLiteral("caf\u00e9")}
                                  << QStringLiteral("wpa_cli 'caf\u00e9'");
}

void TestTestSupport::journalHoldsNamesAndArguments()
{
    QFETCH(QString, program);
    QFETCH(QStringList, arguments);
    QFETCH(QString, line);

    QProcess::execute(program, arguments);

    QCOMPARE(TestSupport::Journal(), QStringList{line});
}

void TestTestSupport::journalKeepsTheNameWithoutTheFolder()
{
    QProcess::execute("/usr/network/stop_dhclient.sh", QStringList());

    QCOMPARE(TestSupport::Journal(), QStringList{"stop_dhclient.sh"});
}

void TestTestSupport::journalLinesOfProgramsAtOnceStayWhole()
{
    const QString longArgument(3000, QLatin1Char('x'));

    for (int i = 0; i < 50; ++i)
        QVERIFY(QProcess::startDetached("warning", {longArgument}));

    QVERIFY(TestSupport::WaitForJournal(50));
    for (const QString &line : TestSupport::Journal())
        QCOMPARE(line, "warning " + longArgument);
}

void TestTestSupport::answerGivesOutputAndStatus()
{
    TestSupport::Answer("dhclient", "echo bound to $2; echo trouble >&2; exit 3");
    QProcess process;

    process.start("dhclient", {"-v", "10.0.0.5"});
    QVERIFY(process.waitForFinished());

    QCOMPARE(process.readAllStandardOutput(), QByteArray("bound to 10.0.0.5\n"));
    QCOMPARE(process.readAllStandardError(), QByteArray("trouble\n"));
    QCOMPARE(process.exitCode(), 3);
    QCOMPARE(TestSupport::Journal(), QStringList{"dhclient -v 10.0.0.5"});
}

void TestTestSupport::answerCanCrash()
{
    TestSupport::Answer("ethtool", "kill -SEGV $$");
    QProcess process;

    process.start("ethtool", {"eth0"});
    QVERIFY(process.waitForFinished());

    QCOMPARE(process.exitStatus(), QProcess::CrashExit);
}

void TestTestSupport::answerSeesTheRealPrograms()
{
    TestSupport::Answer("ifconfig", "ip -o link show lo");

    const QByteArray output = OutputOf("ifconfig", {"lo"});

    QVERIFY(output.contains("LOOPBACK"));
    QCOMPARE(TestSupport::Journal(), QStringList{"ifconfig lo"});
}

void TestTestSupport::removedProgramCannotBeStarted()
{
    TestSupport::RemoveProgram("iwconfig");
    QCOMPARE(QProcess::execute("iwconfig", QStringList()), -2);

    TestSupport::RestorePrograms();
    QCOMPARE(QProcess::execute("iwconfig", QStringList()), 0);
}

void TestTestSupport::addedProgramIsRecorded()
{
    TestSupport::AddProgram("iw ");

    QProcess::execute("iw ", {"wlan0", "info"});

    QCOMPARE(TestSupport::Journal(), QStringList{"'iw ' wlan0 info"});
}

void TestTestSupport::cableDecidesCarrier()
{
    TestSupport::MakeVeth("eth0", "peer0");
    TestSupport::RealIp({"link", "set", "dev", "eth0", "up"});

    TestSupport::SetCable("peer0", true);
    QTRY_COMPARE(TestSupport::ReadFile("/sys/class/net/eth0/carrier"), QByteArray("1\n"));

    TestSupport::SetCable("peer0", false);
    QTRY_COMPARE(TestSupport::ReadFile("/sys/class/net/eth0/carrier"), QByteArray("0\n"));
}

void TestTestSupport::storeIsWrittenWhereTheDaemonReadsIt()
{
    TestSupport::WriteStore("<x/>");

    QCOMPARE(TestSupport::ReadFile("/tmp/config/xmlconfig/user/hardware/networkconfig"), QByteArray("<x/>"));
}

QTEST_GUILESS_MAIN(TestTestSupport)
#include "tst_testsupport.moc"
