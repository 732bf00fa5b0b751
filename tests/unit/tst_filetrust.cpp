// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "filetrust.h"

#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QtTest>

#include <unistd.h>

namespace {

const QString FOLDER = QStringLiteral("/tmp/config/xmlconfig/");
const QString PATH = FOLDER + QStringLiteral("store");
constexpr uid_t OTHER_USER = 1000;

/// False where that takes a right that this user does not have.
bool GiveAway(const QString &path)
{
    return ::lchown(QFile::encodeName(path).constData(), OTHER_USER, OTHER_USER) == 0;
}

bool ShareWithGroup(const QString &path)
{
    return ::chown(QFile::encodeName(path).constData(), uid_t(-1), OTHER_USER) == 0;
}

const char *const ON_THE_WAY[] = {"/tmp/config", "/tmp/config/xmlconfig", "/tmp/config/xmlconfig/store"};

} // namespace

/// Whether a file can be obeyed by root: nobody else could have put it there.
class TestFileTrust : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void ownFileIsTrusted_data();
    void ownFileIsTrusted();
    void fileThatRootsGroupMayWriteIsTrusted_data();
    void fileThatRootsGroupMayWriteIsTrusted();
    void fileThatAnotherGroupMayWriteIsNot_data();
    void fileThatAnotherGroupMayWriteIsNot();
    void fileThatOthersMayWriteIsNot_data();
    void fileThatOthersMayWriteIsNot();
    void fileOfAnotherUserIsNot_data();
    void fileOfAnotherUserIsNot();
    void linkLeadsToWhatCounts_data();
    void linkLeadsToWhatCounts();
    void temporaryFolderMustBeSticky();
    void linkThatLeadsToItselfEnds();
};

void TestFileTrust::init()
{
    TestSupport::Remove("/tmp/config");
    TestSupport::Remove("/tmp/elsewhere");
    TestSupport::WriteFile(PATH, "");
    TestSupport::WriteFile("/tmp/elsewhere/store", "");
}

void TestFileTrust::cleanup()
{
    TestSupport::SetMode("/tmp", 01777);
}

void TestFileTrust::ownFileIsTrusted_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("file") << PATH;
    QTest::newRow("folder") << FOLDER;
    QTest::newRow("missing file") << FOLDER + "missing";
    QTest::newRow("in a missing folder") << FOLDER + "missing/missing";
    QTest::newRow("of the system") << "/etc/passwd";
    QTest::newRow("by a way around") << FOLDER + "./../xmlconfig//store";
    QTest::newRow("above the root") << "/../../.." + PATH;
}

void TestFileTrust::ownFileIsTrusted()
{
    QFETCH(QString, path);

    QCOMPARE(TrustProblem(path), QString());
}

void TestFileTrust::fileThatRootsGroupMayWriteIsTrusted_data()
{
    QTest::addColumn<QString>("path");
    for (const char *path : ON_THE_WAY)
        QTest::newRow(path) << QString(path);
}

/// As what root makes with a umask of 002.
void TestFileTrust::fileThatRootsGroupMayWriteIsTrusted()
{
    QFETCH(QString, path);

    for (const uint mode : {0775U, 0720U}) {
        TestSupport::SetMode(path, mode);
        QCOMPARE(TrustProblem(PATH), QString());
    }
}

void TestFileTrust::fileThatAnotherGroupMayWriteIsNot_data()
{
    fileThatRootsGroupMayWriteIsTrusted_data();
}

void TestFileTrust::fileThatAnotherGroupMayWriteIsNot()
{
    QFETCH(QString, path);
    if (!ShareWithGroup(path))
        QSKIP("only root can give a file to another group; seen when the tests run as root");
    QCOMPARE(TrustProblem(PATH), QString());

    TestSupport::SetMode(path, 0775);

    QCOMPARE(TrustProblem(PATH), path + " may be written by others than its owner");
}

void TestFileTrust::fileThatOthersMayWriteIsNot_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<uint>("mode");
    for (const char *path : ON_THE_WAY) {
        for (const uint mode : {0757U, 0777U, 01777U, 0702U})
            QTest::addRow("%s %o", path, mode) << QString(path) << mode;
    }
}

void TestFileTrust::fileThatOthersMayWriteIsNot()
{
    QFETCH(QString, path);
    QFETCH(uint, mode);

    TestSupport::SetMode(path, mode);

    QCOMPARE(TrustProblem(PATH), path + " may be written by others than its owner");
}

void TestFileTrust::fileOfAnotherUserIsNot_data()
{
    QTest::addColumn<QString>("path");
    for (const char *path : ON_THE_WAY)
        QTest::newRow(path) << QString(path);
}

void TestFileTrust::fileOfAnotherUserIsNot()
{
    QFETCH(QString, path);
    if (!GiveAway(path))
        QSKIP("only root can make a file of another user; seen when the tests run as root");

    QCOMPARE(TrustProblem(PATH), path + " belongs to user 1000");
}

void TestFileTrust::linkLeadsToWhatCounts_data()
{
    QTest::addColumn<QString>("link");
    QTest::addColumn<QString>("target");
    QTest::newRow("file, absolute") << PATH << "/tmp/elsewhere/store";
    QTest::newRow("file, relative") << PATH << "../../elsewhere/store";
    QTest::newRow("folder, absolute") << "/tmp/config/xmlconfig"
                                      << "/tmp/elsewhere";
    QTest::newRow("folder, relative") << "/tmp/config/xmlconfig"
                                      << "../elsewhere/.";
}

void TestFileTrust::linkLeadsToWhatCounts()
{
    QFETCH(QString, link);
    QFETCH(QString, target);
    TestSupport::Remove(link);
    QVERIFY(QFile::link(target, link));
    QCOMPARE(TrustProblem(PATH), QString());

    TestSupport::SetMode("/tmp/elsewhere", 0777);
    QCOMPARE(TrustProblem(PATH), QString("/tmp/elsewhere may be written by others than its owner"));

    TestSupport::SetMode("/tmp/elsewhere", 0755);
    TestSupport::SetMode("/tmp/elsewhere/store", 0622);
    QCOMPARE(TrustProblem(PATH), QString("/tmp/elsewhere/store may be written by others than its owner"));

    TestSupport::SetMode("/tmp/elsewhere/store", 0644);
    if (!GiveAway(link))
        QSKIP("only root can make a link of another user; seen when the tests run as root");
    QCOMPARE(TrustProblem(PATH), link + " belongs to user 1000");
}

void TestFileTrust::temporaryFolderMustBeSticky()
{
    TestSupport::SetMode("/tmp", 0777);

    QCOMPARE(TrustProblem(PATH), QString("/tmp may be written by others than its owner"));
}

void TestFileTrust::linkThatLeadsToItselfEnds()
{
    TestSupport::Remove(PATH);
    QVERIFY(QFile::link(PATH, PATH));

    QCOMPARE(TrustProblem(PATH), QString());
}

QTEST_GUILESS_MAIN(TestFileTrust)
#include "tst_filetrust.moc"
