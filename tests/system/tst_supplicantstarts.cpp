// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// Starts and stops of the real supplicant, without the 7.1 s that a restart waits for the one before.

#include "testsupport.h"
#include "wpasuppthreadpeer.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>

namespace {

int ProcessesNamed(const QByteArray &name)
{
    int found = 0;
    const QStringList pids = QDir(QStringLiteral("/proc")).entryList({"[0-9]*"}, QDir::Dirs);
    for (const QString &pid : pids) {
        QFile file(QStringLiteral("/proc/%1/comm").arg(pid));
        found += file.open(QIODevice::ReadOnly) && file.readAll().trimmed() == name;
    }
    return found;
}

} // namespace

class TestSupplicantStarts : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void leaveNothing();
};

void TestSupplicantStarts::initTestCase()
{
    TestSupport::MakeVeth("eth0", "port-eth0");
    TestSupport::RealIp({"link", "set", "dev", "eth0", "up"});
    QVERIFY(QDir().mkpath(QStringLiteral("/var/run/wpa_supplicant")));
    TestSupport::WriteFile(
        "/tmp/wpa_supplicant.conf",
        "ctrl_interface=/var/run/wpa_supplicant\nap_scan=0\n"
        "network={\n\tkey_mgmt=IEEE8021X\n\teap=PEAP\n\tidentity=\"a\"\n\tpassword=\"b\"\n}\n");
}

void TestSupplicantStarts::leaveNothing()
{
    WpaSuppThreadPeer supervisor;
    supervisor.AimAt(QStringLiteral("eth0"), QStringLiteral("wired"));
    const int descriptors = TestSupport::EntryCount(QStringLiteral("/proc/self/fd"));
    const int threads = TestSupport::EntryCount(QStringLiteral("/proc/self/task"));
    qint64 longestStop = 0;

    for (int i = 0; i < 200; ++i) {
        supervisor.LaunchSupplicant();
        supervisor.Tick();
        QVERIFY2(supervisor.IsControlOpen(), qPrintable(QString::number(i)));
        QCOMPARE(ProcessesNamed("wpa_supplicant"), 1);
        supervisor.Stop(WpaSuppThread::STOP_FALLBACK);

        QElapsedTimer timer;
        timer.start();
        supervisor.Tick();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        longestStop = qMax(longestStop, timer.elapsed());

        QTRY_COMPARE(ProcessesNamed("wpa_supplicant"), 0);
        QVERIFY(!supervisor.IsRunning());
        QCOMPARE(TestSupport::EntryCount(QStringLiteral("/tmp"), {"wpa_ctrl_*"}), 0);
    }

    QCOMPARE(TestSupport::EntryCount(QStringLiteral("/proc/self/fd")), descriptors);
    QCOMPARE(TestSupport::EntryCount(QStringLiteral("/proc/self/task")), threads);
    // A supplicant that ends does not answer the goodbye: nobody waits 10 s for that.
    QVERIFY2(longestStop < 3000, qPrintable(QString::number(longestStop)));
    qInfo("longest stop: %lld ms", static_cast<long long>(longestStop));
}

QTEST_GUILESS_MAIN(TestSupplicantStarts)
#include "tst_supplicantstarts.moc"
