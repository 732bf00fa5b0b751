// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wirelessdevice.h"

#include "logging.h"
#include "namednetwork.h"
#include "testsupport.h"
#include "zebnetstatus.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QtTest>

namespace {

const QString TEMPORARY_FLAG = QStringLiteral("/tmp/use_nl_driver");
const QString STORED_FLAG = QStringLiteral("/tmp/config/files/use_nl_driver");
const QString IWCONFIG_OUTPUT = QStringLiteral("/tmp/iwconfig.output");

void GivenIwconfigPrints(const QByteArray &output)
{
    TestSupport::WriteFile(IWCONFIG_OUTPUT, output);
    TestSupport::Answer("iwconfig", "cat " + IWCONFIG_OUTPUT.toUtf8());
}

int LoggedCount()
{
    static const QRegularExpression pattern(" WirelessDevice::WirelessDevice Initialized (\\d+) \n");
    return pattern.match(TestSupport::LogText()).captured(1).toInt();
}

// As the tool of Debian's wireless-tools prints it, from a radio of the kernel's simulator.
const QByteArray ASSOCIATED =
    "wlan0     IEEE 802.11  ESSID:\"Office\"  \n"
    "          Mode:Managed  Frequency:2.412 GHz  Access Point: 02:00:00:00:01:00   \n"
    "          Bit Rate:1 Mb/s   Tx-Power=20 dBm   \n"
    "          Retry short limit:7   RTS thr:off   Fragment thr:off\n"
    "          Encryption key:off\n"
    "          Power Management:on\n"
    "          Link Quality=70/70  Signal level=-30 dBm  \n"
    "          Rx invalid nwid:0  Rx invalid crypt:0  Rx invalid frag:0\n"
    "          Tx excessive retries:0  Invalid misc:0   Missed beacon:0\n"
    "\n";
const QByteArray NOT_ASSOCIATED =
    "wlan0     IEEE 802.11  ESSID:off/any  \n"
    "          Mode:Managed  Access Point: Not-Associated   Tx-Power=20 dBm   \n"
    "          Retry short limit:7   RTS thr:off   Fragment thr:off\n"
    "          Encryption key:off\n"
    "          Power Management:on\n"
    "          \n";

} // namespace

/// What makes a device a wireless one: the choice of its driver, and the details from `iwconfig`.
class TestWirelessDevice : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void isOfItsKind();
    void countsDevicesMadeSoFar();
    void choosesItsDriver_data();
    void choosesItsDriver();
    void driverFlagCountsWhateverItHolds_data();
    void driverFlagCountsWhateverItHolds();
    void driverFlagThatOthersMayWriteIsNotObeyed();
    void keepsTheTemporaryChoiceWhenDefinitionsAskForNone();
    void driverCanBeChosenAgain();
    void asksForItsOwnInterface();
    void readsDetailsOfAnAssociation();
    void keepsDetailsThatAreNotTold();
    void readsLine_data();
    void readsLine();
    void lastLineThatMatchesCounts();
    void detailsAreNotPublished();
    void longLinesAreReadInTheirFirstPartOnly();
    void hostileOutputTakesLittleTime_data();
    void hostileOutputTakesLittleTime();
    void toolThatFailsChangesNothing_data();
    void toolThatFailsChangesNothing();
    void configurationIsReadAgain();
    void withoutNetworkThereIsNoConfiguration();
    void detailsAreReadOnThe121stTick();
};

void TestWirelessDevice::init()
{
    TestSupport::RestorePrograms();
    TestSupport::ClearAnswers();
    TestSupport::ClearJournal();
    TestSupport::Remove(TEMPORARY_FLAG);
    TestSupport::Remove(STORED_FLAG);
    TestSupport::WriteStore("<x/>");
    TestSupport::ClearLog();
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::TRACE);
}

void TestWirelessDevice::isOfItsKind()
{
    const WirelessDevice device("wlan0", nullptr);

    QCOMPARE(device.name, QString("wlan0"));
    QVERIFY(device.isWireless);
    QVERIFY(device.usesSupplicant);
    QVERIFY(!device.configurable);
    QVERIFY(device.driverChosen);
}

void TestWirelessDevice::countsDevicesMadeSoFar()
{
    const WirelessDevice first("wlan0", nullptr);
    const int count = LoggedCount();
    TestSupport::ClearLog();

    const WirelessDevice second("wlan1", nullptr);

    QVERIFY(count > 0);
    QCOMPARE(LoggedCount(), count + 1);
}

void TestWirelessDevice::choosesItsDriver_data()
{
    QTest::addColumn<QByteArray>("setting");
    QTest::addColumn<QString>("flagFile");
    QTest::addColumn<QString>("driver");

    const QString newFirst = "nl80211,wext";
    const QString oldFirst = "wext,nl80211";
    QTest::newRow("nothing set") << QByteArray() << "" << oldFirst;
    QTest::newRow("setting") << QByteArray("true") << "" << newFirst;
    QTest::newRow("setting is false") << QByteArray("false") << "" << oldFirst;
    QTest::newRow("setting is false, flag file") << QByteArray("false") << TEMPORARY_FLAG << newFirst;
    QTest::newRow("stored flag file") << QByteArray() << STORED_FLAG << newFirst;
    QTest::newRow("temporary flag file") << QByteArray() << TEMPORARY_FLAG << newFirst;
}

void TestWirelessDevice::choosesItsDriver()
{
    QFETCH(QByteArray, setting);
    QFETCH(QString, flagFile);
    QFETCH(QString, driver);
    if (!setting.isEmpty())
        TestSupport::WriteStore("<x><useNewDriver>" + setting + "</useNewDriver></x>");
    if (!flagFile.isEmpty())
        TestSupport::WriteFile(flagFile, QByteArray());

    const WirelessDevice device("wlan0", nullptr);

    QCOMPARE(device.driver, driver);
    QVERIFY(TestSupport::LogText().contains(" Driver =  " + driver + " \n"));
}

void TestWirelessDevice::driverFlagCountsWhateverItHolds_data()
{
    QTest::addColumn<QString>("flagFile");

    QTest::newRow("stored") << STORED_FLAG;
    QTest::newRow("temporary") << TEMPORARY_FLAG;
}

void TestWirelessDevice::driverFlagCountsWhateverItHolds()
{
    QFETCH(QString, flagFile);
    TestSupport::WriteFile(flagFile, "0\n");

    QCOMPARE(WirelessDevice("wlan0", nullptr).driver, QString("nl80211,wext"));
}

void TestWirelessDevice::driverFlagThatOthersMayWriteIsNotObeyed()
{
    TestSupport::WriteFile(STORED_FLAG, QByteArray());
    TestSupport::SetMode(STORED_FLAG, 0666);

    QCOMPARE(WirelessDevice("wlan0", nullptr).driver, QString("wext,nl80211"));
}

void TestWirelessDevice::keepsTheTemporaryChoiceWhenDefinitionsAskForNone()
{
    TestSupport::WriteFile(TEMPORARY_FLAG, QByteArray());
    TestSupport::WriteStore("<x><network><name>Office</name><ssid>Office</ssid></network></x>");

    const WirelessDevice device("wlan0", nullptr);

    QCOMPARE(device.GetNamedNetworks(), QStringList{"Office"});
    QCOMPARE(device.driver, QString("nl80211,wext"));
}

void TestWirelessDevice::driverCanBeChosenAgain()
{
    WirelessDevice device("wlan0", nullptr);

    device.UseNewDriver(true);
    QCOMPARE(device.driver, QString("nl80211,wext"));
    device.UseNewDriver(false);
    QCOMPARE(device.driver, QString("wext,nl80211"));
    QVERIFY(device.driverChosen);
}

void TestWirelessDevice::asksForItsOwnInterface()
{
    WirelessDevice device("mlan0", nullptr);

    device.RefreshWirelessStatus();

    QCOMPARE(TestSupport::Journal(), QStringList{"iwconfig mlan0"});
}

void TestWirelessDevice::readsDetailsOfAnAssociation()
{
    GivenIwconfigPrints(ASSOCIATED);
    WirelessDevice device("wlan0", nullptr);

    device.RefreshWirelessStatus();

    QCOMPARE(device.essid, QString("Office"));
    QCOMPARE(device.accessPoint, QString(" 02:00:00:00:01:00   "));
    QCOMPARE(device.encKey, QString("off"));
    QCOMPARE(device.linkQuality, 70);
}

void TestWirelessDevice::keepsDetailsThatAreNotTold()
{
    GivenIwconfigPrints(ASSOCIATED);
    WirelessDevice device("wlan0", nullptr);
    device.RefreshWirelessStatus();
    GivenIwconfigPrints(NOT_ASSOCIATED);

    device.RefreshWirelessStatus();

    QCOMPARE(device.essid, QString("Office"));
    QCOMPARE(device.accessPoint, QString(" Not-Associated   Tx-Power=20 dBm   "));
    QCOMPARE(device.linkQuality, 70);
}

void TestWirelessDevice::readsLine_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<QString>("essid");
    QTest::addColumn<QString>("accessPoint");
    QTest::addColumn<QString>("encKey");
    QTest::addColumn<int>("quality");

    // What a line says nothing of keeps these values.
    const QString essid = "old essid";
    const QString accessPoint = "old point";
    const QString encKey = "old key";
    constexpr int QUALITY = -1;
    const auto row = [](const char *name, const QByteArray &line, const QString &e, const QString &a,
                        const QString &k, int q) {
        QTest::newRow(name) << line << e << a << k << q;
    };

    row("network name", "wlan0 ESSID:\"Office\"", "Office", accessPoint, encKey, QUALITY);
    row("network name and nickname", "ra0 ESSID:\"Office\"  Nickname:\"RT2870STA\"", "Office", accessPoint,
        encKey, QUALITY);
    row("empty network name", "wlan0 ESSID:\"\"", "", accessPoint, encKey, QUALITY);
    row("quotes in the network name", "wlan0 ESSID:\"a\"b\"  ", "a\"b", accessPoint, encKey, QUALITY);
    row("quotes later in the line", "wlan0 ESSID:\"a\"  Other:\"b\"", "a\"  Other:\"b", accessPoint, encKey,
        QUALITY);
    row("last network name counts", "ESSID:\"a\" ESSID:\"b\"", "b", accessPoint, encKey, QUALITY);
    row("network name without quotes", "wlan0 ESSID:off/any", essid, accessPoint, encKey, QUALITY);
    row("network name without end", "wlan0 ESSID:\"Office", essid, accessPoint, encKey, QUALITY);
    row("nickname before the network name", "Nickname:\"x\" ESSID:\"Office\"", "Office", accessPoint, encKey,
        QUALITY);
    row("lower case", "wlan0 essid:\"Office\"", essid, accessPoint, encKey, QUALITY);
    row("access point", "Mode:Managed  Access Point: 00:11:22:33:44:55", essid, " 00:11:22:33:44:55", encKey,
        QUALITY);
    row("encryption key", "Encryption key:1234-5678   Security mode:open", essid, accessPoint,
        "1234-5678   Security mode:open", QUALITY);
    row("all in one line", "ESSID:\"a\" Access Point:b", "a", "b", encKey, QUALITY);
    row("quality of a cooked driver", "Link Quality=70/70  Signal level=-40 dBm", essid, accessPoint, encKey,
        70);
    row("quality with a colon", "Link Quality:5/10  Signal level:-40 dBm  Noise level:-95", essid,
        accessPoint, encKey, 5);
    row("quality with a blank", "Quality 12 34 56", essid, accessPoint, encKey, 12);
    row("quality alone, split so that three numbers come out", "Quality=123", essid, accessPoint, encKey, 1);
    row("quality with too few digits", "Quality=12", essid, accessPoint, encKey, QUALITY);
    row("quality beyond a number", "Quality=99999999999/70 1", essid, accessPoint, encKey, 0);
    row("no quality", "Signal level=-40 dBm", essid, accessPoint, encKey, QUALITY);
    row("empty", "", essid, accessPoint, encKey, QUALITY);
    row("control characters and bytes that are no UTF-8", "ESSID:\"\x01\xff\x7f\"",
        QString::fromUtf8("\x01\xef\xbf\xbd\x7f"), accessPoint, encKey, QUALITY);
    row("escape in the network name", "ESSID:\"caf\\xc3\\xa9\"", "caf\\xc3\\xa9", accessPoint, encKey,
        QUALITY);
    row("network name in UTF-8", "ESSID:\"caf\xc3\xa9\"", QStringLiteral("caf\u00e9"), accessPoint, encKey,
        QUALITY);
}

void TestWirelessDevice::readsLine()
{
    QFETCH(QByteArray, line);
    GivenIwconfigPrints(line);
    WirelessDevice device("wlan0", nullptr);
    device.essid = "old essid";
    device.accessPoint = "old point";
    device.encKey = "old key";
    device.linkQuality = -1;

    device.RefreshWirelessStatus();

    QTEST(device.essid, "essid");
    QTEST(device.accessPoint, "accessPoint");
    QTEST(device.encKey, "encKey");
    QTEST(device.linkQuality, "quality");
}

void TestWirelessDevice::lastLineThatMatchesCounts()
{
    GivenIwconfigPrints("ESSID:\"first\"\nESSID:\"second\"\n");
    WirelessDevice device("wlan0", nullptr);

    device.RefreshWirelessStatus();

    QCOMPARE(device.essid, QString("second"));
}

void TestWirelessDevice::detailsAreNotPublished()
{
    GivenIwconfigPrints(ASSOCIATED);
    WirelessDevice device("wlan0", nullptr);
    const QByteArray record = device.status->GetData();
    QSignalSpy events(&device, &NetworkDevice::SendEventMessage);

    device.RefreshWirelessStatus();

    QVERIFY(events.isEmpty());
    QCOMPARE(device.status->GetData(), record);
}

void TestWirelessDevice::longLinesAreReadInTheirFirstPartOnly()
{
    const QByteArray first = "ESSID:\"early\"" + QByteArray(482, ' ') + "Encryption key:in";
    QCOMPARE(int(first.size()), 512);
    GivenIwconfigPrints(first + "out\n");
    WirelessDevice device("wlan0", nullptr);

    device.RefreshWirelessStatus();

    QCOMPARE(device.essid, QString("early"));
    QCOMPARE(device.encKey, QString("in"));
}

void TestWirelessDevice::hostileOutputTakesLittleTime_data()
{
    QTest::addColumn<QByteArray>("line");

    constexpr int MEGABYTES_10 = 10 * 1000 * 1000;
    QTest::newRow("one line of 10 MB") << QByteArray(MEGABYTES_10, 'x');
    QTest::newRow("quotes") << "ESSID:" + QByteArray(MEGABYTES_10, '"');
    QTest::newRow("beginnings of a network name") << QByteArray("ESSID:\"").repeated(1000000);
    QTest::newRow("beginnings of a quality") << QByteArray("Quality=1 ").repeated(1000000);
    QTest::newRow("digits") << "Quality=" + QByteArray(MEGABYTES_10, '1');
    QTest::newRow("100,000 lines that match nearly")
        << QByteArray("ESSID:\"ESSID:\"ESSID:\" Nicknam\n").repeated(100000);
    QTest::newRow("NUL bytes") << QByteArray(MEGABYTES_10, '\0');
}

void TestWirelessDevice::hostileOutputTakesLittleTime()
{
    QFETCH(QByteArray, line);
    GivenIwconfigPrints(line);
    WirelessDevice device("wlan0", nullptr);
    QElapsedTimer timer;
    timer.start();

    device.RefreshWirelessStatus();

    // A tool that hangs may take 30 s; what it prints must not come near that, in a sanitizer's build too.
    QVERIFY2(timer.elapsed() < 20000, qPrintable(QString::number(timer.elapsed())));
}

void TestWirelessDevice::toolThatFailsChangesNothing_data()
{
    QTest::addColumn<QByteArray>("script");

    QTest::newRow("prints on standard error")
        << QByteArray("echo 'wlan0  No such device ESSID:\"x\"' >&2; exit 237");
    QTest::newRow("crashes") << QByteArray("echo 'ESSID:\"x\"'; kill -SEGV $$");
    QTest::newRow("silent") << QByteArray("exit 0");
    QTest::newRow("missing") << QByteArray();
}

void TestWirelessDevice::toolThatFailsChangesNothing()
{
    QFETCH(QByteArray, script);
    if (script.isEmpty())
        TestSupport::RemoveProgram("iwconfig");
    else
        TestSupport::Answer("iwconfig", script);
    WirelessDevice device("wlan0", nullptr);
    device.essid = "Office";
    device.accessPoint = "00:11:22:33:44:55";
    device.encKey = "off";
    device.linkQuality = 70;
    TestSupport::ClearLog();

    device.RefreshWirelessStatus();

    QCOMPARE(device.essid, QString("Office"));
    QCOMPARE(device.accessPoint, QString("00:11:22:33:44:55"));
    QCOMPARE(device.encKey, QString("off"));
    QCOMPARE(device.linkQuality, 70);
    QCOMPARE(TestSupport::LogText(), QString());
}

void TestWirelessDevice::configurationIsReadAgain()
{
    TestSupport::WriteStore("<x><network><name>Office</name><ssid>Office</ssid></network></x>");
    WirelessDevice device("wlan0", nullptr);
    TestSupport::ClearLog();

    ZebNetConfig *const config = device.UpdateConfig();

    QVERIFY(config != nullptr);
    QCOMPARE(config->GetName(), QString("Office"));
    QVERIFY(TestSupport::LogText().contains(" WirelessDevice::getCurrentConfig() \n"));
    QVERIFY(TestSupport::LogText().contains(" NetworkDevice::getCurrentConfig() \n"));
    QVERIFY(TestSupport::LogText().contains(" NetworkDevice::Load props -- "));
}

void TestWirelessDevice::withoutNetworkThereIsNoConfiguration()
{
    WirelessDevice device("wlan0", nullptr);

    QVERIFY(device.getCurrentConfig() == nullptr);

    QVERIFY(TestSupport::LogText().contains(" WirelessDevice::getCurrentConfig() \n"));
    QVERIFY(!TestSupport::LogText().contains(" NetworkDevice::getCurrentConfig() \n"));
}

void TestWirelessDevice::detailsAreReadOnThe121stTick()
{
    WirelessDevice device("wlan0", nullptr);

    for (int i = 0; i < 120; ++i)
        device.onTimerTrip();
    QCOMPARE(TestSupport::Journal(), QStringList());
    device.onTimerTrip();
    QCOMPARE(TestSupport::Journal(), QStringList{"iwconfig wlan0"});
}

QTEST_GUILESS_MAIN(TestWirelessDevice)
#include "tst_wirelessdevice.moc"
