// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "logging.h"
#include "namednetwork.h"
#include "networkdevice.h"
#include "testsupport.h"
#include "zebnetconfig.h"
#include "zebxmlconfig.h"

#include <QCryptographicHash>
#include <QtTest>

namespace {

/// The one network of the store.
struct Stored
{
    QString nameSetting = QStringLiteral("lan");
    QString securityMode = QStringLiteral("Unsecured");
    QString text;
};
Stored stored;

} // namespace

// The store library of a device's maker, in the place of ours: the program's own operations come before those
// of a shared library.

bool ZebNetConfig::Load(const QString &networkName, bool /*reserved*/)
{
    name = networkName;
    securityMode = stored.securityMode;
    return true;
}

QString ZebNetConfig::toString() const
{
    return stored.text;
}

QStringList ZebNetConfig::GetNetworkNames()
{
    return {QStringLiteral("lan")};
}

QString ZebXmlConfig::GetConfig(const QString & /*path*/, const QString &key, bool /*reserved1*/,
                                const QString &defaultValue, bool /*reserved2*/)
{
    return key == QLatin1String("name") ? stored.nameSetting : defaultValue;
}

/// What the daemon makes of answers that our own store library never gives.
class TestForeignStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void networkWithoutNameIsLeftOut_data();
    void networkWithoutNameIsLeftOut();
    void networkWithoutModeIsSecured();
    void fingerprintIsTakenOfLatin1();
};

void TestForeignStore::init()
{
    stored = {};
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
}

void TestForeignStore::networkWithoutNameIsLeftOut_data()
{
    QTest::addColumn<QString>("nameSetting");
    QTest::addColumn<QStringList>("networks");

    QTest::newRow("name") << "lan" << QStringList{"lan"};
    QTest::newRow("no name") << "" << QStringList();
}

void TestForeignStore::networkWithoutNameIsLeftOut()
{
    QFETCH(QString, nameSetting);
    stored.nameSetting = nameSetting;
    NetworkDevice device("eth0", nullptr);

    device.getNamedNetworksForDevice();

    QTEST(device.GetNamedNetworks(), "networks");
}

void TestForeignStore::networkWithoutModeIsSecured()
{
    QVERIFY(!NamedNetwork("lan", false, nullptr).IsSecured());

    stored.securityMode.clear();
    QVERIFY(NamedNetwork("lan", false, nullptr).IsSecured());
}

void TestForeignStore::fingerprintIsTakenOfLatin1()
{
    stored.text = QString::fromUtf8("\u00e9\u4f60");

    // printf '\351?' | md5sum
    QCOMPARE(NamedNetwork("lan", false, nullptr).PropsHash(),
             QString::fromLatin1(QCryptographicHash::hash("\xe9?", QCryptographicHash::Md5).toHex()));
}

QTEST_GUILESS_MAIN(TestForeignStore)
#include "tst_foreignstore.moc"
