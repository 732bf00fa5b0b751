// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "utils.h"

#include "debugoutput.h"
#include "logging.h"
#include "program.h"
#include "shellscript.h"
#include "testsupport.h"

#include <QElapsedTimer>
#include <QTimer>
#include <QtTest>

#include <atomic>
#include <climits>
#include <csignal>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

/// The ways of running programs, and the decoder of escaped network names.
class TestUtils : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void outputIsSplitAtLineFeeds_data();
    void outputIsSplitAtLineFeeds();
    void argumentsReachTheProgramAsTheyAre();
    void lastArgumentChangesNothing();
    void standardErrorIsDiscarded();
    void standardErrorIsNotEvenRead();
    void standardInputIsEmpty();
    void crashIsTheWholeResult();
    void missingProgramGivesOneEmptyLine();
    void environmentIsOursWithADisplay();
    void hugeOutputIsReadWhole();
    void executeStopsWaitingAfterItsLimit();
    void childThatStaysInTheBackgroundIsNotWaitedFor();
    void nothingElseRunsMeanwhile();
    void executeBlocksItsOwnThreadAlone();
    void executeSaysNothing();
    void programIsRunByExactlyItsName();
    void nameThatStartsNothingGivesOneEmptyLine_data();
    void nameThatStartsNothingGivesOneEmptyLine();
    void mergedHoldsBothChannelsInOrder();
    void mergedTellsWhatItRuns();
    void mergedStopsWaitingAfterItsLimit();
    void mergedAsksNowAndThenWhetherThereIsAPoint();
    void limitEndsTheChildrenToo();
    void limitEndsAProgramThatWillNotEnd();
    void limitIsNotComplainedAbout();
    void faultIsToldOnce_data();
    void faultIsToldOnce();
    void faultIsToldAgainAfterItWorked();
    void faultNowAndThenIsToldAFewTimes();
    void failureWithAStatusIsNotTold();
    void endlessOutputIsBounded();
    void mergedOfMissingProgramGivesOneEmptyLine();
    void mergedCrashIsTheWholeResult();
    void spawnedChildIsNotWaitedFor();
    void spawnedChildHasADisplay();
    void spawnedChildOutlivesItsParent();
    void spawnedChildLeavesNoZombie();
    void spawnedChildHasOurOwnOutput();
    void spawnOfMissingProgramFails();
    void ssidIsDecoded_data();
    void ssidIsDecoded();
};

/// The list in the form that this version of Qt prints.
static void ExpectDebugOutput(const QByteArray &start, const QStringList &arguments)
{
    QString list;
    QDebug(&list) << arguments;
    const QByteArray line = start + ' ' + list.trimmed().toUtf8();
    QTest::ignoreMessage(QtDebugMsg, line.constData());
}

void TestUtils::init()
{
    TestSupport::ClearJournal();
    TestSupport::ClearAnswers();
}

void TestUtils::outputIsSplitAtLineFeeds_data()
{
    QTest::addColumn<QString>("format");
    QTest::addColumn<QStringList>("lines");

    QTest::newRow("nothing") << "" << QStringList{""};
    QTest::newRow("no line feed") << "a" << QStringList{"a"};
    QTest::newRow("ends with a line feed") << "a\\nb\\n" << QStringList{"a", "b", ""};
    QTest::newRow("empty lines") << "\\n\\na" << QStringList{"", "", "a"};
    QTest::newRow("carriage return stays") << "a\\r\\n" << QStringList{"a\r", ""};
    QTest::newRow("UTF-8") << "\\303\\251\\n" << QStringList{QStringLiteral("\u00e9"), ""};
    QTest::newRow("no UTF-8") << "a\\377b\\n" << QStringList{QStringLiteral("a\ufffdb"), ""};
    QTest::newRow("NUL ends it") << "a\\nb\\000c\\nd" << QStringList{"a", "b"};
    QTest::newRow("NUL first") << "\\000a" << QStringList{""};
}

void TestUtils::outputIsSplitAtLineFeeds()
{
    QFETCH(QString, format);
    QFETCH(QStringList, lines);

    QCOMPARE(Utils::Execute("printf", {format}, false), lines);
    QCOMPARE(Utils::ExecuteMerged("printf", {format}, 5000), lines);
    QCOMPARE(Utils::ExecutePiped("printf", {format}, "cat", {}, QString(), {}), lines);
}

void TestUtils::argumentsReachTheProgramAsTheyAre()
{
    Utils::Execute("route", {"add", "", "$(id)", "a b", "-x"}, false);

    QCOMPARE(TestSupport::Journal(), QStringList{"route add '' '$(id)' 'a b' -x"});
}

void TestUtils::lastArgumentChangesNothing()
{
    QCOMPARE(Utils::Execute("printf", {"a"}, true), Utils::Execute("printf", {"a"}, false));
}

void TestUtils::standardErrorIsDiscarded()
{
    QCOMPARE(Utils::Execute(SHELL, Script("echo out; echo err >&2; exit 3"), false),
             (QStringList{"out", ""}));
}

void TestUtils::standardErrorIsNotEvenRead()
{
    const QStringList standardError{"/proc/self/fd/2"};
    const QStringList nowhere{"/dev/null", ""};

    QCOMPARE(Utils::Execute("readlink", standardError, false), nowhere);
    QCOMPARE(Utils::ExecutePiped("readlink", standardError, "cat", {}, QString(), {}), nowhere);
    QCOMPARE(Utils::ExecutePiped("true", {}, "readlink", standardError, QString(), {}), nowhere);
    QCOMPARE(Utils::ExecutePiped("true", {}, "true", {}, "readlink", standardError), nowhere);
}

void TestUtils::standardInputIsEmpty()
{
    const QStringList standardInput{"/proc/self/fd/0"};
    const QStringList nothing{"/dev/null", ""};

    QCOMPARE(Utils::Execute("readlink", standardInput, false), nothing);
    QCOMPARE(Utils::ExecuteMerged("readlink", standardInput, 5000), nothing);
    QCOMPARE(Utils::ExecutePiped("readlink", standardInput, "cat", {}, QString(), {}), nothing);
}

void TestUtils::crashIsTheWholeResult()
{
    QCOMPARE(Utils::Execute(SHELL, Script("echo out; kill -SEGV $$"), false), QStringList{"Process Crashed"});
}

void TestUtils::missingProgramGivesOneEmptyLine()
{
    QCOMPARE(Utils::Execute("no-such-program", {}, false), QStringList{""});
}

void TestUtils::environmentIsOursWithADisplay()
{
    qputenv("DISPLAY", ":7");
    qputenv("OURS", "yes");

    const QStringList lines = Utils::Execute(SHELL, Script("echo $DISPLAY $OURS"), false);
    const QStringList merged = Utils::ExecuteMerged(SHELL, Script("echo $DISPLAY $OURS"), 5000);

    QCOMPARE(lines, (QStringList{":0 yes", ""}));
    QCOMPARE(merged, lines);
    QCOMPARE(qgetenv("DISPLAY"), QByteArray(":7"));
}

void TestUtils::hugeOutputIsReadWhole()
{
    const QStringList lines = Utils::Execute("head", {"-c", "10000000", "/dev/zero"}, false);
    QCOMPARE(lines, QStringList{""});

    const QStringList text = Utils::Execute(SHELL, Script("head -c 10000000 /dev/zero | tr '\\0' x"), false);
    QCOMPARE(text.size(), 1);
    QCOMPARE(text.first().size(), 10000000);
}

void TestUtils::executeStopsWaitingAfterItsLimit()
{
    QElapsedTimer timer;
    timer.start();

    const QStringList lines = Utils::Execute(SHELL, Script("echo $$; exec sleep 60"), false);

    QVERIFY2(timer.elapsed() >= 30000 && timer.elapsed() < 60000,
             qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(lines.size(), 2);
    QCOMPARE(::kill(lines.first().toInt(), 0), -1);
}

void TestUtils::childThatStaysInTheBackgroundIsNotWaitedFor()
{
    TestSupport::Remove("/tmp/child.go");
    TestSupport::Remove("/tmp/child.lived");
    QElapsedTimer timer;
    timer.start();

    // It holds the standard output: whoever waits for the end of that waits until the limit passes.
    const QStringList lines = Utils::Execute(
        SHELL, Script("{ until [ -e /tmp/child.go ]; do sleep 0.05; done; >/tmp/child.lived; } & echo hi"),
        false);

    QCOMPARE(lines, (QStringList{"hi", ""}));
    QVERIFY2(timer.elapsed() < 20000, qPrintable(QString::number(timer.elapsed())));
    TestSupport::WriteFile("/tmp/child.go", "");
    QTRY_VERIFY(QFile::exists("/tmp/child.lived"));
}

void TestUtils::nothingElseRunsMeanwhile()
{
    bool fired = false;
    QTimer::singleShot(0, this, [&fired] { fired = true; });

    Utils::Execute("sleep", {"0.2"}, false);

    QVERIFY(!fired);
    QTRY_VERIFY(fired);
}

void TestUtils::executeBlocksItsOwnThreadAlone()
{
    for (const char *path : {"/tmp/thread.waits", "/tmp/thread.go"})
        TestSupport::Remove(path);
    QStringList lines;
    std::atomic<bool> isWaiting{true};
    std::thread other([&] {
        lines = Utils::Execute(
            SHELL, Script(">/tmp/thread.waits; until [ -e /tmp/thread.go ]; do sleep 0.05; done; echo done"),
            false);
    });
    while (isWaiting && !QFile::exists("/tmp/thread.waits"))
        QTest::qSleep(10);

    const QStringList own = Utils::Execute("echo", {"own"}, false);
    const bool wasWaiting = isWaiting;
    TestSupport::WriteFile("/tmp/thread.go", "");
    other.join();

    QCOMPARE(own, (QStringList{"own", ""}));
    QVERIFY(wasWaiting);
    QCOMPARE(lines, (QStringList{"done", ""}));
}

void TestUtils::executeSaysNothing()
{
    TestSupport::ClearLog();
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::VERBOSE);
    const DebugOutput output;

    Utils::Execute("echo", {"a"}, false);
    Utils::ExecutePiped("echo", {"a"}, "cat", {}, "cat", {});

    QCOMPARE(output.Take(), QStringList());
    QCOMPARE(TestSupport::LogText(), QString());
}

void TestUtils::programIsRunByExactlyItsName()
{
    TestSupport::AddProgram("ethtool ");

    Utils::Execute("ethtool ", {"eth0"}, false);

    QCOMPARE(TestSupport::Journal(), QStringList{"'ethtool ' eth0"});
}

void TestUtils::nameThatStartsNothingGivesOneEmptyLine_data()
{
    QTest::addColumn<QString>("name");

    QTest::newRow("file without the right") << "/tmp/no-program";
    QTest::newRow("no name") << "";
}

void TestUtils::nameThatStartsNothingGivesOneEmptyLine()
{
    QFETCH(QString, name);
    TestSupport::WriteFile("/tmp/no-program", "#!/bin/sh\necho ran\n");
    TestSupport::SetMode("/tmp/no-program", 0644);

    QCOMPARE(Utils::Execute(name, {}, false), QStringList{""});
    QCOMPARE(Utils::ExecuteMerged(name, {}, 5000), QStringList{""});
}

void TestUtils::mergedHoldsBothChannelsInOrder()
{
    const QStringList lines = Utils::ExecuteMerged(SHELL, Script("echo 1; echo 2 >&2; echo 3"), 5000);

    QCOMPARE(lines, (QStringList{"1", "2", "3", ""}));
}

void TestUtils::mergedTellsWhatItRuns()
{
    ExpectDebugOutput("ExecuteMerged \"ip\"", {"addr", "show"});

    Utils::ExecuteMerged("ip", {"addr", "show"}, 5000);
}

void TestUtils::mergedStopsWaitingAfterItsLimit()
{
    QElapsedTimer timer;
    timer.start();

    const QStringList lines = Utils::ExecuteMerged(SHELL, Script("echo $$; exec sleep 60"), 300);

    QVERIFY2(timer.elapsed() >= 300 && timer.elapsed() < 20000, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(lines.size(), 2);
    QVERIFY(lines.first().toInt() > 0);
    QCOMPARE(::kill(lines.first().toInt(), 0), -1);
}

void TestUtils::mergedAsksNowAndThenWhetherThereIsAPoint()
{
    QElapsedTimer timer;
    timer.start();
    int questions = 0;

    Utils::ExecuteMerged("sleep", {"0.6"}, 20000, [&questions] { return ++questions == 0; });

    QVERIFY(questions > 0);
    const qint64 intervalMs = 250;
    QVERIFY2(questions <= timer.elapsed() / intervalMs + 1, qPrintable(QString::number(questions)));
}

void TestUtils::limitEndsTheChildrenToo()
{
    const QStringList lines = Utils::ExecuteMerged(SHELL, Script("sleep 60 & echo $!; wait"), 300);

    const int child = lines.first().toInt();
    QVERIFY(child > 0);
    QTRY_COMPARE(::kill(child, 0), -1);
}

void TestUtils::limitEndsAProgramThatWillNotEnd()
{
    const QStringList lines =
        Utils::ExecuteMerged(SHELL, Script("trap '' TERM; echo $$; while :; do sleep 0.1; done"), 300);

    const int program = lines.first().toInt();
    QVERIFY(program > 0);
    QCOMPARE(::kill(program, 0), -1);
}

void TestUtils::limitIsNotComplainedAbout()
{
    const DebugOutput warnings("default");

    Utils::ExecuteMerged("sleep", {"60"}, 100);

    QCOMPARE(warnings.Take(), QStringList());
}

void TestUtils::faultIsToldOnce_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<int>("limitMs");
    QTest::addColumn<QString>("told");
    QTest::addColumn<bool>("lasts");

    QTest::newRow("cannot be started") << QByteArray() << 30000 << "cannot be started: " << true;
    QTest::newRow("crashes") << QByteArray("kill -SEGV $$") << 30000 << "crashed" << true;
    // The next run may be quicker.
    QTest::newRow("hangs") << QByteArray("sleep 60") << 200 << "is killed, it still ran after 0.2 s" << false;
}

void TestUtils::faultIsToldOnce()
{
    QFETCH(QByteArray, answer);
    QFETCH(int, limitMs);
    QFETCH(QString, told);
    Utils::Execute("ethtool", {}, false); // Works, whatever an earlier test told of it.
    if (answer.isEmpty())
        TestSupport::RemoveProgram("ethtool");
    else
        TestSupport::Answer("ethtool", answer);
    const auto restore = qScopeGuard(TestSupport::RestorePrograms);
    const DebugOutput warnings("corvi.program");

    for (int i = 0; i < 2; ++i)
        Utils::ExecuteMerged("ethtool", {}, limitMs);

    const QStringList lines = warnings.Take();
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines.first().startsWith("ethtool " + told), qPrintable(lines.first()));
    const QStringList faults = Program::Faults().filter("ethtool ");
    QTEST(!faults.isEmpty(), "lasts");
    QVERIFY(faults.isEmpty() || faults.first().startsWith("ethtool " + told));
}

void TestUtils::faultIsToldAgainAfterItWorked()
{
    const DebugOutput warnings("corvi.program");
    const QByteArrayList answers{"exit 0",        "kill -SEGV $$", "sleep 60",
                                 "kill -SEGV $$", "exit 0",        "kill -SEGV $$"};

    for (const QByteArray &answer : answers) {
        TestSupport::Answer("ethtool", answer);
        Utils::ExecuteMerged("ethtool", {}, answer.startsWith("sleep") ? 200 : 30000);
    }

    const QStringList lines = warnings.Take();
    QCOMPARE(lines.size(), 3);
    QCOMPARE(lines.filter("crashed").size(), 2);
}

void TestUtils::faultNowAndThenIsToldAFewTimes()
{
    const DebugOutput warnings("corvi.program");

    for (int i = 0; i < 8; ++i) {
        for (const char *answer : {"kill -SEGV $$", "exit 0"}) {
            TestSupport::Answer("route", answer);
            Utils::ExecuteMerged("route", {}, 30000);
        }
    }

    QCOMPARE(warnings.Take().size(), 3);
}

void TestUtils::failureWithAStatusIsNotTold()
{
    TestSupport::Answer("ethtool", "echo wrong >&2; exit 1");
    const DebugOutput warnings("corvi.program");

    Utils::Execute("ethtool", {}, false);
    Utils::ExecutePiped("ethtool", {}, "cat", {}, QString(), {});

    QCOMPARE(warnings.Take(), QStringList());
}

void TestUtils::endlessOutputIsBounded()
{
    const QStringList lines = Utils::ExecuteMerged(SHELL, Script("tr '\\0' x </dev/zero"), 2000);

    QCOMPARE(lines.size(), 1);
    const qint64 mib = 1024 * 1024;
    QVERIFY2(lines.first().size() >= 16 * mib && lines.first().size() < 17 * mib,
             qPrintable(QString::number(lines.first().size())));
}

void TestUtils::mergedOfMissingProgramGivesOneEmptyLine()
{
    QCOMPARE(Utils::ExecuteMerged("no-such-program", {}, 5000), QStringList{""});
}

void TestUtils::mergedCrashIsTheWholeResult()
{
    QCOMPARE(Utils::ExecuteMerged(SHELL, Script("echo out; kill -SEGV $$"), 5000),
             QStringList{"Process Crashed"});
}

void TestUtils::spawnedChildIsNotWaitedFor()
{
    TestSupport::Answer("warning", "until [ -e /tmp/spawned.go ]; do sleep 0.05; done; >/tmp/spawned");
    TestSupport::Remove("/tmp/spawned");
    TestSupport::Remove("/tmp/spawned.go");
    ExpectDebugOutput("SpawnExecute \"warning\"", {"wrong", "password"});
    QTest::ignoreMessage(QtDebugMsg, "SpawnExecute started true");

    QVERIFY(Utils::SpawnExecute("warning", {"wrong", "password"}));

    // Whoever waited for it would wait for ever.
    QVERIFY(!QFile::exists("/tmp/spawned"));
    TestSupport::WriteFile("/tmp/spawned.go", "");
    QTRY_VERIFY(QFile::exists("/tmp/spawned"));
    QCOMPARE(TestSupport::Journal(), QStringList{"warning wrong password"});
}

void TestUtils::spawnedChildHasADisplay()
{
    TestSupport::Remove("/tmp/display");

    QVERIFY(Utils::SpawnExecute(SHELL, Script("echo $DISPLAY >/tmp/display.new; "
                                              "mv /tmp/display.new /tmp/display")));

    QTRY_VERIFY(QFile::exists("/tmp/display"));
    QCOMPARE(TestSupport::ReadFile("/tmp/display"), QByteArray(":0\n"));
}

void TestUtils::spawnedChildOutlivesItsParent()
{
    TestSupport::Remove("/tmp/spawned");
    TestSupport::Remove("/tmp/spawn.go");
    const pid_t parent = ::fork();
    if (parent == 0) {
        Utils::SpawnExecute(SHELL, Script("until [ -e /tmp/spawn.go ]; do sleep 0.05; done; >/tmp/spawned"));
        ::_exit(0);
    }
    QCOMPARE(::waitpid(parent, nullptr, 0), parent);

    TestSupport::WriteFile("/tmp/spawn.go", "");

    QTRY_VERIFY(QFile::exists("/tmp/spawned"));
}

void TestUtils::spawnedChildLeavesNoZombie()
{
    TestSupport::Remove("/tmp/spawned");

    Utils::SpawnExecute(SHELL, Script(">/tmp/spawned"));

    QTRY_VERIFY(QFile::exists("/tmp/spawned"));
    // We have no child, ended or not.
    QCOMPARE(::waitpid(-1, nullptr, WNOHANG), -1);
    QCOMPARE(errno, ECHILD);
}

void TestUtils::spawnedChildHasOurOwnOutput()
{
    TestSupport::Remove("/tmp/channel");
    char own[PATH_MAX] = {};
    QVERIFY(::readlink("/proc/self/fd/1", own, sizeof own - 1) > 0);

    Utils::SpawnExecute(SHELL,
                        Script("channel=$(readlink /proc/$$/fd/1); "
                               "echo \"$channel\" >/tmp/channel.new; mv /tmp/channel.new /tmp/channel"));

    QTRY_VERIFY(QFile::exists("/tmp/channel"));
    QCOMPARE(TestSupport::ReadFile("/tmp/channel"), QByteArray(own) + '\n');
}

void TestUtils::spawnOfMissingProgramFails()
{
    ExpectDebugOutput("SpawnExecute \"no-such-program\"", {});
    QTest::ignoreMessage(QtDebugMsg, "SpawnExecute started false");

    QVERIFY(!Utils::SpawnExecute("no-such-program", {}));
}

void TestUtils::ssidIsDecoded_data()
{
    QTest::addColumn<QString>("escaped");
    QTest::addColumn<QString>("ssid");

    QTest::newRow("plain") << "Office"
                           << "Office";
    QTest::newRow("empty") << ""
                           << "";
    QTest::newRow("no escape, beyond Latin-1")
        << QStringLiteral("\u4f60\u597d") << QStringLiteral("\u4f60\u597d");
    QTest::newRow("other escape") << "a\\nb"
                                  << "a\\nb";
    QTest::newRow("escapes and a character") << "\\x41\\x42C"
                                             << "ABC";
    QTest::newRow("two bytes are one character") << "\\xc3\\xa9" << QStringLiteral("\u00e9");
    QTest::newRow("four bytes are one character")
        << "\\xf0\\x9f\\x98\\x80" << QString::fromUtf8("\xf0\x9f\x98\x80");
    QTest::newRow("in the middle") << "caf\\xc3\\xa9 bar" << QStringLiteral("caf\u00e9 bar");
    QTest::newRow("capital digits") << "\\xC3\\xA9" << QStringLiteral("\u00e9");
    QTest::newRow("cut short at the end") << "ab\\x4"
                                          << "ab\\x4";
    QTest::newRow("nothing after the x") << "ab\\x"
                                         << "ab\\x";
    QTest::newRow("cut short after an escape") << "\\x41\\x4"
                                               << "A\\x4";
    QTest::newRow("last four positions") << "ab\\x43"
                                         << "abC";
    QTest::newRow("escaped zero ends it") << "ab\\x00cd"
                                          << "ab";
    QTest::newRow("beyond Latin-1 beside an escape ends it") << QStringLiteral("a\\x42\u4f60c") << "aB";
    QTest::newRow("Latin-1 byte in a sequence") << QStringLiteral("\u00c3\\xa9") << QStringLiteral("\u00e9");
    QTest::newRow("capital X beside an escape") << "\\X41\\x42"
                                                << "\\X41B";
    QTest::newRow("other escapes beside one") << "\\\"\\n\\x41"
                                              << "\\\"\\nA";
    QTest::newRow("backslash before an escape") << "\\\\x41"
                                                << "\\A";
}

void TestUtils::ssidIsDecoded()
{
    QFETCH(QString, escaped);

    QTEST(Utils::SsidToString(escaped), "ssid");
}

QTEST_GUILESS_MAIN(TestUtils)
#include "tst_utils.moc"
