// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"

#include "zebnetstatus.h"

#include <QProcess>
#include <QSharedMemory>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace CorviWorld;
using namespace TestSupport;

namespace {

const QString SEGMENT_KEY = QStringLiteral("com.qarbo.zebnetstatus");
constexpr int SEGMENT_SIZE = 512;

/// The segment as another program reads it.
QByteArray ReadSegment()
{
    QSharedMemory reader(SEGMENT_KEY);
    if (!reader.attach(QSharedMemory::ReadOnly))
        return QByteArray();
    reader.lock();
    const QByteArray contents(static_cast<const char *>(reader.constData()), reader.size());
    reader.unlock();
    return contents;
}

void FillSegment(char byte)
{
    QSharedMemory writer(SEGMENT_KEY);
    if (!writer.attach() || !writer.lock())
        qFatal("no segment");
    memset(writer.data(), byte, static_cast<size_t>(writer.size()));
    writer.unlock();
}

void RemoveKeyFile()
{
    for (const QString &name : QDir("/tmp").entryList({"qipc_sharedmemory_*"}, QDir::Files | QDir::System))
        Remove("/tmp/" + name);
}

/// While it lives, nobody can make a file in /tmp.
class ReadOnlyTmp
{
public:
    ReadOnlyTmp() { Remount("ro"); }
    ~ReadOnlyTmp() { Remount("rw"); }

private:
    static void Remount(const QString &mode)
    {
        if (QProcess::execute("mount", {"-o", "remount,bind," + mode, "/tmp"}) != 0)
            qFatal("cannot remount /tmp");
    }
};

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

/// The status segment and the events.
class TestCorviStatus : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    // The segment
    void segmentIsMadeAtConstruction();
    void segmentThatExistsIsTaken_data();
    void segmentThatExistsIsTaken();
    void segmentThatCannotBeHadEndsTheProcess();
    void segmentThatComesLateIsWaitedFor();
    void lostSegmentIsMadeAnew_data();
    void lostSegmentIsMadeAnew();
    void segmentThatCannotBeMadeAnewIsTriedAgain();
    void recordIsPublished();
    void copyIsBoundedByTheSegment();
    void copyLeavesTheRestOfALargerSegment();
    void publishingWaitsForTheLock();
    void segmentThatCannotBeLockedIsLeftAlone();
    void publishingIsTraced();

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
    void listenerThatWakesUpSeesNoEmptyConnection();
    void sendingIsTraced_data();
    void sendingIsTraced();
    void sendingIsSilentAtTheNormalLevel();
};

void TestCorviStatus::init()
{
    StartFromNothing();
}

void TestCorviStatus::segmentIsMadeAtConstruction()
{
    WriteFile(DEBUG_FLAG, "");

    const CorviPeer corvi;

    QCOMPARE(corvi.Segment().size(), SEGMENT_SIZE);
    QCOMPARE(ReadSegment().size(), SEGMENT_SIZE);
    QCOMPARE(LogLines().filter("Corvi::InitSharedMemory"), QStringList{"Corvi::InitSharedMemory"});
    QCOMPARE(LogLines().filter("Corvi::run"), QStringList());
}

void TestCorviStatus::segmentThatExistsIsTaken_data()
{
    QTest::addColumn<int>("size");
    QTest::newRow("as ours") << 512;
    QTest::newRow("smaller") << 100;
    QTest::newRow("larger") << 4096;
}

void TestCorviStatus::segmentThatExistsIsTaken()
{
    QFETCH(int, size);
    QSharedMemory earlier(SEGMENT_KEY);
    QVERIFY(earlier.create(size));
    WriteFile(DEBUG_FLAG, "");

    const CorviPeer corvi;

    QCOMPARE(corvi.Segment().size(), size);
    QCOMPARE(LogLines().filter("Corvi::run"),
             QStringList({"Corvi::run - Unable to create shared memory segment",
                          "Corvi::run - Attached to shared memory segment"}));
}

void TestCorviStatus::segmentThatCannotBeHadEndsTheProcess()
{
    QProcess process;
    // Where the file behind the segment's key would be, and no file can be made. There is no segment without
    // it.
    process.setEnvironment(QProcess::systemEnvironment() + QStringList{"TMPDIR=/proc"});

    process.start(QCoreApplication::applicationFilePath(), {"--construct"});

    QVERIFY(process.waitForFinished(10000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(LogLines().last(), QString("Corvi::run - Unable to attach to shared memory segment"));
    QVERIFY(process.readAllStandardError().contains("Unable to attach to shared memory segment"));
}

void TestCorviStatus::segmentThatComesLateIsWaitedFor()
{
    RemoveKeyFile();
    const ReadOnlyTmp readOnly;
    QProcess later;
    // Two of the five tries come to nothing.
    later.start("sh", {"-c", "sleep 0.2; mount -o remount,bind,rw /tmp"});
    QVERIFY(later.waitForStarted());

    const CorviPeer corvi;

    QVERIFY(later.waitForFinished());
    QVERIFY(!corvi.Segment().isEmpty());
    QCOMPARE(ReadSegment().size(), SEGMENT_SIZE);
}

void TestCorviStatus::lostSegmentIsMadeAnew_data()
{
    QTest::addColumn<bool>("removesSegment");
    QTest::addColumn<bool>("removesKeyFile");
    // What the last of the readers does when it lets go.
    QTest::newRow("the segment is marked for removal") << true << false;
    QTest::newRow("its key file is gone") << false << true;
    QTest::newRow("both") << true << true;
}

void TestCorviStatus::lostSegmentIsMadeAnew()
{
    QFETCH(bool, removesSegment);
    QFETCH(bool, removesKeyFile);
    MakeMachine(LAN_STATIC, {"eth0"});
    CorviPeer corvi;
    corvi.Tick(3);
    const QByteArray record = ReadSegment();
    QCOMPARE(record, corvi.Device("eth0")->status->GetData());
    ClearLog();
    if (removesSegment)
        QCOMPARE(QProcess::execute("ipcrm", {"--all=shm"}), 0);
    if (removesKeyFile)
        RemoveKeyFile();
    QCOMPARE(ReadSegment(), QByteArray());

    corvi.Tick();

    QCOMPARE(ReadSegment(), record);
    QCOMPARE(LogLines().filter("segment"),
             QStringList{"Corvi::KeepSegmentFound - the status segment was lost and is made anew"});
    corvi.Device("eth0")->status->SetIfaceInfo("00:11:22:33:44:55", "10.0.0.5", "", "");
    corvi.ShareStatus(corvi.Device("eth0"));
    QCOMPARE(ReadSegment(), corvi.Device("eth0")->status->GetData());
}

void TestCorviStatus::segmentThatCannotBeMadeAnewIsTriedAgain()
{
    MakeInterface("eth0");
    CorviPeer corvi;
    corvi.Tick();
    ClearLog();
    RemoveKeyFile();
    {
        const ReadOnlyTmp readOnly;
        corvi.Tick(3);
        // It waits for the segment, too.
        corvi.ShareStatus(corvi.Device("eth0"));
    }
    QCOMPARE(LogLines().filter("cannot be made anew").size(), 1);

    corvi.Tick();

    QCOMPARE(ReadSegment(), corvi.Device("eth0")->status->GetData());
}

void TestCorviStatus::recordIsPublished()
{
    CorviPeer corvi({"eth0"}, DISCOVERED);
    FillSegment('x');
    ZebNetStatus *const status = corvi.Device("eth0")->status.get();
    status->SetConnected(true);
    status->SetIfaceInfo("00:11:22:33:44:55", "10.0.0.5", "10.0.0.255", "255.255.255.0");

    corvi.ShareStatus(corvi.Device("eth0"));

    QCOMPARE(ReadSegment(), status->GetData());
    ZebNetStatus copy;
    QVERIFY(copy.SetData(ReadSegment()));
    QCOMPARE(copy.GetIp(), QString("10.0.0.5"));
    QVERIFY(copy.IsConnected());
}

void TestCorviStatus::copyIsBoundedByTheSegment()
{
    MakeInterface("eth0");
    QSharedMemory earlier(SEGMENT_KEY);
    QVERIFY(earlier.create(100));
    CorviPeer corvi(DISCOVERED);

    corvi.ShareStatus(corvi.Device("eth0"));

    QCOMPARE(ReadSegment(), corvi.Device("eth0")->status->GetData().left(100));
    // The kernel maps whole pages: what follows the segment is there, and is still as it was.
    QCOMPARE(QByteArray(static_cast<const char *>(earlier.constData()) + 100, 412), QByteArray(412, '\0'));
}

void TestCorviStatus::copyLeavesTheRestOfALargerSegment()
{
    MakeInterface("eth0");
    QSharedMemory earlier(SEGMENT_KEY);
    QVERIFY(earlier.create(1000));
    CorviPeer corvi(DISCOVERED);
    FillSegment('x');

    corvi.ShareStatus(corvi.Device("eth0"));

    QCOMPARE(ReadSegment(), corvi.Device("eth0")->status->GetData() + QByteArray(488, 'x'));
}

void TestCorviStatus::publishingWaitsForTheLock()
{
    CorviPeer corvi({"eth0"}, DISCOVERED);
    FillSegment('x');
    QProcess reader;
    reader.start(QCoreApplication::applicationFilePath(), {"--hold-lock", "300"});
    QVERIFY(reader.waitForReadyRead(5000));

    corvi.ShareStatus(corvi.Device("eth0"));

    QVERIFY(reader.waitForFinished());
    // What it read at the end of its lock was the old record, whole.
    QCOMPARE(reader.readAllStandardOutput(), QByteArray("locked\n") + QByteArray(SEGMENT_SIZE, 'x'));
    QCOMPARE(ReadSegment(), corvi.Device("eth0")->status->GetData());
}

void TestCorviStatus::segmentThatCannotBeLockedIsLeftAlone()
{
    MakeInterface("eth0");
    EventListener listener;
    CorviPeer corvi(DISCOVERED);
    FillSegment('x');
    // The semaphore behind the lock is gone, and it cannot be made again.
    QCOMPARE(QProcess::execute("ipcrm", {"--all=sem"}), 0);
    const QStringList keyFiles = QDir("/tmp").entryList({"qipc_systemsem_*"}, QDir::Files);
    QCOMPARE(keyFiles.size(), 1);
    Remove("/tmp/" + keyFiles.first());
    const ReadOnlyTmp readOnly;
    ClearLog();

    corvi.SendAssociationMessage(corvi.Device("eth0"), true);
    corvi.SendAssociationMessage(corvi.Device("eth0"), true);

    // Reported once.
    QCOMPARE(LogLines(),
             QStringList{"ShareStatus() the segment cannot be locked, its record stays as it was"});
    QCOMPARE(listener.Take(), Events({ASSOCIATION_UP, ASSOCIATION_UP}));
    QCOMPARE(corvi.Segment().left(SEGMENT_SIZE), QByteArray(SEGMENT_SIZE, 'x'));
}

void TestCorviStatus::publishingIsTraced()
{
    CorviPeer corvi({"eth0"}, DISCOVERED);
    NetworkDevice *const device = corvi.Device("eth0");

    LogFromHere(3);
    corvi.ShareStatus(device);
    QCOMPARE(LogLines(), QStringList());

    SetLevel(4);
    corvi.ShareStatus(device);
    QCOMPARE(LogLines(), QStringList({"ShareStatus()  Start", "ShareStatus()  Complete"}));

    LogFromHere(6);
    corvi.ShareStatus(device);
    QCOMPARE(LogLines(), QStringList({"ShareStatus()  Start", "ShareStatus BA Size 512 _shm.size 512",
                                      "ShareStatus()  Complete"}));
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
    QElapsedTimer elapsed;
    elapsed.start();

    corvi.SendAssociationMessage(corvi.Device("eth0"), true);

    QVERIFY(elapsed.elapsed() < 900);
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

    QVERIFY2(elapsed.elapsed() >= 900 && elapsed.elapsed() < 3000,
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

int Construct()
{
    // Ends the process when there is no segment.
    const CorviPeer corvi;
    return 1;
}

void Print(const QByteArray &bytes)
{
    QFile output;
    output.open(1, QIODevice::WriteOnly);
    output.write(bytes);
}

int HoldLock(int milliseconds)
{
    QSharedMemory reader(SEGMENT_KEY);
    if (!reader.attach(QSharedMemory::ReadOnly) || !reader.lock())
        return 1;
    Print("locked\n");
    QThread::msleep(static_cast<unsigned long>(milliseconds));
    Print(QByteArray(static_cast<const char *>(reader.constData()), reader.size()));
    reader.unlock();
    return 0;
}

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
    if (arguments.value(1) == "--construct")
        return Construct();
    if (arguments.value(1) == "--hold-lock")
        return HoldLock(arguments.value(2).toInt());
    if (arguments.value(1) == "--read-on-event")
        return ReadOnEvent();
    TestCorviStatus test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_corvi_status.moc"
