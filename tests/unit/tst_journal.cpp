// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "journal.h"
#include "logging.h"
#include "managersocket.h"
#include "testsupport.h"

#include <QLoggingCategory>
#include <QProcess>
#include <QTest>

#include <sys/stat.h>

using namespace TestSupport;

namespace {

const char *const SOCKET = "/run/systemd/journal/socket";
const char *const LOG = "/var/log/corvi-mon.log";

/// As JOURNAL_STREAM has it.
QByteArray StreamOf(const QString &file)
{
    struct stat info = {};
    ::stat(QFile::encodeName(file).constData(), &info);
    return QByteArray::number(static_cast<qulonglong>(info.st_dev)) + ':' +
           QByteArray::number(static_cast<qulonglong>(info.st_ino));
}

} // namespace

/// The lines of the log in the journal. main() says that it is wanted.
class TestJournal : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(QDir().mkpath("/run/systemd/journal")); }
    void init()
    {
        Remove(SOCKET);
        Logging::GetInstance(Level::VERBOSE, true);
    }

    void lineIsSentWithItsPriority_data();
    void lineIsSentWithItsPriority();
    void subjectIsSentWhileItLives();
    void lineFeedStaysInTheMessage();
    void journalThatDoesNotListenIsNotWaitedFor();
    void isWantedWhereTheUnitSaysSo_data();
    void isWantedWhereTheUnitSaysSo();
    void echoIsToldOnce_data();
    void echoIsToldOnce();
};

void TestJournal::lineIsSentWithItsPriority_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<QByteArray>("priority");
    QTest::newRow("fault") << Level::FAULT << QByteArray("3");
    QTest::newRow("notice") << Level::NOTICE << QByteArray("5");
    QTest::newRow("trace") << Level::TRACE << QByteArray("6");
    QTest::newRow("debug") << Level::DEBUG << QByteArray("7");
}

void TestJournal::lineIsSentWithItsPriority()
{
    QFETCH(int, level);
    QFETCH(QByteArray, priority);
    ManagerSocket journal(SOCKET);
    QVERIFY(journal.bound);

    Log(level) << "no lease on" << QString("eth\u00e9") << 5;

    QCOMPARE(journal.Heard(), QByteArray("SYSLOG_IDENTIFIER=corvi\nPRIORITY=" + priority +
                                         "\nMESSAGE=no lease on eth\xc3\xa9 5\n"));
    QCOMPARE(journal.Heard(), QByteArray());
    // The file as ever: the stamp, the items with a blank each, Latin-1.
    QCOMPARE(ReadFile(LOG).mid(int(sizeof "2025-05-03 17:05:01.234")),
             QByteArray(":  no lease on eth\xe9 5 \n"));
}

void TestJournal::subjectIsSentWhileItLives()
{
    ManagerSocket journal(SOCKET);
    {
        const JournalSubject device("eth0");
        {
            const JournalSubject definition("eth0", "lan");
            Log(Level::NOTICE) << "inner";
        }
        Log(Level::NOTICE) << "outer";
    }
    Log(Level::NOTICE) << "none";

    QVERIFY(journal.Heard().endsWith("\nINTERFACE=eth0\nDEFINITION=lan\nMESSAGE=inner\n"));
    QVERIFY(journal.Heard().endsWith("PRIORITY=5\nINTERFACE=eth0\nMESSAGE=outer\n"));
    QVERIFY(journal.Heard().endsWith("PRIORITY=5\nMESSAGE=none\n"));
}

void TestJournal::lineFeedStaysInTheMessage()
{
    ManagerSocket journal(SOCKET);

    Log(Level::NOTICE) << "a\nPRIORITY=0";

    QVERIFY(journal.Heard().endsWith(QByteArray("\nMESSAGE\n\x0c\0\0\0\0\0\0\0a\nPRIORITY=0\n", 30)));
}

void TestJournal::journalThatDoesNotListenIsNotWaitedFor()
{
    Log(Level::NOTICE) << "nobody is there";
    ManagerSocket journal(SOCKET);

    // More than it may have unread (/proc/sys/net/unix/max_dgram_qlen, 10 to 512).
    for (int line = 0; line < 2000; ++line)
        Log(Level::NOTICE) << line;

    QCOMPARE(ReadFile(LOG).count('\n'), 2001);
}

void TestJournal::isWantedWhereTheUnitSaysSo_data()
{
    QTest::addColumn<QByteArray>("variable");
    QTest::addColumn<QByteArray>("stream");
    QTest::addColumn<bool>("wanted");
    QTest::addColumn<bool>("hasDebugOutput");
    const QByteArray ours = StreamOf("/proc/self/fd/2");
    QTest::newRow("it says nothing") << QByteArray() << QByteArray() << false << false;
    QTest::newRow("by the variable") << QByteArray("1") << QByteArray() << true << false;
    QTest::newRow("another value") << QByteArray("0") << QByteArray() << false << false;
    QTest::newRow("by the error output") << QByteArray() << ours << true << true;
    QTest::newRow("the output was led elsewhere") << QByteArray() << QByteArray("1:2") << false << false;
}

void TestJournal::isWantedWhereTheUnitSaysSo()
{
    QFETCH(QByteArray, variable);
    QFETCH(QByteArray, stream);
    qputenv("CORVI_JOURNAL", variable);
    qputenv("JOURNAL_STREAM", stream);

    const ::Journal journal;

    qunsetenv("JOURNAL_STREAM");
    QTEST(journal.IsWanted(), "wanted");
    QTEST(journal.HasDebugOutput(), "hasDebugOutput");
}

void TestJournal::echoIsToldOnce_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("isConnected");
    QTest::addColumn<int>("echoes");
    for (const char *kind : {"--fault", "--message", "--warning"}) {
        QTest::addRow("%s, error output elsewhere", kind) << QString(kind) << false << 1;
        QTest::addRow("%s, error output in the journal", kind) << QString(kind) << true << 0;
    }
}

void TestJournal::echoIsToldOnce()
{
    QFETCH(QString, kind);
    QFETCH(bool, isConnected);
    QFETCH(int, echoes);
    ManagerSocket journal(SOCKET);
    const QString output = "/tmp/output";
    WriteFile(output, "");
    QProcess process;
    process.setStandardErrorFile(output, QIODevice::Append);
    process.setEnvironment(
        QProcess::systemEnvironment() +
        QStringList{isConnected ? "JOURNAL_STREAM=" + StreamOf(output) : "CORVI_JOURNAL=1"});

    process.start(QCoreApplication::applicationFilePath(), {kind});

    QVERIFY(process.waitForFinished());
    QVERIFY(journal.Heard().endsWith("\nMESSAGE=told\n"));
    QCOMPARE(journal.Heard(), QByteArray());
    QCOMPARE(ReadFile(output).count("told"), echoes);
    QCOMPARE(ReadFile(LOG).count("told"), 1);
}

/// What is told on the error output, too.
bool Tell(const QString &kind)
{
    const QLoggingCategory platform("zeb");
    Logging *const log = Logging::GetInstance(Level::NOTICE, false);
    if (kind == "--fault") {
        Log(Level::FAULT) << "told";
    } else if (kind == "--message") {
        log->LogMessage(Level::NOTICE, "told", true);
    } else if (kind == "--warning") {
        LogPlatformWarnings();
        qCWarning(platform, "told");
    } else {
        return false;
    }
    return true;
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    if (Tell(application.arguments().value(1)))
        return 0;
    qputenv("CORVI_JOURNAL", "1");
    TestJournal test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_journal.moc"
