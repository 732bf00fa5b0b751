// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "shellline.h"
#include "testsupport.h"

#include <QtTest>

#include <chrono>

using namespace std::chrono_literals;

namespace {

/// Hangs until /tmp/go is there. It ends by itself in the end, so that whoever waits for it gets to say so.
const char *const HANGS =
    "echo >>/tmp/ran; for i in $(seq 1200); do [ ! -e /tmp/go ] || exit; sleep 0.05; done";

} // namespace

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
    ShellLine line(HANGS);
    QVERIFY(!line.Run(100ms));
    QTRY_COMPARE(TestSupport::ReadFile("/tmp/ran"), QByteArray("\n"));

    // Not waited for either: the limit is longer than the line takes.
    QVERIFY(!line.Run(std::chrono::hours(1)));

    QCOMPARE(TestSupport::ReadFile("/tmp/ran"), QByteArray("\n"));
    TestSupport::WriteFile("/tmp/go", "");
}

void TestShellLine::lineThatHasEndedAfterAllIsRunAgain()
{
    ShellLine line(HANGS);
    QVERIFY(!line.Run(100ms));
    TestSupport::WriteFile("/tmp/go", "");

    QVERIFY(QTest::qWaitFor([&line] { return line.Run(60s); }, 60000));

    QCOMPARE(TestSupport::ReadFile("/tmp/ran"), QByteArray("\n\n"));
}

QTEST_GUILESS_MAIN(TestShellLine)
#include "tst_shellline.moc"
