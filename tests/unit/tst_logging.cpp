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
#include <QtTest>

#include <csignal>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

const char *const LOG_FILE = "/var/log/corvi-mon.log";

Q_LOGGING_CATEGORY(platformCategory, "zeb")

void SetLevel(int level)
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(level);
}

int pipeReader = -1;

/// Interrupts a line that waits for a reader of the log, which then comes.
void LogWithinALine(int /*signal*/)
{
    Log(Level::TRACE) << "inner";
    pipeReader = ::open(LOG_FILE, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
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

void TestLogging::lineIsLostWhenTheLockIsNotFreeInTime()
{
    // A thread that writes to a named pipe without a reader holds the lock until one comes.
    QCOMPARE(::mkfifo(LOG_FILE, 0600), 0);
    std::thread holder([] { Logging::Logger(Level::TRACE) << "holder"; });
    QTest::qWait(200);
    QElapsedTimer timer;
    timer.start();

    Log(Level::TRACE) << "lost";
    const qint64 lineMs = timer.restart();
    Logging::GetInstance(7, true);
    const qint64 deletionMs = timer.elapsed();

    const int reader = ::open(LOG_FILE, O_RDONLY | O_CLOEXEC);
    holder.join();
    char bytes[100] = {};
    const auto size = ::read(reader, bytes, sizeof bytes);
    ::close(reader);
    QVERIFY2(lineMs >= 1000 && lineMs < 3000, qPrintable(QString::number(lineMs)));
    QVERIFY2(deletionMs >= 1000 && deletionMs < 3000, qPrintable(QString::number(deletionMs)));
    QCOMPARE(QByteArray(bytes, static_cast<int>(size)), QByteArray("holder \n"));
}

void TestLogging::lineWithinALineIsLost()
{
#if defined(__SANITIZE_THREAD__)
    QSKIP("the thread sanitizer refuses all but a few calls in a signal's handler");
#endif
    // The outer line waits for a reader of the named pipe, and holds the lock. It is interrupted there.
    QCOMPARE(::mkfifo(LOG_FILE, 0600), 0);
    struct sigaction action = {};
    action.sa_handler = LogWithinALine;
    action.sa_flags = SA_RESTART;
    struct sigaction previous = {};
    QCOMPARE(::sigaction(SIGALRM, &action, &previous), 0);
    const itimerval soon = {{}, {0, 200000}};
    QCOMPARE(::setitimer(ITIMER_REAL, &soon, nullptr), 0);
    QElapsedTimer timer;
    timer.start();

    Logging::Logger(Level::TRACE) << "outer";

    QVERIFY2(timer.elapsed() >= 1000, qPrintable(QString::number(timer.elapsed())));
    ::sigaction(SIGALRM, &previous, nullptr);
    char bytes[100] = {};
    const auto size = ::read(pipeReader, bytes, sizeof bytes);
    ::close(pipeReader);
    QCOMPARE(QByteArray(bytes, static_cast<int>(size)), QByteArray("outer \n"));
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
