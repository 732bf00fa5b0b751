// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"

#include "segmentplace.h"
#include "zebnetsegment.h"
#include "zebnetstatus.h"

#include <QProcess>
#include <QSharedMemory>

#include <cstdlib>

#include <dlfcn.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace CorviWorld;
using namespace TestSupport;

namespace {

// What a QSharedMemory of Qt 5 makes of "com.qarbo.zebnetstatus": its letters, and its SHA-1. Readers that
// were built with another Qt than the daemon, or with none, find the segment and its lock by these.
const char *const SEGMENT_FILE =
    "/tmp/qipc_sharedmemory_comqarbozebnetstatusa8737aa16e9a8a0aee386ac7956410d6542e8c5a";
const char *const LOCK_FILE =
    "/tmp/qipc_systemsem_comqarbozebnetstatusa8737aa16e9a8a0aee386ac7956410d6542e8c5a";

/// The segment as a reader without Qt gets it; empty when there is none.
QByteArray ReadSystemVSegment()
{
    const int id = ::shmget(::ftok(SEGMENT_FILE, 'Q'), ZebNetStatus::RECORD_SIZE, 0);
    const void *const address = id == -1 ? nullptr : ::shmat(id, nullptr, SHM_RDONLY);
    if (!address || address == reinterpret_cast<void *>(-1))
        return QByteArray();
    const QByteArray contents(static_cast<const char *>(address), ZebNetStatus::RECORD_SIZE);
    ::shmdt(address);
    return contents;
}

/// 1 when nobody holds the lock, 0 when somebody does, -1 without a lock.
int SystemVLock()
{
    const int id = ::semget(::ftok(LOCK_FILE, 'Q'), 1, 0);
    return id == -1 ? -1 : ::semctl(id, 0, GETVAL);
}

void RemoveKeyFile()
{
    for (const QString &name : QDir("/tmp").entryList({"qipc_sharedmemory_*"}, QDir::Files | QDir::System))
        Remove("/tmp/" + name);
}

/// For as many times that the kernel is asked for one, it says that it is removed.
int segmentsOnTheirWayOut = 0;

using Deeds = QList<void (*)()>;

/// In a process of his own; false when he could not be had.
bool DoAsAnotherUser(const Deeds &deeds)
{
    const pid_t child = ::fork();
    if (child == 0) {
        if (::setuid(65534) != 0)
            ::_exit(1);
        for (auto deed : deeds)
            deed();
        ::_exit(0);
    }
    int status = -1;
    return ::waitpid(child, &status, 0) == child && status == 0;
}

/// The semaphore behind the lock is gone.
void RemoveLock()
{
    if (QProcess::execute("ipcrm", {"--all=sem"}) != 0)
        qFatal("cannot remove the semaphore");
    for (const QString &name : QDir("/tmp").entryList({"qipc_systemsem_*"}, QDir::Files | QDir::System))
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

} // namespace

/// In the place of the C library's.
extern "C" int shmctl(int id, int command, shmid_ds *segment) noexcept
{
    using Control = int (*)(int, int, shmid_ds *);
    static const auto real = reinterpret_cast<Control>(::dlsym(RTLD_NEXT, "shmctl"));
    const int result = real(id, command, segment);
    if (command == IPC_STAT && segmentsOnTheirWayOut > 0) {
        --segmentsOnTheirWayOut;
        segment->shm_perm.mode |= SHM_DEST;
    }
    return result;
}

Q_DECLARE_METATYPE(Deeds)

/// The segment that others read the status from: where it is found, what becomes of it, who may use it when.
class TestCorviSegment : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init() { StartFromNothing(); }

    void isFoundWithoutQt();
    void isLockedWithoutQt();
    void segmentIsMadeAtConstruction();
    void segmentThatExistsIsTaken_data();
    void segmentThatExistsIsTaken();
    void segmentIsNotToldOfAtTheNormalLevel_data();
    void segmentIsNotToldOfAtTheNormalLevel();
    void segmentKeepsItsContentsUntilANetworkIsSetUp_data();
    void segmentKeepsItsContentsUntilANetworkIsSetUp();
    void segmentThatCannotBeHadEndsTheProcess();
    void readOnlyTmpIsNamedWhereThereIsNoSegment();
    void segmentThatComesLateIsWaitedFor();
    void segmentOnItsWayOutIsNotTaken();
    void lostSegmentIsMadeAnew_data();
    void lostSegmentIsMadeAnew();
    void segmentThatCannotBeMadeAnewIsTriedAgain();
    void anotherUsersNamesAreTakenBack_data();
    void anotherUsersNamesAreTakenBack();
    void anotherUsersSegmentIsNotTakenForOurs();
    void addressIsToldOnceWhileItCannotBePublished_data();
    void addressIsToldOnceWhileItCannotBePublished();
    void recordOfAnInterfaceThatARescanMissesIsReplaced();
    void recordOfAnInterfaceThatARescanFindsStays();
    void recordIsPublished();
    void copyIsBoundedByTheSegment();
    void copyLeavesTheRestOfALargerSegment();
    void segmentThatCannotBeLockedIsLeftAlone();
    void publishingIsTraced();
};

/// A service that finds no segment ends the process with 0, which would pass for the success of every test.
void TestCorviSegment::initTestCase()
{
    std::atexit([] {
        if (QCoreApplication::instance()) // Gone where main() has ended.
            ::_exit(EXIT_FAILURE);
    });
}

void TestCorviSegment::isFoundWithoutQt()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);

    const QByteArray contents = ReadSystemVSegment();

    QCOMPARE(contents, corvi.Segment());
    ZebNetStatus status;
    QVERIFY(status.SetData(contents));
    QCOMPARE(status.GetIp(), QString("10.1.0.2"));
}

void TestCorviSegment::isLockedWithoutQt()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    QSharedMemory reader(ZebNetSegment::KEY);
    QVERIFY(reader.attach(QSharedMemory::ReadOnly));
    QCOMPARE(SystemVLock(), 1);

    QVERIFY(reader.lock());

    QCOMPARE(SystemVLock(), 0);
    QVERIFY(reader.unlock());
    QCOMPARE(SystemVLock(), 1);
}

void TestCorviSegment::segmentIsMadeAtConstruction()
{
    WriteFile(DEBUG_FLAG, "");

    const CorviPeer corvi;

    QCOMPARE(corvi.Segment().size(), SEGMENT_SIZE);
    QCOMPARE(ReadSegment().size(), SEGMENT_SIZE);
    QCOMPARE(LogLines().filter("Corvi::InitSharedMemory"), QStringList{"Corvi::InitSharedMemory"});
    QCOMPARE(LogLines().filter("Corvi::run"), QStringList());
}

void TestCorviSegment::segmentThatExistsIsTaken_data()
{
    QTest::addColumn<int>("size");
    QTest::newRow("as ours") << 512;
    QTest::newRow("smaller") << 100;
    QTest::newRow("larger") << 4096;
}

void TestCorviSegment::segmentThatExistsIsTaken()
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

void TestCorviSegment::segmentIsNotToldOfAtTheNormalLevel_data()
{
    QTest::addColumn<bool>("exists");
    QTest::newRow("made") << false;
    QTest::newRow("taken") << true;
}

void TestCorviSegment::segmentIsNotToldOfAtTheNormalLevel()
{
    QFETCH(bool, exists);
    QSharedMemory earlier(SEGMENT_KEY);
    QVERIFY(!exists || earlier.create(SEGMENT_SIZE));

    const CorviPeer corvi;

    QCOMPARE(LogLines().filter("Corvi::run"), QStringList());
}

void TestCorviSegment::segmentKeepsItsContentsUntilANetworkIsSetUp_data()
{
    QTest::addColumn<bool>("exists");
    QTest::addColumn<char>("byte");
    QTest::newRow("made") << false << '\0';
    QTest::newRow("taken") << true << 'x';
}

void TestCorviSegment::segmentKeepsItsContentsUntilANetworkIsSetUp()
{
    QFETCH(bool, exists);
    QFETCH(char, byte);
    QSharedMemory earlier(SEGMENT_KEY);
    if (exists) {
        QVERIFY(earlier.create(SEGMENT_SIZE));
        FillSegment(byte);
    }
    EventListener listener;
    MakeInterface("eth0");
    PullCable("eth0");

    CorviPeer corvi(exists ? DISCOVERED : SET_UP);

    QCOMPARE(ReadSegment(), QByteArray(SEGMENT_SIZE, byte));
    // The listener's socket is there too.
    corvi.SendEvent(corvi.Device("eth0"), 1, 1);
    QCOMPARE(ReadSegment(), corvi.Device("eth0")->status->GetData());
    QCOMPARE(listener.Take(), Events({ADDRESS_PRESENT}));
}

void TestCorviSegment::segmentThatCannotBeHadEndsTheProcess()
{
    QProcess process;
    // Where the file behind the segment's key would be, and no file can be made. There is no segment without
    // it.
    process.setEnvironment(QProcess::systemEnvironment() + QStringList{"TMPDIR=/proc"});
    WriteFile(KILL_FLAG, "");
    WriteFile(DEBUG_FLAG, "");
    Remove(DHCLIENT_CONF);

    QElapsedTimer timer;
    timer.start();
    process.start(QCoreApplication::applicationFilePath(), {"--construct"});

    QVERIFY(process.waitForFinished(10000));
    // Five tries, with a pause of 125 ms between two.
    QVERIFY(timer.elapsed() >= 500);
    QCOMPARE(LogCount("Corvi::run - Unable to create shared memory segment"), 5);
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 0);
    QVERIFY(!QFile::exists(KILL_FLAG));
    QCOMPARE(Journal(), QStringList{"init_hostname"});
    QCOMPARE(LogLines().last(), QString("Corvi::run - Unable to attach to shared memory segment"));
    QCOMPARE(LogLines().filter("Corvi::InitSharedMemory -"), QStringList());
    QVERIFY(process.readAllStandardError().contains("Unable to attach to shared memory segment"));
}

void TestCorviSegment::readOnlyTmpIsNamedWhereThereIsNoSegment()
{
    RemoveKeyFile();
    const ReadOnlyTmp readOnly;
    QProcess process;

    process.start(QCoreApplication::applicationFilePath(), {"--construct"});

    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitCode(), 0);
    const QStringList lines = LogLines();
    QCOMPARE(lines.value(lines.size() - 2), QString("Corvi::InitSharedMemory - /tmp: Read-only file system"));
}

void TestCorviSegment::segmentThatComesLateIsWaitedFor()
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

/// Its last reader let go of it after it was attached to.
void TestCorviSegment::segmentOnItsWayOutIsNotTaken()
{
    segmentsOnTheirWayOut = 2; // Qt asks, too, for its size.

    const CorviPeer corvi;

    QCOMPARE(segmentsOnTheirWayOut, 0);
    QCOMPARE(corvi.Segment().size(), SEGMENT_SIZE);
    QCOMPARE(ReadSegment().size(), SEGMENT_SIZE);
}

void TestCorviSegment::lostSegmentIsMadeAnew_data()
{
    QTest::addColumn<bool>("removesSegment");
    QTest::addColumn<bool>("removesKeyFile");
    // What the last of the readers does when it lets go.
    QTest::newRow("the segment is marked for removal") << true << false;
    QTest::newRow("its key file is gone") << false << true;
    QTest::newRow("both") << true << true;
}

void TestCorviSegment::lostSegmentIsMadeAnew()
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

    // The next loss is news.
    corvi.Tick();
    RemoveKeyFile();
    corvi.Tick();
    QCOMPARE(LogLines().filter("the status segment was lost").size(), 2);
}

void TestCorviSegment::segmentThatCannotBeMadeAnewIsTriedAgain()
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
    const QString told = "Corvi::KeepSegmentFound - the status segment is gone and cannot be made anew, "
                         "tried again every second: ";
    QCOMPARE(LogLines().filter("cannot be made anew").size(), 1);
    QVERIFY(LogLines().filter("cannot be made anew").first().startsWith(told));

    corvi.Tick();

    QCOMPARE(ReadSegment(), corvi.Device("eth0")->status->GetData());
}

void TestCorviSegment::anotherUsersNamesAreTakenBack_data()
{
    QTest::addColumn<Deeds>("asRoot");
    QTest::addColumn<Deeds>("asUser");
    QTest::addColumn<QString>("told");
    const auto makeFiles = [] {
        WriteFile(SEGMENT_FILE, ""), WriteFile(LOCK_FILE, "");
    };
    const auto makeSegment = [] {
        ::shmget(::ftok(SEGMENT_FILE, 'Q'), 512, IPC_CREAT | 0666);
    };
    // Nobody lets go of it: its value is 0.
    const auto makeLock = [] {
        ::semget(::ftok(LOCK_FILE, 'Q'), 1, IPC_CREAT | 0600);
    };
    QTest::newRow("lock") << Deeds{makeFiles} << Deeds{makeLock} << "its lock";
    QTest::newRow("segment") << Deeds{makeFiles} << Deeds{makeSegment} << "the status segment";
    QTest::newRow("key files") << Deeds{} << Deeds{makeFiles} << "the status segment, its lock";
    QTest::newRow("all") << Deeds{} << Deeds{makeFiles, makeSegment, makeLock}
                         << "the status segment, its lock";
}

void TestCorviSegment::anotherUsersNamesAreTakenBack()
{
    // Another user's id exists only where it is mapped.
    if (!ReadFile("/proc/self/uid_map").contains("4294967295"))
        QSKIP("only root can make what is another user's; seen when the tests run as root");
    QFETCH(Deeds, asRoot);
    QFETCH(Deeds, asUser);
    QFETCH(QString, told);
    QCOMPARE(QProcess::execute("ipcrm", {"--all"}), 0);
    Remove(SEGMENT_FILE);
    Remove(LOCK_FILE);
    for (auto deed : asRoot)
        deed();
    QVERIFY(DoAsAnotherUser(asUser));

    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);

    QCOMPARE(ReadSystemVSegment(), corvi.Segment());
    QCOMPARE(SystemVLock(), 1);
    shmid_ds segment = {};
    QCOMPARE(::shmctl(::shmget(::ftok(SEGMENT_FILE, 'Q'), 0, 0), IPC_STAT, &segment), 0);
    QCOMPARE(segment.shm_perm.cuid, ::geteuid());
    QCOMPARE(segment.shm_perm.mode & 0777, 0600);
    QCOMPARE(LogLines().filter("another user"),
             QStringList{"Corvi::OpenSegment - made by another user, removed and made anew: " + told});
}

/// One that he made between our look at the names and Qt's attempt to make it.
void TestCorviSegment::anotherUsersSegmentIsNotTakenForOurs()
{
    if (!ReadFile("/proc/self/uid_map").contains("4294967295"))
        QSKIP("only root can make what is another user's; seen when the tests run as root");
    QCOMPARE(QProcess::execute("ipcrm", {"--all"}), 0);
    WriteFile(SEGMENT_FILE, "");
    QVERIFY(DoAsAnotherUser({[] {
        ::shmget(::ftok(SEGMENT_FILE, 'Q'), 512, IPC_CREAT | 0666);
    }}));
    QSharedMemory segment(SEGMENT_KEY);
    QVERIFY(segment.attach());
    SegmentPlace place;

    place.Note(segment);

    QVERIFY(!place.IsFound());
}

void TestCorviSegment::addressIsToldOnceWhileItCannotBePublished_data()
{
    QTest::addColumn<bool>("isLocked");
    QTest::newRow("the segment is lost") << false;
    QTest::newRow("its lock is lost") << true;
}

void TestCorviSegment::addressIsToldOnceWhileItCannotBePublished()
{
    QFETCH(bool, isLocked);
    UseDhcpServer();
    EventListener listener;
    CorviPeer corvi(LAN_DHCP, {"eth0"}, SET_UP);
    listener.Take();
    isLocked ? RemoveLock() : RemoveKeyFile();
    {
        const ReadOnlyTmp readOnly;
        RealIp({"addr", "flush", "dev", "eth0"});
        RealIp({"addr", "add", "10.0.0.77/24", "dev", "eth0"});

        corvi.Tick(3);

        QCOMPARE(listener.Take(), Events{ADDRESS_PRESENT});
    }
    corvi.Tick();

    ZebNetStatus published;
    QVERIFY(published.SetData(ReadSegment()));
    QCOMPARE(published.GetIp(), QString("10.0.0.77"));
    QCOMPARE(listener.Take(), Events());
}

/// It went in the same second: nothing is left that could report it.
void TestCorviSegment::recordOfAnInterfaceThatARescanMissesIsReplaced()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    QVERIFY(corvi.Segment() != QByteArray(SEGMENT_SIZE, '\0'));
    RealIp({"link", "delete", "dev", "eth0"});

    corvi.ForceRescan();
    corvi.Tick(2);

    QCOMPARE(corvi.Segment(), QByteArray(SEGMENT_SIZE, '\0'));
}

void TestCorviSegment::recordOfAnInterfaceThatARescanFindsStays()
{
    CorviPeer corvi(LAN_STATIC, {"eth0"}, SET_UP);
    PullCable("eth0");
    corvi.Tick();
    FillSegment('x');

    corvi.ForceRescan();
    corvi.Tick(2);

    QCOMPARE(corvi.Segment(), QByteArray(SEGMENT_SIZE, 'x'));
}

void TestCorviSegment::recordIsPublished()
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

void TestCorviSegment::copyIsBoundedByTheSegment()
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

void TestCorviSegment::copyLeavesTheRestOfALargerSegment()
{
    MakeInterface("eth0");
    QSharedMemory earlier(SEGMENT_KEY);
    QVERIFY(earlier.create(1000));
    CorviPeer corvi(DISCOVERED);
    FillSegment('x');

    corvi.ShareStatus(corvi.Device("eth0"));

    QCOMPARE(ReadSegment(), corvi.Device("eth0")->status->GetData() + QByteArray(488, 'x'));
}

void TestCorviSegment::segmentThatCannotBeLockedIsLeftAlone()
{
    MakeInterface("eth0");
    EventListener listener;
    CorviPeer corvi(DISCOVERED);
    ClearLog();
    QStringList told;
    for (int i = 0; i < 2; ++i) {
        FillSegment('x');
        RemoveLock();
        {
            const ReadOnlyTmp readOnly; // It cannot be made again.

            corvi.SendAssociationMessage(corvi.Device("eth0"), true);
            corvi.SendAssociationMessage(corvi.Device("eth0"), true);
        }
        // Reported once.
        told << "ShareStatus() the segment cannot be locked, its record stays as it was";
        QCOMPARE(LogLines(), told);
        QCOMPARE(listener.Take(), Events({ASSOCIATION_UP, ASSOCIATION_UP}));
        QCOMPARE(corvi.Segment().left(SEGMENT_SIZE), QByteArray(SEGMENT_SIZE, 'x'));

        // Once it could be locked, the next time is news.
        corvi.ShareStatus(corvi.Device("eth0"));
        QCOMPARE(corvi.Segment(), corvi.Device("eth0")->status->GetData());
    }
}

void TestCorviSegment::publishingIsTraced()
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

namespace {

int Construct()
{
    // Ends the process when there is no segment.
    const CorviPeer corvi;
    return 1;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    // Another program, as a test needs it.
    const QStringList arguments = application.arguments();
    if (arguments.value(1) == "--construct")
        return Construct();
    TestCorviSegment test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_corvi_segment.moc"
