// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "testsupport.h"
#include "zebxmlconfig.h"

#include <QtTest>

namespace {

QString Get(const QString &path, const QString &key, const QString &defaultValue = QString())
{
    return ZebXmlConfig().GetConfig(path, key, false, defaultValue, false);
}

} // namespace

/// Reading single values.
class TestZebXmlConfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readsValues_data();
    void readsValues();
    void absentValueGivesTheDefault_data();
    void absentValueGivesTheDefault();
    void readsOtherSections();
};

void TestZebXmlConfig::readsValues_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("expected");
    const QString section = "user/hardware/networkconfig";
    QTest::newRow("setting") << section << "useNewDriver"
                             << "True";
    QTest::newRow("setting with blanks") << section << "bonding_mode"
                                         << " 1 ";
    QTest::newRow("network's name") << section + "/lan"
                                    << "name"
                                    << "lan";
    QTest::newRow("network's property") << section + "/lan"
                                        << "mtu"
                                        << "1400";
    QTest::newRow("name with a slash") << section + "/Office/2nd floor"
                                       << "ssid"
                                       << "Office";
    QTest::newRow("name with dots and slashes") << section + "/../x"
                                                << "ssid"
                                                << "Dots";
    QTest::newRow("name beyond ASCII")
        << section + QString::fromUtf8("/Café") << "ssid" << QString::fromUtf8("Café");
}

void TestZebXmlConfig::readsValues()
{
    QFETCH(QString, path);
    QFETCH(QString, key);
    TestSupport::WriteStore(
        "<networkconfig><useNewDriver>True</useNewDriver><bonding_mode> 1 </bonding_mode>"
        "<network><name>lan</name><mtu>1400</mtu></network>"
        "<network><name>Office/2nd floor</name><ssid>Office</ssid></network>"
        "<network><name>../x</name><ssid>Dots</ssid></network>"
        "<network><name>Caf\xc3\xa9</name><ssid>Caf\xc3\xa9</ssid></network></networkconfig>");

    QTEST(Get(path, key, "default"), "expected");
}

void TestZebXmlConfig::absentValueGivesTheDefault_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("key");
    const QString section = "user/hardware/networkconfig";
    QTest::newRow("no such setting") << section << "bonding_enable";
    QTest::newRow("empty setting") << section << "empty";
    QTest::newRow("other case") << section << "UseNewDriver";
    QTest::newRow("no such network") << section + "/Office"
                                     << "name";
    QTest::newRow("no such property") << section + "/lan"
                                      << "ssid";
    QTest::newRow("network without a name") << section + "/"
                                            << "name";
    QTest::newRow("no such section") << "user/hardware/nothing"
                                     << "useNewDriver";
    QTest::newRow("a network is no setting") << section << "network";
}

void TestZebXmlConfig::absentValueGivesTheDefault()
{
    QFETCH(QString, path);
    QFETCH(QString, key);
    TestSupport::WriteStore("<networkconfig><useNewDriver>true</useNewDriver><empty></empty>"
                            "<network><name>lan</name></network></networkconfig>");

    QCOMPARE(Get(path, key, "default"), "default");
    QCOMPARE(Get(path, key), QString());
}

void TestZebXmlConfig::readsOtherSections()
{
    TestSupport::WriteFile("/tmp/config/xmlconfig/user/display", "<display><width>1920</width></display>");

    QCOMPARE(Get("user/display", "width"), "1920");
}

QTEST_GUILESS_MAIN(TestZebXmlConfig)
#include "tst_zebxmlconfig.moc"
