// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvi.h"
#include "testsupport.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QtTest>

#include <malloc.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool IS_SANITIZED = true;
#else
constexpr bool IS_SANITIZED = false;
#endif

namespace {

constexpr int RESCANS = 300; // Some ten thousand processes are started for them.
const QString RELOAD_FLAG = QStringLiteral("/tmp/config/files/network/reload");
const QStringList INTERFACES = {"eth0", "eth1", "wlan0", "wwan0"};

/// One tick that rescans, one that sets up, and what the event loop does between them.
void Rescan(Corvi &corvi)
{
    TestSupport::WriteFile(RELOAD_FLAG, QByteArray());
    corvi.LoopTimerTimeout();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    corvi.LoopTimerTimeout();
}

} // namespace

/// What hundreds of rescans in one process leave behind: nothing but the list of operstate files, which grows
/// by one short text for each interface and rescan. Under the address sanitizer a leak fails the program,
/// too.
class TestRescans : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void leaveNothingBehind();
};

void TestRescans::initTestCase()
{
    // The daemon's debug output would be a hundred thousand lines of the report.
    QLoggingCategory::setFilterRules("*.debug=false");
}

void TestRescans::leaveNothingBehind()
{
    TestSupport::WriteStore(
        "<networkconfig>"
        "<network><name>lan</name><securityMode>Unsecured</securityMode><staticIp>true</staticIp>"
        "<ipAddress>10.77.0.5</ipAddress><netmask>255.255.255.0</netmask></network>"
        "<network><name>office</name><ssid>office</ssid><securityMode>Unsecured</securityMode>"
        "</network></networkconfig>");
    for (const QString &name : INTERFACES) {
        TestSupport::MakeVeth(name, "port-" + name);
        TestSupport::RealIp({"link", "set", "dev", name, "up"});
    }
    TestSupport::SetCable("port-eth0", true);
    Corvi corvi(nullptr);
    // Caches and the allocator fill up in the first rounds.
    for (int i = 0; i < 20; ++i)
        Rescan(corvi);
    const int descriptors = TestSupport::EntryCount("/proc/self/fd");
    const int threads = TestSupport::EntryCount("/proc/self/task");
    const int sockets = static_cast<int>(TestSupport::ReadFile("/proc/net/udp").count('\n'));
    const size_t bytes = mallinfo2().uordblks;

    for (int i = 0; i < RESCANS; ++i) {
        Rescan(corvi);
        if (i % 100 == 0)
            TestSupport::ClearJournal();
    }

    QCOMPARE(TestSupport::EntryCount("/proc/self/fd"), descriptors);
    QCOMPARE(TestSupport::EntryCount("/proc/self/task"), threads);
    QCOMPARE(static_cast<int>(TestSupport::ReadFile("/proc/net/udp").count('\n')), sockets);
    if (!IS_SANITIZED) {
        // An interface and its other end each add a path; with the share of the list that is about 165 bytes.
        // A device that is left behind is several times that.
        const size_t growth = (mallinfo2().uordblks - bytes) / RESCANS;
        qInfo("heap growth per rescan: %zu bytes", growth);
        QVERIFY2(growth < 2 * static_cast<size_t>(INTERFACES.size()) * 200,
                 qPrintable(QString::number(growth)));
    }
}

QTEST_GUILESS_MAIN(TestRescans)
#include "tst_rescans.moc"
