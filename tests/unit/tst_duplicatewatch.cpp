// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "duplicatewatch.h"

#include "arppeer.h"
#include "opencounter.h"
#include "testsupport.h"

#include <QtTest>

using namespace std::chrono_literals;
using TestSupport::RealIp;

namespace {

const DuplicateWatch::Time NOW = DuplicateWatch::Time() + 1h;
const QString QUESTION = QStringLiteral("0.0.0.0 asks for 10.0.0.5");
/// Every second, the last one included.
void LookEachSecond(DuplicateWatch &watch, int first, int last)
{
    for (int i = first; i <= last; ++i)
        watch.Look("eth0", "10.0.0.5", NOW + std::chrono::seconds(i));
}

/// What is known first then: of several hosts that are heard the first one.
QString FirstKnown(DuplicateWatch &watch, std::chrono::seconds then = 1s)
{
    QString known;
    const auto isKnown = [&] {
        known = known.isEmpty() ? watch.Look("eth0", "10.0.0.5", NOW + then) : known;
        return !known.isEmpty();
    };
    return QTest::qWaitFor(isKnown, 60000) ? known : QStringLiteral("nobody");
}

/// The other host answers, and is known a second later.
void Meet(const ArpPeer &far, DuplicateWatch &watch)
{
    watch.Look("eth0", "10.0.0.5", NOW);
    far.Say("10.0.0.5");
    QCOMPARE(FirstKnown(watch), "02:00:00:00:AA:01");
}

} // namespace

/// Another host with an address of ours.
class TestDuplicateWatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void asksInTheNameOfNobody();
    void asksOnceForAnAddress();
    void asksEveryMinuteWhileAnotherHostIsKnown();
    void hostThatSaysSoUnaskedIsKnown();
    void whatIsForOthersDoesNotCount();
    void hostThatAnswersIsKnown();
    void hostThatAnswersNoMoreIsForgotten();
    void otherAddressIsAnotherQuestion();
    void otherHostsOfTheNetworkDoNotCount();
    void ownInterfaceIsNoOtherHost();
    void withoutAnAddressNothingIsAsked();
    void interfaceThatIsGoneIsNoFault();
    void whatCannotBeAskedIsNotKnown();
    void whatCannotBeAskedIsTriedAgain();
    void whatWasSaidWhileNobodyLookedIsAskedAnew();
    void newLinkIsAskedAnew();
    void isKnownOfTheAddressForAWhile();
    void ownInterfacesAreListedOnceALook();
    void leavesNoDescriptorBehind();
};

void TestDuplicateWatch::init()
{
    TestSupport::RemoveInterfaces();
    TestSupport::MakeVeth("eth0", "far0");
    RealIp({"link", "set", "dev", "eth0", "up"});
    TestSupport::SetCable("far0", true);
    QTRY_COMPARE(TestSupport::ReadFile("/sys/class/net/eth0/carrier"), QByteArray("1\n"));
}

void TestDuplicateWatch::asksInTheNameOfNobody()
{
    ArpPeer far;
    DuplicateWatch watch;

    QCOMPARE(watch.Look("eth0", "10.0.0.5", NOW), QString());

    QTRY_COMPARE(far.Questions(), QStringList{QUESTION});
}

void TestDuplicateWatch::asksOnceForAnAddress()
{
    ArpPeer far;
    DuplicateWatch watch;

    LookEachSecond(watch, 0, 130);

    // The next one shows that no other question is under way.
    watch.Look("eth0", "10.0.0.6", NOW + 131s);
    QTRY_COMPARE(far.Questions(), QStringList({QUESTION, "0.0.0.0 asks for 10.0.0.6"}));
}

void TestDuplicateWatch::asksEveryMinuteWhileAnotherHostIsKnown()
{
    ArpPeer far;
    DuplicateWatch watch;
    Meet(far, watch);

    LookEachSecond(watch, 2, 60);
    QTRY_COMPARE(far.Questions().size(), 1);
    LookEachSecond(watch, 61, 61);
    QTRY_COMPARE(far.Questions().size(), 2);
}

void TestDuplicateWatch::hostThatSaysSoUnaskedIsKnown()
{
    ArpPeer far;
    DuplicateWatch watch;
    LookEachSecond(watch, 0, 30);

    far.Say("10.0.0.5");

    QCOMPARE(FirstKnown(watch, 31s), "02:00:00:00:AA:01");
}

void TestDuplicateWatch::whatIsForOthersDoesNotCount()
{
    ArpPeer far;
    DuplicateWatch watch;
    watch.Look("eth0", "10.0.0.5", NOW);

    far.SayTo(QByteArray::fromHex("02000000bb01"), "10.0.0.5", QByteArray::fromHex("02000000aa02"));
    far.Say("10.0.0.5");

    QCOMPARE(FirstKnown(watch), "02:00:00:00:AA:01");
}

void TestDuplicateWatch::hostThatAnswersIsKnown()
{
    ArpPeer far;
    DuplicateWatch watch;

    Meet(far, watch);

    QCOMPARE(watch.Look("eth0", "10.0.0.5", NOW + 30s), "02:00:00:00:AA:01");
}

void TestDuplicateWatch::hostThatAnswersNoMoreIsForgotten()
{
    ArpPeer far;
    DuplicateWatch watch;
    Meet(far, watch);

    LookEachSecond(watch, 2, 62);
    QCOMPARE(watch.Look("eth0", "10.0.0.5", NOW + 63s), "02:00:00:00:AA:01");
    QCOMPARE(watch.Look("eth0", "10.0.0.5", NOW + 64s), QString());
}

void TestDuplicateWatch::otherAddressIsAnotherQuestion()
{
    ArpPeer far;
    DuplicateWatch watch;
    Meet(far, watch);

    QCOMPARE(watch.Look("eth0", "10.0.0.6", NOW + 2s), QString());

    QTRY_COMPARE(far.Questions(), QStringList({QUESTION, "0.0.0.0 asks for 10.0.0.6"}));
}

void TestDuplicateWatch::otherHostsOfTheNetworkDoNotCount()
{
    ArpPeer far;
    DuplicateWatch watch;
    watch.Look("eth0", "10.0.0.5", NOW);

    far.Say("10.0.0.7", QByteArray::fromHex("02000000aa02"));
    far.Say("10.0.0.5");

    QCOMPARE(FirstKnown(watch), "02:00:00:00:AA:01");
}

void TestDuplicateWatch::ownInterfaceIsNoOtherHost()
{
    ArpPeer far;
    DuplicateWatch watch;
    const QByteArray ours = TestSupport::ReadFile("/sys/class/net/far0/address").trimmed();
    watch.Look("eth0", "10.0.0.5", NOW);

    far.Say("10.0.0.5", QByteArray::fromHex(ours));
    far.Say("10.0.0.5");

    QCOMPARE(FirstKnown(watch), "02:00:00:00:AA:01");
}

void TestDuplicateWatch::withoutAnAddressNothingIsAsked()
{
    ArpPeer far;
    DuplicateWatch watch;

    QCOMPARE(watch.Look("eth0", QString(), NOW), QString());
    watch.Look("eth0", "10.0.0.5", NOW);

    QTRY_COMPARE(far.Questions(), QStringList{QUESTION});
}

void TestDuplicateWatch::interfaceThatIsGoneIsNoFault()
{
    DuplicateWatch watch;
    watch.Look("eth0", "10.0.0.5", NOW);
    RealIp({"link", "delete", "dev", "eth0"});

    QCOMPARE(watch.Look("eth0", "10.0.0.5", NOW + 1s), QString());
    QCOMPARE(watch.Look("eth0", "10.0.0.5", NOW + 60s), QString());
}

void TestDuplicateWatch::whatCannotBeAskedIsNotKnown()
{
    ArpPeer far;
    DuplicateWatch watch;
    Meet(far, watch);
    RealIp({"link", "delete", "dev", "eth0"});

    QCOMPARE(watch.Look("eth0", "10.0.0.5", NOW + 60s), QString());
}

void TestDuplicateWatch::whatCannotBeAskedIsTriedAgain()
{
    RealIp({"link", "set", "dev", "eth0", "down"});
    ArpPeer far;
    DuplicateWatch watch;
    watch.Look("eth0", "10.0.0.5", NOW);
    RealIp({"link", "set", "dev", "eth0", "up"});
    QTRY_COMPARE(TestSupport::ReadFile("/sys/class/net/eth0/carrier"), QByteArray("1\n"));

    LookEachSecond(watch, 1, 59);
    // The next one shows that none is under way.
    DuplicateWatch().Look("eth0", "10.0.0.6", NOW);
    QTRY_COMPARE(far.Questions(), QStringList{"0.0.0.0 asks for 10.0.0.6"});
    LookEachSecond(watch, 60, 60);
    QTRY_COMPARE(far.Questions(), QStringList({"0.0.0.0 asks for 10.0.0.6", QUESTION}));
}

/// The cable may be in another network since, where the address is somebody's by right.
void TestDuplicateWatch::whatWasSaidWhileNobodyLookedIsAskedAnew()
{
    ArpPeer far;
    DuplicateWatch watch;
    watch.Look("eth0", "10.0.0.5", NOW);
    QTRY_COMPARE(far.Questions().size(), 1);
    far.Say("10.0.0.5");

    QCOMPARE(watch.Look("eth0", "10.0.0.5", NOW + 6s), QString());

    QTRY_COMPARE(far.Questions(), QStringList({QUESTION, QUESTION}));
}

void TestDuplicateWatch::newLinkIsAskedAnew()
{
    ArpPeer far;
    DuplicateWatch watch;
    Meet(far, watch);

    watch.Restart();

    QCOMPARE(watch.Known("10.0.0.5", NOW + 1s), QString());
    QCOMPARE(watch.Look("eth0", "10.0.0.5", NOW + 2s), QString());
    QTRY_COMPARE(far.Questions(), QStringList({QUESTION, QUESTION}));
}

void TestDuplicateWatch::isKnownOfTheAddressForAWhile()
{
    ArpPeer far;
    DuplicateWatch watch;
    Meet(far, watch);

    QCOMPARE(watch.Known("10.0.0.5", NOW + 5s), "02:00:00:00:AA:01");
    QCOMPARE(watch.Known("10.0.0.6", NOW + 5s), QString());
    QCOMPARE(watch.Known("10.0.0.5", NOW + 6s), QString());
}

void TestDuplicateWatch::ownInterfacesAreListedOnceALook()
{
    ArpPeer far;
    DuplicateWatch watch;
    const QByteArray ours = TestSupport::ReadFile("/sys/class/net/far0/address").trimmed();
    watch.Look("eth0", "10.0.0.5", NOW);
    for (int i = 0; i < 10; ++i)
        far.Say("10.0.0.5", QByteArray::fromHex(ours));
    far.Say("10.0.0.5");
    OpenCounter counter({"/sys/class/net"});

    int looks = 0;
    QTRY_COMPARE((++looks, watch.Look("eth0", "10.0.0.5", NOW + 1s)), "02:00:00:00:AA:01");

    QVERIFY(counter.Take().value("/sys/class/net") <= looks);
}

void TestDuplicateWatch::leavesNoDescriptorBehind()
{
    const int before = TestSupport::OpenDescriptors();
    {
        DuplicateWatch watch;
        watch.Look("eth0", "10.0.0.5", NOW);
        watch.Look("eth0", "10.0.0.6", NOW + 1s);
        QCOMPARE(TestSupport::OpenDescriptors(), before + 1);
    }

    QCOMPARE(TestSupport::OpenDescriptors(), before);
}

QTEST_GUILESS_MAIN(TestDuplicateWatch)
#include "tst_duplicatewatch.moc"
