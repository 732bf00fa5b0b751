// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "routingrequest.h"

#include "testsupport.h"

#include <QByteArray>
#include <QTest>

#include <arpa/inet.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

using TestSupport::OpenDescriptors;

namespace {

struct AddressRequest
{
    nlmsghdr header;
    ifaddrmsg message;
    rtattr local;
    in_addr address;
};

AddressRequest RequestFor(const char *interfaceName, const char *address)
{
    AddressRequest request = {};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_NEWADDR;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_CREATE;
    request.message.ifa_family = AF_INET;
    request.message.ifa_prefixlen = 24;
    request.message.ifa_index = ::if_nametoindex(interfaceName);
    request.local.rta_len = RTA_LENGTH(sizeof request.address);
    request.local.rta_type = IFA_LOCAL;
    ::inet_pton(AF_INET, address, &request.address);
    return request;
}

} // namespace

class TestRoutingRequest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void kernelDoesWhatIsAsked();
    void requestThatCannotBeSentIsTold();
    void socketIsClosed();
};

void TestRoutingRequest::initTestCase()
{
    TestSupport::MakeVeth(QStringLiteral("eth0"), QStringLiteral("far0"));
}

void TestRoutingRequest::kernelDoesWhatIsAsked()
{
    const AddressRequest request = RequestFor("eth0", "192.0.2.7");

    QVERIFY(SendToRouting(&request, sizeof request));

    QVERIFY(TestSupport::RealIp({"addr", "show", "dev", "eth0"}).contains("inet 192.0.2.7/24 "));
}

void TestRoutingRequest::requestThatCannotBeSentIsTold()
{
    const QByteArray moreThanTheSocketHolds(64 * 1024 * 1024, '\0');

    QVERIFY(!SendToRouting(moreThanTheSocketHolds.constData(),
                           static_cast<size_t>(moreThanTheSocketHolds.size())));
}

void TestRoutingRequest::socketIsClosed()
{
    const AddressRequest request = RequestFor("eth0", "192.0.2.8");
    const int before = OpenDescriptors();

    QVERIFY(SendToRouting(&request, sizeof request));

    QCOMPARE(OpenDescriptors(), before);
}

QTEST_GUILESS_MAIN(TestRoutingRequest)
#include "tst_routingrequest.moc"
