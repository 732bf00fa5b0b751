// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "eapolwatch.h"

#include "eapolpeer.h"
#include "opencounter.h"
#include "testsupport.h"

#include <QtTest>

using TestSupport::RealIp;

namespace {

void MakeCable(const QString &name, const QString &far)
{
    TestSupport::MakeVeth(name, far);
    RealIp({"link", "set", "dev", name, "up"});
    TestSupport::SetCable(far, true);
    QTRY_COMPARE(TestSupport::ReadFile("/sys/class/net/" + name + "/operstate"), QByteArray("up\n"));
}

/// Soon: what is heard counts once.
bool IsHeard(EapolWatch &watch, const char *name)
{
    return QTest::qWaitFor([&] { return watch.HasAsked(name); }, 60000);
}

} // namespace

/// An authenticator that asks who we are.
class TestEapolWatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void requestIsHeardOnce();
    void otherPacketsDoNotCount_data();
    void otherPacketsDoNotCount();
    void otherInterfacesDoNotCount();
    void whatCameBeforeDoesNotCount();
    void interfaceThatComesIsHeard();
    void linkThatWasDownIsHeardAgain();
    void leavesNoDescriptorBehind();
};

void TestEapolWatch::init()
{
    TestSupport::RemoveInterfaces();
    MakeCable("eth0", "far0");
    MakeCable("eth1", "far1");
}

void TestEapolWatch::requestIsHeardOnce()
{
    EapolWatch watch;
    QVERIFY(!watch.HasAsked("eth0"));

    QVERIFY(SendEapol("far0", EAP_REQUEST));

    QVERIFY(IsHeard(watch, "eth0"));
    QVERIFY(!watch.HasAsked("eth0"));
}

void TestEapolWatch::otherPacketsDoNotCount_data()
{
    QTest::addColumn<QByteArray>("packet");
    QTest::newRow("another supplicant's start") << QByteArray::fromHex("02010000");
    QTest::newRow("another supplicant's answer") << QByteArray::fromHex("020000050207000501");
    QTest::newRow("a failure") << QByteArray::fromHex("0200000404070004");
    QTest::newRow("a key") << QByteArray::fromHex("020300050107000501");
    QTest::newRow("cut") << QByteArray::fromHex("02000005");
}

void TestEapolWatch::otherPacketsDoNotCount()
{
    QFETCH(QByteArray, packet);
    EapolWatch watch;
    QVERIFY(!watch.HasAsked("eth0"));

    QVERIFY(SendEapol("far0", packet));

    // A veth hands over what is sent before the call returns, or soon afterwards.
    QTest::qWait(50);
    QVERIFY(!watch.HasAsked("eth0"));
}

void TestEapolWatch::otherInterfacesDoNotCount()
{
    EapolWatch watch;
    EapolWatch other;
    QVERIFY(!watch.HasAsked("eth0"));
    QVERIFY(!other.HasAsked("eth1"));

    QVERIFY(SendEapol("far1", EAP_REQUEST));

    QVERIFY(IsHeard(other, "eth1"));
    QVERIFY(!watch.HasAsked("eth0"));
}

void TestEapolWatch::whatCameBeforeDoesNotCount()
{
    EapolWatch watch;
    QVERIFY(!watch.HasAsked("eth0"));
    QVERIFY(SendEapol("far0", EAP_REQUEST));
    watch.End();

    QVERIFY(!watch.HasAsked("eth0"));
}

void TestEapolWatch::interfaceThatComesIsHeard()
{
    EapolWatch watch;
    QVERIFY(!watch.HasAsked("eth2"));
    MakeCable("eth2", "far2");
    QVERIFY(!watch.HasAsked("eth2"));

    QVERIFY(SendEapol("far2", EAP_REQUEST));

    QVERIFY(IsHeard(watch, "eth2"));
}

void TestEapolWatch::linkThatWasDownIsHeardAgain()
{
    EapolWatch watch;
    QVERIFY(!watch.HasAsked("eth0"));
    RealIp({"link", "set", "dev", "eth0", "down"});
    QVERIFY(!watch.HasAsked("eth0"));
    RealIp({"link", "set", "dev", "eth0", "up"});
    QTRY_COMPARE(TestSupport::ReadFile("/sys/class/net/eth0/operstate"), QByteArray("up\n"));
    QVERIFY(!watch.HasAsked("eth0"));

    QVERIFY(SendEapol("far0", EAP_REQUEST));

    QVERIFY(IsHeard(watch, "eth0"));
}

void TestEapolWatch::leavesNoDescriptorBehind()
{
    const int before = TestSupport::OpenDescriptors();
    {
        EapolWatch watch;
        watch.HasAsked("eth0");
        watch.HasAsked("eth0");
        QCOMPARE(TestSupport::OpenDescriptors(), before + 1);
        watch.End();
        watch.HasAsked("nobody");
        QCOMPARE(TestSupport::OpenDescriptors(), before);
        watch.HasAsked("eth0");
    }

    QCOMPARE(TestSupport::OpenDescriptors(), before);
}

QTEST_GUILESS_MAIN(TestEapolWatch)
#include "tst_eapolwatch.moc"
