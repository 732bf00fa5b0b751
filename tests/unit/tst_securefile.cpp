// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "securefile.h"

#include "mountpoint.h"
#include "resourcelimit.h"
#include "testsupport.h"

#include <QFile>
#include <QFileInfo>
#include <QtTest>

#include <cerrno>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString FOLDER = QStringLiteral("/tmp/securefile/");
const QString PATH = FOLDER + QStringLiteral("file");
const QString OTHER = FOLDER + QStringLiteral("other");

/// What stood at the path when the disk was waited for.
QStringList syncs;
/// Why that fails; 0 where it does not.
int syncError = 0;

mode_t ModeOf(const QString &path)
{
    struct stat info = {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
}

QStringList FilesInFolder()
{
    return QDir(FOLDER).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

void AddKinds(const QStringList &kinds)
{
    QTest::addColumn<QString>("kind");
    for (const QString &kind : kinds)
        QTest::newRow(qPrintable(kind)) << kind;
}

/// Puts something at the path. False where that takes a right that this user does not have.
bool Put(const QString &kind)
{
    const QByteArray path = QFile::encodeName(PATH);
    if (kind == "file" || kind == "file of another user")
        TestSupport::WriteFile(PATH, "old");
    if (kind == "file of another user")
        return ::chown(path.constData(), 65534, 65534) == 0;
    if (kind == "symbolic link")
        return QFile::link(OTHER, PATH);
    if (kind == "dangling symbolic link")
        return QFile::link(FOLDER + "nothing", PATH);
    if (kind == "second name")
        return ::link(QFile::encodeName(OTHER).constData(), path.constData()) == 0;
    if (kind == "named pipe")
        return ::mkfifo(path.constData(), 0600) == 0;
    if (kind == "folder")
        return QDir().mkdir(PATH);
    if (kind == "filled folder") {
        TestSupport::WriteFile(PATH + "/a/b/file", "old");
        return QFile::link(FOLDER, PATH + "/a/link") && QFile::link(OTHER, PATH + "/link");
    }
    return true;
}

} // namespace

/// In the place of the C library's.
extern "C" int fdatasync(int fd)
{
    using SyncFunction = int (*)(int);
    static const auto real = reinterpret_cast<SyncFunction>(::dlsym(RTLD_NEXT, "fdatasync"));
    syncs << QString::fromUtf8(TestSupport::ReadFile(PATH));
    errno = syncError;
    return syncError == 0 ? real(fd) : -1;
}

/// Files in a folder where others may have put something first.
class TestSecureFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void replaceMakesTheFileWithItsMode_data();
    void replaceMakesTheFileWithItsMode();
    void replaceGivesReadersOldOrNew();
    void replaceDisplacesWhatOthersPutThere_data();
    void replaceDisplacesWhatOthersPutThere();
    void replaceLeavesNothingBehindWhenItFails();
    void replaceKeepsTheOldFileWhereThereIsNoRoomBesideIt();
    void replaceKeepsTheOldFileWhereTheDiskIsFull();
    void removeTakesWhateverIsThere_data();
    void removeTakesWhateverIsThere();
    void removeTellsOfAFailure();
    void removeTellsWhereThereIsNoRoomBesideAFolder();
    void removeFindsNothingOnAReadOnlyDisk();
    void onlyAPlainFileOfOursIsOurs_data();
    void onlyAPlainFileOfOursIsOurs();
    void readGivesTheContents_data();
    void readGivesTheContents();
    void readRefuses_data();
    void readRefuses();
    void readFollowsASymbolicLinkUnlessToldNotTo();
    void noDescriptorIsLeftOpen();
    void onlyLastingContentsWaitForTheDisk();
    void contentsThatDoNotReachTheDiskAreAFailure_data();
    void contentsThatDoNotReachTheDiskAreAFailure();
};

void TestSecureFile::init()
{
    TestSupport::Remove(FOLDER);
    QVERIFY(QDir().mkpath(FOLDER));
    TestSupport::WriteFile(OTHER, "other");
}

void TestSecureFile::replaceMakesTheFileWithItsMode_data()
{
    QTest::addColumn<uint>("umask");
    QTest::addColumn<uint>("mode");

    QTest::newRow("secret") << 0022U << 0600U;
    QTest::newRow("secret, no umask") << 0U << 0600U;
    QTest::newRow("public, narrow umask") << 0077U << 0644U;
}

void TestSecureFile::replaceMakesTheFileWithItsMode()
{
    QFETCH(uint, umask);
    QFETCH(uint, mode);
    const mode_t previous = ::umask(umask);

    const bool written = SecureFile::Replace(PATH, "contents", mode);

    ::umask(previous);
    QVERIFY(written);
    QCOMPARE(TestSupport::ReadFile(PATH), QByteArray("contents"));
    QCOMPARE(uint(ModeOf(PATH)), mode);
    QCOMPARE(FilesInFolder(), (QStringList{"file", "other"}));
}

void TestSecureFile::replaceGivesReadersOldOrNew()
{
    QVERIFY(SecureFile::Replace(PATH, "old", 0644));
    QFile reader(PATH);
    QVERIFY(reader.open(QIODevice::ReadOnly));

    QVERIFY(SecureFile::Replace(PATH, "new", 0644));

    QCOMPARE(reader.readAll(), QByteArray("old"));
    QCOMPARE(TestSupport::ReadFile(PATH), QByteArray("new"));
}

void TestSecureFile::replaceDisplacesWhatOthersPutThere_data()
{
    AddKinds({"symbolic link", "dangling symbolic link", "second name", "named pipe", "file of another user",
              "folder", "filled folder"});
}

void TestSecureFile::replaceDisplacesWhatOthersPutThere()
{
    QFETCH(QString, kind);
    if (!Put(kind))
        QSKIP("only root can make a file of another user; seen when the tests run as root");

    QVERIFY(SecureFile::Replace(PATH, "new", 0600));

    QVERIFY(SecureFile::IsOurs(PATH));
    QCOMPARE(TestSupport::ReadFile(PATH), QByteArray("new"));
    QCOMPARE(TestSupport::ReadFile(OTHER), QByteArray("other"));
    // What was in a folder goes in the background.
    QTRY_COMPARE(FilesInFolder(), (QStringList{"file", "other"}));
}

void TestSecureFile::replaceLeavesNothingBehindWhenItFails()
{
    QVERIFY(QDir().mkdir(PATH));
    const MountPoint taken(PATH);

    QVERIFY(!SecureFile::Replace(PATH, "new", 0644));

    QCOMPARE(FilesInFolder(), (QStringList{"file", "other"}));
}

void TestSecureFile::replaceKeepsTheOldFileWhereThereIsNoRoomBesideIt()
{
    // The name is as long as one may be, so that the one of a temporary file is too long.
    const QString longName = FOLDER + QString(255, 'x');
    TestSupport::WriteFile(longName, "old");

    QVERIFY(!SecureFile::Replace(longName, "new", 0600));

    QCOMPARE(TestSupport::ReadFile(longName), QByteArray("old"));
}

void TestSecureFile::removeTakesWhateverIsThere_data()
{
    AddKinds({"nothing", "file", "symbolic link", "dangling symbolic link", "second name", "named pipe",
              "file of another user", "folder", "filled folder"});
}

void TestSecureFile::removeTakesWhateverIsThere()
{
    QFETCH(QString, kind);
    if (!Put(kind))
        QSKIP("only root can make a file of another user; seen when the tests run as root");

    QVERIFY(SecureFile::Remove(PATH));

    QVERIFY(!QFileInfo::exists(PATH) && !QFileInfo(PATH).isSymLink());
    QTRY_COMPARE(FilesInFolder(), QStringList{"other"});
    QCOMPARE(TestSupport::ReadFile(OTHER), QByteArray("other"));
}

void TestSecureFile::removeTellsOfAFailure()
{
    QVERIFY(QDir().mkdir(PATH));
    const MountPoint taken(PATH);
    TestSupport::WriteFile(PATH + "/file", "kept");

    QVERIFY(!SecureFile::Remove(PATH));

    QCOMPARE(TestSupport::ReadFile(PATH + "/file"), QByteArray("kept"));
    QCOMPARE(FilesInFolder(), (QStringList{"file", "other"}));
}

void TestSecureFile::removeTellsWhereThereIsNoRoomBesideAFolder()
{
    const QString longName = FOLDER + QString(255, 'x');
    TestSupport::WriteFile(longName + "/file", "kept");

    QVERIFY(!SecureFile::Remove(longName));

    QCOMPARE(TestSupport::ReadFile(longName + "/file"), QByteArray("kept"));
}

void TestSecureFile::removeFindsNothingOnAReadOnlyDisk()
{
    QVERIFY(QDir().mkdir(PATH));
    const MountPoint disk(PATH);
    TestSupport::WriteFile(PATH + "/file", "kept");
    const QByteArray mountPoint = QFile::encodeName(PATH);
    QCOMPARE(::mount("none", mountPoint.constData(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);

    QVERIFY(SecureFile::Remove(PATH + "/nothing"));
    const bool isRemoved = SecureFile::Remove(PATH + "/file");
    const int reason = errno;

    QVERIFY(!isRemoved);
    QCOMPARE(reason, EROFS);
    QCOMPARE(TestSupport::ReadFile(PATH + "/file"), QByteArray("kept"));
}

void TestSecureFile::replaceKeepsTheOldFileWhereTheDiskIsFull()
{
    TestSupport::WriteFile(PATH, "old");
    bool written = true;
    int reason = 0;
    {
        const ResourceLimit fullDisk(RLIMIT_FSIZE, 2);
        written = SecureFile::Replace(PATH, "new", 0600);
        reason = errno;
    }

    QVERIFY(!written);
    QCOMPARE(reason, EFBIG);
    QCOMPARE(TestSupport::ReadFile(PATH), QByteArray("old"));
    QCOMPARE(FilesInFolder(), (QStringList{"file", "other"}));
}

void TestSecureFile::onlyAPlainFileOfOursIsOurs_data()
{
    AddKinds({"file", "nothing", "symbolic link", "dangling symbolic link", "second name", "named pipe",
              "folder", "file of another user"});
}

void TestSecureFile::onlyAPlainFileOfOursIsOurs()
{
    QFETCH(QString, kind);
    if (!Put(kind))
        QSKIP("only root can make a file of another user; seen when the tests run as root");

    QCOMPARE(SecureFile::IsOurs(PATH), kind == "file");
}

void TestSecureFile::readGivesTheContents_data()
{
    QTest::addColumn<QByteArray>("contents");

    QTest::newRow("text") << QByteArray("one\ntwo\n");
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("any bytes") << QByteArray("\0\xff\r\n", 4);
    QTest::newRow("largest") << QByteArray(1024 * 1024, 'x');
}

void TestSecureFile::readGivesTheContents()
{
    QFETCH(QByteArray, contents);
    TestSupport::WriteFile(PATH, contents);

    const auto read = SecureFile::ReadRegular(PATH);

    QVERIFY(read);
    QCOMPARE(*read, contents);
}

void TestSecureFile::readRefuses_data()
{
    QTest::addColumn<QString>("kind");

    for (const char *kind : {"nothing", "dangling symbolic link", "named pipe", "named pipe with a writer",
                             "link to a named pipe", "device", "folder", "huge file", "read error"})
        QTest::newRow(kind) << QString(kind);
}

void TestSecureFile::readRefuses()
{
    QFETCH(QString, kind);
    const QByteArray path = QFile::encodeName(PATH);
    const QByteArray pipe = QFile::encodeName(FOLDER + "pipe");
    QFile writer;
    if (kind == "dangling symbolic link")
        QVERIFY(QFile::link(FOLDER + "nothing", PATH));
    else if (kind.startsWith("named pipe"))
        QCOMPARE(::mkfifo(path.constData(), 0600), 0);
    else if (kind == "link to a named pipe")
        QVERIFY(::mkfifo(pipe.constData(), 0600) == 0 && QFile::link(pipe, PATH));
    else if (kind == "device")
        QVERIFY(QFile::link("/dev/zero", PATH));
    else if (kind == "folder")
        QVERIFY(QDir().mkdir(PATH));
    else if (kind == "huge file")
        QVERIFY(QFile(PATH).open(QIODevice::WriteOnly) && QFile::resize(PATH, 1024 * 1024 + 1));
    else if (kind == "read error")
        QVERIFY(QFile::link("/proc/self/mem", PATH)); // Its first page is never there.
    if (kind == "named pipe with a writer")
        QVERIFY(writer.open(::open(path.constData(), O_RDWR | O_CLOEXEC), QIODevice::WriteOnly));

    QVERIFY(!SecureFile::ReadRegular(PATH));
}

void TestSecureFile::readFollowsASymbolicLinkUnlessToldNotTo()
{
    QVERIFY(QFile::link(OTHER, PATH));

    QCOMPARE(SecureFile::ReadRegular(PATH).value_or("nothing"), QByteArray("other"));
    QVERIFY(!SecureFile::ReadRegular(PATH, O_NOFOLLOW));
}

void TestSecureFile::noDescriptorIsLeftOpen()
{
    QVERIFY(QDir().mkdir(FOLDER + "full"));
    const MountPoint taken(FOLDER + "full");
    QVERIFY(QFile::link("/proc/self/mem", FOLDER + "unreadable"));
    const int before = TestSupport::OpenDescriptors();

    QVERIFY(SecureFile::Replace(PATH, "contents", 0600));
    QVERIFY(!SecureFile::Replace(FOLDER + QString(255, 'x'), "contents", 0600));
    QVERIFY(!SecureFile::Replace(FOLDER + "full", "contents", 0600));
    QVERIFY(SecureFile::ReadRegular(PATH));
    QVERIFY(!SecureFile::ReadRegular(FOLDER + "full"));
    QVERIFY(!SecureFile::ReadRegular(FOLDER + "unreadable"));

    QCOMPARE(TestSupport::OpenDescriptors(), before);
}

void TestSecureFile::onlyLastingContentsWaitForTheDisk()
{
    QVERIFY(SecureFile::Replace(PATH, "old", 0600));
    QCOMPARE(syncs, QStringList());

    QVERIFY(SecureFile::ReplaceLasting(PATH, "new", 0600));

    // Before the new file is put in place.
    QCOMPARE(syncs, QStringList{"old"});
    QCOMPARE(TestSupport::ReadFile(PATH), QByteArray("new"));
}

void TestSecureFile::contentsThatDoNotReachTheDiskAreAFailure_data()
{
    QTest::addColumn<int>("reason");
    QTest::addColumn<bool>("isWritten");
    QTest::newRow("disk that fails") << EIO << false;
    QTest::newRow("no disk to wait for") << EINVAL << true;
}

void TestSecureFile::contentsThatDoNotReachTheDiskAreAFailure()
{
    QFETCH(int, reason);
    QVERIFY(SecureFile::Replace(PATH, "old", 0600));

    syncError = reason;
    const bool isWritten = SecureFile::ReplaceLasting(PATH, "new", 0600);
    syncError = 0;

    QTEST(isWritten, "isWritten");
    QCOMPARE(TestSupport::ReadFile(PATH), QByteArray(isWritten ? "new" : "old"));
    QCOMPARE(FilesInFolder(), (QStringList{"file", "other"}));
}

QTEST_GUILESS_MAIN(TestSecureFile)
#include "tst_securefile.moc"
