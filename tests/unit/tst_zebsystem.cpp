// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "testsupport.h"
#include "zebsystem.h"

#include <QElapsedTimer>
#include <QScopeGuard>
#include <QtTest>

#include <climits>

#include <unistd.h>

/// Shell lines.
class TestZebSystem : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void givesTheExitStatus_data();
    void givesTheExitStatus();
    void missingShellIsAFailure();
    void outputGoesWhereOursGoes();
    void waitsForTheLine();
    void doesNotWaitForBackgroundJobs();
    void setsHostname();
    void keepsAHostnameThatIsThere();
    void keepsTheRestOfTheEnvironment();
};

void TestZebSystem::givesTheExitStatus_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<int>("expected");
    QTest::newRow("success") << "true" << 0;
    QTest::newRow("status") << "exit 7" << 7;
    QTest::newRow("no such program") << "/no/such/program 2>/dev/null" << 127;
    QTest::newRow("syntax error") << "if 2>/dev/null" << 2;
    QTest::newRow("killed") << "kill -KILL $$" << -1;
    QTest::newRow("several commands") << "false; true" << 0;
}

void TestZebSystem::givesTheExitStatus()
{
    QFETCH(QString, line);

    QTEST(ZebSystem::execShell(line), "expected");
}

void TestZebSystem::missingShellIsAFailure()
{
    TestSupport::RemoveProgram("sh");
    const auto restorer = qScopeGuard(TestSupport::RestorePrograms);

    QCOMPARE(ZebSystem::execShell("true"), -1);
}

void TestZebSystem::outputGoesWhereOursGoes()
{
    QByteArray own;
    for (const char *channel : {"/proc/self/fd/0", "/proc/self/fd/1", "/proc/self/fd/2"}) {
        char target[PATH_MAX] = {};
        QVERIFY(::readlink(channel, target, sizeof target - 1) > 0);
        own += QByteArray(target) + '\n';
    }

    ZebSystem::execShell("channels=$(readlink /proc/$$/fd/0 /proc/$$/fd/1 /proc/$$/fd/2); "
                         "echo \"$channels\" > /tmp/channels");

    QCOMPARE(TestSupport::ReadFile("/tmp/channels"), own);
}

void TestZebSystem::waitsForTheLine()
{
    TestSupport::Remove("/tmp/done");

    ZebSystem::execShell("/bin/sleep 0.3; echo done > /tmp/done");

    QCOMPARE(TestSupport::ReadFile("/tmp/done"), "done\n");
}

void TestZebSystem::doesNotWaitForBackgroundJobs()
{
    QElapsedTimer timer;
    timer.start();

    ZebSystem::execShell("/bin/sleep 60 >/dev/null 2>&1 &");

    QVERIFY(timer.elapsed() < 30000);
}

void TestZebSystem::setsHostname()
{
    qunsetenv("HOSTNAME");

    ZebSystem::execShell("echo \"$HOSTNAME\" > /tmp/hostname; env | grep -c ^HOSTNAME= >> /tmp/hostname");

    QCOMPARE(TestSupport::ReadFile("/tmp/hostname"), "corvi-sandbox\n1\n");
}

void TestZebSystem::keepsAHostnameThatIsThere()
{
    qputenv("HOSTNAME", "given");
    const auto unset = qScopeGuard([] { qunsetenv("HOSTNAME"); });

    ZebSystem::execShell("echo \"$HOSTNAME\" > /tmp/hostname");

    QCOMPARE(TestSupport::ReadFile("/tmp/hostname"), "given\n");
}

void TestZebSystem::keepsTheRestOfTheEnvironment()
{
    qputenv("TEST_OF_SHELL", "a b");

    ZebSystem::execShell("echo \"$TEST_OF_SHELL\" > /tmp/environment");

    QCOMPARE(TestSupport::ReadFile("/tmp/environment"), "a b\n");
}

QTEST_GUILESS_MAIN(TestZebSystem)
#include "tst_zebsystem.moc"
