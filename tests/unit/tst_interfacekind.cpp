// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "fakesysnet.h"
#include "interfacekind.h"
#include "program.h"
#include "testsupport.h"

#include <QElapsedTimer>
#include <QtTest>

/// The question to `iw` whether it knows an interface. The program's name ends with a blank.
class TestInterfaceKind : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void answerHasSeveralLines_data();
    void answerHasSeveralLines();
    void toolIsAskedByItsNameWithTheBlank();
    void toolWithoutTheBlankIsNotAsked();
    void toolHasNoInputAndItsErrorsGoNowhere();
    void toolThatHangsMeansNo();

    void nameOrFolderTellsTheKind_data();
    void nameOrFolderTellsTheKind();
    void virtualLinkIsNamed_data();
    void virtualLinkIsNamed();
    void portIsNamedByItsBridge();
    void portOfABridgeIsKnown();
    void radioThatIsSwitchedOffIsKnown_data();
    void radioThatIsSwitchedOffIsKnown();
    void linkTypeTellsOfHardware_data();
    void linkTypeTellsOfHardware();
};

void TestInterfaceKind::init()
{
    TestSupport::RestorePrograms();
    TestSupport::ClearJournal();
    TestSupport::ClearAnswers();
    TestSupport::AddProgram("iw ");
}

void TestInterfaceKind::answerHasSeveralLines_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<bool>("wireless");

    QTest::newRow("known") << QByteArray("printf 'Interface wlan0\\n\\tifindex 3\\n'") << true;
    QTest::newRow("one line") << QByteArray("printf 'Interface wlan0\\n'") << true;
    QTest::newRow("no line feed") << QByteArray("printf 'Interface wlan0'") << false;
    QTest::newRow("nothing") << QByteArray("exit 0") << false;
    QTest::newRow("error only") << QByteArray("printf 'no such\\ndevice\\n' >&2; exit 237") << false;
    QTest::newRow("lines and an error status") << QByteArray("printf 'a\\nb\\n'; exit 1") << true;
    QTest::newRow("crash") << QByteArray("kill -SEGV $$") << false;
}

void TestInterfaceKind::answerHasSeveralLines()
{
    QFETCH(QByteArray, script);
    TestSupport::Answer("iw ", script);

    QTEST(interfaceIsWireless("wlan0"), "wireless");
}

void TestInterfaceKind::toolIsAskedByItsNameWithTheBlank()
{
    interfaceIsWireless("mlan0");

    QCOMPARE(TestSupport::Journal(), QStringList{"'iw ' mlan0 info"});
}

void TestInterfaceKind::toolWithoutTheBlankIsNotAsked()
{
    TestSupport::RemoveProgram("iw ");
    TestSupport::Answer("iw", "printf 'a\\nb\\n'");

    QVERIFY(!interfaceIsWireless("wlan0"));

    QCOMPARE(TestSupport::Journal(), QStringList());
    // No machine has it: that is no news to anybody.
    QCOMPARE(Program::Faults(), QStringList());
}

void TestInterfaceKind::toolHasNoInputAndItsErrorsGoNowhere()
{
    TestSupport::Answer("iw ", "readlink /proc/self/fd/0 /proc/self/fd/2 >/tmp/channels");

    interfaceIsWireless("wlan0");

    QCOMPARE(TestSupport::ReadFile("/tmp/channels"), QByteArray("/dev/null\n/dev/null\n"));
}

void TestInterfaceKind::toolThatHangsMeansNo()
{
    TestSupport::Answer("iw ", "printf 'a\\nb\\n'; exec sleep 60");
    QElapsedTimer timer;
    timer.start();

    QVERIFY(!interfaceIsWireless("wlan0"));

    QVERIFY2(timer.elapsed() >= 30000 && timer.elapsed() < 60000,
             qPrintable(QString::number(timer.elapsed())));
}

void TestInterfaceKind::nameOrFolderTellsTheKind_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("folder");
    QTest::addColumn<int>("kind");
    const auto row = [](const char *name, const char *folder, InterfaceKind kind) {
        QTest::addRow("%s %s", name, folder) << QString(name) << QString(folder) << int(kind);
    };
    row("eth0", "", InterfaceKind::Wired);
    row("eth0", "wireless", InterfaceKind::Wireless);
    row("wlan0", "", InterfaceKind::Wireless);
    row("mlan0", "", InterfaceKind::Wireless);
    row("wwan0", "", InterfaceKind::Modem);
    row("wwan0", "wireless", InterfaceKind::Wireless);
    row("xwlan0", "", InterfaceKind::Wired);
    row("xwwan0", "", InterfaceKind::Wired);
}

void TestInterfaceKind::nameOrFolderTellsTheKind()
{
    QFETCH(QString, name);
    QFETCH(QString, folder);
    FakeSysNet sysNet;
    sysNet.Add(name + '/' + folder);

    QTEST(int(KindOfInterface(name)), "kind");
}

void TestInterfaceKind::virtualLinkIsNamed_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("kind");
    const auto row = [](const char *name, const char *entry, const char *text, const char *kind) {
        QTest::newRow(name) << QString(entry) << QByteArray(text) << QString(kind);
    };
    row("bridge", "uevent", "DEVTYPE=bridge\nINTERFACE=eth0\nIFINDEX=4\n", "bridge");
    row("VLAN", "uevent", "DEVTYPE=vlan\n", "vlan");
    row("VXLAN", "uevent", "DEVTYPE=vxlan\n", "vxlan");
    row("tap", "tun_flags", "0x5002\n", "tap");
    row("adapter", "uevent", "INTERFACE=eth0\nIFINDEX=4\n", "");
    row("bond", "uevent", "DEVTYPE=bond\n", "");
    row("longer word", "uevent", "DEVTYPE=vlans\n", "");
    row("nothing said", "mtu", "1500\n", "");
}

void TestInterfaceKind::virtualLinkIsNamed()
{
    QFETCH(QString, entry);
    QFETCH(QByteArray, text);
    FakeSysNet sysNet;
    sysNet.Write("eth0/" + entry, text);

    QTEST(VirtualKind("eth0"), "kind");
}

void TestInterfaceKind::portIsNamedByItsBridge()
{
    FakeSysNet sysNet;
    sysNet.Add("br0");
    sysNet.Add("eth0/brport");
    QVERIFY(QFile::link(FakeSysNet::Path("br0"), FakeSysNet::Path("eth0/brport/bridge")));

    QCOMPARE(VirtualKind("eth0"), "port of br0");
}

void TestInterfaceKind::portOfABridgeIsKnown()
{
    FakeSysNet sysNet;
    sysNet.Add("eth0/brport");
    sysNet.Add("eth1");
    sysNet.Add("br0/bridge");

    QVERIFY(IsBridgePort("eth0"));
    for (const char *const other : {"eth1", "br0", "eth2"})
        QVERIFY2(!IsBridgePort(other), other);
}

void TestInterfaceKind::radioThatIsSwitchedOffIsKnown_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("block");
    QTest::newRow("by hand") << "phy80211/rfkill3/hard" << QByteArray("1\n") << "by a switch";
    QTest::newRow("by a program") << "phy80211/rfkill3/soft" << QByteArray("1\n") << "by software";
    QTest::newRow("on") << "phy80211/rfkill3/soft" << QByteArray("0\n") << QString();
    QTest::newRow("other switch") << "phy80211/led3/soft" << QByteArray("1\n") << QString();
    QTest::newRow("no radio") << "flags" << QByteArray("0x1002\n") << QString();
}

void TestInterfaceKind::radioThatIsSwitchedOffIsKnown()
{
    QFETCH(QString, entry);
    QFETCH(QByteArray, text);
    FakeSysNet sysNet;
    sysNet.Write("wlan0/" + entry, text);

    QTEST(RadioBlock("wlan0"), "block");
}

void TestInterfaceKind::linkTypeTellsOfHardware_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("isHardware");
    QTest::newRow("Ethernet") << QByteArray("1\n") << true;
    QTest::newRow("highest") << QByteArray("255\n") << true;
    QTest::newRow("first above") << QByteArray("256\n") << false;
    QTest::newRow("loopback") << QByteArray("772\n") << false;
    QTest::newRow("nothing said") << QByteArray() << true;
}

void TestInterfaceKind::linkTypeTellsOfHardware()
{
    QFETCH(QByteArray, text);
    FakeSysNet sysNet;
    sysNet.Write("eth0/type", text);

    QTEST(HasHardware(ReadLinkType("eth0")), "isHardware");
}

QTEST_GUILESS_MAIN(TestInterfaceKind)
#include "tst_interfacekind.moc"
