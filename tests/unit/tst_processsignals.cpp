// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "processsignals.h"
#include "resourcelimit.h"
#include "testsupport.h"

#include <QAbstractEventDispatcher>
#include <QDir>
#include <QProcess>
#include <QSignalSpy>
#include <QtTest>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <optional>

#include <unistd.h>

/// SIGTERM, SIGINT and SIGHUP as signals of the event loop.
class TestProcessSignals : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signalIsDeliveredByTheEventLoop_data();
    void signalIsDeliveredByTheEventLoop();
    void deliveredSignalKeepsNobodyAwake();
    void severalSignalsAreOneRequest();
    void aFloodOfReloadsHidesNoEnd();
    void signalDuringASystemCallDoesNotInterruptIt();
    void childrenAreNotAffected();
    void endRestoresTheDefault();
    void endClosesThePipe();
    void withoutAPipeSignalsStillEndTheProgram();
};

void TestProcessSignals::signalIsDeliveredByTheEventLoop_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<int>("terminations");
    QTest::addColumn<int>("reloads");
    // Nothing is left of one for the next.
    QTest::newRow("SIGTERM") << SIGTERM << 1 << 0;
    QTest::newRow("SIGHUP") << SIGHUP << 0 << 1;
    QTest::newRow("SIGINT") << SIGINT << 1 << 0;
}

void TestProcessSignals::signalIsDeliveredByTheEventLoop()
{
    QFETCH(int, number);
    QFETCH(int, terminations);
    QFETCH(int, reloads);
    ProcessSignals source(nullptr);
    QSignalSpy ends(&source, &ProcessSignals::terminationRequested);
    QSignalSpy reloadRequests(&source, &ProcessSignals::reloadRequested);

    ::raise(number);
    QCOMPARE(ends.size() + reloadRequests.size(), 0);
    QCOMPARE(ProcessSignals::IsEndAsked(), terminations == 1);

    QTRY_COMPARE(ends.size() + reloadRequests.size(), 1);
    QVERIFY(!ProcessSignals::IsEndAsked());
    QCOMPARE(ends.size(), terminations);
    QCOMPARE(reloadRequests.size(), reloads);
}

void TestProcessSignals::deliveredSignalKeepsNobodyAwake()
{
    ProcessSignals source(nullptr);
    QSignalSpy requests(&source, &ProcessSignals::terminationRequested);

    ::raise(SIGTERM);

    QTRY_COMPARE(requests.size(), 1);
    QTRY_VERIFY(!QAbstractEventDispatcher::instance()->processEvents(QEventLoop::AllEvents));
}

void TestProcessSignals::severalSignalsAreOneRequest()
{
    ProcessSignals source(nullptr);
    QSignalSpy requests(&source, &ProcessSignals::terminationRequested);

    for (int i = 0; i < 100; ++i)
        ::raise(SIGTERM);

    QTRY_COMPARE(requests.size(), 1);
    QTest::qWait(50);
    QCOMPARE(requests.size(), 1);
}

void TestProcessSignals::aFloodOfReloadsHidesNoEnd()
{
    ProcessSignals source(nullptr);
    QSignalSpy ends(&source, &ProcessSignals::terminationRequested);
    QSignalSpy reloadRequests(&source, &ProcessSignals::reloadRequested);

    // More than a pipe holds.
    for (int i = 0; i < 70000; ++i)
        ::raise(SIGHUP);
    errno = 0;
    ::raise(SIGTERM);

    // What the signal came in between may be about to look at it.
    QCOMPARE(errno, 0);
    QTRY_COMPARE(ends.size(), 1);
    QCOMPARE(reloadRequests.size(), 1);
}

void TestProcessSignals::signalDuringASystemCallDoesNotInterruptIt()
{
    ProcessSignals source(nullptr);
    QSignalSpy requests(&source, &ProcessSignals::terminationRequested);
    const QByteArray line = "sleep 0.2; kill -TERM " + QByteArray::number(::getpid()) + "; sleep 0.2; echo x";
    FILE *const child = ::popen(line.constData(), "r");
    QVERIFY(child);

    char byte = 0;
    const ssize_t length = ::read(::fileno(child), &byte, 1);

    QCOMPARE(length, ssize_t(1));
    QCOMPARE(::pclose(child), 0);
    QTRY_COMPARE(requests.size(), 1);
}

void TestProcessSignals::childrenAreNotAffected()
{
    ProcessSignals source(nullptr);
    QProcess child;
    child.start("/bin/sleep", {"60"});
    QVERIFY(child.waitForStarted());

    child.terminate();

    QVERIFY(child.waitForFinished(5000));
    QCOMPARE(child.exitStatus(), QProcess::CrashExit);
}

void TestProcessSignals::endRestoresTheDefault()
{
    delete new ProcessSignals(nullptr);

    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        struct sigaction action = {};
        ::sigaction(number, nullptr, &action);
        QVERIFY(action.sa_handler == SIG_DFL);
    }
}

void TestProcessSignals::endClosesThePipe()
{
    const auto openFiles = [] {
        return TestSupport::EntryCount("/proc/self/fd");
    };
    const int before = openFiles();

    for (int i = 0; i < 10; ++i)
        delete new ProcessSignals(nullptr);

    QCOMPARE(openFiles(), before);
}

void TestProcessSignals::withoutAPipeSignalsStillEndTheProgram()
{
    const int lowestFree = ::dup(STDOUT_FILENO);
    QVERIFY(lowestFree != -1);
    ::close(lowestFree);
    // One descriptor is left, and a pipe needs two.
    std::optional<ResourceLimit> limit(std::in_place, RLIMIT_NOFILE, static_cast<rlim_t>(lowestFree) + 1);

    std::optional<ProcessSignals> source(std::in_place, nullptr);

    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        struct sigaction action = {};
        ::sigaction(number, nullptr, &action);
        QVERIFY(action.sa_handler == SIG_DFL);
    }
    limit.reset();
    QCOMPARE(source->Error(), qt_error_string(EMFILE));
    // The number of an earlier pipe is another's by now.
    const int others = ::dup(STDOUT_FILENO);
    source.reset();
    QCOMPARE(::close(others), 0);
}

QTEST_GUILESS_MAIN(TestProcessSignals)
#include "tst_processsignals.moc"
