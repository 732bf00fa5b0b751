// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "carrierfile.h"

#include "fakesysnet.h"
#include "opencounter.h"
#include "testsupport.h"

#include <QtTest>

#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

using TestSupport::RealIp;

namespace {

const QString CARRIER = QStringLiteral("/sys/class/net/eth0/carrier");

/// Made by hand with a number of its own, as nobody gives the same number twice by himself.
void GivenInterface(const QString &name, const QString &index, bool hasCarrier)
{
    RealIp({"link", "add", "name", name, "index", index, "type", "veth", "peer", "name", "to" + index});
    RealIp({"link", "set", "dev", name, "up"});
    TestSupport::SetCable("to" + index, hasCarrier);
    QTRY_COMPARE(TestSupport::ReadFile("/sys/class/net/" + name + "/carrier"),
                 QByteArray(hasCarrier ? "1\n" : "0\n"));
}

} // namespace

/// The carrier, read from a file that stays open.
class TestCarrierFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void isOpenedOnce();
    void seesTheLinkChange();
    void takesNoOtherInterfaceForItsOwn_data();
    void takesNoOtherInterfaceForItsOwn();
    void renamedInterfaceIsGone();
    void returnsWithItsName();
    void fileThatIsReplacedIsOpenedAnew();
    void closesItsFile();
    void leavesDescriptorsForOthers();

private:
    int socketFd = -1;
};

void TestCarrierFile::init()
{
    TestSupport::RemoveInterfaces();
    socketFd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}

void TestCarrierFile::cleanup()
{
    ::close(socketFd);
}

void TestCarrierFile::isOpenedOnce()
{
    GivenInterface("eth0", "70", true);
    CarrierFile carrier("eth0");
    OpenCounter opens({CARRIER});

    for (int i = 0; i < 5; ++i)
        QCOMPARE(carrier.Read(socketFd), '1');

    QCOMPARE(opens.Take().value(CARRIER), 1);
}

void TestCarrierFile::seesTheLinkChange()
{
    GivenInterface("eth0", "70", true);
    CarrierFile carrier("eth0");
    QCOMPARE(carrier.Read(socketFd), '1');

    TestSupport::SetCable("to70", false);
    QTRY_COMPARE(carrier.Read(socketFd), '0');
    RealIp({"link", "set", "dev", "eth0", "down"});
    QTRY_COMPARE(carrier.Read(socketFd), '\0');
    TestSupport::SetCable("to70", true);
    RealIp({"link", "set", "dev", "eth0", "up"});
    QTRY_COMPARE(carrier.Read(socketFd), '1');
}

void TestCarrierFile::takesNoOtherInterfaceForItsOwn_data()
{
    QTest::addColumn<QStringList>("goodbye");
    QTest::addColumn<QString>("newIndex");

    const QStringList removal = {"link", "delete", "dev", "eth0"};
    QTest::newRow("renamed, another one gets the name")
        << QStringList{"link", "set", "dev", "eth0", "name", "old0"} << "71";
    QTest::newRow("removed and made anew") << removal << "71";
    QTest::newRow("removed and made anew with the same number") << removal << "70";
}

void TestCarrierFile::takesNoOtherInterfaceForItsOwn()
{
    QFETCH(QStringList, goodbye);
    QFETCH(QString, newIndex);
    GivenInterface("eth0", "70", true);
    CarrierFile carrier("eth0");
    QCOMPARE(carrier.Read(socketFd), '1');

    if (goodbye.contains("old0"))
        RealIp({"link", "set", "dev", "eth0", "down"});
    RealIp(goodbye);
    if (goodbye.contains("old0"))
        RealIp({"link", "set", "dev", "old0", "up"});
    GivenInterface("eth0", newIndex, false);

    QCOMPARE(carrier.Read(socketFd), '0');
}

void TestCarrierFile::renamedInterfaceIsGone()
{
    GivenInterface("eth0", "70", true);
    CarrierFile carrier("eth0");
    QCOMPARE(carrier.Read(socketFd), '1');

    RealIp({"link", "set", "dev", "eth0", "down"});
    RealIp({"link", "set", "dev", "eth0", "name", "old0"});
    RealIp({"link", "set", "dev", "old0", "up"});

    QCOMPARE(carrier.Read(socketFd), '\0');
}

void TestCarrierFile::returnsWithItsName()
{
    CarrierFile carrier("eth0");
    QCOMPARE(carrier.Read(socketFd), '\0');

    GivenInterface("eth0", "70", true);

    QCOMPARE(carrier.Read(socketFd), '1');
}

void TestCarrierFile::fileThatIsReplacedIsOpenedAnew()
{
    GivenInterface("eth0", "70", true);
    FakeSysNet sys;
    sys.Write("eth0/carrier", "1\n");
    CarrierFile carrier("eth0");
    QCOMPARE(carrier.Read(socketFd), '1');

    sys.Remove("eth0/carrier");
    QCOMPARE(carrier.Read(socketFd), '\0');
    sys.Write("eth0/carrier", "0\n");
    QCOMPARE(carrier.Read(socketFd), '0');
}

void TestCarrierFile::closesItsFile()
{
    GivenInterface("eth0", "70", true);
    const int before = TestSupport::OpenDescriptors();
    {
        CarrierFile carrier("eth0");
        QCOMPARE(carrier.Read(socketFd), '1');
        RealIp({"link", "delete", "dev", "eth0"});
        GivenInterface("eth0", "71", true);
        QCOMPARE(carrier.Read(socketFd), '1');
        QCOMPARE(TestSupport::OpenDescriptors(), before + 1);
    }

    QCOMPARE(TestSupport::OpenDescriptors(), before);
}

void TestCarrierFile::leavesDescriptorsForOthers()
{
    GivenInterface("eth0", "70", true);
    std::vector<int> taken;
    while (taken.empty() || taken.back() < 511)
        taken.push_back(::fcntl(socketFd, F_DUPFD_CLOEXEC, 0));
    const int before = TestSupport::OpenDescriptors();
    CarrierFile carrier("eth0");

    QCOMPARE(carrier.Read(socketFd), '1');

    QCOMPARE(TestSupport::OpenDescriptors(), before);
    for (const int fd : taken)
        ::close(fd);
}

QTEST_GUILESS_MAIN(TestCarrierFile)

#include "tst_carrierfile.moc"
