// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "filetrust.h"

#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QtTest>

#include <vector>

#include <linux/posix_acl.h>
#include <linux/posix_acl_xattr.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

const QString FOLDER = QStringLiteral("/tmp/config/xmlconfig/");
const QString PATH = FOLDER + QStringLiteral("store");
constexpr uid_t OTHER_USER = 1000;
constexpr const char *ACCESS_LIST = "system.posix_acl_access";

/// False where that takes a right that this user does not have.
bool GiveAway(const QString &path)
{
    return ::lchown(QFile::encodeName(path).constData(), OTHER_USER, OTHER_USER) == 0;
}

bool ShareWithGroup(const QString &path)
{
    return ::chown(QFile::encodeName(path).constData(), uid_t(-1), OTHER_USER) == 0;
}

/// Gives the file an access control list, as setfacl(1) does: one that names nobody else, this entry, and
/// what the mask leaves to it and to the group. False where that takes a right that this user does not have.
bool SetAcl(const QString &path, __le16 tag, __le16 permission, __le16 mask, __le32 id = OTHER_USER)
{
    constexpr auto NOBODY = static_cast<__le32>(ACL_UNDEFINED_ID);
    constexpr __le16 READ_WRITE = ACL_READ | ACL_WRITE;
    std::vector<posix_acl_xattr_entry> entries = {
        {ACL_USER_OBJ, READ_WRITE, NOBODY},
        {ACL_GROUP_OBJ, READ_WRITE, NOBODY},
        {ACL_MASK, mask, NOBODY},
        {ACL_OTHER, ACL_READ, NOBODY},
    };
    // The kernel wants them in the order of their tags.
    entries.insert(entries.begin() + (tag == ACL_USER ? 1 : 2), {tag, permission, id});
    const posix_acl_xattr_header header = {POSIX_ACL_XATTR_VERSION};
    QByteArray acl(reinterpret_cast<const char *>(&header), sizeof header);
    for (const posix_acl_xattr_entry &entry : entries)
        acl.append(reinterpret_cast<const char *>(&entry), sizeof entry);
    return ::setxattr(QFile::encodeName(path).constData(), ACCESS_LIST, acl.constData(),
                      static_cast<size_t>(acl.size()), 0) == 0;
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
    void ownFileInRootsFolderIsTrusted();
    void fileThatRootsGroupMayWriteIsTrusted_data();
    void fileThatRootsGroupMayWriteIsTrusted();
    void fileThatAnotherGroupMayWriteIsNot_data();
    void fileThatAnotherGroupMayWriteIsNot();
    void fileThatAnAclLetsOthersWriteIsNot_data();
    void fileThatAnAclLetsOthersWriteIsNot();
    void aclThatLetsNobodyWriteIsNoReason_data();
    void aclThatLetsNobodyWriteIsNoReason();
    void aclThatNamesRootIsNoReason_data();
    void aclThatNamesRootIsNoReason();
    void aclOfTheTemporaryFolderIsNoReason();
    void fileThatOthersMayWriteIsNot_data();
    void fileThatOthersMayWriteIsNot();
    void fileOfAnotherUserIsNot_data();
    void fileOfAnotherUserIsNot();
    void linkLeadsToWhatCounts_data();
    void linkLeadsToWhatCounts();
    void temporaryFolderMustBeSticky();
    void lastLinkThatTheKernelFollowsCounts();
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
    ::removexattr("/tmp", ACCESS_LIST);
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
    QTest::newRow("by way of the root") << "/tmp/.." + PATH;
    QTest::newRow("above the root") << "/../../.." + PATH;
}

void TestFileTrust::ownFileIsTrusted()
{
    QFETCH(QString, path);

    QCOMPARE(TrustProblem(path), QString());
}

void TestFileTrust::ownFileInRootsFolderIsTrusted()
{
    if (!GiveAway(PATH))
        QSKIP("only root can go on as another user; seen when the tests run as root");
    QCOMPARE(::seteuid(OTHER_USER), 0);
    const QString problem = TrustProblem(PATH);
    QCOMPARE(::seteuid(0), 0);

    QCOMPARE(problem, QString());
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

void TestFileTrust::fileThatAnAclLetsOthersWriteIsNot_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<ushort>("tag");
    for (const char *path : ON_THE_WAY) {
        QTest::addRow("%s, a user", path) << QString(path) << ushort(ACL_USER);
        QTest::addRow("%s, a group", path) << QString(path) << ushort(ACL_GROUP);
    }
}

/// The bits of the group are the mask then, and the group is root's.
void TestFileTrust::fileThatAnAclLetsOthersWriteIsNot()
{
    QFETCH(QString, path);
    QFETCH(ushort, tag);

    if (!SetAcl(path, tag, ACL_READ | ACL_WRITE, ACL_READ | ACL_WRITE))
        QSKIP("only root can let another user write; seen when the tests run as root");

    QCOMPARE(TrustProblem(PATH), path + " may be written by those that its access control list names");
}

void TestFileTrust::aclThatLetsNobodyWriteIsNoReason_data()
{
    QTest::addColumn<ushort>("permission");
    QTest::addColumn<ushort>("mask");
    QTest::newRow("the entry says so") << ushort(ACL_READ) << ushort(ACL_READ | ACL_WRITE);
    QTest::newRow("the mask says so") << ushort(ACL_READ | ACL_WRITE) << ushort(ACL_READ);
}

void TestFileTrust::aclThatLetsNobodyWriteIsNoReason()
{
    QFETCH(ushort, permission);
    QFETCH(ushort, mask);

    for (const ushort tag : {ushort(ACL_USER), ushort(ACL_GROUP)}) {
        if (!SetAcl(PATH, tag, permission, mask))
            QSKIP("only root can name another user; seen when the tests run as root");
        QCOMPARE(TrustProblem(PATH), QString());
    }
}

void TestFileTrust::aclThatNamesRootIsNoReason_data()
{
    fileThatAnAclLetsOthersWriteIsNot_data();
}

/// As a file server writes one, which names the owner and the group once more.
void TestFileTrust::aclThatNamesRootIsNoReason()
{
    QFETCH(QString, path);
    QFETCH(ushort, tag);

    if (!SetAcl(path, tag, ACL_READ | ACL_WRITE, ACL_READ | ACL_WRITE, 0))
        QSKIP("only root can name root; seen when the tests run as root");

    QCOMPARE(TrustProblem(PATH), QString());
}

/// Everybody may write there anyway.
void TestFileTrust::aclOfTheTemporaryFolderIsNoReason()
{
    for (const ushort tag : {ushort(ACL_USER), ushort(ACL_GROUP)}) {
        if (!SetAcl("/tmp", tag, ACL_READ | ACL_WRITE, ACL_READ | ACL_WRITE))
            QSKIP("only root can name another user; seen when the tests run as root");
        QCOMPARE(TrustProblem(PATH), QString());
    }
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

void TestFileTrust::lastLinkThatTheKernelFollowsCounts()
{
    QString target = "/tmp/elsewhere/store";
    TestSupport::SetMode(target, 0666);
    const auto isFollowed = [&target] {
        return QFile(target).open(QIODevice::ReadOnly);
    };
    QString last;
    for (int links = 0; isFollowed(); ++links) {
        last = target;
        target = FOLDER + QStringLiteral("link%1").arg(links);
        QVERIFY(QFile::link(last, target));
    }

    QCOMPARE(TrustProblem(last), QString("/tmp/elsewhere/store may be written by others than its owner"));
}

void TestFileTrust::linkThatLeadsToItselfEnds()
{
    TestSupport::Remove(PATH);
    QVERIFY(QFile::link(PATH, PATH));

    QCOMPARE(TrustProblem(PATH), QString());
}

QTEST_GUILESS_MAIN(TestFileTrust)
#include "tst_filetrust.moc"
