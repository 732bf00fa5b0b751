// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "fakesysnet.h"
#include "othermanagers.h"

#include <QtTest>

/// Whose hands an interface is in besides ours.
class TestOtherManagers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void managerIsNamedWithItsInterfaces_data();
    void managerIsNamedWithItsInterfaces();
    void severalAreNamed();
    void supplicantIsNamed();
};

void TestOtherManagers::managerIsNamedWithItsInterfaces_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("expected");
    const auto row = [](const char *name, const char *path, const char *content,
                        const QStringList &expected) {
        QTest::newRow(name) << QString("/run/") + path << QByteArray(content) << expected;
    };

    row("nobody", "unrelated", "", {});
    row("NetworkManager", "NetworkManager/devices/7", "[device]\nmanaged=true\n", {"NetworkManager (eth0)"});
    row("NetworkManager leaves it alone", "NetworkManager/devices/7", "[device]\nmanaged=false\n", {});
    row("NetworkManager has another", "NetworkManager/devices/9", "[device]\nmanaged=true\n", {});
    row("networkd", "systemd/netif/links/7", "ADMIN_STATE=configured\nOPER_STATE=routable\n",
        {"systemd-networkd (eth0)"});
    row("networkd is at it", "systemd/netif/links/7", "ADMIN_STATE=configuring\n",
        {"systemd-networkd (eth0)"});
    row("networkd leaves it alone", "systemd/netif/links/7", "ADMIN_STATE=unmanaged\n", {});
    row("ifupdown", "network/ifstate", "lo=lo\neth0=eth0\n", {"ifupdown (eth0)"});
    row("ifupdown has both", "network/ifstate", "eth0=eth0\nwlan0=home\n", {"ifupdown (eth0, wlan0)"});
    row("ifupdown has lo alone", "network/ifstate", "lo=lo\n", {});
    row("ifupdown has a longer name", "network/ifstate", "eth00=eth00\n", {});
    row("dhcpcd for one", "dhcpcd/wlan0.pid", "", {"dhcpcd (wlan0)"});
    row("dhcpcd for all", "dhcpcd/pid", "", {"dhcpcd (eth0, wlan0)"});
}

void TestOtherManagers::managerIsNamedWithItsInterfaces()
{
    QFETCH(QString, path);
    QFETCH(QByteArray, content);
    FakeSysNet sysNet;
    sysNet.Write("eth0/ifindex", "7\n");
    sysNet.Write("wlan0/ifindex", "8\n");
    TestSupport::WriteFile(path, content);
    const auto removal = qScopeGuard([path] { TestSupport::Remove(path); });

    QTEST(OtherManagers({"eth0", "wlan0"}), "expected");
}

void TestOtherManagers::severalAreNamed()
{
    TestSupport::WriteFile("/run/network/ifstate", "eth0=eth0\n");
    TestSupport::WriteFile("/run/dhcpcd/pid", "1\n");

    QCOMPARE(OtherManagers({"eth0"}), QStringList({"ifupdown (eth0)", "dhcpcd (eth0)"}));
}

void TestOtherManagers::supplicantIsNamed()
{
    QProcess supplicant;
    supplicant.start("bash", {"-c", "exec -a wpa_supplicant bash -c 'echo up; read line' -ieth0"});
    QVERIFY(supplicant.waitForReadyRead());

    QVERIFY(OtherManagers({"eth0", "wlan0"}).contains("wpa_supplicant (eth0)"));

    supplicant.closeWriteChannel();
    QVERIFY(supplicant.waitForFinished());
}

QTEST_GUILESS_MAIN(TestOtherManagers)
#include "tst_othermanagers.moc"
