// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "duplicatewatch.h"

#include "testsupport.h"

#include <QtTest>

#include <cstring>

#include <arpa/inet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/if_ether.h>
#include <netpacket/packet.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace std::chrono_literals;
using TestSupport::RealIp;

namespace {

const DuplicateWatch::Time NOW = DuplicateWatch::Time() + 1h;
const QString QUESTION = QStringLiteral("0.0.0.0 asks for 10.0.0.5");
const QByteArray OTHER = QByteArray::fromHex("02000000aa01");

/// The other end of our cable, with whatever host is wanted there.
class FarEnd
{
public:
    FarEnd() : socketFd(::socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, htons(ETH_P_ARP)))
    {
        place.sll_family = AF_PACKET;
        place.sll_protocol = htons(ETH_P_ARP);
        place.sll_ifindex = static_cast<int>(::if_nametoindex("far0"));
        place.sll_halen = ETH_ALEN;
        ::bind(socketFd, reinterpret_cast<const sockaddr *>(&place), sizeof place);
    }
    ~FarEnd() { ::close(socketFd); }
    Q_DISABLE_COPY(FarEnd)

    void Say(const char *address, const QByteArray &hardware = OTHER) const
    {
        SayTo(QByteArray(ETH_ALEN, '\xff'), address, hardware);
    }

    void SayTo(const QByteArray &receiver, const char *address, const QByteArray &hardware) const
    {
        sockaddr_ll to = place;
        std::memcpy(to.sll_addr, receiver.constData(), ETH_ALEN);
        ether_arp answer = {};
        answer.ea_hdr = {htons(ARPHRD_ETHER), htons(ETH_P_IP), ETH_ALEN, 4, htons(ARPOP_REPLY)};
        std::memcpy(answer.arp_sha, hardware.constData(), ETH_ALEN);
        ::inet_pton(AF_INET, address, answer.arp_spa);
        ::sendto(socketFd, &answer, sizeof answer, 0, reinterpret_cast<const sockaddr *>(&to), sizeof to);
    }

    /// What it was asked so far: who asks, for what.
    QStringList Questions()
    {
        ether_arp question = {};
        while (::recv(socketFd, &question, sizeof question, 0) == sizeof question) {
            char sender[INET_ADDRSTRLEN] = {};
            char target[INET_ADDRSTRLEN] = {};
            ::inet_ntop(AF_INET, question.arp_spa, sender, sizeof sender);
            ::inet_ntop(AF_INET, question.arp_tpa, target, sizeof target);
            questions << QString("%1 asks for %2").arg(sender, target);
        }
        return questions;
    }

private:
    sockaddr_ll place = {};
    int socketFd;
    QStringList questions;
};

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
void Meet(const FarEnd &far, DuplicateWatch &watch)
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
    void whatWasSaidWhileNobodyLookedIsAskedAnew();
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
    FarEnd far;
    DuplicateWatch watch;

    QCOMPARE(watch.Look("eth0", "10.0.0.5", NOW), QString());

    QTRY_COMPARE(far.Questions(), QStringList{QUESTION});
}

void TestDuplicateWatch::asksOnceForAnAddress()
{
    FarEnd far;
    DuplicateWatch watch;

    LookEachSecond(watch, 0, 130);

    // The next one shows that no other question is under way.
    watch.Look("eth0", "10.0.0.6", NOW + 131s);
    QTRY_COMPARE(far.Questions(), QStringList({QUESTION, "0.0.0.0 asks for 10.0.0.6"}));
}

void TestDuplicateWatch::asksEveryMinuteWhileAnotherHostIsKnown()
{
    FarEnd far;
    DuplicateWatch watch;
    Meet(far, watch);

    LookEachSecond(watch, 2, 60);
    QTRY_COMPARE(far.Questions().size(), 1);
    LookEachSecond(watch, 61, 61);
    QTRY_COMPARE(far.Questions().size(), 2);
}

void TestDuplicateWatch::hostThatSaysSoUnaskedIsKnown()
{
    FarEnd far;
    DuplicateWatch watch;
    LookEachSecond(watch, 0, 30);

    far.Say("10.0.0.5");

    QCOMPARE(FirstKnown(watch, 31s), "02:00:00:00:AA:01");
}

void TestDuplicateWatch::whatIsForOthersDoesNotCount()
{
    FarEnd far;
    DuplicateWatch watch;
    watch.Look("eth0", "10.0.0.5", NOW);

    far.SayTo(QByteArray::fromHex("02000000bb01"), "10.0.0.5", QByteArray::fromHex("02000000aa02"));
    far.Say("10.0.0.5");

    QCOMPARE(FirstKnown(watch), "02:00:00:00:AA:01");
}

void TestDuplicateWatch::hostThatAnswersIsKnown()
{
    FarEnd far;
    DuplicateWatch watch;

    Meet(far, watch);

    QCOMPARE(watch.Look("eth0", "10.0.0.5", NOW + 30s), "02:00:00:00:AA:01");
}

void TestDuplicateWatch::hostThatAnswersNoMoreIsForgotten()
{
    FarEnd far;
    DuplicateWatch watch;
    Meet(far, watch);

    LookEachSecond(watch, 2, 62);
    QCOMPARE(watch.Look("eth0", "10.0.0.5", NOW + 63s), "02:00:00:00:AA:01");
    QCOMPARE(watch.Look("eth0", "10.0.0.5", NOW + 64s), QString());
}

void TestDuplicateWatch::otherAddressIsAnotherQuestion()
{
    FarEnd far;
    DuplicateWatch watch;
    Meet(far, watch);

    QCOMPARE(watch.Look("eth0", "10.0.0.6", NOW + 2s), QString());

    QTRY_COMPARE(far.Questions(), QStringList({QUESTION, "0.0.0.0 asks for 10.0.0.6"}));
}

void TestDuplicateWatch::otherHostsOfTheNetworkDoNotCount()
{
    FarEnd far;
    DuplicateWatch watch;
    watch.Look("eth0", "10.0.0.5", NOW);

    far.Say("10.0.0.7", QByteArray::fromHex("02000000aa02"));
    far.Say("10.0.0.5");

    QCOMPARE(FirstKnown(watch), "02:00:00:00:AA:01");
}

void TestDuplicateWatch::ownInterfaceIsNoOtherHost()
{
    FarEnd far;
    DuplicateWatch watch;
    const QByteArray ours = TestSupport::ReadFile("/sys/class/net/far0/address").trimmed();
    watch.Look("eth0", "10.0.0.5", NOW);

    far.Say("10.0.0.5", QByteArray::fromHex(ours));
    far.Say("10.0.0.5");

    QCOMPARE(FirstKnown(watch), "02:00:00:00:AA:01");
}

void TestDuplicateWatch::withoutAnAddressNothingIsAsked()
{
    FarEnd far;
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
    FarEnd far;
    DuplicateWatch watch;
    Meet(far, watch);
    RealIp({"link", "delete", "dev", "eth0"});

    QCOMPARE(watch.Look("eth0", "10.0.0.5", NOW + 60s), QString());
}

/// The cable may be in another network since, where the address is somebody's by right.
void TestDuplicateWatch::whatWasSaidWhileNobodyLookedIsAskedAnew()
{
    FarEnd far;
    DuplicateWatch watch;
    watch.Look("eth0", "10.0.0.5", NOW);
    QTRY_COMPARE(far.Questions().size(), 1);
    far.Say("10.0.0.5");

    QCOMPARE(watch.Look("eth0", "10.0.0.5", NOW + 6s), QString());

    QTRY_COMPARE(far.Questions(), QStringList({QUESTION, QUESTION}));
}

QTEST_GUILESS_MAIN(TestDuplicateWatch)
#include "tst_duplicatewatch.moc"
