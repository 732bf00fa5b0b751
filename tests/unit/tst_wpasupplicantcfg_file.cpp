// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "wpasupplicantcfg.h"

#include "mountpoint.h"
#include "resourcelimit.h"
#include "writerworld.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

namespace {

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

/// The file as it is written: its head, and how it takes its place.
class TestWpaSupplicantCfgFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { StartWriterFromNothing(); }

    void switchesDecideTheHead_data();
    void switchesDecideTheHead();
    void priorityIsSearchedForAsItIsSpelt_data();
    void priorityIsSearchedForAsItIsSpelt();
    void extraGlobalsAreCopied_data();
    void extraGlobalsAreCopied();
    void extraGlobalsThatAreNoSmallFileDoNotCount_data();
    void extraGlobalsThatAreNoSmallFileDoNotCount();
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

void TestWpaSupplicantCfgFile::switchesDecideTheHead_data()
{
    QTest::addColumn<bool>("isWireless");
    QTest::addColumn<int>("switches");

    for (const bool isWireless : {false, true}) {
        for (int switches = 0; switches < 32; ++switches)
            QTest::addRow("%s, switches %d", isWireless ? "wireless" : "wired", switches)
                << isWireless << switches;
    }
}

void TestWpaSupplicantCfgFile::switchesDecideTheHead()
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

void TestWpaSupplicantCfgFile::priorityIsSearchedForAsItIsSpelt_data()
{
    QTest::addColumn<QString>("option");
    QTest::addColumn<bool>("hasWirelessHead");

    QTest::newRow("capital in a value") << "\tidentity=\"Priority=1\"" << false;
    QTest::newRow("capitals") << "\tPRIORITY=1" << false;
    QTest::newRow("blank before the equals sign") << "\tpriority =1" << false;
    QTest::newRow("inside a value") << "\tidentity=\"priority=1\"" << true;
}

void TestWpaSupplicantCfgFile::priorityIsSearchedForAsItIsSpelt()
{
    QFETCH(QString, option);

    const QByteArray written = WrittenFile({"network={", option, "}\n"});

    QTEST(written.contains("\nap_scan=2\nfilter_ssids=1\nsae_pwe=2\n"), "hasWirelessHead");
    QTEST(written.contains("ap_scan") || written.contains("filter_ssids") || written.contains("sae_pwe"),
          "hasWirelessHead");
}

void TestWpaSupplicantCfgFile::extraGlobalsAreCopied_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("copied");

    QTest::newRow("empty") << QByteArray() << QByteArray();
    QTest::newRow("one line without an end") << QByteArray("fast_reauth=1") << QByteArray("fast_reauth=1\n");
    QTest::newRow("empty lines") << QByteArray("\nfast_reauth=1\n\ncountry=DE\n\n")
                                 << QByteArray("fast_reauth=1\ncountry=DE\n");
    QTest::newRow("any bytes") << QByteArray("# \xff\xc3\xa9\n") << QByteArray("# \xff\xc3\xa9\n");
}

void TestWpaSupplicantCfgFile::extraGlobalsAreCopied()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, copied);
    TestSupport::WriteFile(FLAGS + "wpa_supp_conf", file);
    WpaSupplicantCfg::SetAllowWeakCerts(false);

    QCOMPARE(WrittenFile({"network={", "}\n"}),
             "ctrl_interface=/var/run/wpa_supplicant\n" + copied + "\nnetwork={\n}\n");
}

void TestWpaSupplicantCfgFile::extraGlobalsThatAreNoSmallFileDoNotCount_data()
{
    QTest::addColumn<QByteArray>("file");

    QTest::newRow("above 1 MiB") << QByteArray("fast_reauth=1\n#") + QByteArray(1024 * 1024, 'x');
    QTest::newRow("folder") << QByteArray();
}

void TestWpaSupplicantCfgFile::extraGlobalsThatAreNoSmallFileDoNotCount()
{
    QFETCH(QByteArray, file);
    if (file.isEmpty())
        QVERIFY(QDir().mkpath(FLAGS + "wpa_supp_conf"));
    else
        TestSupport::WriteFile(FLAGS + "wpa_supp_conf", file);

    const QByteArray written = WrittenFile({"network={", "}\n"});

    QVERIFY(written.contains("\n# Could not open /tmp/config/files/wpa_supp_conf\n"));
    QVERIFY(!written.contains("fast_reauth"));
}

void TestWpaSupplicantCfgFile::filesThatOthersMayWriteAreNotObeyed()
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

void TestWpaSupplicantCfgFile::namedPipesAreNotWaitedFor()
{
    QVERIFY(QDir().mkpath(FLAGS));
    for (const char *name : {"wpa_supp_wifi", "wpa_supp_conf"})
        QCOMPARE(::mkfifo(QFile::encodeName(FLAGS + name).constData(), 0600), 0);
    WpaSupplicantCfg cfg(nullptr);

    cfg.Unsecured();

    QCOMPARE(ModeOptions(cfg), QStringList{"key_mgmt=NONE"});
    QVERIFY(WrittenFile(cfg.Block()).contains("\n# Could not open /tmp/config/files/wpa_supp_conf\n"));
}

void TestWpaSupplicantCfgFile::blocksAreJoinedAsTheyStand()
{
    WpaSupplicantCfg::SetAllowWeakCerts(false);
    const QByteArray head = "ctrl_interface=/var/run/wpa_supplicant\n"
                            "# Could not open /tmp/config/files/wpa_supp_conf\n\n";

    QCOMPARE(WrittenFile({}), head);
    QCOMPARE(WrittenFile({"network={", "\ta=1", "}\n", "network={", "\tb=2", "}\n"}),
             head + "network={\n\ta=1\n}\n\nnetwork={\n\tb=2\n}\n");
}

void TestWpaSupplicantCfgFile::fileIsUtf8()
{
    QVERIFY(WrittenFile({QString::fromUtf8("ssid=\"\u00e9\u4f60\xf0\x9f\x98\x80\"")})
                .endsWith("\nssid=\"\xc3\xa9\xe4\xbd\xa0\xf0\x9f\x98\x80\""));
}

void TestWpaSupplicantCfgFile::longerFileIsReplacedWhole()
{
    TestSupport::WriteFile(FILE_PATH, QByteArray(100000, 'x'));

    const QByteArray written = WrittenFile({"end"});

    QVERIFY(written.startsWith("ctrl_interface="));
    QVERIFY(written.endsWith("\n\nend"));
}

void TestWpaSupplicantCfgFile::fileIsForItsOwnerOnly_data()
{
    QTest::addColumn<bool>("existed");

    QTest::newRow("new file") << false;
    QTest::newRow("file that all could read") << true;
}

void TestWpaSupplicantCfgFile::fileIsForItsOwnerOnly()
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

void TestWpaSupplicantCfgFile::symbolicLinkIsNotFollowed()
{
    TestSupport::WriteFile("/tmp/target", "kept");
    QVERIFY(QFile::link("/tmp/target", FILE_PATH));

    QVERIFY(WpaSupplicantCfg::WriteCfg({"secret"}));

    QCOMPARE(TestSupport::ReadFile("/tmp/target"), QByteArray("kept"));
    QVERIFY(TestSupport::ReadFile(FILE_PATH).endsWith("\n\nsecret"));
    QVERIFY(!QFileInfo(FILE_PATH).isSymLink());
}

void TestWpaSupplicantCfgFile::fileOfAnotherUserIsDisplaced()
{
    TestSupport::WriteFile(FILE_PATH, "foreign");
    if (::chown(QFile::encodeName(FILE_PATH).constData(), 65534, 65534) != 0)
        QSKIP("only root can make a file of another user; seen when the tests run as root");

    QVERIFY(WpaSupplicantCfg::WriteCfg({"secret"}));

    QVERIFY(TestSupport::ReadFile(FILE_PATH).endsWith("\n\nsecret"));
    QCOMPARE(QFileInfo(FILE_PATH).ownerId(), uint(::geteuid()));
}

void TestWpaSupplicantCfgFile::earlierFileStaysWhereTheDiskIsFull()
{
    TestSupport::WriteFile(FILE_PATH, "earlier");

    QVERIFY(!WriteCfgOnAFullDisk());

    QCOMPARE(TestSupport::ReadFile(FILE_PATH), QByteArray("earlier"));
}

void TestWpaSupplicantCfgFile::foreignFileGoesWhereTheDiskIsFull()
{
    TestSupport::WriteFile("/tmp/target", "kept");
    QVERIFY(QFile::link("/tmp/target", FILE_PATH));

    QVERIFY(!WriteCfgOnAFullDisk());

    QVERIFY(!QFileInfo(FILE_PATH).isSymLink());
    QVERIFY(!QFile::exists(FILE_PATH));
    QCOMPARE(TestSupport::ReadFile("/tmp/target"), QByteArray("kept"));
}

void TestWpaSupplicantCfgFile::folderInThePlaceOfTheFileIsDisplaced()
{
    TestSupport::WriteFile(FILE_PATH + "/inside", "not ours");

    QVERIFY(WpaSupplicantCfg::WriteCfg({"secret"}));

    QVERIFY(TestSupport::ReadFile(FILE_PATH).contains("secret"));
}

void TestWpaSupplicantCfgFile::folderThatCannotBeDisplacedIsAFailure()
{
    QVERIFY(QDir().mkpath(FILE_PATH));
    const MountPoint taken(FILE_PATH);
    TestSupport::WriteFile(FILE_PATH + "/inside", "kept");

    QVERIFY(!WpaSupplicantCfg::WriteCfg({"secret"}));

    QCOMPARE(TestSupport::ReadFile(FILE_PATH + "/inside"), QByteArray("kept"));
}

QTEST_GUILESS_MAIN(TestWpaSupplicantCfgFile)
#include "tst_wpasupplicantcfg_file.moc"
