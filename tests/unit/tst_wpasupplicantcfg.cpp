// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "debugoutput.h"
#include "mountpoint.h"
#include "resourcelimit.h"
#include "testsupport.h"
#include "wpasupplicantcfg.h"

#include <QFile>
#include <QFileInfo>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString FILE_PATH = QStringLiteral("/tmp/wpa_supplicant.conf");
const QString FLAGS = QStringLiteral("/tmp/config/files/");
const QByteArray REAL_PASSPHRASE_TOOL = "wpa_passphrase \"$@\"";

void ResetSwitches()
{
    WpaSupplicantCfg::_useHashedPsk = true;
    WpaSupplicantCfg::_intel_sae_fix = true;
    WpaSupplicantCfg::_filterSsids = true;
    WpaSupplicantCfg::_useApScan = true;
    WpaSupplicantCfg::_allowWeakCerts = true;
    WpaSupplicantCfg::_fixWpa3 = false;
    WpaSupplicantCfg::_iswireless = false;
}

/// The option lines of the block as finished now, without their tabs.
QStringList Options(WpaSupplicantCfg &cfg)
{
    cfg.ConfigPrep();
    QStringList lines = cfg.Block().mid(1, cfg.Block().size() - 2);
    for (QString &line : lines)
        line.remove(0, 1);
    return lines;
}

/// The lines after those with which every wireless block starts here.
QStringList ModeOptions(const WpaSupplicantCfg &cfg)
{
    QStringList lines = cfg.Block().mid(4, cfg.Block().size() - 5);
    for (QString &line : lines)
        line.remove(0, 1);
    return lines;
}

QByteArray WrittenFile(const QStringList &lines)
{
    return WpaSupplicantCfg::WriteCfg(lines) ? TestSupport::ReadFile(FILE_PATH) : QByteArray("not written");
}

mode_t ModeOf(const QString &path)
{
    struct stat info = {};
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & 07777 : 0;
}

bool WriteCfgOnAFullDisk()
{
    const ResourceLimit fullDisk(RLIMIT_FSIZE, 10);
    return WpaSupplicantCfg::WriteCfg({"new"});
}

} // namespace

class TestWpaSupplicantCfg : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void optionIsKeyEqualsValue_data();
    void optionIsKeyEqualsValue();
    void identityStandsForHostOrMac_data();
    void identityStandsForHostOrMac();
    void macIsThatOfTheFirstWirelessLink_data();
    void macIsThatOfTheFirstWirelessLink();

    void wiredBlockBegins();
    void wirelessBlockBegins();
    void hiddenNetworksAreScannedForUnlessSwitchedOff_data();
    void hiddenNetworksAreScannedForUnlessSwitchedOff();
    void bandBecomesAFrequencyList_data();
    void bandBecomesAFrequencyList();
    void frequencyListsHoldTheirGaps_data();
    void frequencyListsHoldTheirGaps();
    void bgscanPutsTheThirdNumberSecond();
    void extraOptionsGoIntoEveryWirelessBlock_data();
    void extraOptionsGoIntoEveryWirelessBlock();
    void extraOptionsStayOutOfWiredBlocks();
    void beginningABlockForgetsTheLastOne();
    void wirelessBlockSetsTheSwitches();
    void blockIsBracedAndIndented();
    void clearLeavesNoBlock();
    void problemIsThatOfTheFirstBadOption();

    void wepRepeatsItsPriority_data();
    void wepRepeatsItsPriority();
    void tlsCertificatesAreFound();
    void peapAlwaysAsksForTheCertificatePath();
    void fastProvisioningIsAutomaticOnlyByThatWord_data();
    void fastProvisioningIsAutomaticOnlyByThatWord();
    void leapPriorityIsTwo();
    void emptyCredentialsGiveEmptyValues();

    void passphraseBecomesTheHashedKey_data();
    void passphraseBecomesTheHashedKey();
    void passphraseToolGetsSsidAndPassphrase();
    void hashedKeyIsAskedForOnce();
    void keyThatIsCutIsAskedForAgain();
    void aThousandKeysAreRemembered();
    void passphraseWithoutAKeyIsQuoted_data();
    void passphraseWithoutAKeyIsQuoted();
    void passphraseIsQuotedWhereHashingIsOff();
    void passwordBecomesItsNtHash_data();
    void passwordBecomesItsNtHash();
    void passwordIsPlainWhereHashingIsOff();

    void switchesDecideTheHead_data();
    void switchesDecideTheHead();
    void priorityIsSearchedForAsItIsSpelt_data();
    void priorityIsSearchedForAsItIsSpelt();
    void extraGlobalsAreCopied_data();
    void extraGlobalsAreCopied();
    void filesThatOthersMayWriteAreNotObeyed();
    void namedPipesAreNotWaitedFor();
    void blocksAreJoinedAsTheyStand();
    void fileIsUtf8();
    void longerFileIsReplacedWhole();
    void fileIsForItsOwnerOnly_data();
    void fileIsForItsOwnerOnly();
    void symbolicLinkIsNotFollowed();
    void fileOfAnotherUserIsDisplaced();
    void earlierFileStaysWhereTheDiskIsFull();
    void foreignFileGoesWhereTheDiskIsFull();
    void folderInThePlaceOfTheFileIsDisplaced();
    void folderThatCannotBeDisplacedIsAFailure();
};

void TestWpaSupplicantCfg::init()
{
    ResetSwitches();
    TestSupport::ClearAnswers();
    TestSupport::RestorePrograms();
    TestSupport::ClearJournal();
    TestSupport::Remove(FLAGS);
    TestSupport::Remove(FILE_PATH);
    TestSupport::Remove("/etc/ssl/certs/company.crt");
    TestSupport::Remove("/etc/ssl/private/client.key");
}

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
    QTest::newRow("line cut short") << QByteArray("wlan0 UP\nwlan1 UP 02:00:00:00:00:02 <>\n")
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
    QTest::newRow("2.4 before 5.0") << "5.0 and 2.4" << 14 << "2412"
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
    for (const char *band : {"5G", "6E", "5 ", " 6", "2", "24", "any"})
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

void TestWpaSupplicantCfg::wepRepeatsItsPriority_data()
{
    QTest::addColumn<bool>("shared");
    QTest::addColumn<QStringList>("options");

    const QStringList lines = {"key_mgmt=NONE", "wep_key0=\"abcde\"", "wep_tx_keyidx=0", "priority=8"};
    QTest::newRow("open") << false << lines;
    QTest::newRow("shared") << true << QStringList{"auth_alg=SHARED"} + lines;
}

void TestWpaSupplicantCfg::wepRepeatsItsPriority()
{
    QFETCH(bool, shared);
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetPriority(8);

    cfg.Wep(shared, "\"abcde\"");

    QTEST(ModeOptions(cfg), "options");
}

void TestWpaSupplicantCfg::tlsCertificatesAreFound()
{
    TestSupport::WriteFile("/etc/ssl/private/client.key", "");
    WpaSupplicantCfg cfg(nullptr);

    cfg.EapTls("id", "none", "/absolute/client.crt", "client.key", "pw", "CCMP");
    QCOMPARE(ModeOptions(cfg),
             (QStringList{"eap=TLS", "key_mgmt=WPA-EAP", "pairwise=CCMP", "group=CCMP", "identity=\"id\"",
                          "client_cert=\"/absolute/client.crt\"",
                          "private_key=\"/etc/ssl/private/client.key\"", "private_key_passwd=\"pw\""}));

    cfg.WiredTls("id", "None", "none", "none", "");
    QCOMPARE(cfg.Block(), (QStringList{"network={", "\tkey_mgmt=IEEE8021X", "\teapol_flags=0", "\teap=TLS",
                                       "\tidentity=\"id\"", "\tca_cert=\"/etc/ssl/certs/None\"",
                                       "\tprivate_key_passwd=\"\"", "}\n"}));
}

void TestWpaSupplicantCfg::peapAlwaysAsksForTheCertificatePath()
{
    TestSupport::WriteFile("/etc/ssl/certs/company.crt", "");
    WpaSupplicantCfg cfg(nullptr);

    cfg.PeapMschapv2("id", "password", "company.crt");
    QVERIFY(ModeOptions(cfg).contains("ca_cert=\"/etc/ssl/certs/company.crt\""));

    cfg.WiredPeap("id", "password", "company.crt");
    QVERIFY(cfg.Block().contains("\tca_cert=\"/etc/ssl/certs/company.crt\""));

    cfg.WiredPeap("id", "password", "none");
    QVERIFY(cfg.Block().filter("ca_cert").isEmpty());
}

void TestWpaSupplicantCfg::fastProvisioningIsAutomaticOnlyByThatWord_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<QString>("line");

    QTest::newRow("automatic") << "automatic"
                               << "phase1=\"fast_provisioning=1\"";
    QTest::newRow("capital") << "Automatic"
                             << "phase1=\"fast_provisioning=0\"";
    QTest::newRow("manual") << "manual"
                            << "phase1=\"fast_provisioning=0\"";
    QTest::newRow("none") << ""
                          << "phase1=\"fast_provisioning=0\"";
}

void TestWpaSupplicantCfg::fastProvisioningIsAutomaticOnlyByThatWord()
{
    QFETCH(QString, word);
    QFETCH(QString, line);
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetPacFile("a.pac");

    cfg.EapFast("user", "password", word);

    QCOMPARE(ModeOptions(cfg).mid(6),
             (QStringList{line, "pac_file=\"/tmp/config/files/eap-fast-pac/a.pac\""}));
}

void TestWpaSupplicantCfg::leapPriorityIsTwo()
{
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetPriority(9);

    cfg.EapLeap("user", "password", "TKIP");

    QCOMPARE(cfg.Block().filter("priority="), (QStringList{"\tpriority=9", "\tpriority=2"}));
}

void TestWpaSupplicantCfg::emptyCredentialsGiveEmptyValues()
{
    WpaSupplicantCfg cfg(nullptr);

    cfg.EapTls("", "", "", "", "", "");
    QCOMPARE(ModeOptions(cfg), (QStringList{"eap=TLS", "key_mgmt=WPA-EAP", "pairwise=", "group=",
                                            "identity=\"\"", "ca_cert=\"\"", "client_cert=\"\"",
                                            "private_key=\"\"", "private_key_passwd=\"\""}));

    cfg.WpaPersonal("");
    QCOMPARE(ModeOptions(cfg), (QStringList{"key_mgmt=WPA-PSK", "psk=\"\""}));

    cfg.Wpa3Sae("");
    QCOMPARE(ModeOptions(cfg), (QStringList{"key_mgmt=SAE", "sae_password=\"\"", "ieee80211w=2"}));

    cfg.Wep(false, "");
    QVERIFY(ModeOptions(cfg).contains("wep_key0="));
}

void TestWpaSupplicantCfg::passphraseBecomesTheHashedKey_data()
{
    QTest::addColumn<QString>("ssid");
    QTest::addColumn<QString>("passphrase");
    QTest::addColumn<QString>("key");

    // IEEE 802.11-2020, J.4.2, table J-1.
    QTest::newRow("first test vector") << "IEEE"
                                       << "password"
                                       << "f42c6fc52df0ebef9ebb4b90b38a5f902e83fe1b135a70e23aed762e9710a12e";
    QTest::newRow("second test vector") << "ThisIsASSID"
                                        << "ThisIsAPassword"
                                        << "0dc0d6eb90555ed6419756b9a15ec3e3209b63df707dd508d14581f8982721af";
    QTest::newRow("third test vector") << QString(32, 'Z') << QString(32, 'a')
                                       << "becb93866bb8c3832cb777c2f559807c8c59afcb6eae734885001300a981cc62";
    // hashlib.pbkdf2_hmac("sha1", "schlüssel7".encode(), "Café".encode(), 4096, 32)
    QTest::newRow("UTF-8") << QStringLiteral("Caf\u00e9") << QStringLiteral("schl\u00fcssel7")
                           << "b2d8c9446cacaea11f03d71f0f54483c3edcf1b0e4c6bd95edfd041a3267f35a";
}

void TestWpaSupplicantCfg::passphraseBecomesTheHashedKey()
{
    QFETCH(QString, ssid);
    QFETCH(QString, passphrase);
    QFETCH(QString, key);
    TestSupport::Answer("wpa_passphrase", REAL_PASSPHRASE_TOOL);
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetSSID(ssid, false);

    cfg.WpaPersonal(passphrase);
    QCOMPARE(ModeOptions(cfg), (QStringList{"key_mgmt=WPA-PSK", "psk=" + key}));

    cfg.Wpa2Psk3Sae(passphrase);
    QCOMPARE(ModeOptions(cfg), (QStringList{"key_mgmt=WPA-PSK-SHA256", "psk=" + key, "ieee80211w=2"}));
}

void TestWpaSupplicantCfg::passphraseToolGetsSsidAndPassphrase()
{
    TestSupport::Answer("wpa_passphrase",
                        "printf 'network={\\n\\tssid=\"x\"\\n\\t#psk=\"no\"\\n\\tpsk=0123\\n"
                        "\\tpsk=4567\\n}\\n'");
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetSSID("Old Hall", false);

    cfg.AddPasswordOption("it is secret");

    QCOMPARE(Options(cfg), QStringList{"psk=0123"});
    QCOMPARE(TestSupport::Journal(), QStringList{"wpa_passphrase 'Old Hall' 'it is secret'"});
}

void TestWpaSupplicantCfg::hashedKeyIsAskedForOnce()
{
    TestSupport::Answer("wpa_passphrase", REAL_PASSPHRASE_TOOL);
    const auto keyOf = [](const QString &ssid, const QString &passphrase) {
        WpaSupplicantCfg cfg(nullptr);
        cfg.SetSSID(ssid, false);
        cfg.AddPasswordOption(passphrase);
        return Options(cfg).value(0);
    };

    const QString first = keyOf("Once", "old passphrase");
    QCOMPARE(keyOf("Once", "old passphrase"), first);
    QCOMPARE(TestSupport::Journal().size(), 1);

    QVERIFY(keyOf("Once", "new passphrase") != first);
    QCOMPARE(TestSupport::Journal().size(), 2);

    QVERIFY(keyOf("Other", "old passphrase") != first);
    QCOMPARE(TestSupport::Journal().size(), 3);

    QVERIFY(keyOf("Once"
                  "old",
                  " passphrase") != first);
    QCOMPARE(TestSupport::Journal().size(), 4);
}

void TestWpaSupplicantCfg::keyThatIsCutIsAskedForAgain()
{
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetSSID("Cut", false);
    TestSupport::Answer("wpa_passphrase", "echo psk=0123");
    cfg.AddPasswordOption("long enough");
    TestSupport::Answer("wpa_passphrase", REAL_PASSPHRASE_TOOL);

    cfg.AddPasswordOption("long enough");

    QCOMPARE(Options(cfg).value(0), QString("psk=0123"));
    QCOMPARE(Options(cfg).value(1).size(), int(qstrlen("psk=")) + 64);
}

void TestWpaSupplicantCfg::aThousandKeysAreRemembered()
{
    TestSupport::Answer("wpa_passphrase", "echo psk=" + QByteArray(64, 'a'));
    WpaSupplicantCfg cfg(nullptr);
    const auto addNumbered = [&cfg](int number) {
        cfg.AddPasswordOption(QString("passphrase%1").arg(number));
    };
    for (int i = 0; i < 1000; ++i)
        addNumbered(i);
    TestSupport::ClearJournal();

    addNumbered(999);
    QCOMPARE(TestSupport::Journal(), QStringList());

    // No more than that: the ones before were forgotten at the latest now.
    for (int i = 1000; i < 1002; ++i)
        addNumbered(i);
    addNumbered(0);
    QVERIFY(TestSupport::Journal().filter("passphrase0").size() == 1);
}

void TestWpaSupplicantCfg::passphraseWithoutAKeyIsQuoted_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QString>("passphrase");

    QTest::newRow("too short for the tool") << REAL_PASSPHRASE_TOOL << "short";
    QTest::newRow("too long for the tool") << REAL_PASSPHRASE_TOOL << QString(64, 'a');
    QTest::newRow("tool prints nothing") << QByteArray("exit 0") << "long enough";
    QTest::newRow("tool crashes") << QByteArray("echo psk=0123; kill -SEGV $$") << "long enough";
    QTest::newRow("tool prints to standard error") << QByteArray("echo psk=0123 >&2") << "long enough";
    QTest::newRow("tool is missing") << QByteArray() << "long enough";
}

void TestWpaSupplicantCfg::passphraseWithoutAKeyIsQuoted()
{
    QFETCH(QByteArray, answer);
    QFETCH(QString, passphrase);
    if (answer.isEmpty())
        TestSupport::RemoveProgram("wpa_passphrase");
    else
        TestSupport::Answer("wpa_passphrase", answer);
    WpaSupplicantCfg cfg(nullptr);
    cfg.SetSSID("Office", false);

    cfg.AddPasswordOption(passphrase);

    QCOMPARE(Options(cfg), QStringList{"psk=\"" + passphrase + '"'});
}

void TestWpaSupplicantCfg::passphraseIsQuotedWhereHashingIsOff()
{
    WpaSupplicantCfg::_useHashedPsk = false;
    WpaSupplicantCfg cfg(nullptr);

    cfg.AddPasswordOption("password");

    QCOMPARE(Options(cfg), QStringList{"psk=\"password\""});
    QCOMPARE(TestSupport::Journal(), QStringList());
}

void TestWpaSupplicantCfg::passwordBecomesItsNtHash_data()
{
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("hash");

    // printf PASSWORD | iconv -t UTF-16LE | openssl dgst -provider legacy -provider default -md4
    QTest::newRow("ASCII") << "password"
                           << "8846f7eaee8fb117ad06bdd830b7586c";
    QTest::newRow("empty") << ""
                           << "31d6cfe0d16ae931b73c59d7e0c089c0";
    QTest::newRow("Latin") << QStringLiteral("Gr\u00fc\u00dfe") << "2816114083c3d8e78cfa2bdb9cde7ae6";
    QTest::newRow("surrogate pair") << QString::fromUtf8("\xf0\x9f\x98\x80")
                                    << "4b58a10cc20a4e7d808d218e1f80aabc";
    QTest::newRow("Cyrillic and a surrogate pair")
        << QString::fromUtf8("\u043f\u0430\u0440\u043e\u043b\u044c\xf0\x9f\x94\x91")
        << "a3ef8bd4962d96ec45f88ccec0b34e37";
    // RFC 2759, section 9.2
    QTest::newRow("published example") << "clientPass"
                                       << "44ebba8d5312b8d611474411f56989ae";
}

void TestWpaSupplicantCfg::passwordBecomesItsNtHash()
{
    QFETCH(QString, password);
    QFETCH(QString, hash);
    WpaSupplicantCfg cfg(nullptr);

    cfg.AddHashedPasswordOption("password", password);

    QCOMPARE(Options(cfg), QStringList{"password=hash:" + hash});
}

void TestWpaSupplicantCfg::passwordIsPlainWhereHashingIsOff()
{
    WpaSupplicantCfg::_useHashedPsk = false;
    WpaSupplicantCfg cfg(nullptr);

    cfg.AddHashedPasswordOption("password", "pass word");

    QCOMPARE(Options(cfg), QStringList{"password=pass word"});
}

void TestWpaSupplicantCfg::switchesDecideTheHead_data()
{
    QTest::addColumn<bool>("isWireless");
    QTest::addColumn<int>("switches");

    for (const bool isWireless : {false, true}) {
        for (int switches = 0; switches < 32; ++switches)
            QTest::addRow("%s, switches %d", isWireless ? "wireless" : "wired", switches)
                << isWireless << switches;
    }
}

void TestWpaSupplicantCfg::switchesDecideTheHead()
{
    QFETCH(bool, isWireless);
    QFETCH(int, switches);
    WpaSupplicantCfg::SetAllowWeakCerts(switches & 1);
    WpaSupplicantCfg::_useApScan = switches & 2;
    WpaSupplicantCfg::SetFilterSsid(switches & 4);
    WpaSupplicantCfg::_fixWpa3 = switches & 8;
    WpaSupplicantCfg::_intel_sae_fix = switches & 16;
    const QStringList block = {"network={", isWireless ? "\tpriority=0" : "\teap=TLS", "}\n"};

    const QByteArray written = WrittenFile(block);

    QByteArray head = "ctrl_interface=/var/run/wpa_supplicant\n";
    const QByteArrayList lines = {"openssl_ciphers=DEFAULT@SECLEVEL=0\n", "ap_scan=2\n", "filter_ssids=1\n",
                                  "wps_cred_add_sae=1\n", "sae_pwe=2\n"};
    for (int i = 0; i < lines.size(); ++i) {
        if ((switches & (1 << i)) && (i == 0 || isWireless))
            head += lines.at(i);
    }
    QCOMPARE(written,
             head + "# Could not open /tmp/config/files/wpa_supp_conf\n\n" + block.join('\n').toUtf8());
}

void TestWpaSupplicantCfg::priorityIsSearchedForAsItIsSpelt_data()
{
    QTest::addColumn<QString>("option");
    QTest::addColumn<bool>("hasWirelessHead");

    QTest::newRow("capital in a value") << "\tidentity=\"Priority=1\"" << false;
    QTest::newRow("capitals") << "\tPRIORITY=1" << false;
    QTest::newRow("blank before the equals sign") << "\tpriority =1" << false;
    QTest::newRow("inside a value") << "\tidentity=\"priority=1\"" << true;
}

void TestWpaSupplicantCfg::priorityIsSearchedForAsItIsSpelt()
{
    QFETCH(QString, option);

    const QByteArray written = WrittenFile({"network={", option, "}\n"});

    QTEST(written.contains("\nap_scan=2\nfilter_ssids=1\nsae_pwe=2\n"), "hasWirelessHead");
    QTEST(written.contains("ap_scan") || written.contains("filter_ssids") || written.contains("sae_pwe"),
          "hasWirelessHead");
}

void TestWpaSupplicantCfg::extraGlobalsAreCopied_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("copied");

    QTest::newRow("empty") << QByteArray() << QByteArray();
    QTest::newRow("one line without an end") << QByteArray("fast_reauth=1") << QByteArray("fast_reauth=1\n");
    QTest::newRow("empty lines") << QByteArray("\nfast_reauth=1\n\ncountry=DE\n\n")
                                 << QByteArray("fast_reauth=1\ncountry=DE\n");
    QTest::newRow("any bytes") << QByteArray("# \xff\xc3\xa9\n") << QByteArray("# \xff\xc3\xa9\n");
}

void TestWpaSupplicantCfg::extraGlobalsAreCopied()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, copied);
    TestSupport::WriteFile(FLAGS + "wpa_supp_conf", file);
    WpaSupplicantCfg::SetAllowWeakCerts(false);

    QCOMPARE(WrittenFile({"network={", "}\n"}),
             "ctrl_interface=/var/run/wpa_supplicant\n" + copied + "\nnetwork={\n}\n");
}

void TestWpaSupplicantCfg::filesThatOthersMayWriteAreNotObeyed()
{
    for (const char *name : {"wpa_supp_wifi", "wpa_supp_conf", "no_scan_ssid"})
        TestSupport::WriteFile(FLAGS + name, "evil=1\n");
    TestSupport::SetMode(FLAGS, 0777);
    WpaSupplicantCfg cfg(nullptr);

    cfg.Unsecured();

    QVERIFY(cfg.Block().contains("\tscan_ssid=1"));
    const QByteArray written = WrittenFile(cfg.Block());
    QVERIFY(!written.contains("evil"));
    QVERIFY(written.contains("\n# Could not open /tmp/config/files/wpa_supp_conf\n"));
}

void TestWpaSupplicantCfg::namedPipesAreNotWaitedFor()
{
    QVERIFY(QDir().mkpath(FLAGS));
    for (const char *name : {"wpa_supp_wifi", "wpa_supp_conf"})
        QCOMPARE(::mkfifo(QFile::encodeName(FLAGS + name).constData(), 0600), 0);
    WpaSupplicantCfg cfg(nullptr);

    cfg.Unsecured();

    QCOMPARE(ModeOptions(cfg), QStringList{"key_mgmt=NONE"});
    QVERIFY(WrittenFile(cfg.Block()).contains("\n# Could not open /tmp/config/files/wpa_supp_conf\n"));
}

void TestWpaSupplicantCfg::blocksAreJoinedAsTheyStand()
{
    WpaSupplicantCfg::SetAllowWeakCerts(false);
    const QByteArray head = "ctrl_interface=/var/run/wpa_supplicant\n"
                            "# Could not open /tmp/config/files/wpa_supp_conf\n\n";

    QCOMPARE(WrittenFile({}), head);
    QCOMPARE(WrittenFile({"network={", "\ta=1", "}\n", "network={", "\tb=2", "}\n"}),
             head + "network={\n\ta=1\n}\n\nnetwork={\n\tb=2\n}\n");
}

void TestWpaSupplicantCfg::fileIsUtf8()
{
    QVERIFY(WrittenFile({QString::fromUtf8("ssid=\"\u00e9\u4f60\xf0\x9f\x98\x80\"")})
                .endsWith("\nssid=\"\xc3\xa9\xe4\xbd\xa0\xf0\x9f\x98\x80\""));
}

void TestWpaSupplicantCfg::longerFileIsReplacedWhole()
{
    TestSupport::WriteFile(FILE_PATH, QByteArray(100000, 'x'));

    const QByteArray written = WrittenFile({"end"});

    QVERIFY(written.startsWith("ctrl_interface="));
    QVERIFY(written.endsWith("\n\nend"));
}

void TestWpaSupplicantCfg::fileIsForItsOwnerOnly_data()
{
    QTest::addColumn<bool>("existed");

    QTest::newRow("new file") << false;
    QTest::newRow("file that all could read") << true;
}

void TestWpaSupplicantCfg::fileIsForItsOwnerOnly()
{
    QFETCH(bool, existed);
    const mode_t oldMask = ::umask(0);
    if (existed) {
        TestSupport::WriteFile(FILE_PATH, "old");
        QCOMPARE(ModeOf(FILE_PATH), mode_t(0666));
    }

    const bool written = WpaSupplicantCfg::WriteCfg({"secret"});
    ::umask(oldMask);

    QVERIFY(written);
    QCOMPARE(ModeOf(FILE_PATH), mode_t(0600));
}

void TestWpaSupplicantCfg::symbolicLinkIsNotFollowed()
{
    TestSupport::WriteFile("/tmp/target", "kept");
    QVERIFY(QFile::link("/tmp/target", FILE_PATH));

    QVERIFY(WpaSupplicantCfg::WriteCfg({"secret"}));

    QCOMPARE(TestSupport::ReadFile("/tmp/target"), QByteArray("kept"));
    QVERIFY(TestSupport::ReadFile(FILE_PATH).endsWith("\n\nsecret"));
    QVERIFY(!QFileInfo(FILE_PATH).isSymLink());
}

void TestWpaSupplicantCfg::fileOfAnotherUserIsDisplaced()
{
    TestSupport::WriteFile(FILE_PATH, "foreign");
    if (::chown(QFile::encodeName(FILE_PATH).constData(), 65534, 65534) != 0)
        QSKIP("only root can make a file of another user; seen when the tests run as root");

    QVERIFY(WpaSupplicantCfg::WriteCfg({"secret"}));

    QVERIFY(TestSupport::ReadFile(FILE_PATH).endsWith("\n\nsecret"));
    QCOMPARE(QFileInfo(FILE_PATH).ownerId(), uint(::geteuid()));
}

void TestWpaSupplicantCfg::earlierFileStaysWhereTheDiskIsFull()
{
    TestSupport::WriteFile(FILE_PATH, "earlier");

    QVERIFY(!WriteCfgOnAFullDisk());

    QCOMPARE(TestSupport::ReadFile(FILE_PATH), QByteArray("earlier"));
}

void TestWpaSupplicantCfg::foreignFileGoesWhereTheDiskIsFull()
{
    TestSupport::WriteFile("/tmp/target", "kept");
    QVERIFY(QFile::link("/tmp/target", FILE_PATH));

    QVERIFY(!WriteCfgOnAFullDisk());

    QVERIFY(!QFileInfo(FILE_PATH).isSymLink());
    QVERIFY(!QFile::exists(FILE_PATH));
    QCOMPARE(TestSupport::ReadFile("/tmp/target"), QByteArray("kept"));
}

void TestWpaSupplicantCfg::folderInThePlaceOfTheFileIsDisplaced()
{
    TestSupport::WriteFile(FILE_PATH + "/inside", "not ours");

    QVERIFY(WpaSupplicantCfg::WriteCfg({"secret"}));

    QVERIFY(TestSupport::ReadFile(FILE_PATH).contains("secret"));
}

void TestWpaSupplicantCfg::folderThatCannotBeDisplacedIsAFailure()
{
    QVERIFY(QDir().mkpath(FILE_PATH));
    const MountPoint taken(FILE_PATH);
    TestSupport::WriteFile(FILE_PATH + "/inside", "kept");

    QVERIFY(!WpaSupplicantCfg::WriteCfg({"secret"}));

    QCOMPARE(TestSupport::ReadFile(FILE_PATH + "/inside"), QByteArray("kept"));
}

QTEST_GUILESS_MAIN(TestWpaSupplicantCfg)
#include "tst_wpasupplicantcfg.moc"
