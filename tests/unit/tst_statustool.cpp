// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "opencounter.h"
#include "statusworld.h"
#include "testsupport.h"

#include <QDataStream>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QtTest>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// Listens, and takes no connection: one waits in its queue, and there is no room for another.
class BusyListener
{
public:
    BusyListener() : listening(Socket()), waiting(Socket())
    {
        std::strcpy(address.sun_path, "/tmp/corvin");
        if (::bind(listening, Address(), sizeof address) != 0 || ::listen(listening, 0) != 0 ||
            ::connect(waiting, Address(), sizeof address) != 0)
            qFatal("cannot listen");
    }
    ~BusyListener()
    {
        ::unlink(address.sun_path);
        ::close(waiting);
        ::close(listening);
    }
    BusyListener(const BusyListener &) = delete;
    BusyListener &operator=(const BusyListener &) = delete;

    /// Whether the name still leads to this listener, and the queue is full.
    bool IsFull() const
    {
        const int another = Socket();
        const bool isFull = ::connect(another, Address(), sizeof address) == -1 && errno == EAGAIN;
        ::close(another);
        return isFull;
    }

private:
    static int Socket() { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }
    const sockaddr *Address() const { return reinterpret_cast<const sockaddr *>(&address); }

    sockaddr_un address = {AF_UNIX, {}};
    const int listening;
    const int waiting;
};

} // namespace

/// The tool as a person or a script starts it; this process plays the daemon.
class TestCorviStatus : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void saysThatThereIsNoDaemon_data();
    void saysThatThereIsNoDaemon();
    void recordOfADeadDaemonIsNotShown();
    void saysThatNothingIsPublished();
    void showsTheStatusToAPerson();
    void showsTheStatusToAProgram();
    void showsEveryInterface();
    void terminalGetsColours();
    void waitEndsWithAnAddress();
    void waitLooksOnlyNowAndThen();
    void waitInVainSaysWhy_data();
    void waitInVainSaysWhy();
    void archiveIsNamed();
    void archiveThatCannotBeMadeIsAFailure();
    void refusesADamagedRecord();
    void waitsForTheLock();
    void outputThatIsLostIsAFailure_data();
    void outputThatIsLostIsAFailure();
    void watchEndsWhenItsOutputIsLost();
    void watchPrintsEvents_data();
    void watchPrintsEvents();
    void watchPrintsTheRecordToAProgram();
    void watchPrintsEveryEvent();
    void eventsMeanWhatIsDocumented();
    void watchWorksWithoutADaemon();
    void watchDoesNotKeepTheSegment();
    void watchReportsABrokenEvent();
    void connectionBringsOneEvent();
    void eventsAreTakenOfItsOwnUserAlone();
    void secondWatcherIsRefused();
    void listenerThatIsBusyKeepsItsSocket();
    void deadListenersSocketIsTakenOver();
    void watchRemovesItsSocket_data();
    void watchRemovesItsSocket();
    void helpNamesTheOptions();
    void versionIsShown();
    void badCommandLineFails_data();
    void badCommandLineFails();
};

void TestCorviStatus::saysThatThereIsNoDaemon_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("for a person") << QStringList();
    QTest::newRow("for a program") << QStringList{"--json"};
}

void TestCorviStatus::saysThatThereIsNoDaemon()
{
    QFETCH(QStringList, arguments);

    const Result result = Run(arguments);

    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.error, "corvi-status: No daemon is running.\n");
}

void TestCorviStatus::recordOfADeadDaemonIsNotShown()
{
    const pid_t daemon = fork();
    if (daemon == 0) {
        auto *const publisher = new Publisher;
        publisher->Publish(WiredStatus().GetData());
        _exit(0); // like a crash: nothing is cleaned up, and the segment stays
    }
    QCOMPARE(waitpid(daemon, nullptr, 0), daemon);

    const Result result = Run({});

    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.error, "corvi-status: No daemon is running.\n");
}

void TestCorviStatus::saysThatNothingIsPublished()
{
    const Publisher publisher;

    const Result person = Run({});
    const Result program = Run({"--json"});

    QCOMPARE(person.exitCode, 0);
    QCOMPARE(person.output, "The daemon has not published a status yet.\n");
    QCOMPARE(program.exitCode, 0);
    QCOMPARE(program.output, "{\"published\":false}\n");
}

void TestCorviStatus::showsTheStatusToAPerson()
{
    Publisher publisher;
    ZebNetStatus status;
    status.SetWireless(true);
    status.SetIfaceInfo("02:00:5E:10:00:01", QString(), QString(), QString());
    publisher.Publish(WiredStatus().GetData());

    const Result wired = Run({});
    publisher.Publish(status.GetData());
    const Result wireless = Run({});

    QCOMPARE(wired.exitCode, 0);
    QCOMPARE(wired.error, QString());
    QCOMPARE(wired.output, "Connected:    yes\n"
                           "Interface:    wired\n"
                           "MAC address:  02:00:5E:10:00:01\n"
                           "IP address:   10.0.0.5\n"
                           "Netmask:      255.255.255.0\n"
                           "Broadcast:    10.0.0.255\n");
    QCOMPARE(wireless.output, "Connected:    no\n"
                              "Interface:    wireless\n"
                              "MAC address:  02:00:5E:10:00:01\n"
                              "IP address:   none\n"
                              "Netmask:      none\n"
                              "Broadcast:    none\n");
}

void TestCorviStatus::showsTheStatusToAProgram()
{
    Publisher publisher;
    publisher.Publish(WiredStatus().GetData());

    const Result result = Run({"--json"});

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output.count('\n'), 1);
    const QJsonObject expected = {{"published", true},        {"connected", true},
                                  {"wireless", false},        {"macAddress", "02:00:5E:10:00:01"},
                                  {"ipAddress", "10.0.0.5"},  {"netmask", "255.255.255.0"},
                                  {"broadcast", "10.0.0.255"}};
    QCOMPARE(QJsonDocument::fromJson(result.output.toUtf8()).object(), expected);
}

void TestCorviStatus::showsEveryInterface()
{
    TestSupport::MakeVeth("eth0", "eth1");
    const auto removal = qScopeGuard([] { TestSupport::RemoveInterfaces(); });

    const Result person = Run({"--all"});
    const Result program = Run({"--all", "--json"});

    QCOMPARE(person.exitCode, 0);
    QVERIFY(person.output.startsWith("Corvi does not run."));
    QVERIFY(person.output.contains("\neth1: wired\n  State:        the link is down\n"));
    QCOMPARE(program.exitCode, 0);
    QVERIFY(QJsonDocument::fromJson(program.output.toUtf8()).object().contains("interfaces"));
}

void TestCorviStatus::terminalGetsColours()
{
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    QVERIFY(terminal != -1 && ::grantpt(terminal) == 0 && ::unlockpt(terminal) == 0);
    const QString name = ::ptsname(terminal);
    // As long as somebody has it open, what is written stays to be read.
    const int keeper = ::open(qPrintable(name), O_RDWR | O_NOCTTY | O_CLOEXEC);
    const auto closing = qScopeGuard([terminal, keeper] {
        ::close(keeper);
        ::close(terminal);
    });

    QCOMPARE(QProcess::execute("/bin/sh", {"-c", "\"$0\" --all >\"$1\"", CORVI_STATUS, name}), 0);

    pollfd written{terminal, POLLIN, 0};
    QCOMPARE(::poll(&written, 1, LIMIT_MS), 1); // Where nothing is, reading would wait for ever.
    QByteArray text(5, '\0');
    QCOMPARE(::read(terminal, text.data(), 5), ssize_t(5));
    QCOMPARE(text, QByteArray("\033[31m"));
}

void TestCorviStatus::waitEndsWithAnAddress()
{
    TestSupport::MakeVeth("eth0", "eth1");
    const auto removal = qScopeGuard([] { TestSupport::RemoveInterfaces(); });
    for (const char *name : {"eth0", "eth1"})
        TestSupport::RealIp({"link", "set", "dev", name, "up"});
    QProcess waiting;
    waiting.start(CORVI_STATUS, {"--wait", "--interface", "eth0"});
    QVERIFY(!waiting.waitForFinished(500));

    TestSupport::RealIp({"addr", "add", "192.0.2.5/24", "dev", "eth0"});

    QVERIFY(waiting.waitForFinished(LIMIT_MS));
    QCOMPARE(waiting.exitCode(), 0);
    QCOMPARE(Run({"--wait"}).exitCode, 0);
    QCOMPARE(Run({"--wait", "--interface", "eth1", "--timeout", "0"}).exitCode, 2);
}

void TestCorviStatus::waitLooksOnlyNowAndThen()
{
    OpenCounter counter({"/sys/class/net"});

    QCOMPARE(Run({"--wait", "--timeout", "1"}).exitCode, 2);

    const int looks = counter.Take().value("/sys/class/net");
    QVERIFY2(looks > 1 && looks < 20, qPrintable(QString::number(looks)));
}

void TestCorviStatus::waitInVainSaysWhy_data()
{
    QTest::addColumn<QString>("interface");
    QTest::addColumn<QString>("reason");
    QTest::newRow("link that is down") << "eth0"
                                       << "eth0: the link is down";
    QTest::newRow("no link") << "eth7"
                             << "there is no such interface";
}

void TestCorviStatus::waitInVainSaysWhy()
{
    QFETCH(QString, interface);
    QFETCH(QString, reason);
    TestSupport::MakeVeth("eth0", "eth1");
    const auto removal = qScopeGuard([] { TestSupport::RemoveInterfaces(); });

    const Result result = Run({"--wait", "--timeout", "0", "--interface", interface});

    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.error, "corvi-status: no address in time: " + reason + '\n');
}

void TestCorviStatus::archiveIsNamed()
{
    const Result result = Run({"--report", "/tmp"});

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.error, QString());
    QVERIFY2(result.output.startsWith("/tmp/corvi-report-") && result.output.endsWith(".tar.gz\n"),
             qPrintable(result.output));
    QVERIFY(QFile::exists(result.output.trimmed()));
}

void TestCorviStatus::archiveThatCannotBeMadeIsAFailure()
{
    const Result result = Run({"--report", "/tmp/nowhere"});

    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.error, QString("corvi-status: /tmp/nowhere: No such file or directory\n"));
}

void TestCorviStatus::refusesADamagedRecord()
{
    Publisher publisher;
    publisher.Publish(QByteArray(512, 'x'));

    const Result result = Run({});

    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.output, QString());
    QCOMPARE(result.error,
             "corvi-status: The status cannot be read: the record is damaged or of a version that "
             "this program does not know.\n");
}

void TestCorviStatus::waitsForTheLock()
{
    Publisher publisher;
    publisher.Publish(QByteArray(512, 'x'));
    QVERIFY(publisher.segment.lock());
    QProcess tool;

    tool.start(CORVI_STATUS, QStringList());

    QVERIFY(!tool.waitForFinished(500));
    std::memcpy(publisher.segment.data(), WiredStatus().GetData().constData(), 512);
    QVERIFY(publisher.segment.unlock());
    QVERIFY(tool.waitForFinished(LIMIT_MS));
    QVERIFY(tool.readAllStandardOutput().contains("10.0.0.5"));
}

void TestCorviStatus::outputThatIsLostIsAFailure_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("for a person") << QStringList();
    QTest::newRow("for a program") << QStringList{"--json"};
}

void TestCorviStatus::outputThatIsLostIsAFailure()
{
    QFETCH(QStringList, arguments);
    const Publisher publisher;
    QProcess tool;
    tool.setStandardOutputFile("/dev/full");

    tool.start(CORVI_STATUS, arguments);

    QVERIFY(tool.waitForFinished(LIMIT_MS));
    QCOMPARE(tool.exitCode(), 1);
    QCOMPARE(QString::fromUtf8(tool.readAllStandardError()),
             "corvi-status: cannot write: No space left on device\n");
}

void TestCorviStatus::watchEndsWhenItsOutputIsLost()
{
    QProcess tool;
    tool.setStandardOutputFile("/dev/full");
    tool.start(CORVI_STATUS, {"--watch"});

    QVERIFY(SendEvent(QByteArray::fromHex("00030000")));

    QVERIFY(tool.waitForFinished(LIMIT_MS));
    QCOMPARE(tool.exitCode(), 1);
    QCOMPARE(QString::fromUtf8(tool.readAllStandardError()),
             "corvi-status: cannot write: No space left on device\n");
    QVERIFY(!QFile::exists(SOCKET));
}

void TestCorviStatus::watchPrintsEvents_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("expected");
    QTest::newRow("connected") << QByteArray::fromHex("00000001") << "event 0, status 1: connected";
    QTest::newRow("not connected") << QByteArray::fromHex("0000ffff") << "event 0, status -1: not connected";
    QTest::newRow("no configuration")
        << QByteArray::fromHex("0001ffff") << "event 1, status -1: no configuration found";
    QTest::newRow("DHCP started") << QByteArray::fromHex("00010000") << "event 1, status 0: DHCP started";
    QTest::newRow("address") << QByteArray::fromHex("00010001") << "event 1, status 1: address present";
    QTest::newRow("link established")
        << QByteArray::fromHex("00020001") << "event 2, status 1: link established";
    QTest::newRow("link lost") << QByteArray::fromHex("0002ffff") << "event 2, status -1: link lost";
    QTest::newRow("configured") << QByteArray::fromHex("00030000")
                                << "event 3, status 0: configuration applied";
    QTest::newRow("unknown event") << QByteArray::fromHex("7fff8000")
                                   << "event 32767, status -32768: unknown event";
    QTest::newRow("unknown status of the connections")
        << QByteArray::fromHex("00000007") << "event 0, status 7: connection status";
    QTest::newRow("unknown status of the address")
        << QByteArray::fromHex("00010007") << "event 1, status 7: address status";
    QTest::newRow("unknown status") << QByteArray::fromHex("00020007") << "event 2, status 7: link status";
}

void TestCorviStatus::watchPrintsEvents()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, expected);
    Publisher publisher;
    publisher.Publish(WiredStatus().GetData());
    Watcher watcher;

    QVERIFY(SendEvent(bytes));

    const QString output = watcher.OutputWith("Broadcast");
    QVERIFY2(output.contains(expected + "\n  Connected:    yes\n"), qPrintable(output));
    QVERIFY2(output.contains("\n  IP address:   10.0.0.5\n"), qPrintable(output));
}

void TestCorviStatus::watchPrintsTheRecordToAProgram()
{
    Publisher publisher;
    publisher.Publish(WiredStatus().GetData());
    Watcher watcher({"--watch", "--json"});

    QVERIFY(SendEvent(QByteArray::fromHex("00010001")));

    const QJsonObject event = QJsonDocument::fromJson(watcher.OutputWith("\n").toUtf8()).object();
    QCOMPARE(event.value("event").toInt(), 1);
    QCOMPARE(event.value("status").toInt(), 1);
    QCOMPARE(event.value("meaning").toString(), "address present");
    QVERIFY(QDateTime::fromString(event.value("time").toString(), Qt::ISODateWithMs).isValid());
    QCOMPARE(event.value("record").toObject().value("ipAddress").toString(), "10.0.0.5");
}

void TestCorviStatus::watchPrintsEveryEvent()
{
    Watcher watcher({"--watch", "--json"});

    for (int i = 0; i < 50; ++i)
        QVERIFY(SendEvent(QByteArray::fromHex("0000") + '\0' + static_cast<char>(i + 1)));

    const QString output = watcher.OutputWith("\"status\":50,");
    QCOMPARE(output.count("\"event\":0"), 50);
}

void TestCorviStatus::eventsMeanWhatIsDocumented()
{
    // "| 2 | -1 | link lost: also a modem that was taken down |"
    const QRegularExpression row("^\\| (\\d) \\| (-?1|0) \\| ([^:;|]+)[:;|]",
                                 QRegularExpression::MultilineOption);
    auto rows = row.globalMatch(QString::fromUtf8(TestSupport::ReadFile(STATUS_DOCUMENT)));
    Watcher watcher;
    int count = 0;

    for (; rows.hasNext(); ++count) {
        const QRegularExpressionMatch match = rows.next();
        QByteArray event;
        QDataStream(&event, QIODevice::WriteOnly)
            << match.captured(1).toShort() << match.captured(2).toShort();
        QVERIFY(SendEvent(event));
        const QString line = QStringLiteral("event %1, status %2: %3\n")
                                 .arg(match.captured(1), match.captured(2), match.captured(3).trimmed());
        QVERIFY2(watcher.OutputWith(line).contains(line), qPrintable(line));
    }

    QCOMPARE(count, 8);
}

void TestCorviStatus::watchWorksWithoutADaemon()
{
    Watcher watcher;

    QVERIFY(SendEvent(QByteArray::fromHex("00030000")));

    QVERIFY(watcher.OutputWith("No daemon is running.").contains("event 3, status 0: configuration applied"));
}

void TestCorviStatus::watchDoesNotKeepTheSegment()
{
    auto publisher = std::make_unique<Publisher>();
    publisher->Publish(WiredStatus().GetData());
    Watcher watcher;
    QVERIFY(SendEvent(QByteArray::fromHex("00010001")));
    QVERIFY(watcher.OutputWith("Broadcast").contains("10.0.0.5"));

    publisher.reset();

    QSharedMemory segment(KEY);
    QVERIFY(!segment.attach(QSharedMemory::ReadOnly));
    QCOMPARE(segment.error(), QSharedMemory::NotFound);
}

void TestCorviStatus::watchReportsABrokenEvent()
{
    Watcher watcher;

    QVERIFY(SendEvent("ab"));
    QVERIFY(SendEvent(QByteArray::fromHex("00030000")));

    QCOMPARE(watcher.OutputWith("event 3").count("event"), 1);
    // It was written before the event that came after it was printed.
    watcher.tool.waitForReadyRead(0);
    QCOMPARE(QString::fromUtf8(watcher.tool.readAllStandardError()),
             "corvi-status: an event of 2 bytes instead of 4 was left out\n");
}

void TestCorviStatus::connectionBringsOneEvent()
{
    Watcher watcher;

    QVERIFY(SendEvent(QByteArray::fromHex("0001000100020001")));
    QVERIFY(SendEvent(QByteArray::fromHex("00030000")));

    QCOMPARE(watcher.OutputWith("event 3").count("event"), 2);
    watcher.tool.waitForReadyRead(0);
    QCOMPARE(QString::fromUtf8(watcher.tool.readAllStandardError()), QString());
}

void TestCorviStatus::eventsAreTakenOfItsOwnUserAlone()
{
    Watcher watcher;
    QVERIFY(SendEvent(QByteArray::fromHex("00030000")));

    const QFile::Permissions others =
        QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther;
    QCOMPARE(QFile::permissions(SOCKET) & others, QFile::Permissions());
}

void TestCorviStatus::secondWatcherIsRefused()
{
    Watcher watcher;
    QVERIFY(SendEvent(QByteArray::fromHex("00030000")));

    const Result second = Run({"--watch"});

    QCOMPARE(second.exitCode, 1);
    QCOMPARE(second.error, "corvi-status: another program already listens for events\n");
    QVERIFY(SendEvent(QByteArray::fromHex("00030001")));
    QVERIFY(watcher.OutputWith("status 1").contains("event 3, status 1"));
    QCOMPARE(QString::fromUtf8(watcher.tool.readAllStandardError()), QString());
}

void TestCorviStatus::listenerThatIsBusyKeepsItsSocket()
{
    const BusyListener listener;
    QVERIFY(listener.IsFull());

    const Result result = Run({"--watch"});

    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.error, "corvi-status: another program already listens for events\n");
    QVERIFY(listener.IsFull());
}

void TestCorviStatus::deadListenersSocketIsTakenOver()
{
    {
        Watcher killed;
        QVERIFY(SendEvent(QByteArray::fromHex("00030000")));
        killed.tool.kill();
        QVERIFY(killed.tool.waitForFinished());
    }
    QVERIFY(QFile::exists(SOCKET));
    Watcher watcher;

    QVERIFY(SendEvent(QByteArray::fromHex("00030000")));

    QVERIFY(watcher.OutputWith("event 3").contains("event 3, status 0"));
}

void TestCorviStatus::watchRemovesItsSocket_data()
{
    QTest::addColumn<int>("signal");
    QTest::newRow("terminated") << SIGTERM;
    QTest::newRow("interrupted") << SIGINT;
    QTest::newRow("terminal closed") << SIGHUP;
}

void TestCorviStatus::watchRemovesItsSocket()
{
    QFETCH(int, signal);
    Watcher watcher;
    QVERIFY(SendEvent(QByteArray::fromHex("00030000")));
    watcher.OutputWith("event 3");

    ::kill(static_cast<pid_t>(watcher.tool.processId()), signal);

    QVERIFY(watcher.tool.waitForFinished(LIMIT_MS));
    QCOMPARE(watcher.tool.exitStatus(), QProcess::NormalExit);
    QCOMPARE(watcher.tool.exitCode(), 0);
    QVERIFY(!QFile::exists(SOCKET));
}

void TestCorviStatus::helpNamesTheOptions()
{
    const Result result = Run({"--help"});

    QCOMPARE(result.exitCode, 0);
    const QString help = result.output.simplified() + ' ';
    for (const char *text :
         {" Shows the network status that the Corvi daemon publishes. ",
          " --json Print for a program: one JSON object a line. ",
          " --all Print all that is known of each interface, and what it waits for. ",
          " --watch Print each event as it comes, until interrupted. ",
          " --wait End when an interface has an address. ", " --interface <name> Wait for this one. ",
          " --timeout <seconds> Wait no longer; the exit status is then 2. ",
          " --report <folder> Collect what a support engineer asks for in an archive, without secrets. "})
        QVERIFY2(help.contains(QLatin1String(text)), qPrintable(help));
}

void TestCorviStatus::versionIsShown()
{
    const Result result = Run({"--version"});

    QCOMPARE(result.exitCode, 0);
    QVERIFY(QRegularExpression("^corvi-status \\d+\\.\\d+\\.\\d+\n$").match(result.output).hasMatch());
}

void TestCorviStatus::badCommandLineFails_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("reason");
    QTest::newRow("unknown option") << QStringList{"--colour"} << "colour";
    QTest::newRow("argument") << QStringList{"eth0"} << "unexpected argument: eth0";
    QTest::newRow("two at a time") << QStringList{"--all", "--watch"}
                                   << "--all, --watch, --wait and --report are for one at a time\n";
    QTest::newRow("interface without a wait")
        << QStringList{"--interface", "eth0"} << "--interface and --timeout go with --wait\n";
    QTest::newRow("limit without a wait")
        << QStringList{"--all", "--timeout", "1"} << "--interface and --timeout go with --wait\n";
    QTest::newRow("wait for a program")
        << QStringList{"--wait", "--json"} << "--wait and --report have nothing to print with --json\n";
    QTest::newRow("report for a program") << QStringList{"--report", "/nowhere", "--json"}
                                          << "--wait and --report have nothing to print with --json\n";
    QTest::newRow("wait and report") << QStringList{"--wait", "--report", "/nowhere"}
                                     << "--all, --watch, --wait and --report are for one at a time\n";
    QTest::newRow("report without a folder")
        << QStringList{"--report", ""} << "corvi-status: --report needs a folder\n";
    QTest::newRow("limit that is no number")
        << QStringList{"--wait", "--timeout", "soon"} << "not a number of seconds: soon";
    QTest::newRow("limit before now")
        << QStringList{"--wait", "--timeout", "-1"} << "not a number of seconds: -1";
}

void TestCorviStatus::badCommandLineFails()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, reason);

    const Result result = Run(arguments);

    QCOMPARE(result.exitCode, 1);
    QVERIFY2(result.error.contains(reason), qPrintable(result.error));
}

QTEST_GUILESS_MAIN(TestCorviStatus)
#include "tst_statustool.moc"
