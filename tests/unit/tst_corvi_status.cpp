// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"

#include "zebnetstatus.h"

#include <QLocalServer>
#include <QLocalSocket>
#include <QProcess>
#include <QSharedMemory>

#include <algorithm>
#include <limits>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace CorviWorld;
using namespace TestSupport;

namespace {

/// A listener that never takes a connection and whose queue holds only a few.
class DeafListener
{
public:
    DeafListener() : fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, "/tmp/corvin", sizeof address.sun_path);
        if (::bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
            ::listen(fd, 0) != 0)
            qFatal("no listener");
    }
    ~DeafListener()
    {
        ::close(fd);
        ::unlink("/tmp/corvin");
    }

    /// Takes what waits for it, within this time; the bytes of each connection.
    QVector<QByteArray> TakeAll(int timeoutMs) const
    {
        QVector<QByteArray> messages;
        // Never true: the whole time is waited for.
        (void)QTest::qWaitFor(
            [&] {
                const int connection = ::accept4(fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
                if (connection != -1) {
                    char bytes[64];
                    const ssize_t length = ::read(connection, bytes, sizeof bytes);
                    messages << QByteArray(bytes, length > 0 ? static_cast<int>(length) : 0);
                    ::close(connection);
                }
                return false;
            },
            timeoutMs);
        return messages;
    }

private:
    const int fd;
};

} // namespace

/// The events, and the record that each comes with.
class TestCorviStatus : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void recordIsThatOfTheDeviceOfTheEvent();
    void pulledCableIsPublishedOnce();
    void addressThatIsPublishedIsNotPublishedAgain();

    // Events
    void messageIsFourBytesBigEndian_data();
    void messageIsFourBytesBigEndian();
    void wrapperSendsItsCode_data();
    void wrapperSendsItsCode();
    void slotTakesTheArgumentsInItsOrder();
    void statusIsPublishedBeforeTheEvent();
    void nullDeviceLeavesTheSegment();
    void eachEventHasAConnection();
    void missingListenerLosesTheEvent();
    void deafListenerBlocksForASecond();
    void deafListenerLosesOnlyItsOwnEvents();
    void listenerThatHangsUpCostsNothing();
    void listenerThatWakesUpSeesNoEmptyConnection();
    void sendingIsTraced_data();
    void sendingIsTraced();
    void sendingIsSilentAtTheNormalLevel();
};

void TestCorviStatus::init()
{
    StartFromNothing();
}

void TestCorviStatus::recordIsThatOfTheDeviceOfTheEvent()
{
    CorviPeer corvi({"eth0", "eth1"}, DISCOVERED);
    corvi.AdoptWired("eth0");
    for (const char *name : {"eth0", "eth1"})
        corvi.Device(name)->status->SetIfaceInfo(name, QString(), QString(), QString());

    corvi.Device("eth1")->SendEvent(1, 0);

    ZebNetStatus published;
    QVERIFY(published.SetData(ReadSegment()));
    QCOMPARE(published.GetMac(), QString("eth1"));
}

void TestCorviStatus::pulledCableIsPublishedOnce()
{
    MakeMachine(LAN_STATIC, {"eth0"});
    EventListener listener;
    CorviPeer corvi(SET_UP);
    listener.Take();

    PullCable("eth0");
    corvi.Tick();

    QCOMPARE(listener.Take(), Events({ASSOCIATION_DOWN}));
    ZebNetStatus published;
    QVERIFY(published.SetData(ReadSegment()));
    QVERIFY(!published.IsConnected());
    // The address went with the link, and from the record too.
    QCOMPARE(published.GetIp(), QString());

    FillSegment('x');
    corvi.Tick(5);
    QCOMPARE(listener.Take(), Events());
    QCOMPARE(ReadSegment(), QByteArray(SEGMENT_SIZE, 'x'));
}

void TestCorviStatus::addressThatIsPublishedIsNotPublishedAgain()
{
    UseDhcpServer();
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    corvi.Tick();
    LogFromHere(4);

    corvi.Tick();

    QVERIFY(!corvi.WiredDevice()->ipAddress.isEmpty());
    QCOMPARE(LogCount("ShareStatus()  Start"), 0);
}

void TestCorviStatus::messageIsFourBytesBigEndian_data()
{
    QTest::addColumn<int>("event");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("small") << 1 << 2 << QByteArray("\x00\x01\x00\x02", 4);
    QTest::newRow("negative") << 2 << -1 << QByteArray("\x00\x02\xff\xff", 4);
    QTest::newRow("both bytes") << 0x1234 << 0x5678 << QByteArray("\x12\x34\x56\x78", 4);
    QTest::newRow("truncated") << 0x12345678 << -65537 << QByteArray("\x56\x78\xff\xff", 4);
    QTest::newRow("truncated to nothing") << 65536 << 0x7fff0000 << QByteArray("\x00\x00\x00\x00", 4);
}

void TestCorviStatus::messageIsFourBytesBigEndian()
{
    QFETCH(int, event);
    QFETCH(int, status);
    QFETCH(QByteArray, bytes);
    EventListener listener;
    CorviPeer corvi;

    corvi.SendEvent(nullptr, event, status);

    QCOMPARE(listener.TakeMessages(), QVector<QByteArray>{bytes});
}

void TestCorviStatus::wrapperSendsItsCode_data()
{
    QTest::addColumn<QString>("wrapper");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<int>("code");
    QTest::addColumn<int>("status");
    QTest::newRow("connections, good") << "connections" << true << 0 << 1;
    QTest::newRow("connections, bad") << "connections" << false << 0 << -1;
    QTest::newRow("DHCP, good") << "dhcp" << true << 1 << 1;
    QTest::newRow("DHCP, bad") << "dhcp" << false << 1 << -1;
    QTest::newRow("association, good") << "association" << true << 2 << 1;
    QTest::newRow("association, bad") << "association" << false << 2 << -1;
    QTest::newRow("configuration") << "config" << true << 3 << 0;
}

void TestCorviStatus::wrapperSendsItsCode()
{
    QFETCH(QString, wrapper);
    QFETCH(bool, ok);
    QFETCH(int, code);
    QFETCH(int, status);
    MakeInterface("eth0");
    EventListener listener;
    CorviPeer corvi(DISCOVERED);
    NetworkDevice *const device = corvi.Device("eth0");
    FillSegment('x');

    if (wrapper == "connections")
        corvi.SendConnectionsMessage(device, ok);
    else if (wrapper == "dhcp")
        corvi.SendDhcpMessage(device, ok);
    else if (wrapper == "association")
        corvi.SendAssociationMessage(device, ok);
    else
        corvi.SendConfigMessage(device);

    QCOMPARE(listener.Take(), Events({{code, status}}));
    QCOMPARE(ReadSegment(), device->status->GetData());
}

void TestCorviStatus::slotTakesTheArgumentsInItsOrder()
{
    MakeInterface("eth0");
    EventListener listener;
    CorviPeer corvi(DISCOVERED);
    FillSegment('x');

    corvi.onSendEventMessage(5, 6, corvi.Device("eth0"));

    QCOMPARE(listener.Take(), Events({{5, 6}}));
    QCOMPARE(ReadSegment(), corvi.Device("eth0")->status->GetData());
}

void TestCorviStatus::statusIsPublishedBeforeTheEvent()
{
    CorviPeer corvi({"eth0"}, DISCOVERED);
    FillSegment('x');
    QProcess reader;
    reader.start(QCoreApplication::applicationFilePath(), {"--read-on-event"});
    QVERIFY(reader.waitForReadyRead(5000));

    corvi.SendAssociationMessage(corvi.Device("eth0"), true);

    QVERIFY(reader.waitForFinished(5000));
    QCOMPARE(reader.readAllStandardOutput(), "listening\n" + corvi.Device("eth0")->status->GetData());
}

void TestCorviStatus::nullDeviceLeavesTheSegment()
{
    EventListener listener;
    CorviPeer corvi;
    FillSegment('x');

    corvi.SendEvent(nullptr, 1, 1);

    QCOMPARE(listener.Take(), Events({{1, 1}}));
    QCOMPARE(ReadSegment(), QByteArray(SEGMENT_SIZE, 'x'));
}

void TestCorviStatus::eachEventHasAConnection()
{
    EventListener listener;
    CorviPeer corvi;

    for (int i = 0; i < 5; ++i)
        corvi.SendEvent(nullptr, i, -i);

    QCOMPARE(listener.Take(), Events({{0, 0}, {1, -1}, {2, -2}, {3, -3}, {4, -4}}));
}

void TestCorviStatus::missingListenerLosesTheEvent()
{
    CorviPeer corvi({"eth0"}, DISCOVERED);
    FillSegment('x');
    // The quickest of some, as the machine may be busy: none waits the second that a connection may take.
    qint64 quickest = std::numeric_limits<qint64>::max();
    for (int i = 0; i < 5; ++i) {
        QElapsedTimer elapsed;
        elapsed.start();
        corvi.SendAssociationMessage(corvi.Device("eth0"), true);
        quickest = std::min(quickest, elapsed.elapsed());
    }

    QVERIFY2(quickest < 900, qPrintable(QString::number(quickest)));
    QCOMPARE(ReadSegment(), corvi.Device("eth0")->status->GetData());

    // Neither queued nor sent again.
    EventListener listener;
    corvi.SendEvent(nullptr, 9, 9);
    QCOMPARE(listener.Take(), Events({{9, 9}}));
}

void TestCorviStatus::deafListenerBlocksForASecond()
{
    const DeafListener listener;
    CorviPeer corvi;
    SetLevel(4);
    // The first one waits in the queue.
    corvi.SendEvent(nullptr, 1, 1);
    ClearLog();
    QElapsedTimer elapsed;
    elapsed.start();

    corvi.SendEvent(nullptr, 2, 2);

    QVERIFY2(elapsed.elapsed() >= 900 && elapsed.elapsed() < 10000,
             qPrintable(QString::number(elapsed.elapsed())));
    QCOMPARE(LogCount("SendEvent()  did not connect to socket"), 1);
    QCOMPARE(LogCount("Connected To Client"), 0);
}

void TestCorviStatus::deafListenerLosesOnlyItsOwnEvents()
{
    CorviPeer corvi;
    {
        const DeafListener listener;
        corvi.SendEvent(nullptr, 1, 1);
        corvi.SendEvent(nullptr, 2, 2);
    }
    EventListener listener;

    corvi.SendEvent(nullptr, 3, 3);

    QCOMPARE(listener.Take(), Events({{3, 3}}));
}

void TestCorviStatus::listenerThatHangsUpCostsNothing()
{
    QLocalServer listener;
    QVERIFY(listener.listen("corvin"));
    CorviPeer corvi;
    corvi.SendEvent(nullptr, 1, 1);
    QVERIFY(listener.waitForNewConnection(5000));
    delete listener.nextPendingConnection();

    corvi.SendEvent(nullptr, 2, 2);

    QVERIFY(listener.waitForNewConnection(5000));
    QLocalSocket *const connection = listener.nextPendingConnection();
    while (connection->bytesAvailable() < 4 && connection->waitForReadyRead(5000)) {
    }
    QCOMPARE(connection->readAll(), QByteArray::fromHex("00020002"));
}

void TestCorviStatus::listenerThatWakesUpSeesNoEmptyConnection()
{
    const DeafListener listener;
    CorviPeer corvi;
    corvi.SendEvent(nullptr, 1, 1);
    corvi.SendEvent(nullptr, 2, 2);

    QCOMPARE(listener.TakeAll(500), QVector<QByteArray>{QByteArray("\x00\x01\x00\x01", 4)});
}

void TestCorviStatus::sendingIsTraced_data()
{
    QTest::addColumn<bool>("hasListener");
    QTest::addColumn<bool>("hasDevice");
    QTest::addColumn<QStringList>("lines");
    const QStringList published{"SendEvent()  Start", "ShareStatus()  Start", "ShareStatus()  Complete",
                                "SendEvent()  ShareStatus complete"};
    const QStringList nothing{"SendEvent()  Start", "SendEvent -- nd is null"};
    const QStringList sent{"Connected To Client", "SendEvent()  Complete"};
    const QStringList lost{"SendEvent()  did not connect to socket", "SendEvent()  Complete"};
    QTest::newRow("device and listener") << true << true << published + sent;
    QTest::newRow("device, no listener") << false << true << published + lost;
    QTest::newRow("no device, listener") << true << false << nothing + sent;
    QTest::newRow("neither") << false << false << nothing + lost;
}

void TestCorviStatus::sendingIsTraced()
{
    QFETCH(bool, hasListener);
    QFETCH(bool, hasDevice);
    MakeInterface("eth0");
    std::unique_ptr<EventListener> listener;
    if (hasListener)
        listener = std::make_unique<EventListener>();
    CorviPeer corvi(DISCOVERED);
    LogFromHere(4);

    corvi.SendEvent(hasDevice ? corvi.Device("eth0") : nullptr, 1, 1);

    QTEST(LogLines(), "lines");
}

void TestCorviStatus::sendingIsSilentAtTheNormalLevel()
{
    CorviPeer corvi({"eth0"}, DISCOVERED);
    LogFromHere(3);

    corvi.SendEvent(corvi.Device("eth0"), 1, 1);
    corvi.SendEvent(nullptr, 1, 1);

    QCOMPARE(LogLines(), QStringList());
}

namespace {

int ReadOnEvent()
{
    EventListener listener;
    Print("listening\n");
    for (int i = 0; i < 500; ++i) {
        if (!listener.TakeMessages().isEmpty()) {
            Print(ReadSegment());
            return 0;
        }
        QThread::msleep(5);
    }
    return 1;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    // Other programs, as the tests need them beside the service.
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == "--read-on-event")
        return ReadOnEvent();
    TestCorviStatus test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_corvi_status.moc"
