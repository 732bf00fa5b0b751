// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// The supervisor as the daemon has it, with its worker thread and an event loop.

#include "fakesupplicant.h"
#include "logging.h"
#include "testsupport.h"
#include "wpasupplicantcontrol.h"
#include "wpasuppthreadpeer.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {

const QString CONFIGURATION = QStringLiteral("/tmp/wpa_supplicant.conf");

} // namespace

class TestWpaSuppThreadWorker : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void hasOneInstance();
    void ticksOnTheMainThread();
    void catchesUpOneTickAtATime();
    void endsItsLoopWhenAskedTo();
    void endsWhenAskedBeforeItRuns();
    void startsRestartsAndStops();
    void leavesNothingAfterManyStartsAndStops();
    void leavesQuietlyWithTheProcess();
};

void TestWpaSuppThreadWorker::init()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
    TestSupport::ClearLog();
    TestSupport::ClearJournal();
    TestSupport::WriteFile(CONFIGURATION, "ctrl_interface=/var/run/wpa_supplicant\n");
}

void TestWpaSuppThreadWorker::cleanup()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    TestSupport::Remove(QStringLiteral("/var/run/wpa_supplicant"));
}

void TestWpaSuppThreadWorker::hasOneInstance()
{
    WpaSuppThread *const first = WpaSuppThread::GetInstance();

    QCOMPARE(WpaSuppThread::GetInstance(), first);
    QVERIFY(first->isRunning());
    QVERIFY(!first->parent());
    QCOMPARE(first->thread(), QCoreApplication::instance()->thread());
    QCOMPARE(first->priority(), QThread::InheritPriority);
}

void TestWpaSuppThreadWorker::ticksOnTheMainThread()
{
    FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    QSignalSpy changes(&supervisor, &WpaSuppThread::associatedChanged);
    supervisor.ExpectSupplicant();
    QElapsedTimer timer;
    timer.start();

    supervisor.start();

    QTRY_VERIFY_WITH_TIMEOUT(supervisor.IsRunning(), 3000);
    QVERIFY(timer.elapsed() >= 950);
    QCOMPARE(supervisor.Control()->thread(), QThread::currentThread());
    QVERIFY(TestSupport::LogText().contains("WpaSuppThread::run() Start \n"));
    QVERIFY(TestSupport::LogText().contains("WpaSuppThread::run() Start Exec \n"));
}

void TestWpaSuppThreadWorker::catchesUpOneTickAtATime()
{
    FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.Supervise();
    supervisor.start();

    QThread::msleep(5500);
    // One at a time, so that everything else gets its turn in between.
    QCoreApplication::sendPostedEvents();
    QCOMPARE(supervisor.UnassociatedTicks(), 1);
    for (int i = 0; i < 20; ++i)
        QCoreApplication::sendPostedEvents();

    QCOMPARE(supervisor.UnassociatedTicks(), 5);
    QTRY_COMPARE_WITH_TIMEOUT(supervisor.UnassociatedTicks(), 7, 3000);
}

void TestWpaSuppThreadWorker::endsItsLoopWhenAskedTo()
{
    WpaSuppThreadPeer supervisor;
    supervisor.start();

    supervisor.Quit();

    QTRY_VERIFY_WITH_TIMEOUT(supervisor.isFinished(), 3000);
    QTRY_COMPARE(supervisor.StatusText(), QStringLiteral("Stopped"));
    QVERIFY(TestSupport::LogText().contains("WpaSuppThread::run() End Exec \n"));
}

void TestWpaSuppThreadWorker::endsWhenAskedBeforeItRuns()
{
    WpaSuppThreadPeer supervisor;
    supervisor.start();

    supervisor.exit(0);

    QVERIFY(supervisor.wait(3000));
}

void TestWpaSuppThreadWorker::startsRestartsAndStops()
{
    FakeSupplicant supplicant(QStringLiteral("eth0"));
    WpaSuppThreadPeer supervisor;
    supervisor.start();

    supervisor.Start(QStringLiteral("eth0"), QStringLiteral("wired"), QString());
    QTRY_VERIFY_WITH_TIMEOUT(supervisor.IsRunning(), 3000);
    QVERIFY(supplicant.SendEvent("<3>CTRL-EVENT-CONNECTED - "));
    QTRY_VERIFY(supervisor.IsAssociated());
    supervisor.Start(QStringLiteral("eth0"), QStringLiteral("wired"), QString());
    QVERIFY(!supervisor.IsAssociated());
    QTRY_VERIFY_WITH_TIMEOUT(supervisor.IsRunning(), 3000);
    supervisor.Stop(WpaSuppThread::STOP_FALLBACK);
    QTRY_VERIFY_WITH_TIMEOUT(!supervisor.IsRunning(), 3000);

    QTRY_COMPARE(supplicant.Commands().filter(QStringLiteral("ACH")).size(), 4);
    for (const char *command : {"ATTACH", "TERMINATE", "DETACH"})
        QCOMPARE(supplicant.Commands().count(QLatin1String(command)), 2);
    QVERIFY(!supervisor.IsRestarting());
    // One launch for each start.
    QCOMPARE(TestSupport::Journal().filter(QStringLiteral("wpa_supplicant -B")).size(), 2);
}

void TestWpaSuppThreadWorker::leavesNothingAfterManyStartsAndStops()
{
    FakeSupplicant supplicant;
    const int descriptors = TestSupport::OpenDescriptors();
    const int threads = TestSupport::EntryCount(QStringLiteral("/proc/self/task"));
    for (int i = 0; i < 200; ++i) {
        WpaSuppThreadPeer supervisor;
        supervisor.start();
        supervisor.LaunchSupplicant();
        supervisor.Tick();
        QVERIFY(supervisor.IsControlOpen());
        supervisor.Stop(WpaSuppThread::STOP_FALLBACK);
        supervisor.Tick();
        QVERIFY(!supervisor.IsRunning());
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    QCOMPARE(TestSupport::OpenDescriptors(), descriptors);
    QTRY_COMPARE(TestSupport::EntryCount(QStringLiteral("/proc/self/task")), threads);
    QCOMPARE(QDir(QStringLiteral("/tmp")).entryList({"wpa_ctrl_*"}, QDir::System).size(), 0);
    QFile children(QStringLiteral("/proc/self/task/%1/children").arg(QCoreApplication::applicationPid()));
    QVERIFY(children.open(QIODevice::ReadOnly));
    QCOMPARE(children.readAll(), QByteArray());
}

void TestWpaSuppThreadWorker::leavesQuietlyWithTheProcess()
{
    // The instance is never deleted; its thread runs on until the process is gone.
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);

    process.start(QCoreApplication::applicationFilePath(), {"hasOneInstance"});

    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
    const QByteArray output = process.readAll();
    QVERIFY2(output.contains("PASS   : TestWpaSuppThreadWorker::hasOneInstance"), output.constData());
    QVERIFY2(!output.contains("QThread"), output.constData());
}

QTEST_GUILESS_MAIN(TestWpaSuppThreadWorker)
#include "tst_wpasuppthread_worker.moc"
