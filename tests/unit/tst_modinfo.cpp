// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "modinfo.h"

#include "fakesysnet.h"

#include <QtTest>

/// Adapters and drivers as sysfs tells of them.
class TestModInfo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fileOfTheDeviceFolderIsRead();
    void missingFileIsEmpty();
    void driverIsReadFromUevent_data();
    void driverIsReadFromUevent();
    void adapterWithoutFileHasNoDriver();
    void nameDecidesTypeOfOneDriver_data();
    void nameDecidesTypeOfOneDriver();
    void driverHasADescription_data();
    void driverHasADescription();
};

void TestModInfo::fileOfTheDeviceFolderIsRead()
{
    FakeSysNet net;
    net.Write("eth0/device/vendor", "0x8086\n");

    QCOMPARE(ModInfo::GetDeviceSysInfo("eth0", "vendor"), QString("0x8086\n"));
}

void TestModInfo::missingFileIsEmpty()
{
    const FakeSysNet net;

    QCOMPARE(ModInfo::GetDeviceSysInfo("eth0", "vendor"), QString());
}

void TestModInfo::driverIsReadFromUevent_data()
{
    QTest::addColumn<QByteArray>("uevent");
    QTest::addColumn<QString>("driver");

    QTest::newRow("among others") << QByteArray("PCI_CLASS=20000\nDRIVER=e1000e\nPCI_ID=8086:10D3\n")
                                  << "e1000e";
    QTest::newRow("blanks around") << QByteArray(" DRIVER = e1000e \n") << "e1000e";
    QTest::newRow("no line feed") << QByteArray("DRIVER=e1000e") << "e1000e";
    QTest::newRow("empty value") << QByteArray("DRIVER=\n") << "";
    QTest::newRow("the key reaches to the last sign") << QByteArray("DRIVER=a=b\n") << "";
    QTest::newRow("other case") << QByteArray("driver=e1000e\n") << "";
    QTest::newRow("longer key") << QByteArray("OF_DRIVER=e1000e\nDRIVERS=x\n") << "";
    QTest::newRow("no sign") << QByteArray("DRIVER e1000e\n") << "";
    QTest::newRow("the last one counts") << QByteArray("DRIVER=a\nDRIVER=b\n") << "b";
    QTest::newRow("empty file") << QByteArray() << "";
}

void TestModInfo::driverIsReadFromUevent()
{
    QFETCH(QByteArray, uevent);
    FakeSysNet net;
    net.Write("eth0/device/uevent", uevent);

    QTEST(ModInfo::GetUEVENTDriver("eth0"), "driver");
}

void TestModInfo::adapterWithoutFileHasNoDriver()
{
    const FakeSysNet net;

    QCOMPARE(ModInfo::GetUEVENTDriver("eth0"), QString());
    QCOMPARE(ModInfo::GetDeviceType("eth0"), QString());
    QCOMPARE(ModInfo::GetDeviceDesc(ModInfo::GetDeviceType("eth0")), QString("Unknow adapter"));
}

void TestModInfo::nameDecidesTypeOfOneDriver_data()
{
    QTest::addColumn<QString>("interfaceName");
    QTest::addColumn<QString>("type");

    QTest::newRow("ra0, whatever sysfs says") << "ra0"
                                              << "rt2870sta";
    QTest::newRow("only the beginning counts") << "radio"
                                               << "rt2870sta";
    QTest::newRow("other case") << "RA0"
                                << "other";
    QTest::newRow("other name") << "wlan0"
                                << "other";
}

void TestModInfo::nameDecidesTypeOfOneDriver()
{
    QFETCH(QString, interfaceName);
    FakeSysNet net;
    net.Write(interfaceName + "/device/uevent", "DRIVER=other\n");

    QTEST(ModInfo::GetDeviceType(interfaceName), "type");
}

void TestModInfo::driverHasADescription_data()
{
    QTest::addColumn<QString>("description");

    QTest::newRow("rt2870sta") << "RT2870 Wireless LAN";
    QTest::newRow("vntwusb") << "VIA Networking Wireless LAN";
    QTest::newRow("vt6656") << "VIA Networking Wireless LAN";
    QTest::newRow("iwlwifi") << "Unknow adapter";
    QTest::newRow("VT6656") << "Unknow adapter";
    QTest::newRow("") << "Unknow adapter";
}

void TestModInfo::driverHasADescription()
{
    QTEST(ModInfo::GetDeviceDesc(QTest::currentDataTag()), "description");
}

QTEST_GUILESS_MAIN(TestModInfo)
#include "tst_modinfo.moc"
