// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "debugoutput.h"
#include "resourcelimit.h"
#include "testsupport.h"
#include "zebnetconfig.h"
#include "zebxmlconfig.h"

#include <QFile>
#include <QFileInfo>
#include <QtTest>

#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QByteArray GOOD = "<c><network><name>lan</name></network></c>";
const QByteArray OTHER = "<c><network><name>lan</name></network><network><name>lan2</name></network></c>";
const QByteArray CUT = "<c><network><name>lan</name></network><netw";

QStringList Names()
{
    return ZebNetConfig::GetNetworkNames();
}

/// Past the time in which two versions of the file could look the same.
void LetTheFileSettle()
{
    QTest::qSleep(30);
}

/// What is told of a fault of the store.
QString Fault(const QString &text)
{
    return "ZebStore::Section - " + TestSupport::STORE_FILE + ": " + text;
}

const char *StorePath()
{
    static const QByteArray path = TestSupport::STORE_FILE.toUtf8();
    return path.constData();
}

/// Gives a file the time stamp of an earlier one, with more nanoseconds or seconds.
void SetTime(const QString &path, const struct stat &earlier, time_t moreSeconds, long moreNanoseconds)
{
    timespec modified = earlier.st_mtim;
    modified.tv_sec += moreSeconds;
    modified.tv_nsec = (modified.tv_nsec + moreNanoseconds) % 1000000000;
    const timespec times[2] = {modified, modified};
    if (::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0) != 0)
        qFatal("cannot set the time");
}

/// Writes other bytes of the same number into the file and gives it its old time stamp back.
void ChangeBehindItsBack(const QByteArray &bytes)
{
    struct stat info = {};
    ::stat(StorePath(), &info);
    QFile file(TestSupport::STORE_FILE);
    if (!file.open(QIODevice::ReadWrite) || file.write(bytes) != info.st_size || !file.flush())
        qFatal("cannot write the store");
    const timespec times[2] = {info.st_atim, info.st_mtim};
    ::futimens(file.handle(), times);
}

} // namespace

/// How the store follows its file: every change is seen, every fault is told once, and what worked stays in
/// force. The cache lives as long as the process, so each test begins with a good file.
class TestZebStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void sectionNeverSeenIsEmptyAndToldOnce();
    void seesEveryChange_data();
    void seesEveryChange();
    void seesAChangeOfOnePartOfTheStamp_data();
    void seesAChangeOfOnePartOfTheStamp();
    void seesAChangeWithinOneTickOfTheClock();
    void badFileKeepsTheLastGoodContents_data();
    void badFileKeepsTheLastGoodContents();
    void fileOf4MiBIsTaken();
    void fileIsReadOnceThatIsPossibleAgain();
    void mendedFileIsTaken_data();
    void mendedFileIsTaken();
    void fileThatIsTakenAwayAgainIsToldAgain();
    void problemsAreToldOncePerChange();
    void badNetworkKeepsItsLastGoodDefinition();
    void sameTextWrittenAgainIsNotToldAgain();
    void sameFaultIsToldAgainAfterTheFileWasAway();
    void manyProblemsAreBounded_data();
    void manyProblemsAreBounded();
    void storeThatOthersMayWriteIsNotObeyed_data();
    void storeThatOthersMayWriteIsNotObeyed();
    void symbolicLinkIsFollowed();
    void unchangedFileIsNotReadAgain();

private:
    // The test framework has a handler of its own, put in place when the tests begin.
    std::optional<DebugOutput> warnings;
};

void TestZebStore::init()
{
    warnings.emplace();
    TestSupport::Remove("/tmp/config");
    TestSupport::WriteStore(GOOD);
    QCOMPARE(Names(), QStringList{"lan"});
    warnings->Take();
}

void TestZebStore::cleanup()
{
    const QStringList untested = warnings->Take();
    warnings.reset();
    QCOMPARE(untested, QStringList());
}

void TestZebStore::sectionNeverSeenIsEmptyAndToldOnce()
{
    for (int call = 0; call < 3; ++call)
        QCOMPARE(ZebXmlConfig().GetConfig("user/never", "key", false, "default", false), "default");

    QCOMPARE(warnings->Take(),
             QStringList{
                 "ZebStore::Section - /tmp/config/xmlconfig/user/never: No such file or directory; nothing "
                 "is configured"});
}

void TestZebStore::seesEveryChange_data()
{
    QTest::addColumn<bool>("inPlace");
    QTest::newRow("written in place") << true;
    QTest::newRow("replaced by another file") << false;
}

void TestZebStore::seesEveryChange()
{
    QFETCH(bool, inPlace);
    for (int round = 0; round < 20; ++round) {
        const QByteArray name = "lan" + QByteArray::number(round);
        const QByteArray xml = "<c><network><name>" + name + "</name></network></c>";

        TestSupport::WriteFile(inPlace ? TestSupport::STORE_FILE : "/tmp/new", xml);
        if (!inPlace)
            QCOMPARE(::rename("/tmp/new", StorePath()), 0);

        QCOMPARE(Names(), QStringList{QString::fromUtf8(name)});
    }
}

void TestZebStore::seesAChangeOfOnePartOfTheStamp_data()
{
    QTest::addColumn<bool>("isAnotherFile");
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<int>("moreSeconds");
    QTest::addColumn<int>("moreNanoseconds");
    QTest::newRow("file") << true << QByteArray("lax") << 0 << 0;
    QTest::newRow("size") << false << QByteArray("lan2") << 0 << 0;
    QTest::newRow("seconds") << false << QByteArray("lax") << -1 << 0;
    QTest::newRow("nanoseconds") << false << QByteArray("lax") << 0 << 1;
}

void TestZebStore::seesAChangeOfOnePartOfTheStamp()
{
    QFETCH(bool, isAnotherFile);
    QFETCH(QByteArray, name);
    QFETCH(int, moreSeconds);
    QFETCH(int, moreNanoseconds);
    const QByteArray xml = QByteArray("<c><network><name>NAME</name><ssid>a</ssid></network></c>");
    TestSupport::WriteStore(QByteArray(xml).replace("NAME", "lan"));
    LetTheFileSettle();
    QCOMPARE(Names(), QStringList{"lan"});
    struct stat earlier = {};
    QCOMPARE(::stat(StorePath(), &earlier), 0);

    const QString written = isAnotherFile ? QString("/tmp/config/new") : TestSupport::STORE_FILE;
    TestSupport::WriteFile(written, QByteArray(xml).replace("NAME", name));
    SetTime(written, earlier, moreSeconds, moreNanoseconds);
    if (isAnotherFile)
        QCOMPARE(::rename(qPrintable(written), StorePath()), 0);

    QCOMPARE(Names(), QStringList{QString::fromUtf8(name)});
}

void TestZebStore::seesAChangeWithinOneTickOfTheClock()
{
    // A busy machine may let the tick go by between the writing and the reading; hardly each time.
    bool isSeen = false;
    for (int round = 0; round < 100 && !isSeen; ++round) {
        TestSupport::WriteStore("<c><network><name>lan1</name></network></c>");
        QCOMPARE(Names(), QStringList{"lan1"});

        ChangeBehindItsBack("<c><network><name>lan2</name></network></c>");

        isSeen = Names() == QStringList{"lan2"};
    }
    QVERIFY(isSeen);
}

void TestZebStore::badFileKeepsTheLastGoodContents_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<QString>("reason");
    QTest::newRow("deleted") << "deleted"
                             << "No such file or directory";
    QTest::newRow("emptied") << "emptied"
                             << "line 1, column 1: Premature end of document.";
    QTest::newRow("cut") << "cut"
                         << "line 1, column 43: Premature end of document.";
    QTest::newRow("directory") << "directory"
                               << "is not a regular file";
    QTest::newRow("FIFO that nobody writes to") << "fifo"
                                                << "is not a regular file";
    QTest::newRow("device") << "device"
                            << "is not obeyed: /dev/zero may be written by others than its owner";
    QTest::newRow("link that leads to itself") << "loop"
                                               << "Too many levels of symbolic links";
    QTest::newRow("cannot be read") << "unreadable"
                                    << "Input/output error";
    QTest::newRow("too large") << "large"
                               << "is larger than 4 MiB";
}

void TestZebStore::badFileKeepsTheLastGoodContents()
{
    QFETCH(QString, fault);
    QFETCH(QString, reason);
    TestSupport::RemoveStore();
    if (fault == "emptied")
        TestSupport::WriteStore("");
    else if (fault == "cut")
        TestSupport::WriteStore(CUT);
    else if (fault == "directory")
        QCOMPARE(::mkdir(StorePath(), 0700), 0);
    else if (fault == "fifo")
        QCOMPARE(::mkfifo(StorePath(), 0600), 0);
    else if (fault == "device")
        QCOMPARE(::symlink("/dev/zero", StorePath()), 0);
    else if (fault == "loop")
        QCOMPARE(::symlink(StorePath(), StorePath()), 0);
    else if (fault == "unreadable")
        QCOMPARE(::symlink("/proc/self/mem", StorePath()), 0); // Its first page is never there.
    else if (fault == "large")
        TestSupport::WriteStore("<c>" + QByteArray("<a/>").repeated(1024 * 1024) + "</c>");

    for (int call = 0; call < 3; ++call)
        QCOMPARE(Names(), QStringList{"lan"});
    LetTheFileSettle();
    QCOMPARE(Names(), QStringList{"lan"});

    QCOMPARE(warnings->Take(), QStringList{Fault(reason + "; what was read before stays in force")});
}

void TestZebStore::fileOf4MiBIsTaken()
{
    const QByteArray filler = QByteArray("<a/>").repeated(1024 * 1024).mid(0, 4 * 1024 * 1024 - OTHER.size());

    TestSupport::WriteStore(QByteArray(OTHER).insert(3, filler.left(filler.size() / 4 * 4)) +
                            QByteArray(filler.size() % 4, ' '));

    QCOMPARE(QFileInfo(TestSupport::STORE_FILE).size(), 4 * 1024 * 1024);
    QCOMPARE(Names(), (QStringList{"lan", "lan2"}));
}

void TestZebStore::fileIsReadOnceThatIsPossibleAgain()
{
    for (const QByteArray &change : {OTHER, GOOD}) {
        const QStringList before = Names();
        LetTheFileSettle();
        TestSupport::WriteStore(change);
        LetTheFileSettle();
        {
            const ResourceLimit noDescriptorLeft(RLIMIT_NOFILE, 0);
            for (int call = 0; call < 3; ++call)
                QCOMPARE(Names(), before);
        }
        QCOMPARE(warnings->Take(),
                 QStringList{Fault("Too many open files; what was read before stays in force")});

        QVERIFY(Names() != before);
    }
}

void TestZebStore::mendedFileIsTaken_data()
{
    QTest::addColumn<bool>("isDeleted");
    QTest::newRow("deleted, then there again") << true;
    QTest::newRow("cut, then whole again") << false;
}

void TestZebStore::mendedFileIsTaken()
{
    QFETCH(bool, isDeleted);
    if (isDeleted)
        TestSupport::RemoveStore();
    else
        TestSupport::WriteStore(CUT);
    QCOMPARE(Names(), QStringList{"lan"});
    QCOMPARE(warnings->Take().size(), 1);

    TestSupport::WriteStore(OTHER);

    QCOMPARE(Names(), (QStringList{"lan", "lan2"}));
}

void TestZebStore::fileThatIsTakenAwayAgainIsToldAgain()
{
    LetTheFileSettle();
    QCOMPARE(Names(), QStringList{"lan"});

    for (int time = 0; time < 2; ++time) {
        QCOMPARE(::rename(StorePath(), "/tmp/config/aside"), 0);
        QCOMPARE(Names(), QStringList{"lan"});
        QCOMPARE(warnings->Take().size(), 1);
        QCOMPARE(::rename("/tmp/config/aside", StorePath()), 0);
        QCOMPARE(Names(), QStringList{"lan"});
    }
}

void TestZebStore::problemsAreToldOncePerChange()
{
    const QByteArray bad = "<c><network><name>lan</name><mtu>9</mtu></network></c>";
    TestSupport::WriteStore(bad);
    for (int call = 0; call < 3; ++call)
        QCOMPARE(Names(), QStringList{"lan"});
    QCOMPARE(
        warnings->Take(),
        QStringList{Fault("line 1, column 34: network \"lan\": mtu: \"9\" is not a whole number from 68 to "
                          "65535; its default is used")});

    LetTheFileSettle();
    TestSupport::WriteStore(bad + " ");
    QCOMPARE(Names(), QStringList{"lan"});
    QCOMPARE(warnings->Take().size(), 1);
}

void TestZebStore::badNetworkKeepsItsLastGoodDefinition()
{
    const auto mtu = [] {
        ZebNetConfig config(nullptr);
        return config.Load("lan", false) ? config.mtu : QString("no such network");
    };
    const auto write = [](const QByteArray &mtuText, const QByteArray &rest) {
        LetTheFileSettle();
        TestSupport::WriteStore("<c><network><name>lan</name><mtu>" + mtuText + "</mtu>" + rest +
                                "</network></c>");
    };
    write("1400", "");
    QCOMPARE(mtu(), QString("1400"));

    // Two edits that are bad, then one that is good.
    for (const char *edit : {"1300", "1200"}) {
        write(edit, "<wepKey>x</wepKey>");
        QCOMPARE(mtu(), QString("1400"));
        QCOMPARE(warnings->Take().filter("the network's last good definition stays in force").size(), 1);
    }
    write("1100", "");
    QCOMPARE(mtu(), QString("1100"));

    TestSupport::WriteStore("<c/>");
    QCOMPARE(mtu(), QString("no such network"));
}

void TestZebStore::sameTextWrittenAgainIsNotToldAgain()
{
    TestSupport::WriteStore(CUT);
    QCOMPARE(Names(), QStringList{"lan"});
    QCOMPARE(warnings->Take().size(), 1);

    LetTheFileSettle();
    TestSupport::WriteStore(CUT);

    QCOMPARE(Names(), QStringList{"lan"});
}

/// Whoever put it back waits for an answer.
void TestZebStore::sameFaultIsToldAgainAfterTheFileWasAway()
{
    TestSupport::WriteStore(CUT);
    Names();
    TestSupport::RemoveStore();
    Names();
    warnings->Take();

    TestSupport::WriteStore(CUT);
    Names();

    QCOMPARE(warnings->Take(),
             QStringList{Fault("line 1, column 43: Premature end of document.; what was read "
                               "before stays in force")});
}

void TestZebStore::manyProblemsAreBounded_data()
{
    QTest::addColumn<int>("problems");
    QTest::addColumn<int>("told");
    QTest::addColumn<QString>("last");
    QTest::newRow("as many as are told") << 100 << 100 << "name: is missing; the network is left out";
    QTest::newRow("one more") << 101 << 101 << ": 1 more problems";
    QTest::newRow("many more") << 1000 << 101 << ": 900 more problems";
}

void TestZebStore::manyProblemsAreBounded()
{
    QFETCH(int, problems);
    QFETCH(QString, last);
    TestSupport::WriteStore("<c><network><name>lan</name></network>" +
                            QByteArray("<network/>").repeated(problems) + "</c>");

    QCOMPARE(Names(), QStringList{"lan"});

    const QStringList told = warnings->Take();
    QTEST(int(told.size()), "told");
    QVERIFY2(told.constLast().endsWith(last), qPrintable(told.constLast()));
}

void TestZebStore::storeThatOthersMayWriteIsNotObeyed_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("file") << TestSupport::STORE_FILE;
    QTest::newRow("folder above it") << "/tmp/config";
}

void TestZebStore::storeThatOthersMayWriteIsNotObeyed()
{
    QFETCH(QString, path);
    LetTheFileSettle();
    TestSupport::WriteStore(OTHER);
    const uint mode = path == TestSupport::STORE_FILE ? 0644 : 0755;
    TestSupport::SetMode(path, mode | 0022);

    for (int call = 0; call < 3; ++call)
        QCOMPARE(Names(), QStringList{"lan"});
    QCOMPARE(warnings->Take(), QStringList{Fault("is not obeyed: " + path +
                                                 " may be written by others than its owner; what was read "
                                                 "before stays in force")});

    TestSupport::SetMode(path, mode);
    QCOMPARE(Names(), (QStringList{"lan", "lan2"}));
}

void TestZebStore::symbolicLinkIsFollowed()
{
    TestSupport::WriteFile("/tmp/config/elsewhere", OTHER);
    TestSupport::RemoveStore();
    QCOMPARE(::symlink("/tmp/config/elsewhere", StorePath()), 0);
    QCOMPARE(Names().size(), 2);

    TestSupport::WriteFile("/tmp/config/elsewhere", GOOD);

    QCOMPARE(Names().size(), 1);
}

void TestZebStore::unchangedFileIsNotReadAgain()
{
    LetTheFileSettle();
    QCOMPARE(Names(), QStringList{"lan"});

    ChangeBehindItsBack(QByteArray(GOOD).replace("lan", "lax"));

    QCOMPARE(Names(), QStringList{"lan"});
}

QTEST_GUILESS_MAIN(TestZebStore)
#include "tst_zebstore.moc"
