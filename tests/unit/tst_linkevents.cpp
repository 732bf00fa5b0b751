// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "linkevents.h"

#include "resourcelimit.h"
#include "testsupport.h"

#include <QtTest>

#include <optional>

using namespace TestSupport;

class TestLinkEvents : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void firstQuestionIsAnsweredYes();
    void nothingHappensWhereNothingChanges();
    void newInterfaceIsHeardOfOnce();
    void interfaceThatGoesIsHeardOf();
    void moreThanTheSocketHoldsIsHeardOf();
    void whereNothingIsHeardEachQuestionIsAnsweredYes();
    void endClosesTheSocket();
};

void TestLinkEvents::cleanup()
{
    RemoveInterfaces();
}

void TestLinkEvents::firstQuestionIsAnsweredYes()
{
    LinkEvents events;
    QVERIFY(events.Happened());
}

void TestLinkEvents::nothingHappensWhereNothingChanges()
{
    LinkEvents events;
    QVERIFY(events.Happened());
    QVERIFY(!events.Happened());
}

void TestLinkEvents::newInterfaceIsHeardOfOnce()
{
    LinkEvents events;
    QVERIFY(events.Happened());

    RealIp({"link", "add", "name", "eth0", "type", "veth", "peer", "name", "peer0"});

    QVERIFY(events.Happened());
    QVERIFY(!events.Happened());
}

void TestLinkEvents::interfaceThatGoesIsHeardOf()
{
    RealIp({"link", "add", "name", "eth0", "type", "veth", "peer", "name", "peer0"});
    LinkEvents events;
    QVERIFY(events.Happened());

    RealIp({"link", "delete", "dev", "eth0"});

    QVERIFY(events.Happened());
}

void TestLinkEvents::moreThanTheSocketHoldsIsHeardOf()
{
    LinkEvents events;
    QVERIFY(events.Happened());

    for (int i = 0; i < 60; ++i) {
        RealIp({"link", "add", "name", "eth0", "type", "veth", "peer", "name", "peer0"});
        RealIp({"link", "delete", "dev", "eth0"});
    }

    QVERIFY(events.Happened());
    QVERIFY(!events.Happened());
}

void TestLinkEvents::whereNothingIsHeardEachQuestionIsAnsweredYes()
{
    std::optional<ResourceLimit> noDescriptorLeft(std::in_place, RLIMIT_NOFILE, 0);
    LinkEvents events;
    noDescriptorLeft.reset();

    QVERIFY(events.Happened());
    QVERIFY(events.Happened());
}

void TestLinkEvents::endClosesTheSocket()
{
    const int descriptors = EntryCount("/proc/self/fd");

    for (int i = 0; i < 10; ++i)
        LinkEvents();

    QCOMPARE(EntryCount("/proc/self/fd"), descriptors);
}

QTEST_GUILESS_MAIN(TestLinkEvents)
#include "tst_linkevents.moc"
