// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "logging.h"

#include "allocationcounter.h"
#include "debugoutput.h"
#include "mountpoint.h"
#include "program.h"
#include "resourcelimit.h"
#include "testsupport.h"

#include <QElapsedTimer>
#include <QFile>
#include <QLoggingCategory>
#include <QScopeGuard>
#include <QThread>
#include <QtTest>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <optional>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const char *const LOG_FILE = "/var/log/corvi-mon.log";

Q_LOGGING_CATEGORY(platformCategory, "zeb")

void SetLevel(int level)
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(level);
}

/// While it exists no line fits into the log any more: the kernel interrupts the thread that writes one, in
/// the middle of it, and the line is lost when `handler` has returned (setrlimit(2)).
class FullLog
{
public:
    explicit FullLog(void (*handler)(int))
    {
        struct sigaction action = {};
        action.sa_handler = handler;
        ::sigaction(SIGXFSZ, &action, &previousAction);
        ::getrlimit(RLIMIT_FSIZE, &previousLimit);
        rlimit limit = previousLimit;
        // More than what other output of the test may have come to.
        limit.rlim_cur = rlim_t{16} * 1024 * 1024;
        QFile log(LOG_FILE);
        if (!log.open(QIODevice::WriteOnly) || !log.resize(static_cast<qint64>(limit.rlim_cur)) ||
            ::setrlimit(RLIMIT_FSIZE, &limit) != 0)
            qFatal("FullLog: cannot fill the log");
    }
    ~FullLog()
    {
        ::setrlimit(RLIMIT_FSIZE, &previousLimit);
        ::sigaction(SIGXFSZ, &previousAction, nullptr);
        QFile::remove(LOG_FILE);
    }
    FullLog(const FullLog &) = delete;
    FullLog &operator=(const FullLog &) = delete;

private:
    struct sigaction previousAction = {};
    rlimit previousLimit = {};
};

int releasePipe[2] = {-1, -1};
std::atomic<bool> isHeld{false};

/// Keeps the line waiting that it interrupts.
void WaitForRelease(int /*signal*/)
{
    isHeld = true;
    char byte = 0;
    while (::read(releasePipe[0], &byte, 1) == -1 && errno == EINTR) {
    }
}

void LogWithinALine(int /*signal*/)
{
    isHeld = true;
    Log(Level::TRACE) << "inner";
}

} // namespace

/// The log file, its levels and its echo.
class TestLogging : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void lineHasTimeStampAndBlanks();
    void stampFollowsTheTimeZone();
    void itemsAreApartByOneBlank();
    void listIsJoined();
    void emptyListAddsABlank();
    void placeholdersInATextStay();
    void emptyFirstItemLeavesLineEmpty();
    void textBeyondLatin1IsReplaced();
    void lineIsWrittenUpToTheLevel_data();
    void lineIsWrittenUpToTheLevel();
    void levelBelowOneCountsAsOne_data();
    void levelBelowOneCountsAsOne();
    void instanceIsOneAndKeepsItsLevel_data();
    void instanceIsOneAndKeepsItsLevel();
    void instanceDeletesTheFileOnRequest();
    void messageWithoutLevelIsAlwaysWritten();
    void messageAboveTheLevelIsDropped();
    void messageIsEchoed_data();
    void messageIsEchoed();
    void levelZeroLineIsWrittenAndEchoed();
    void levelZeroMessageIsEchoedTwice();
    void levelZeroLineThatIsLostIsEchoed();
    void lineOfANegativeLevelIsNotEchoed();
    void lineOfOrdinaryLevelIsNotEchoed();
    void unwritableFileLosesOnlyItsLines();
    void missingFolderIsNotMade();
    void lineAfterOneThatWasCutBeginsItsOwn();
    void newFileAfterACutLineBeginsWithItsFirst();
    void pipeIsNotWaitedFor_data();
    void pipeIsNotWaitedFor();
    void lineIsLostWhenTheLockIsNotFreeInTime();
    void lineWithinALineIsLost();
    void linesOfSeveralThreadsStayWhole();
    void lineThatIsNotWrittenAllocatesNothing();
    void warningsForTheOperatorAreLogged();
};

void TestLogging::initTestCase()
{
    // The instance lives as long as the process: its beginning can be seen once only.
    QCOMPARE(Logging::CurrentLevel(), 1);
    DebugOutput output;

    Logging::GetInstance(Logging::KEEP_LEVEL, false);

    QCOMPARE(Logging::CurrentLevel(), 1);
    QCOMPARE(output.Take(), QStringList{"Create Logging::Logging() 1"});
}

void TestLogging::init()
{
    TestSupport::Remove(LOG_FILE);
    SetLevel(4);
}

void TestLogging::lineHasTimeStampAndBlanks()
{
    const QDateTime before = QDateTime::currentDateTime();
    Log(Level::TRACE) << "Corvi::Init()";
    const QDateTime after = QDateTime::currentDateTime();

    const QString text = TestSupport::LogText();
    QCOMPARE(text.mid(23), QString(" :  Corvi::Init() \n"));
    const QDateTime stamp = QDateTime::fromString(text.left(23), "yyyy-MM-dd hh:mm:ss.zzz");
    QVERIFY2(stamp >= before && stamp <= after, qPrintable(text));
}

void TestLogging::stampFollowsTheTimeZone()
{
    const auto restorer = qScopeGuard([] { qunsetenv("TZ"); });
    const auto hourOfALine = [](const char *zone) {
        qputenv("TZ", zone);
        TestSupport::Remove(LOG_FILE);
        Log(Level::TRACE) << "line";
        return QDateTime::fromString(TestSupport::LogText().left(13), "yyyy-MM-dd hh");
    };

    const QDateTime west = hourOfALine("WEST+10");
    const QDateTime east = hourOfALine("EAST-10");

    // An hour may end between the two lines.
    QVERIFY2(west.secsTo(east) == 20 * 3600 || west.secsTo(east) == 21 * 3600,
             qPrintable(QString::number(west.secsTo(east))));
}

void TestLogging::itemsAreApartByOneBlank()
{
    Log(Level::TRACE) << "text" << QString("value") << -12 << "";

    QCOMPARE(TestSupport::LogLines(), QStringList{"text value -12 "});
}

void TestLogging::listIsJoined()
{
    Log(Level::TRACE) << QStringList{"a", "b", "c"} << "end";

    QCOMPARE(TestSupport::LogLines(), QStringList{"a, b, c end"});
}

void TestLogging::emptyListAddsABlank()
{
    Log(Level::TRACE) << "text" << QStringList() << "end";

    QCOMPARE(TestSupport::LogLines(), QStringList{"text  end"});
}

void TestLogging::placeholdersInATextStay()
{
    Log(Level::TRACE) << "%1 %s %n" << QString("%1 %s %n") << "end";

    QCOMPARE(TestSupport::LogLines(), QStringList{"%1 %s %n %1 %s %n end"});
}

void TestLogging::emptyFirstItemLeavesLineEmpty()
{
    Logging::Logger(Level::TRACE) << QString() << "x";

    QCOMPARE(TestSupport::LogText(), QString("x \n"));
}

void TestLogging::textBeyondLatin1IsReplaced()
{
    Log(Level::TRACE) << QStringLiteral("caf\u00e9 \u20ac");

    QCOMPARE(TestSupport::LogLines(), QStringList{QStringLiteral("caf\u00e9 ?")});
    QVERIFY(TestSupport::ReadFile(LOG_FILE).contains("caf\xe9 ?"));
}

void TestLogging::lineIsWrittenUpToTheLevel_data()
{
    QTest::addColumn<int>("current");
    QTest::addColumn<int>("level");
    QTest::addColumn<bool>("written");

    QTest::newRow("trace at the ordinary level") << 2 << 4 << false;
    QTest::newRow("one above") << 3 << 4 << false;
    QTest::newRow("equal") << 4 << 4 << true;
    QTest::newRow("below") << 5 << 4 << true;
    QTest::newRow("always") << 1 << 0 << true;
    QTest::newRow("verbose at the debug level") << 5 << 6 << false;
}

void TestLogging::lineIsWrittenUpToTheLevel()
{
    QFETCH(int, current);
    QFETCH(int, level);
    DebugOutput output;
    SetLevel(current);

    Log(level) << "line";

    QTEST(!TestSupport::LogText().isEmpty(), "written");
}

void TestLogging::levelBelowOneCountsAsOne_data()
{
    QTest::addColumn<int>("asked");
    QTest::addColumn<int>("level");

    QTest::newRow("negative") << -3 << 1;
    QTest::newRow("zero") << 0 << 1;
    QTest::newRow("one") << 1 << 1;
    QTest::newRow("debug") << 5 << 5;
    QTest::newRow("above the most verbose") << 9 << 9;
}

void TestLogging::levelBelowOneCountsAsOne()
{
    QFETCH(int, asked);

    SetLevel(asked);

    QTEST(Logging::CurrentLevel(), "level");
}

void TestLogging::instanceIsOneAndKeepsItsLevel_data()
{
    QTest::addColumn<int>("asked");
    QTest::addColumn<int>("level");

    QTest::newRow("seven leaves it") << 7 << 4;
    QTest::newRow("most verbose") << 6 << 6;
    QTest::newRow("ordinary") << 2 << 2;
    QTest::newRow("zero") << 0 << 1;
}

void TestLogging::instanceIsOneAndKeepsItsLevel()
{
    QFETCH(int, asked);
    Logging *const first = Logging::GetInstance(Logging::KEEP_LEVEL, false);
    first->SetLoggingLevel(Level::TRACE);

    Logging *const second = Logging::GetInstance(asked, false);

    QCOMPARE(second, first);
    QTEST(Logging::CurrentLevel(), "level");
}

void TestLogging::instanceDeletesTheFileOnRequest()
{
    Log(Level::TRACE) << "line";

    Logging::GetInstance(Logging::KEEP_LEVEL, false);
    QVERIFY(QFile::exists(LOG_FILE));
    Logging::GetInstance(7, true);
    QVERIFY(!QFile::exists(LOG_FILE));
}

void TestLogging::messageWithoutLevelIsAlwaysWritten()
{
    SetLevel(1);

    Logging::GetInstance(Logging::KEEP_LEVEL, false)->LogMessage("Corvi::Start()", false);

    QCOMPARE(TestSupport::LogLines(), QStringList{"Corvi::Start()"});
}

void TestLogging::messageAboveTheLevelIsDropped()
{
    DebugOutput output;
    SetLevel(2);

    Logging::GetInstance(Logging::KEEP_LEVEL, false)->LogMessage(Level::SETUP, "note", true);

    QCOMPARE(TestSupport::LogText(), QString());
    QCOMPARE(output.Take(), QStringList());
}

void TestLogging::messageIsEchoed_data()
{
    QTest::addColumn<int>("current");
    QTest::addColumn<bool>("echo");
    QTest::addColumn<bool>("echoed");

    QTest::newRow("not asked for") << 5 << false << false;
    QTest::newRow("asked for") << 2 << true << true;
    QTest::newRow("most verbose level") << 6 << false << true;
}

void TestLogging::messageIsEchoed()
{
    QFETCH(int, current);
    QFETCH(bool, echo);
    QFETCH(bool, echoed);
    SetLevel(current);
    DebugOutput output;

    Logging::GetInstance(Logging::KEEP_LEVEL, false)->LogMessage(Level::NOTICE, "Corvi::Corvi", echo);

    QCOMPARE(TestSupport::LogLines(), QStringList{"Corvi::Corvi"});
    const QStringList shown = output.Take();
    QCOMPARE(shown.size(), echoed ? 1 : 0);
    if (echoed)
        QVERIFY2(QRegularExpression("^\"\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} : \" "
                                    "Logging::LogMessage \"Corvi::Corvi\"$")
                     .match(shown.first())
                     .hasMatch(),
                 qPrintable(shown.first()));
}

void TestLogging::levelZeroLineIsWrittenAndEchoed()
{
    DebugOutput output;
    SetLevel(1);

    Log(Level::FAULT) << "no segment";

    QCOMPARE(TestSupport::LogLines(), QStringList{"no segment"});
    const QStringList shown = output.Take();
    QCOMPARE(shown.size(), 1);
    QVERIFY(shown.first().contains("no segment"));
}

void TestLogging::levelZeroMessageIsEchoedTwice()
{
    DebugOutput output;

    Logging::GetInstance(Logging::KEEP_LEVEL, false)->LogMessage(Level::FAULT, "no segment", true);

    QCOMPARE(output.Take().filter("no segment").size(), 2);
}

void TestLogging::levelZeroLineThatIsLostIsEchoed()
{
    QVERIFY(QDir().mkpath(LOG_FILE));
    DebugOutput output;

    Log(Level::FAULT) << "no segment";

    QCOMPARE(output.Take().filter("no segment").size(), 1);
}

void TestLogging::lineOfANegativeLevelIsNotEchoed()
{
    DebugOutput output;

    Log(-1) << "line";

    QCOMPARE(TestSupport::LogLines(), QStringList{"line"});
    QCOMPARE(output.Take(), QStringList());
}

void TestLogging::lineOfOrdinaryLevelIsNotEchoed()
{
    DebugOutput output;
    SetLevel(6);

    Log(1) << "line";

    QCOMPARE(output.Take(), QStringList());
}

void TestLogging::unwritableFileLosesOnlyItsLines()
{
    QVERIFY(QDir().mkpath(LOG_FILE));
    Log(Level::TRACE) << "lost";
    QVERIFY(QDir().rmdir(LOG_FILE));

    Log(Level::TRACE) << "kept";

    QCOMPARE(TestSupport::LogLines(), QStringList{"kept"});
}

void TestLogging::missingFolderIsNotMade()
{
    const MountPoint emptyVar("/var");

    Log(Level::TRACE) << "lost";
    QVERIFY(!QFile::exists("/var/log"));

    QVERIFY(QDir().mkdir("/var/log"));
    Log(Level::TRACE) << "kept";
    QCOMPARE(TestSupport::LogLines(), QStringList{"kept"});
}

void TestLogging::lineAfterOneThatWasCutBeginsItsOwn()
{
    {
        const ResourceLimit fullDisk(RLIMIT_FSIZE, 40);
        Log(Level::TRACE) << "a line that the disk has not got enough room for";
        Log(Level::TRACE) << "lost";
    }
    Log(Level::TRACE) << "whole";
    Log(Level::TRACE) << "the next";

    const QStringList lines = TestSupport::LogText().split('\n');
    QCOMPARE(lines.size(), 4);
    QCOMPARE(lines.at(0).size(), 40);
    QVERIFY2(lines.at(1).endsWith(" :  whole "), qPrintable(lines.at(1)));
    QVERIFY2(lines.at(2).endsWith(" :  the next "), qPrintable(lines.at(2)));
}

void TestLogging::newFileAfterACutLineBeginsWithItsFirst()
{
    {
        const ResourceLimit fullDisk(RLIMIT_FSIZE, 40);
        Log(Level::TRACE) << "a line that the disk has not got enough room for";
    }
    QVERIFY(QFile::remove(LOG_FILE));

    Log(Level::TRACE) << "first";
    Log(Level::TRACE) << "second";

    QCOMPARE(TestSupport::LogText().count('\n'), 2);
    QVERIFY(!TestSupport::LogText().startsWith('\n'));
}

/// The log as a named pipe that nobody reads, or reads too slowly, must not hold the daemon.
void TestLogging::pipeIsNotWaitedFor_data()
{
    QTest::addColumn<bool>("hasReader");
    QTest::newRow("without a reader") << false;
    QTest::newRow("its reader does not read") << true;
}

void TestLogging::pipeIsNotWaitedFor()
{
    QFETCH(bool, hasReader);
    QCOMPARE(::mkfifo(LOG_FILE, 0600), 0);
    const int reader = hasReader ? ::open(LOG_FILE, O_RDONLY | O_NONBLOCK | O_CLOEXEC) : -1;
    std::signal(SIGPIPE, SIG_IGN); // As the daemon does.
    std::atomic<bool> isDone{false};
    std::atomic<bool> hasWaited{false};
    std::thread rescuer([&isDone, &hasWaited] {
        for (int i = 0; i < 200 && !isDone; ++i)
            QThread::msleep(100);
        hasWaited = !isDone;
        const int fd = ::open(LOG_FILE, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        std::vector<char> bytes(100000);
        while (!isDone)
            (void)!::read(fd, bytes.data(), bytes.size());
        ::close(fd);
    });

    const QString text(100000, QLatin1Char('x')); // More than a pipe takes (pipe(7)).
    Log(Level::TRACE) << text;
    Log(Level::TRACE) << text;

    isDone = true;
    rescuer.join();
    ::close(reader);
    QVERIFY(QFile::remove(LOG_FILE));
    QVERIFY(!hasWaited);
    Log(Level::TRACE) << "kept";
    QCOMPARE(TestSupport::LogLines().last(), QStringLiteral("kept"));
}

void TestLogging::lineIsLostWhenTheLockIsNotFreeInTime()
{
    QCOMPARE(::pipe2(releasePipe, O_CLOEXEC), 0);
    isHeld = false;
    std::optional<FullLog> log(std::in_place, WaitForRelease);
    std::thread holder([] { Log(Level::TRACE) << "holder"; });
    QTRY_VERIFY(isHeld);
    QElapsedTimer timer;
    timer.start();

    Log(Level::TRACE) << "lost";
    const qint64 lineMs = timer.restart();
    Logging::GetInstance(7, true);
    const qint64 deletionMs = timer.elapsed();

    const bool isThere = QFile::exists(LOG_FILE);
    QCOMPARE(::write(releasePipe[1], "", 1), ssize_t{1});
    holder.join();
    log.reset();
    for (const int end : releasePipe)
        ::close(end);
    QVERIFY2(lineMs >= 1000 && lineMs < 3000, qPrintable(QString::number(lineMs)));
    QVERIFY2(deletionMs >= 1000 && deletionMs < 3000, qPrintable(QString::number(deletionMs)));
    QVERIFY(isThere);
}

void TestLogging::lineWithinALineIsLost()
{
#if defined(__SANITIZE_THREAD__)
    QSKIP("the thread sanitizer refuses all but a few calls in a signal's handler");
#endif
    // The outer line holds the lock while it is interrupted.
    isHeld = false;
    std::optional<FullLog> log(std::in_place, LogWithinALine);
    QElapsedTimer timer;
    timer.start();

    Log(Level::TRACE) << "outer";

    const qint64 lineMs = timer.elapsed();
    log.reset();
    QVERIFY(isHeld);
    QVERIFY2(lineMs >= 1000, qPrintable(QString::number(lineMs)));
    Log(Level::TRACE) << "next";
    QCOMPARE(TestSupport::LogLines(), QStringList{"next"});
}

void TestLogging::linesOfSeveralThreadsStayWhole()
{
    constexpr int LINES = 200;
    const QString longText(500, 'x');
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&longText] {
            for (int line = 0; line < LINES; ++line)
                Log(Level::TRACE) << longText << "end";
        });
    }
    for (std::thread &thread : threads)
        thread.join();

    const QStringList messages = TestSupport::LogLines();
    QCOMPARE(messages.size(), 4 * LINES);
    for (const QString &message : messages)
        QCOMPARE(message, longText + " end");
}

void TestLogging::lineThatIsNotWrittenAllocatesNothing()
{
    const QString text("value");
    const QStringList list{"a", "b"};
    const long before = AllocationCounter::allocations;

    Log(Level::VERBOSE) << "text" << text << 7 << list;
    const long dropped = AllocationCounter::allocations - before;
    Log(Level::TRACE) << "text" << text << 7 << list;
    const long written = AllocationCounter::allocations - before;

    QCOMPARE(dropped, 0L);
    QVERIFY2(written > 0, "the counter does not count");
}

void TestLogging::warningsForTheOperatorAreLogged()
{
    SetLevel(2);
    DebugOutput output;
    LogPlatformWarnings();

    qCWarning(platformCategory) << "bad store";
    qWarning() << "something else";
    qCDebug(platformCategory) << "detail";
    Program missing;
    missing.start("/nowhere/dhclient", QStringList());
    missing.WaitForEnd(1000);

    const QString fault = "/nowhere/dhclient cannot be started: " + missing.errorString() + ' ';
    QCOMPARE(TestSupport::LogLines(), (QStringList{"bad store", fault}));
    QCOMPARE(output.Take(), (QStringList{"bad store", "something else", "detail", fault}));
}

QTEST_GUILESS_MAIN(TestLogging)
#include "tst_logging.moc"
