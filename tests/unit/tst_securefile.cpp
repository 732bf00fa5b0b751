// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "securefile.h"

#include "testsupport.h"

#include <QFile>
#include <QFileInfo>
#include <QtTest>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString FOLDER = QStringLiteral("/tmp/securefile/");
const QString PATH = FOLDER + QStringLiteral("file");
const QString OTHER = FOLDER + QStringLiteral("other");

mode_t ModeOf(const QString &path)
{
    struct stat info = {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
}

QStringList FilesInFolder()
{
    return QDir(FOLDER).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

} // namespace

/// Files in a folder where others may have put something first.
class TestSecureFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void writeMakesTheFileWithItsMode_data();
    void writeMakesTheFileWithItsMode();
    void writeShortensTheOldContents();
    void writeNarrowsTheModeOfAnOldFile();
    void writeKeepsTheFile();
    void writeRefuses_data();
    void writeRefuses();
    void writeRefusesAFileOfAnotherUser();
    void replaceMakesTheFileWithItsMode();
    void replaceGivesReadersOldOrNew();
    void replacePutsAFileInPlaceOfASymbolicLink();
    void replaceLeavesNothingBehindWhenItFails();
    void readGivesTheContents_data();
    void readGivesTheContents();
    void readRefuses_data();
    void readRefuses();
    void readFollowsASymbolicLinkUnlessToldNotTo();
};

void TestSecureFile::init()
{
    TestSupport::Remove(FOLDER);
    QVERIFY(QDir().mkpath(FOLDER));
    TestSupport::WriteFile(OTHER, "other");
}

void TestSecureFile::writeMakesTheFileWithItsMode_data()
{
    QTest::addColumn<uint>("umask");
    QTest::addColumn<uint>("mode");

    QTest::newRow("secret") << 0022U << 0600U;
    QTest::newRow("secret, no umask") << 0U << 0600U;
    QTest::newRow("public, narrow umask") << 0077U << 0644U;
}

void TestSecureFile::writeMakesTheFileWithItsMode()
{
    QFETCH(uint, umask);
    QFETCH(uint, mode);
    const mode_t previous = ::umask(umask);

    const bool written = SecureFile::Write(PATH, "contents", mode);

    ::umask(previous);
    QVERIFY(written);
    QCOMPARE(TestSupport::ReadFile(PATH), QByteArray("contents"));
    QCOMPARE(uint(ModeOf(PATH)), mode);
}

void TestSecureFile::writeShortensTheOldContents()
{
    QVERIFY(SecureFile::Write(PATH, "a long text", 0600));

    QVERIFY(SecureFile::Write(PATH, "short", 0600));

    QCOMPARE(TestSupport::ReadFile(PATH), QByteArray("short"));
}

void TestSecureFile::writeNarrowsTheModeOfAnOldFile()
{
    TestSupport::WriteFile(PATH, "old");
    QCOMPARE(::chmod(QFile::encodeName(PATH).constData(), 0666), 0);

    QVERIFY(SecureFile::Write(PATH, "new", 0600));

    QCOMPARE(ModeOf(PATH), mode_t(0600));
}

void TestSecureFile::writeKeepsTheFile()
{
    TestSupport::WriteFile(PATH, "old");
    QFile reader(PATH);
    QVERIFY(reader.open(QIODevice::ReadOnly));

    QVERIFY(SecureFile::Write(PATH, "new", 0600));

    QCOMPARE(reader.readAll(), QByteArray("new"));
}

void TestSecureFile::writeRefuses_data()
{
    QTest::addColumn<QString>("kind");

    for (const char *kind :
         {"symbolic link", "dangling symbolic link", "second name", "named pipe", "folder"})
        QTest::newRow(kind) << QString(kind);
}

void TestSecureFile::writeRefuses()
{
    QFETCH(QString, kind);
    const QByteArray path = QFile::encodeName(PATH);
    if (kind == "symbolic link")
        QVERIFY(QFile::link(OTHER, PATH));
    else if (kind == "dangling symbolic link")
        QVERIFY(QFile::link(FOLDER + "nothing", PATH));
    else if (kind == "second name")
        QCOMPARE(::link(QFile::encodeName(OTHER).constData(), path.constData()), 0);
    else if (kind == "named pipe")
        QCOMPARE(::mkfifo(path.constData(), 0600), 0);
    else
        QVERIFY(QDir().mkdir(PATH));

    QVERIFY(!SecureFile::Write(PATH, "new", 0600));

    QCOMPARE(TestSupport::ReadFile(OTHER), QByteArray("other"));
    QCOMPARE(FilesInFolder(), (QStringList{"file", "other"}));
}

void TestSecureFile::writeRefusesAFileOfAnotherUser()
{
    TestSupport::WriteFile(PATH, "old");
    if (::chown(QFile::encodeName(PATH).constData(), 65534, 65534) != 0)
        QSKIP("only root can make a file of another user; seen when the tests run as root");

    QVERIFY(!SecureFile::Write(PATH, "new", 0600));

    QCOMPARE(TestSupport::ReadFile(PATH), QByteArray("old"));
}

void TestSecureFile::replaceMakesTheFileWithItsMode()
{
    QVERIFY(SecureFile::Replace(PATH, "contents", 0644));

    QCOMPARE(TestSupport::ReadFile(PATH), QByteArray("contents"));
    QCOMPARE(ModeOf(PATH), mode_t(0644));
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

void TestSecureFile::replacePutsAFileInPlaceOfASymbolicLink()
{
    QVERIFY(QFile::link(OTHER, PATH));

    QVERIFY(SecureFile::Replace(PATH, "new", 0644));

    QVERIFY(!QFileInfo(PATH).isSymLink());
    QCOMPARE(TestSupport::ReadFile(PATH), QByteArray("new"));
    QCOMPARE(TestSupport::ReadFile(OTHER), QByteArray("other"));
}

void TestSecureFile::replaceLeavesNothingBehindWhenItFails()
{
    QVERIFY(QDir().mkdir(PATH));

    QVERIFY(!SecureFile::Replace(PATH, "new", 0644));

    QCOMPARE(FilesInFolder(), (QStringList{"file", "other"}));
}

void TestSecureFile::readGivesTheContents_data()
{
    QTest::addColumn<QByteArray>("contents");

    QTest::newRow("text") << QByteArray("one\ntwo\n");
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("any bytes") << QByteArray("\0\xff\r\n", 4);
    QTest::newRow("long") << QByteArray(100000, 'x');
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
                             "link to a named pipe", "device", "folder"})
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

QTEST_GUILESS_MAIN(TestSecureFile)
#include "tst_securefile.moc"
