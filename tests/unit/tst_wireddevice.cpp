// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wireddevice.h"

#include "logging.h"
#include "namednetwork.h"
#include "testsupport.h"

#include <QRegularExpression>
#include <QtTest>

namespace {

/// The number in the line that a new device writes.
int LoggedCount()
{
    static const QRegularExpression pattern(" WiredDevice::WiredDevice Initialized (\\d+) \n");
    return pattern.match(TestSupport::LogText()).captured(1).toInt();
}

} // namespace

/// What makes a device a wired one.
class TestWiredDevice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void isOfItsKind();
    void findsItsDefinitions();
    void countsDevicesMadeSoFar();
    void needsNoSupplicantForASecuredDefinitionUntilConfigured();
    void behavesAsTheBaseClass();
};

void TestWiredDevice::initTestCase()
{
    init();

    const WiredDevice first("eth0", nullptr);

    QCOMPARE(LoggedCount(), 1);
}

void TestWiredDevice::init()
{
    TestSupport::WriteStore("<x/>");
    TestSupport::ClearLog();
    TestSupport::ClearJournal();
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
}

void TestWiredDevice::isOfItsKind()
{
    const WiredDevice device("eth0", nullptr);

    QCOMPARE(device.name, QString("eth0"));
    QCOMPARE(device.driver, QString("wired"));
    QVERIFY(!device.isWireless);
    QVERIFY(!device.configurable);
    QVERIFY(!device.usesSupplicant);
    QVERIFY(!device.driverChosen);
    QVERIFY(TestSupport::LogText().contains(" Create NetworkDevice eth0 \n"));
}

void TestWiredDevice::findsItsDefinitions()
{
    TestSupport::WriteStore("<x><network><name>lan</name></network>"
                            "<network><name>wiredeth0</name></network></x>");

    const WiredDevice device("eth0", nullptr);

    QCOMPARE(device.GetNamedNetworks(), (QStringList{"wiredeth0", "lan"}));
}

void TestWiredDevice::countsDevicesMadeSoFar()
{
    const WiredDevice first("eth0", nullptr);
    const int count = LoggedCount();
    TestSupport::ClearLog();

    const WiredDevice second("eth1", nullptr);

    QVERIFY(count > 0);
    QCOMPARE(LoggedCount(), count + 1);
}

void TestWiredDevice::needsNoSupplicantForASecuredDefinitionUntilConfigured()
{
    TestSupport::WriteStore("<x><network><name>lan</name><identity>user</identity><password>pw</password>"
                            "<securityMode>802.1X (PEAP/MSCHAPv2)</securityMode></network></x>");
    WiredDevice device("eth0", nullptr);
    QVERIFY(!device.usesSupplicant);

    device.ConfigureNetwork(false);

    QVERIFY(device.usesSupplicant);
}

void TestWiredDevice::behavesAsTheBaseClass()
{
    WiredDevice device("eth0", nullptr);
    device.essid = "Office";

    device.RefreshWirelessStatus();
    device.UseNewDriver(true);

    QCOMPARE(device.essid, QString());
    QCOMPARE(device.driver, QString("wired"));
    QCOMPARE(TestSupport::Journal(), QStringList());
}

QTEST_GUILESS_MAIN(TestWiredDevice)
#include "tst_wireddevice.moc"
