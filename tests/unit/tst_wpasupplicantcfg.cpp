// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wpasupplicantcfg.h"

#include "debugoutput.h"
#include "fakesysnet.h"
#include "writerworld.h"

#include <QtTest>

namespace {

/// As they stand when it is made.
struct Switches
{
    bool hashedPsk = WpaSupplicantCfg::_useHashedPsk;
    bool saeFix = WpaSupplicantCfg::_intel_sae_fix;
    bool filterSsids = WpaSupplicantCfg::_filterSsids;
    bool apScan = WpaSupplicantCfg::_useApScan;
    bool weakCerts = WpaSupplicantCfg::_allowWeakCerts;
    bool wpa3Fix = WpaSupplicantCfg::_fixWpa3;
    bool wireless = WpaSupplicantCfg::_iswireless;
};

} // namespace

/// The lines of which the blocks are built.
class TestWpaSupplicantCfg : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { StartWriterFromNothing(); }

    void optionIsKeyEqualsValue_data();
    void optionIsKeyEqualsValue();
    void identityStandsForHostOrMac_data();
    void identityStandsForHostOrMac();
    void identityStandsForTheHostWithoutQuotesToo();
    void ssidIsShownAsItIsSet();
    void macIsThatOfTheFirstWirelessLink_data();
    void macIsThatOfTheFirstWirelessLink();
    void macIsKnownWithoutTheTools();

    void wiredBlockBegins();
    void wirelessBlockBegins();
    void hiddenNetworksAreScannedForUnlessSwitchedOff_data();
    void hiddenNetworksAreScannedForUnlessSwitchedOff();
    void bandBecomesAFrequencyList_data();
    void bandBecomesAFrequencyList();
    void frequencyListsHoldTheirGaps_data();
    void frequencyListsHoldTheirGaps();
    void bgscanPutsTheThirdNumberSecond();
    void bgscanOfZerosIsWritten();
    void extraOptionsGoIntoEveryWirelessBlock_data();
    void extraOptionsGoIntoEveryWirelessBlock();
    void extraOptionsStandBeforeTheMode();
    void extraOptionsStayOutOfWiredBlocks();
    void beginningABlockForgetsTheLastOne();
    void wirelessBlockSetsTheSwitches();
    void switchesBeginAsTheyStand();
    void blockIsBracedAndIndented();
    void clearLeavesNoBlock();
    void problemIsThatOfTheFirstBadOption();

private:
    const Switches switchesAtStart; ///< before any test sets one
};

void TestWpaSupplicantCfg::optionIsKeyEqualsValue_data()
{
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("quote");
    QTest::addColumn<QString>("line");

    QTest::newRow("plain") << "WPA-PSK" << false << "key=WPA-PSK";
    QTest::newRow("quoted") << "a b" << true << "key=\"a b\"";
    QTest::newRow("quotes inside stay") << "a\"b\"" << true << "key=\"a\"b\"\"";
    QTest::newRow("backslash stays") << "A\\b" << true << "key=\"A\\b\"";
    QTest::newRow("empty") << "" << false << "key=";
    QTest::newRow("empty, quoted") << "" << true << "key=\"\"";
    QTest::newRow("no identity, no host name") << "$hostname" << true << "key=\"$hostname\"";
}

void TestWpaSupplicantCfg::optionIsKeyEqualsValue()
{
    QFETCH(QString, value);
    QFETCH(bool, quote);
    QFETCH(QString, line);
    WpaSupplicantCfg cfg(nullptr);

    cfg.AddOption("key", value, quote);

    QCOMPARE(Options(cfg), QStringList{line});
}

void TestWpaSupplicantCfg::identityStandsForHostOrMac_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("identity");
    QTest::addColumn<QString>("line");

    QTest::newRow("host name") << "identity"
                               << "$hostname"
                               << "identity=\"corvi-sandbox\"";
    QTest::newRow("host name in capitals") << "identity"
                                           << "$HostNAME"
                                           << "identity=\"corvi-sandbox\"";
    QTest::newRow("more after host name") << "identity"
                                          << "$hostname1"
                                          << "identity=\"$hostname1\"";
    QTest::newRow("more before host name") << "identity"
                                           << "x$hostname"
                                           << "identity=\"x$hostname\"";
    QTest::newRow("MAC") << "identity"
                         << "$mac"
                         << "identity=\"02:00:00:00:00:01\"";
    QTest::newRow("MAC in capitals") << "identity"
                                     << "$MAC"
                                     << "identity=\"02:00:00:00:00:01\"";
    QTest::newRow("more after MAC") << "identity"
                                    << "$mac1"
                                    << "identity=\"$mac1\"";
    QTest::newRow("other key") << "anonymous_identity"
                               << "$mac"
                               << "anonymous_identity=\"$mac\"";
    QTest::newRow("key in capitals") << "Identity"
                                     << "$mac"
                                     << "Identity=\"$mac\"";
}

void TestWpaSupplicantCfg::identityStandsForHostOrMac()
{
    QFETCH(QString, key);
    QFETCH(QString, identity);
    QFETCH(QString, line);
    TestSupport::AddProgram("iw ");
    TestSupport::Answer("ip", "echo 'wlan0 UP 02:00:00:00:00:01 <UP>'");
    TestSupport::Answer("iw ", "printf 'Interface wlan0\\n'");
    WpaSupplicantCfg cfg(nullptr);

    cfg.AddOption(key, identity, true);

    QCOMPARE(Options(cfg), QStringList{line});
}

void TestWpaSupplicantCfg::identityStandsForTheHostWithoutQuotesToo()
{
    WpaSupplicantCfg cfg(nullptr);

    cfg.AddOption("identity", "$hostname", false);

    QCOMPARE(Options(cfg), QStringList{"identity=corvi-sandbox"});
}

void TestWpaSupplicantCfg::ssidIsShownAsItIsSet()
{
    const DebugOutput output;
    WpaSupplicantCfg cfg(nullptr);

    cfg.SetSSID("Office", false);

    QCOMPARE(output.Take(), QStringList{"WpaSupplicantCfg::SetSSID \"Office\""});
}

void TestWpaSupplicantCfg::macIsThatOfTheFirstWirelessLink_data()
{
    QTest::addColumn<QByteArray>("links");
    QTest::addColumn<QString>("mac");

    const QByteArray wired = "lo UNKNOWN 00:00:00:00:00:00 <LOOPBACK>\n"
                             "eth0             UP             02:00:00:00:00:0a <BROADCAST,UP> \n";
    QTest::newRow("one wireless") << wired + "wlan0  DOWN   02:00:00:00:00:01 <BROADCAST> \n"
                                  << "02:00:00:00:00:01";
    QTest::newRow("two wireless") << wired + "wlan1 UP 02:00:00:00:00:02 <>\nwlan0 UP 02:00:00:00:00:01 <>\n"
                                  << "02:00:00:00:00:02";
    QTest::newRow("stacked on another link") << wired + "wlan9@eth0 UP 02:00:00:00:00:09 <>\n"
                                             << "02:00:00:00:00:09";
    QTest::newRow("lines cut short") << QByteArray("wlan0 UP\nwlan1 UP 02:00:00:00:00:02\n")
                                     << "02:00:00:00:00:02";
    QTest::newRow("none wireless") << wired << "";
    QTest::newRow("no links") << QByteArray() << "";
}

void TestWpaSupplicantCfg::macIsThatOfTheFirstWirelessLink()
{
    QFETCH(QByteArray, links);
    TestSupport::WriteFile("/tmp/links", links);
    TestSupport::AddProgram("iw ");
    TestSupport::Answer("ip", "cat /tmp/links");
    TestSupport::Answer("iw ", "case $1 in wlan?) printf 'Interface %s\\n\\ttype managed\\n' $1 ;; esac");

    QTEST(WpaSupplicantCfg::GetMac(), "mac");

    QVERIFY(TestSupport::Journal().contains("ip -br link show"));
    QVERIFY(TestSupport::Journal().filter(QRegularExpression("^(?!ip |'iw ')")).isEmpty());
}

void TestWpaSupplicantCfg::macIsKnownWithoutTheTools()
{
    FakeSysNet net;
    net.Write("eth0/address", "02:00:00:00:00:0a\n");
    QCOMPARE(WpaSupplicantCfg::GetMac(), QString());

    net.Write("wlan1/address", "02:00:00:00:00:02\n");
    net.Write("wlan0/address", "02:00:00:00:00:01\n");

    QCOMPARE(WpaSupplicantCfg::GetMac(), QString("02:00:00:00:00:01"));
}

void TestWpaSupplicantCfg::wiredBlockBegins()
{
    WpaSupplicantCfg cfg(nullptr);

    cfg.StartWiredCfg();

    QCOMPARE(Options(cfg), (QStringList{"key_mgmt=IEEE8021X", "eapol_flags=0"}));
}

void TestWpaSupplicantCfg::wirelessBlockBegins()
{
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetSSID("Office", false);
    cfg.SetPriority(4);
    cfg.SetFrequencyBand("2.4");
    cfg.SetBgParameters(true, 1, 2, 3);

    cfg.StartWirelessCfg();

    QCOMPARE(Options(cfg),
             (QStringList{"ssid=\"Office\"", "scan_ssid=1", "priority=4",
                          "freq_list=2412 2417 2422 2427 2432 2437 2442 2447 2452 2457 2462 2467 2472 2484",
                          "bgscan=\"simple:1:3:2\""}));
}

void TestWpaSupplicantCfg::hiddenNetworksAreScannedForUnlessSwitchedOff_data()
{
    QTest::addColumn<bool>("flagFile");
    QTest::addColumn<bool>("scanSsid");
    QTest::addColumn<bool>("isScannedFor");

    QTest::newRow("no flag file, not asked for") << false << false << true;
    QTest::newRow("no flag file, asked for") << false << true << true;
    QTest::newRow("flag file, not asked for") << true << false << false;
    QTest::newRow("flag file, asked for") << true << true << true;
}

void TestWpaSupplicantCfg::hiddenNetworksAreScannedForUnlessSwitchedOff()
{
    QFETCH(bool, flagFile);
    QFETCH(bool, scanSsid);
    if (flagFile)
        TestSupport::WriteFile(FLAGS + "no_scan_ssid", "");
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetSSID("Office", scanSsid);

    const DebugOutput output;
    cfg.StartWirelessCfg();

    QTEST(Options(cfg).contains("scan_ssid=1"), "isScannedFor");
    QTEST(!Options(cfg).filter("scan_ssid=").isEmpty(), "isScannedFor");
    QTEST(output.Take() == QStringList{"Setting scan_ssid option"}, "isScannedFor");
}

void TestWpaSupplicantCfg::bandBecomesAFrequencyList_data()
{
    QTest::addColumn<QString>("band");
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("last");

    QTest::newRow("2.4") << "2.4" << 14 << "2412"
                         << "2484";
    QTest::newRow("2.4 in words") << "only 2.4GHz please" << 14 << "2412"
                                  << "2484";
    QTest::newRow("2.4 inside a number") << "12.45" << 14 << "2412"
                                         << "2484";
    QTest::newRow("5.0 inside a number") << "15.0" << 31 << "5160"
                                         << "5885";
    QTest::newRow("2.4 before 5.0") << "5.0 and 2.4" << 14 << "2412"
                                    << "2484";
    QTest::newRow("2.4 after 5.0 without a blank") << "5.0/2.4" << 14 << "2412"
                                                   << "2484";
    QTest::newRow("2.4 before 6.0") << "2.4 and 6.0" << 14 << "2412"
                                    << "2484";
    QTest::newRow("5") << "5" << 31 << "5160"
                       << "5885";
    QTest::newRow("5.0 in words") << "5.0 GHz" << 31 << "5160"
                                  << "5885";
    QTest::newRow("5.0 before 6.0") << "6.0 5.0" << 31 << "5160"
                                    << "5885";
    QTest::newRow("6") << "6" << 60 << "5935"
                       << "7115";
    QTest::newRow("6.0 in words") << "6.0 GHz" << 60 << "5935"
                                  << "7115";
    for (const char *band : {"5G", "6E", "5 ", " 6", "2", "24", "2,4", "2.5", "7", "any"})
        QTest::addRow("unknown: '%s'", band) << band << 0 << ""
                                             << "";
    QTest::newRow("none") << "" << 0 << ""
                          << "";
}

void TestWpaSupplicantCfg::bandBecomesAFrequencyList()
{
    QFETCH(QString, band);
    QFETCH(int, count);
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetFrequencyBand(band);

    const QString list = WpaSupplicantCfg::GetFrequencyListForBand(band);
    cfg.StartWirelessCfg();

    const QStringList frequencies = list.split(' ', Qt::SkipEmptyParts);
    QCOMPARE(frequencies.size(), count);
    QCOMPARE(frequencies.join(' '), list);
    QTEST(frequencies.value(0), "first");
    QTEST(frequencies.value(count - 1), "last");
    QCOMPARE(Options(cfg).filter("freq_list="), count ? QStringList{"freq_list=" + list} : QStringList());
}

void TestWpaSupplicantCfg::frequencyListsHoldTheirGaps_data()
{
    QTest::addColumn<QString>("band");
    QTest::addColumn<QStringList>("jumps");

    // Each step to the next frequency that is not the band's usual one.
    QTest::newRow("2.4 GHz, by 5") << "2.4" << QStringList{"2472 2484"};
    QTest::newRow("5 GHz, by 20") << "5" << QStringList{"5340 5480", "5720 5745"};
    QTest::newRow("6 GHz, by 20") << "6" << QStringList{};
}

void TestWpaSupplicantCfg::frequencyListsHoldTheirGaps()
{
    QFETCH(QString, band);
    const int usual = band == "2.4" ? 5 : 20;

    const QStringList list = WpaSupplicantCfg::GetFrequencyListForBand(band).split(' ');

    QStringList jumps;
    for (int i = 1; i < list.size(); ++i) {
        if (list.at(i).toInt() - list.at(i - 1).toInt() != usual)
            jumps << list.at(i - 1) + ' ' + list.at(i);
    }
    QTEST(jumps, "jumps");
}

void TestWpaSupplicantCfg::bgscanPutsTheThirdNumberSecond()
{
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetBgParameters(true, 30, -70, 600);
    cfg.StartWirelessCfg();
    QVERIFY(Options(cfg).contains("bgscan=\"simple:30:600:-70\""));

    cfg.SetBgParameters(false, 30, -70, 600);
    cfg.StartWirelessCfg();
    QVERIFY(Options(cfg).filter("bgscan").isEmpty());
}

void TestWpaSupplicantCfg::bgscanOfZerosIsWritten()
{
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetBgParameters(true, 0, 0, 0);

    cfg.StartWirelessCfg();

    QVERIFY(Options(cfg).contains("bgscan=\"simple:0:0:0\""));
}

void TestWpaSupplicantCfg::extraOptionsGoIntoEveryWirelessBlock_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QStringList>("lines");

    const QString start = "#START TEST CONF\n";
    const QString end = "#END TEST CONF\n";
    QTest::newRow("empty file") << QByteArray() << QStringList();
    QTest::newRow("one line") << QByteArray("proto=RSN") << QStringList{start, "proto=RSN", end};
    QTest::newRow("empty lines between") << QByteArray("\nproto=RSN\n\n\tdisabled=1\n")
                                         << QStringList{start, "proto=RSN", "\tdisabled=1", end};
    QTest::newRow("only an empty line") << QByteArray("\n") << QStringList{start, end};
}

void TestWpaSupplicantCfg::extraOptionsGoIntoEveryWirelessBlock()
{
    QFETCH(QByteArray, file);
    TestSupport::WriteFile(FLAGS + "wpa_supp_wifi", file);
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetSSID("Office", false);

    cfg.StartWirelessCfg();

    QTEST(QStringList(Options(cfg).mid(3)), "lines");
}

void TestWpaSupplicantCfg::extraOptionsStandBeforeTheMode()
{
    TestSupport::WriteFile(FLAGS + "wpa_supp_wifi", "proto=RSN\n");
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetFrequencyBand("2.4");
    cfg.SetBgParameters(true, 1, 2, 3);

    cfg.Unsecured();

    const QStringList lines = cfg.Block();
    const auto first = lines.indexOf("\t#START TEST CONF\n");
    QCOMPARE(lines.at(first - 1), QString("\tbgscan=\"simple:1:3:2\""));
    QVERIFY(lines.at(first - 2).startsWith("\tfreq_list="));
    QCOMPARE(lines.mid(first + 1, 3), (QStringList{"\tproto=RSN", "\t#END TEST CONF\n", "\tkey_mgmt=NONE"}));
}

void TestWpaSupplicantCfg::extraOptionsStayOutOfWiredBlocks()
{
    TestSupport::WriteFile(FLAGS + "wpa_supp_wifi", "proto=RSN\n");
    WpaSupplicantCfg cfg(nullptr);

    cfg.StartWiredCfg();

    QCOMPARE(Options(cfg).size(), 2);
}

void TestWpaSupplicantCfg::beginningABlockForgetsTheLastOne()
{
    WpaSupplicantCfg cfg(nullptr);
    cfg.AddOption("pairwise", "bad", false);

    cfg.StartWiredCfg();
    QCOMPARE(Options(cfg).size(), 2);
    QCOMPARE(cfg.Problem(), QString());

    cfg.AddOption("pairwise", "bad", false);
    cfg.SetSSID("Office", false);
    cfg.StartWirelessCfg();
    QCOMPARE(Options(cfg).size(), 3);
    QCOMPARE(cfg.Problem(), QString());
}

void TestWpaSupplicantCfg::wirelessBlockSetsTheSwitches()
{
    WpaSupplicantCfg::_fixWpa3 = true;
    WpaSupplicantCfg::_intel_sae_fix = false;
    WpaSupplicantCfg cfg(nullptr);

    cfg.StartWiredCfg();
    QVERIFY(WpaSupplicantCfg::_fixWpa3);
    QVERIFY(!WpaSupplicantCfg::_intel_sae_fix);
    QVERIFY(!WpaSupplicantCfg::_iswireless);

    cfg.StartWirelessCfg();
    QVERIFY(!WpaSupplicantCfg::_fixWpa3);
    QVERIFY(WpaSupplicantCfg::_intel_sae_fix);
    QVERIFY(WpaSupplicantCfg::_iswireless);
}

void TestWpaSupplicantCfg::switchesBeginAsTheyStand()
{
    QVERIFY(switchesAtStart.hashedPsk);
    QVERIFY(switchesAtStart.saeFix);
    QVERIFY(switchesAtStart.filterSsids);
    QVERIFY(switchesAtStart.apScan);
    QVERIFY(switchesAtStart.weakCerts);
    QVERIFY(!switchesAtStart.wpa3Fix);
    QVERIFY(!switchesAtStart.wireless);
}

void TestWpaSupplicantCfg::blockIsBracedAndIndented()
{
    WpaSupplicantCfg cfg(nullptr);
    cfg.AddOption("a", "1", false);
    cfg.AddPriority(-7);

    cfg.ConfigPrep();

    QCOMPARE(cfg.Block(), (QStringList{"network={", "\ta=1", "\tpriority=-7", "}\n"}));
}

void TestWpaSupplicantCfg::clearLeavesNoBlock()
{
    WpaSupplicantCfg cfg(nullptr);
    cfg.AddOption("pairwise", "bad", false);
    cfg.ConfigPrep();

    cfg.Clear();

    QCOMPARE(cfg.Block(), QStringList());
    QCOMPARE(cfg.Problem(), QString());
    QCOMPARE(Options(cfg), QStringList());
}

void TestWpaSupplicantCfg::problemIsThatOfTheFirstBadOption()
{
    WpaSupplicantCfg cfg(nullptr);
    cfg.AddOption("pairwise", "CCMP", false);
    QCOMPARE(cfg.Problem(), QString());

    cfg.AddOption("group", "bad", false);
    cfg.AddOption("psk", "short", true);

    QCOMPARE(cfg.Problem(), QString("group is not a list of CCMP, TKIP, GCMP, CCMP-256 and GCMP-256"));
}

QTEST_GUILESS_MAIN(TestWpaSupplicantCfg)
#include "tst_wpasupplicantcfg.moc"
