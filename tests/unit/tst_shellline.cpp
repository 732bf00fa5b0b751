// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "shellline.h"
#include "testsupport.h"

#include <QtTest>

#include <chrono>

using namespace std::chrono_literals;

/// A line for the shell, with a limit to the wait for it.
class TestShellLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void lineIsWaitedFor();
    void resultDoesNotCount();
    void lineThatHangsIsLeftToItself();
    void lineThatHasEndedAfterAllIsRunAgain();
};

void TestShellLine::init()
{
    for (const char *path : {"/tmp/ran", "/tmp/go"})
        TestSupport::Remove(path);
}

void TestShellLine::lineIsWaitedFor()
{
    ShellLine line("sleep 0.3; echo >>/tmp/ran");

    QVERIFY(line.Run(60s));

    QCOMPARE(TestSupport::ReadFile("/tmp/ran"), QByteArray("\n"));
}

void TestShellLine::resultDoesNotCount()
{
    QVERIFY(ShellLine("exit 1").Run(60s));
    QVERIFY(ShellLine("kill -KILL $$").Run(60s));
}

void TestShellLine::lineThatHangsIsLeftToItself()
{
    ShellLine line("echo >>/tmp/ran; until [ -e /tmp/go ]; do sleep 0.05; done");
    QVERIFY(!line.Run(100ms));
    QTRY_COMPARE(TestSupport::ReadFile("/tmp/ran"), QByteArray("\n"));

    // Not waited for either: the limit is longer than a test may take.
    QVERIFY(!line.Run(std::chrono::hours(1)));

    QCOMPARE(TestSupport::ReadFile("/tmp/ran"), QByteArray("\n"));
    TestSupport::WriteFile("/tmp/go", "");
}

void TestShellLine::lineThatHasEndedAfterAllIsRunAgain()
{
    ShellLine line("echo >>/tmp/ran; until [ -e /tmp/go ]; do sleep 0.05; done");
    QVERIFY(!line.Run(100ms));
    TestSupport::WriteFile("/tmp/go", "");

    while (!line.Run(60s)) // Ended by the test's own limit.
        QTest::qWait(20);

    QCOMPARE(TestSupport::ReadFile("/tmp/ran"), QByteArray("\n\n"));
}

QTEST_GUILESS_MAIN(TestShellLine)
#include "tst_shellline.moc"
