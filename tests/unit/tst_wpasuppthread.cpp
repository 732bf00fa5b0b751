// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "barewpasuppthread.h"
#include "fakesupplicant.h"
#include "logging.h"
#include "testsupport.h"
#include "wpasupplicantcontrol.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTest>
#include <QTextCodec>

namespace {

const QString SUPPLICANT_LOG = QStringLiteral("/var/log/wpa_supplicant.log");
const QString CONFIGURATION = QStringLiteral("/tmp/wpa_supplicant.conf");

int LocalNames()
{
    return QDir(QStringLiteral("/tmp")).entryList({"wpa_ctrl_*"}, QDir::System | QDir::Files).size();
}

/// Deletes what was scheduled for deletion.
void DeleteLater()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

/// The log without its time stamps.
QStringList LogLines()
{
    QStringList lines;
    const QStringList stamped = TestSupport::LogText().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString &line : stamped) {
        // A reply's own line feed ends its line early.
        const int stampEnd = line.indexOf(QLatin1String(" :  "));
        lines.append(stampEnd == -1 ? line : line.mid(stampEnd + 4));
    }
    return lines;
}

} // namespace

class TestWpaSuppThread : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void startsWithTheseValues();
    void reinitializesTheStateOnly();
    void describesItself();

    void asksForAStopOnly();
    void logsTheStop_data();
    void logsTheStop();
    void asksForAReconfiguration();
    void asksForTheEnd();

    void tellsTheSupplicantToTerminate_data();
    void tellsTheSupplicantToTerminate();
    void fallsBackToTheCommandLineTool();
    void doesNotSignalWithoutConnection_data();
    void doesNotSignalWithoutConnection();
    void terminatesOnlyOnce();

    void createsTheControlConnection();
    void createsAConnectionThatFails();
    void takesTheFolderOutOfTheInterfaceName();
    void namesTheSocketInTheLocalEncoding_data();
    void namesTheSocketInTheLocalEncoding();
    void deletesTheConnectionLater();
    void deletesNoConnection();
    void recreatesTheConnection();
    void deletesTheConnectionInItsDestructor();

    void launches_data();
    void launches();
    void removesTheOldSupplicantLog_data();
    void removesTheOldSupplicantLog();
    void launchesNothingWithoutConfiguration_data();
    void launchesNothingWithoutConfiguration();
    void recomputesWired();
    void launchesThoughTheProgramIsMissing();
    void logsTheAnswerOfTheLaunch();

    void endsAStopInOneTick();
    void prefersAStopToEverythingElse();
    void finishesAStopBeforeTheRest();
    void reconfiguresBeforeItStarts();
    void opensTheConnectionAndThenAsksForTheStatus();
    void countsNothingWhenIdle();
    void goesOnWithTheTickWhenAskedToQuit();
};

void TestWpaSuppThread::init()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
    TestSupport::ClearLog();
    TestSupport::ClearJournal();
    TestSupport::ClearAnswers();
    TestSupport::WriteFile(CONFIGURATION, "ctrl_interface=/var/run/wpa_supplicant\n");
}

void TestWpaSuppThread::cleanup()
{
    DeleteLater();
    QCOMPARE(LocalNames(), 0);
    TestSupport::RestorePrograms();
    TestSupport::Remove(QStringLiteral("/usr/network/wpa_supplicant.eapfast"));
    TestSupport::Remove(QStringLiteral("/var/run/wpa_supplicant"));
}

void TestWpaSuppThread::startsWithTheseValues()
{
    BareWpaSuppThread supervisor;

    QCOMPARE(supervisor.requestedInterface, QString());
    QCOMPARE(supervisor.requestedDriver, QString());
    QCOMPARE(supervisor.requestedMethod, QString());
    QCOMPARE(supervisor.interface, QStringLiteral("wlan0"));
    QCOMPARE(supervisor.driver, QStringLiteral("nl80211,wext"));
    QCOMPARE(supervisor.statusText, QStringLiteral("Thread Created"));
    QCOMPARE(supervisor.configurationPath, CONFIGURATION);
    QCOMPARE(supervisor.method, QString());
    QCOMPARE(supervisor.ssid, QString());
    QCOMPARE(supervisor.debugLevel, 0);
    QCOMPARE(supervisor.openFailures, 0);
    QCOMPARE(supervisor.unassociatedTicks, 0);
    for (const bool flag :
         {supervisor.associated, supervisor.wired, supervisor.running, supervisor.stopRunning,
          supervisor.stopPending, supervisor.reconfigureRequested, supervisor.stoppingSupplicant,
          supervisor.startingSupplicant, supervisor.checkStatusRequested, supervisor.quitRequested,
          supervisor.terminateAcknowledged, supervisor.badPassword, supervisor.restarting,
          supervisor.startPending})
        QVERIFY(!flag);
    QVERIFY(!supervisor.control);
}

void TestWpaSuppThread::reinitializesTheStateOnly()
{
    BareWpaSuppThread supervisor;
    for (bool *flag :
         {&supervisor.associated, &supervisor.wired, &supervisor.running, &supervisor.stopRunning,
          &supervisor.stopPending, &supervisor.reconfigureRequested, &supervisor.stoppingSupplicant,
          &supervisor.startingSupplicant, &supervisor.checkStatusRequested, &supervisor.quitRequested,
          &supervisor.terminateAcknowledged, &supervisor.badPassword, &supervisor.restarting})
        *flag = true;
    supervisor.openFailures = 3;
    supervisor.unassociatedTicks = 4;
    supervisor.debugLevel = 2;
    supervisor.ssid = QStringLiteral("MyNet");
    supervisor.statusText = QStringLiteral("Associated");
    supervisor.interface = QStringLiteral("eth0");
    supervisor.driver = QStringLiteral("wired");
    supervisor.method = QStringLiteral("peap");
    supervisor.requestedInterface = QStringLiteral("eth1");

    supervisor.Reinit();

    for (const bool flag :
         {supervisor.associated, supervisor.wired, supervisor.running, supervisor.stopRunning,
          supervisor.stopPending, supervisor.reconfigureRequested, supervisor.stoppingSupplicant,
          supervisor.startingSupplicant, supervisor.checkStatusRequested, supervisor.quitRequested,
          supervisor.terminateAcknowledged, supervisor.badPassword, supervisor.restarting})
        QVERIFY(!flag);
    QCOMPARE(supervisor.openFailures, 0);
    QCOMPARE(supervisor.unassociatedTicks, 0);
    QCOMPARE(supervisor.ssid, QString());
    QCOMPARE(supervisor.debugLevel, 2);
    QCOMPARE(supervisor.statusText, QStringLiteral("Associated"));
    QCOMPARE(supervisor.interface, QStringLiteral("eth0"));
    QCOMPARE(supervisor.driver, QStringLiteral("wired"));
    QCOMPARE(supervisor.method, QStringLiteral("peap"));
    QCOMPARE(supervisor.requestedInterface, QStringLiteral("eth1"));
}

void TestWpaSuppThread::describesItself()
{
    BareWpaSuppThread supervisor;
    QCOMPARE(supervisor.toString(),
             QStringLiteral("Running = no\nStatus = Thread Created\nAssociated = no\nSSID = "));

    supervisor.running = true;
    supervisor.associated = true;
    supervisor.statusText = QStringLiteral("%4");
    supervisor.ssid = QStringLiteral("My Net");

    QCOMPARE(supervisor.toString(),
             QStringLiteral("Running = yes\nStatus = %4\nAssociated = yes\nSSID = My Net"));
}

void TestWpaSuppThread::asksForAStopOnly()
{
    FakeSupplicant supplicant;
    BareWpaSuppThread supervisor;
    supervisor.Supervise();
    supplicant.ClearCommands();

    supervisor.Stop(5);

    QVERIFY(supervisor.stopRunning);
    QVERIFY(supervisor.running);
    QVERIFY(!supervisor.stoppingSupplicant);
    QCOMPARE(supplicant.Commands(), QStringList());
}

void TestWpaSuppThread::logsTheStop_data()
{
    QTest::addColumn<bool>("running");
    QTest::addColumn<bool>("restarting");
    QTest::addColumn<QString>("expected");
    QTest::newRow("idle") << false << false << "WpaSuppThread::Stop 5 false 0 ";
    QTest::newRow("running") << true << false << "WpaSuppThread::Stop 5 true 1 ";
    QTest::newRow("restarting") << false << true << "WpaSuppThread::Stop 5 false 1 ";
}

void TestWpaSuppThread::logsTheStop()
{
    QFETCH(bool, running);
    QFETCH(bool, restarting);
    BareWpaSuppThread supervisor;
    supervisor.running = running;
    supervisor.restarting = restarting;

    supervisor.Stop(5);

    QTEST(LogLines().last(), "expected");
}

void TestWpaSuppThread::asksForAReconfiguration()
{
    FakeSupplicant supplicant;
    BareWpaSuppThread supervisor;
    supervisor.Supervise();
    supplicant.ClearCommands();

    supervisor.Reconfigure();
    QCOMPARE(supplicant.Commands(), QStringList());
    supervisor.Tick(2);

    QCOMPARE(supplicant.Commands(), QStringList{"RECONFIGURE"});
}

void TestWpaSuppThread::asksForTheEnd()
{
    BareWpaSuppThread supervisor;

    supervisor.Quit();

    QVERIFY(supervisor.quitRequested);
    QCOMPARE(LogLines(), QStringList{"WpaSuppThread::Quit "});
}

void TestWpaSuppThread::tellsTheSupplicantToTerminate_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::newRow("OK") << QByteArray("OK\n");
    QTest::newRow("begins with OK") << QByteArray("OKAY");
    QTest::newRow("the error text") << QByteArray("WPA_CTRL_ERROR whatever");
}

void TestWpaSuppThread::tellsTheSupplicantToTerminate()
{
    QFETCH(QByteArray, reply);
    FakeSupplicant supplicant;
    supplicant.SetReply("TERMINATE", reply);
    BareWpaSuppThread supervisor;
    supervisor.Supervise();
    TestSupport::ClearLog();

    supervisor.StopSupplicant();

    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "TERMINATE"}));
    QVERIFY(supervisor.terminateAcknowledged);
    QVERIFY(supervisor.stoppingSupplicant);
    QCOMPARE(LogLines().first(), QStringLiteral("WpaSupplicant::StopSupplicant STOP wpa "));
    QVERIFY(TestSupport::LogText().contains("WpaSupplicant::StopSupplicant " + QString::fromLatin1(reply)));
    QCOMPARE(TestSupport::Journal(), QStringList());
}

void TestWpaSuppThread::fallsBackToTheCommandLineTool()
{
    FakeSupplicant supplicant;
    supplicant.SetReply("TERMINATE", "FAIL\n");
    BareWpaSuppThread supervisor;
    supervisor.Supervise();

    supervisor.StopSupplicant();

    QVERIFY(TestSupport::WaitForJournal(1));
    QCOMPARE(TestSupport::Journal(), QStringList{"wpa_cli TERMINATE"});
    QVERIFY(!supervisor.terminateAcknowledged);
    QVERIFY(supervisor.stoppingSupplicant);
}

void TestWpaSuppThread::doesNotSignalWithoutConnection_data()
{
    QTest::addColumn<bool>("hasControl");
    QTest::newRow("no control object") << false;
    QTest::newRow("control object not open") << true;
}

void TestWpaSuppThread::doesNotSignalWithoutConnection()
{
    QFETCH(bool, hasControl);
    BareWpaSuppThread supervisor;
    if (hasControl)
        supervisor.CreateWpaCtl();
    FakeSupplicant supplicant;

    supervisor.StopSupplicant();

    QCOMPARE(supplicant.Commands(), QStringList());
    QCOMPARE(TestSupport::Journal(), QStringList());
    QVERIFY(supervisor.terminateAcknowledged);
    QVERIFY(supervisor.stoppingSupplicant);
}

void TestWpaSuppThread::terminatesOnlyOnce()
{
    FakeSupplicant supplicant;
    BareWpaSuppThread supervisor;
    supervisor.Supervise();
    supervisor.StopSupplicant();
    supervisor.terminateAcknowledged = false;

    supervisor.StopSupplicant();

    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "TERMINATE"}));
    QVERIFY(supervisor.terminateAcknowledged);
}

void TestWpaSuppThread::createsTheControlConnection()
{
    FakeSupplicant supplicant(QStringLiteral("eth0"));
    BareWpaSuppThread supervisor;
    supervisor.interface = QStringLiteral("eth0");
    supervisor.badPassword = true;
    QSignalSpy changes(&supervisor, &WpaSuppThread::associatedChanged);

    supervisor.CreateWpaCtl();

    QVERIFY(supervisor.IsControlOpen());
    QVERIFY(!supervisor.control->parent());
    QCOMPARE(supervisor.control->thread(), QCoreApplication::instance()->thread());
    QVERIFY(!supervisor.badPassword);
    QCOMPARE(LogLines().last(), QStringLiteral("WpaSuppThread::CreateWpaCtl() Open wpactl eth0 1 "));
    QVERIFY(supplicant.SendEvent("<3>CTRL-EVENT-CONNECTED - "));
    QTRY_COMPARE(changes.size(), 1);
}

void TestWpaSuppThread::createsAConnectionThatFails()
{
    BareWpaSuppThread supervisor;

    supervisor.CreateWpaCtl();

    QVERIFY(supervisor.control);
    QVERIFY(!supervisor.IsControlOpen());
    QCOMPARE(LogLines().last(), QStringLiteral("WpaSuppThread::CreateWpaCtl() Open wpactl wlan0 0 "));
}

void TestWpaSuppThread::takesTheFolderOutOfTheInterfaceName()
{
    FakeSupplicant supplicant(QStringLiteral("eth0"));
    BareWpaSuppThread supervisor;
    supervisor.interface = QStringLiteral("/var/run/wpa_supplicant/eth/var/run/wpa_supplicant/0");

    supervisor.CreateWpaCtl();

    QVERIFY(supervisor.IsControlOpen());
}

void TestWpaSuppThread::namesTheSocketInTheLocalEncoding_data()
{
    QTest::addColumn<QByteArray>("codec");
    QTest::addColumn<QByteArray>("path");
    QTest::newRow("UTF-8") << QByteArray("UTF-8") << QByteArray("/var/run/wpa_supplicant/l\xc3\xa4n0");
    QTest::newRow("Latin-1") << QByteArray("ISO-8859-1") << QByteArray("/var/run/wpa_supplicant/l\xe4n0");
}

void TestWpaSuppThread::namesTheSocketInTheLocalEncoding()
{
    QFETCH(QByteArray, codec);
    QFETCH(QByteArray, path);
    QVERIFY(QDir().mkpath(QStringLiteral("/var/run/wpa_supplicant")));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, path.constData(), sizeof address.sun_path);
    FakeSupplicant supplicant(address);
    const auto restore =
        qScopeGuard([before = QTextCodec::codecForLocale()] { QTextCodec::setCodecForLocale(before); });
    QTextCodec::setCodecForLocale(QTextCodec::codecForName(codec));
    BareWpaSuppThread supervisor;
    supervisor.interface = QStringLiteral("l\u00e4n0");

    supervisor.CreateWpaCtl();

    QVERIFY(supervisor.IsControlOpen());
}

void TestWpaSuppThread::deletesTheConnectionLater()
{
    FakeSupplicant supplicant;
    BareWpaSuppThread supervisor;
    supervisor.CreateWpaCtl();
    QSignalSpy destroyed(supervisor.control, &QObject::destroyed);
    QSignalSpy changes(&supervisor, &WpaSuppThread::associatedChanged);
    QVERIFY(supplicant.SendEvent("<3>CTRL-EVENT-CONNECTED - "));

    supervisor.DeleteWpaCtl();

    QVERIFY(!supervisor.control);
    QCOMPARE(supplicant.Commands(), QStringList{"ATTACH"});
    // Its connections are cut at once: the event that waits reaches nobody.
    QCoreApplication::processEvents();
    QCOMPARE(changes.size(), 0);
    DeleteLater();
    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "DETACH"}));
}

void TestWpaSuppThread::deletesNoConnection()
{
    BareWpaSuppThread supervisor;

    supervisor.DeleteWpaCtl();

    QVERIFY(!supervisor.control);
}

void TestWpaSuppThread::recreatesTheConnection()
{
    FakeSupplicant supplicant;
    BareWpaSuppThread supervisor;
    supervisor.CreateWpaCtl();
    const WpaSupplicantControl *before = supervisor.control;
    TestSupport::ClearLog();

    supervisor.RestartWpaCtl();

    QVERIFY(supervisor.control != before);
    QVERIFY(supervisor.IsControlOpen());
    QCOMPARE(LogLines().first(), QStringLiteral("WpaSuppThread::RestartWpaCtl "));
    QCOMPARE(LogLines().last(), QStringLiteral("WpaSuppThread::RestartWpaCtl  Complete "));
}

void TestWpaSuppThread::deletesTheConnectionInItsDestructor()
{
    FakeSupplicant supplicant;
    {
        BareWpaSuppThread supervisor;
        supervisor.CreateWpaCtl();
    }
    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "DETACH"}));
}

void TestWpaSuppThread::launches_data()
{
    QTest::addColumn<int>("debugLevel");
    QTest::addColumn<QString>("method");
    QTest::addColumn<bool>("hasEapFastProgram");
    QTest::addColumn<QString>("expected");
    const QString logOption = QStringLiteral(" -f/var/log/wpa_supplicant.log");
    const QString rest = QStringLiteral(" -iwlan0 -Dnl80211,wext -c/tmp/wpa_supplicant.conf");
    QTest::newRow("defaults") << 0 << "" << false << "wpa_supplicant -B ''" + rest + logOption;
    QTest::newRow("debug level 1") << 1 << "" << false << "wpa_supplicant -B ' -d'" + rest + logOption;
    QTest::newRow("debug level 2") << 2 << "" << false << "wpa_supplicant -B ' -dd'" + rest + logOption;
    QTest::newRow("debug level 9") << 9 << "" << false << "wpa_supplicant -B ' -dd'" + rest + logOption;
    QTest::newRow("EAP-FAST with its program") << 0 << " eap_fast\n"
                                               << true << "wpa_supplicant.eapfast -B ''" + rest;
    QTest::newRow("EAP-FAST without its program")
        << 0 << "eap_fast" << false << "wpa_supplicant -B ''" + rest + logOption;
    QTest::newRow("another case") << 0 << "EAP_FAST" << true << "wpa_supplicant -B ''" + rest + logOption;
    QTest::newRow("another method") << 0 << "peap" << true << "wpa_supplicant -B ''" + rest + logOption;
}

void TestWpaSuppThread::launches()
{
    QFETCH(int, debugLevel);
    QFETCH(QString, method);
    QFETCH(bool, hasEapFastProgram);
    if (hasEapFastProgram) {
        const QString recorder = QFile::symLinkTarget(QStringLiteral("/tmp/standins/bin/wpa_supplicant"));
        QVERIFY(QFile::link(recorder, QStringLiteral("/usr/network/wpa_supplicant.eapfast")));
    }
    BareWpaSuppThread supervisor;
    supervisor.debugLevel = debugLevel;
    supervisor.method = method;
    supervisor.terminateAcknowledged = true;
    supervisor.stopRunning = true;

    supervisor.LaunchSupplicant();

    QFETCH(QString, expected);
    QCOMPARE(TestSupport::Journal(), QStringList{expected});
    QCOMPARE(supervisor.statusText, QStringLiteral("Starting"));
    QVERIFY(supervisor.startingSupplicant);
    QVERIFY(!supervisor.terminateAcknowledged);
    QVERIFY(!supervisor.stopRunning);
    QVERIFY(!supervisor.running);
}

void TestWpaSuppThread::removesTheOldSupplicantLog_data()
{
    QTest::addColumn<int>("debugLevel");
    QTest::addColumn<bool>("expected");
    QTest::newRow("level 0") << 0 << false;
    QTest::newRow("level 1") << 1 << false;
    QTest::newRow("level 2 keeps it") << 2 << true;
}

void TestWpaSuppThread::removesTheOldSupplicantLog()
{
    QFETCH(int, debugLevel);
    TestSupport::WriteFile(SUPPLICANT_LOG, "old");
    BareWpaSuppThread supervisor;
    supervisor.debugLevel = debugLevel;

    supervisor.LaunchSupplicant();

    QTEST(QFile::exists(SUPPLICANT_LOG), "expected");
}

void TestWpaSuppThread::launchesNothingWithoutConfiguration_data()
{
    QTest::addColumn<bool>("isLink");
    QTest::newRow("no file") << false;
    QTest::newRow("a link, as another user may leave it") << true;
}

void TestWpaSuppThread::launchesNothingWithoutConfiguration()
{
    QFETCH(bool, isLink);
    TestSupport::Remove(CONFIGURATION);
    if (isLink)
        QVERIFY(QFile::link(QStringLiteral("/etc/hosts"), CONFIGURATION));
    BareWpaSuppThread supervisor;
    supervisor.restarting = true;
    supervisor.startingSupplicant = true;

    supervisor.LaunchSupplicant();

    QCOMPARE(TestSupport::Journal(), QStringList());
    QCOMPARE(LogLines(), QStringList{"WpaSupplicant::Start No configuration file -- Stopping "});
    QVERIFY(!supervisor.startingSupplicant);
    QVERIFY(!supervisor.running);
    QVERIFY(supervisor.restarting);
    TestSupport::Remove(CONFIGURATION);
}

void TestWpaSuppThread::recomputesWired()
{
    BareWpaSuppThread supervisor;
    supervisor.interface = QStringLiteral("eth0");
    supervisor.driver = QStringLiteral("wired");

    supervisor.LaunchSupplicant();

    QVERIFY(supervisor.wired);
    QVERIFY(LogLines().contains(QStringLiteral(" WpaSuppThread::Start Driver= wired 1 ")));
    supervisor.driver = QStringLiteral("Wired");
    supervisor.LaunchSupplicant();
    QVERIFY(!supervisor.wired);
}

void TestWpaSuppThread::launchesThoughTheProgramIsMissing()
{
    TestSupport::RemoveProgram(QStringLiteral("wpa_supplicant"));
    BareWpaSuppThread supervisor;

    supervisor.LaunchSupplicant();
    supervisor.Tick();

    // What is not there is noticed by the ticks that follow.
    QVERIFY(supervisor.running);
    QVERIFY(!supervisor.IsControlOpen());
}

void TestWpaSuppThread::logsTheAnswerOfTheLaunch()
{
    TestSupport::Answer(QStringLiteral("wpa_supplicant"), "echo one; echo two; echo hidden >&2");
    BareWpaSuppThread supervisor;

    supervisor.LaunchSupplicant();

    QCOMPARE(LogLines(),
             (QStringList{"WpaSuppThread::Start -- Start wpa_supplicant ",
                          " WpaSuppThread::Start execute wpa_supplicant -B, , -iwlan0, -Dnl80211,wext, "
                          "-c/tmp/wpa_supplicant.conf, -f/var/log/wpa_supplicant.log ",
                          " WpaSuppThread::Start Driver= nl80211,wext 0 ",
                          " WpaSuppThread::Start response= one, two,  "}));
}

void TestWpaSuppThread::endsAStopInOneTick()
{
    FakeSupplicant supplicant;
    BareWpaSuppThread supervisor;
    supervisor.Supervise();
    supervisor.associated = true;
    supervisor.restarting = true;
    supervisor.ssid = QStringLiteral("MyNet");
    supervisor.Stop(5);
    TestSupport::ClearLog();

    supervisor.Tick();

    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "TERMINATE"}));
    QVERIFY(!supervisor.control);
    QVERIFY(!supervisor.running);
    QVERIFY(!supervisor.restarting);
    QVERIFY(!supervisor.associated);
    QVERIFY(!supervisor.stoppingSupplicant);
    QVERIFY(!supervisor.stopRunning);
    QCOMPARE(supervisor.ssid, QString());
    QCOMPARE(LogLines(),
             (QStringList{"WpaSuppThread::run  stopRunning set ", "WpaSupplicant::StopSupplicant STOP wpa ",
                          "WpaSupplicant::StopSupplicant OK", " ",
                          "WpaSuppThread::run  stoppingSupplicant set "}));
}

void TestWpaSuppThread::prefersAStopToEverythingElse()
{
    FakeSupplicant supplicant;
    BareWpaSuppThread supervisor;
    supervisor.Supervise();
    supplicant.ClearCommands();
    supervisor.stopRunning = true;
    supervisor.reconfigureRequested = true;
    supervisor.startingSupplicant = true;
    supervisor.checkStatusRequested = true;

    supervisor.Tick(3);

    // The stop took the other requests with it.
    QCOMPARE(supplicant.Commands(), QStringList{"TERMINATE"});
    QVERIFY(!supervisor.running);
}

void TestWpaSuppThread::finishesAStopBeforeTheRest()
{
    FakeSupplicant supplicant;
    BareWpaSuppThread supervisor;
    supervisor.Supervise();
    supplicant.ClearCommands();
    supervisor.stoppingSupplicant = true;
    supervisor.startingSupplicant = true;
    supervisor.reconfigureRequested = true;

    supervisor.Tick(3);

    // Nothing is sent: the stop had been issued before.
    QCOMPARE(supplicant.Commands(), QStringList());
    QVERIFY(!supervisor.running);
    QVERIFY(!supervisor.control);
}

void TestWpaSuppThread::reconfiguresBeforeItStarts()
{
    FakeSupplicant supplicant;
    BareWpaSuppThread supervisor;
    supervisor.startingSupplicant = true;
    supervisor.reconfigureRequested = true;

    supervisor.Tick();
    QVERIFY(supervisor.startingSupplicant);
    QVERIFY(!supervisor.reconfigureRequested);
    QVERIFY(!supervisor.control);
    supervisor.Tick();

    QVERIFY(supervisor.IsControlOpen());
    // Without a connection the request was lost.
    QCOMPARE(supplicant.Commands(), QStringList{"ATTACH"});
}

void TestWpaSuppThread::opensTheConnectionAndThenAsksForTheStatus()
{
    FakeSupplicant supplicant;
    supplicant.SetReply("STATUS", "ssid=office\nwpa_state=COMPLETED\n");
    BareWpaSuppThread supervisor;
    supervisor.startingSupplicant = true;
    supervisor.restarting = true;

    supervisor.Tick();

    QCOMPARE(supplicant.Commands(), QStringList{"ATTACH"});
    QVERIFY(supervisor.running);
    QVERIFY(!supervisor.restarting);
    QVERIFY(!supervisor.startingSupplicant);
    QVERIFY(TestSupport::LogText().contains("WpaSuppThread::run  startingSupplicant set \n"));
    QVERIFY(!supervisor.associated);
    // A supplicant that connected when nobody was there to hear it says so here.
    supervisor.Tick();
    QCOMPARE(supplicant.Commands(), (QStringList{"ATTACH", "STATUS"}));
    QVERIFY(supervisor.IsAssociated());
    QCOMPARE(supervisor.ssid, QStringLiteral("office"));
}

void TestWpaSuppThread::countsNothingWhenIdle()
{
    BareWpaSuppThread supervisor;
    supervisor.openFailures = 3;
    supervisor.unassociatedTicks = 30;
    supervisor.badPassword = true;

    supervisor.Tick();

    QCOMPARE(supervisor.openFailures, 0);
    QCOMPARE(supervisor.unassociatedTicks, 0);
    // Nothing is reported either.
    QVERIFY(supervisor.badPassword);
    QCOMPARE(LogLines(), QStringList());
}

void TestWpaSuppThread::goesOnWithTheTickWhenAskedToQuit()
{
    FakeSupplicant supplicant;
    BareWpaSuppThread supervisor;
    supervisor.Supervise();
    supervisor.Quit();
    supervisor.Stop(0);

    supervisor.Tick();

    QVERIFY(supplicant.Commands().contains("TERMINATE"));
    QVERIFY(!supervisor.running);
}

QTEST_GUILESS_MAIN(TestWpaSuppThread)
#include "tst_wpasuppthread.moc"
