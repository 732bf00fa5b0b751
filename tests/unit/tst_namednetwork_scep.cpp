// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "namednetwork.h"

#include "networkworld.h"

#include <QDir>
#include <QFile>
#include <QScopeGuard>

#include <dlfcn.h>

namespace {

bool hasShell = true;

} // namespace

/// In the place of the C library's, as nothing else keeps a process that may do anything from starting one.
extern "C" int system(const char *line)
{
    using System = int (*)(const char *);
    static const auto real = reinterpret_cast<System>(::dlsym(RTLD_NEXT, "system"));
    return hasShell ? real(line) : -1;
}

/// Certificates that come from SCEP, and the daemon that renews them.
class TestNamedNetworkScep : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { StartNetworkFromNothing(); }
    void cleanup() { EndNetwork(); }

    void scepKeyIsFilledIn_data();
    void scepKeyIsFilledIn();
    void scepCaIsTheNewestThatIsThere_data();
    void scepCaIsTheNewestThatIsThere();
    void scepDefaultsAreForEveryMode_data();
    void scepDefaultsAreForEveryMode();
    void scepDefaultsBeginWithTheStoredValues();
    void scepDefaultsAreLoggedInOrder();
    void scepClientCertificateIsLookedFor_data();
    void scepClientCertificateIsLookedFor();
    void scepClientCertificateIsTheFirstByName_data();
    void scepClientCertificateIsTheFirstByName();
    void scepSettingOffChangesNothing();
    void scepDefaultsAreNotForAWiredUnsecuredNetwork();
    void scepDaemonIsRestartedAfterTlsOnly_data();
    void scepDaemonIsRestartedAfterTlsOnly();
    void scepDaemonRunsInTheBackground();
    void scepDaemonIsRestartedAfterTheBlock();
    void scepDaemonThatNoShellRestartsIsLogged();
};

void TestNamedNetworkScep::scepKeyIsFilledIn_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<bool>("keyExists");
    QTest::addColumn<QString>("written");

    const QString defaultKey = "\"/tmp/config/files/scep/scep.key\"";
    QTest::newRow("empty, no file") << "" << false << defaultKey;
    QTest::newRow("empty, file") << "" << true << defaultKey;
    QTest::newRow("none") << "none" << false << defaultKey;
    QTest::newRow("None") << "None" << false << "\"/etc/ssl/certs/None\"";
    QTest::newRow("default") << "default" << false << "\"/etc/ssl/certs/default\"";
    QTest::newRow("path") << "/opt/own.key" << true << "\"/opt/own.key\"";
}

void TestNamedNetworkScep::scepKeyIsFilledIn()
{
    QFETCH(QString, stored);
    QFETCH(bool, keyExists);
    QFETCH(QString, written);
    if (keyExists)
        WriteScepFiles({"scep.key"});
    WriteNetwork("lan", {{"securityMode", "802.1X (TLS/EAP with SCEP)"}, {"privateKey", stored}});

    const NamedNetwork network("lan", false, nullptr);

    QCOMPARE(Values(network, "private_key"), QStringList{written});
    QCOMPARE(TestSupport::LogText().contains(" :  NetworkDevice::Associate setting default scep key \n"),
             written.contains("scep.key"));
}

void TestNamedNetworkScep::scepCaIsTheNewestThatIsThere_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<int>("existing"); // one bit for each of the three files
    QTest::addColumn<int>("taken");    // number of the file, or -1

    for (const char *stored : {"", "none", "default"}) {
        for (int existing = 0; existing < 8; ++existing) {
            const int taken = existing & 4 ? 2 : existing & 2 ? 1 : existing & 1 ? 0 : -1;
            QTest::addRow("'%s', files %d", stored, existing) << stored << existing << taken;
        }
    }
    QTest::newRow("own") << "/opt/ca.crt" << 7 << -1;
    QTest::newRow("Default") << "Default" << 7 << -1;
}

void TestNamedNetworkScep::scepCaIsTheNewestThatIsThere()
{
    QFETCH(QString, stored);
    QFETCH(int, existing);
    QFETCH(int, taken);
    for (int i = 0; i < 3; ++i) {
        if (existing & (1 << i))
            TestSupport::WriteFile(SCEP_CA.arg(i), "");
    }
    WriteNetwork("Home", Wireless("WPA Enterprise 1/2 (TLS with SCEP)", {{"caCert", stored}}));

    const NamedNetwork network("Home", false, nullptr);

    const QString kept = stored.isEmpty() ? "none" : stored;
    QCOMPARE(network.Config()->caCert, taken == -1 ? kept : SCEP_CA.arg(taken));
    QCOMPARE(TestSupport::LogText().contains(" :  NetworkDevice::Associate setting default CA \n"),
             taken != -1);
}

void TestNamedNetworkScep::scepDefaultsAreForEveryMode_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("securityMode");

    QTest::newRow("wireless PEAP") << "Home"
                                   << "WPA Enterprise 1/2 (PEAP/MSCHAPv2)";
    QTest::newRow("wired PEAP") << "lan"
                                << "802.1X (PEAP/MSCHAPv2)";
}

void TestNamedNetworkScep::scepDefaultsAreForEveryMode()
{
    QFETCH(QString, name);
    QFETCH(QString, securityMode);
    TestSupport::WriteFile(SCEP_CA.arg(0), "");
    WriteNetwork(name, Wireless(securityMode, {{"scep", "true"}, {"caCert", "default"}}));

    const NamedNetwork network(name, false, nullptr);

    QCOMPARE(Values(network, "ca_cert"), QStringList{'"' + SCEP_CA.arg(0) + '"'});
}

void TestNamedNetworkScep::scepDefaultsBeginWithTheStoredValues()
{
    TestSupport::WriteFile(SCEP_CA.arg(0), "");
    WriteNetwork("lan", {{"securityMode", "802.1X (TLS/EAP with SCEP)"}, {"caCert", "default"}});
    NamedNetwork network("lan", false, nullptr);
    QCOMPARE(network.Config()->caCert, SCEP_CA.arg(0));
    TestSupport::Remove(SCEP_CA.arg(0));

    network.Load("lan", false);

    QCOMPARE(network.Config()->caCert, QString("default"));
}

void TestNamedNetworkScep::scepDefaultsAreLoggedInOrder()
{
    TestSupport::WriteFile(SCEP_CA.arg(0), "");
    WriteScepFiles({"a.crt"});
    WriteNetwork("lan", {{"securityMode", "802.1X (TLS/EAP with SCEP)"}});

    const NamedNetwork network("lan", false, nullptr);

    QCOMPARE(TestSupport::LogLines().filter("NetworkDevice::Associate"),
             (QStringList{"NetworkDevice::Associate setting default scep key",
                          "NetworkDevice::Associate setting default CA",
                          "NetworkDevice::Associate setting client cert  /tmp/config/files/scep/a.crt"}));
}

void TestNamedNetworkScep::scepClientCertificateIsLookedFor_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QString>("written");

    const QString folder = "/tmp/config/files/scep/";
    QTest::newRow("not set, no files") << "" << QStringList{} << "";
    QTest::newRow("not set, one file") << "" << QStringList{"b.crt"} << folder + "b.crt";
    QTest::newRow("not set, several files")
        << "" << QStringList{"b.crt", "a.crt", "0.pem"} << folder + "a.crt";
    QTest::newRow("not set, other files") << "" << QStringList{"a.key", "crt"} << "";
    QTest::newRow("none, one file") << "none" << QStringList{"b.crt"} << folder + "b.crt";
    QTest::newRow("name in the folder") << "c.pem" << QStringList{"a.crt", "c.pem"} << folder + "c.pem";
    QTest::newRow("name elsewhere") << "c.pem" << QStringList{"a.crt"} << "/etc/ssl/certs/c.pem";
    QTest::newRow("path") << "/opt/c.pem" << QStringList{"a.crt"} << "/opt/c.pem";
    QTest::newRow("path, its name in the folder") << "/a.crt" << QStringList{"a.crt"} << "/a.crt";
    QTest::newRow("existing file") << "tmp/config/files/scep/a.crt" << QStringList{"a.crt"}
                                   << "/etc/ssl/certs/tmp/config/files/scep/a.crt";
}

void TestNamedNetworkScep::scepClientCertificateIsLookedFor()
{
    QFETCH(QString, stored);
    QFETCH(QStringList, files);
    QFETCH(QString, written);
    QDir::setCurrent("/");
    WriteScepFiles(files);
    TestSupport::WriteFile(SCEP_FOLDER + "0.crt/inside", ""); // a folder is no certificate
    WriteNetwork("lan", {{"securityMode", "802.1X (TLS/EAP with SCEP)"}, {"clientCert", stored}});

    const NamedNetwork network("lan", false, nullptr);

    QCOMPARE(Values(network, "client_cert"),
             written.isEmpty() ? QStringList() : QStringList{'"' + written + '"'});
    const QString line = " :  NetworkDevice::Associate setting client cert  " + written + " \n";
    QCOMPARE(TestSupport::LogText().contains(line), written.startsWith(SCEP_FOLDER));
}

void TestNamedNetworkScep::scepClientCertificateIsTheFirstByName_data()
{
    QTest::addColumn<QStringList>("files");

    QTest::newRow("first one written first") << QStringList{"a.crt", "b.crt", "c.crt"};
    QTest::newRow("first one written last") << QStringList{"c.crt", "b.crt", "a.crt"};
}

void TestNamedNetworkScep::scepClientCertificateIsTheFirstByName()
{
    QFETCH(QStringList, files);
    WriteScepFiles(files);
    WriteNetwork("lan", {{"securityMode", "802.1X (TLS/EAP with SCEP)"}});

    QCOMPARE(NamedNetwork("lan", false, nullptr).Config()->clientCert, SCEP_FOLDER + "a.crt");
}

void TestNamedNetworkScep::scepSettingOffChangesNothing()
{
    TestSupport::WriteFile(SCEP_CA.arg(0), "");
    WriteScepFiles({"a.crt", "scep.key"});
    WriteNetwork("lan", {{"securityMode", "802.1X (TLS/EAP with SCEP)"}, {"scep", "false"}});

    const NamedNetwork network("lan", false, nullptr);

    QCOMPARE(Values(network, "ca_cert") + Values(network, "client_cert") + Values(network, "private_key"),
             QStringList());
}

void TestNamedNetworkScep::scepDefaultsAreNotForAWiredUnsecuredNetwork()
{
    TestSupport::WriteFile(SCEP_CA.arg(0), "");
    WriteScepFiles({"a.crt", "scep.key"});
    WriteNetwork("lan", {{"securityMode", "Unsecured"}, {"scep", "true"}});

    const NamedNetwork network("lan", false, nullptr);

    QVERIFY(network.Config()->scep);
    QCOMPARE(network.Config()->privateKey, QString("none"));
    QCOMPARE(network.Config()->caCert, QString("none"));
    QCOMPARE(network.Config()->clientCert, QString("none"));
    QVERIFY(!TestSupport::LogText().contains("NetworkDevice::Associate"));
}

void TestNamedNetworkScep::scepDaemonIsRestartedAfterTlsOnly_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("securityMode");
    QTest::addColumn<QString>("scep");
    QTest::addColumn<bool>("isRestarted");

    QTest::newRow("wireless TLS with SCEP") << "Home"
                                            << "WPA Enterprise 1/2 (TLS with SCEP)"
                                            << "" << true;
    QTest::newRow("wired TLS with SCEP") << "lan"
                                         << "802.1X (TLS/EAP with SCEP)"
                                         << "" << true;
    QTest::newRow("wireless TLS, set") << "Home"
                                       << "WPA Enterprise 1/2 (TLS)"
                                       << "true" << true;
    QTest::newRow("wireless TLS") << "Home"
                                  << "WPA Enterprise 1/2 (TLS)"
                                  << "" << false;
    QTest::newRow("wired TLS with SCEP, switched off") << "lan"
                                                       << "802.1X (TLS/EAP with SCEP)"
                                                       << "false" << false;
    QTest::newRow("wired TLS") << "lan"
                               << "802.1X (TLS/EAP)"
                               << "" << false;
    QTest::newRow("wireless PEAP, set") << "Home"
                                        << "WPA Enterprise 1/2 (PEAP/MSCHAPv2)"
                                        << "true" << false;
    QTest::newRow("wired PEAP, set") << "lan"
                                     << "802.1X (PEAP/MSCHAPv2)"
                                     << "true" << false;
    QTest::newRow("wireless, unsecured, set") << "Home"
                                              << "Unsecured"
                                              << "true" << false;
    QTest::newRow("wired, unsecured, set") << "lan"
                                           << "Unsecured"
                                           << "true" << false;
    QTest::newRow("wired TLS by a wireless name") << "Home"
                                                  << "802.1X (TLS/EAP with SCEP)"
                                                  << "" << false;
}

void TestNamedNetworkScep::scepDaemonIsRestartedAfterTlsOnly()
{
    QFETCH(QString, name);
    QFETCH(QString, securityMode);
    QFETCH(QString, scep);
    QFETCH(bool, isRestarted);
    WriteNetwork(name, Wireless(securityMode, {{"scep", scep}}));

    const NamedNetwork network(name, false, nullptr);

    if (isRestarted)
        QVERIFY(TestSupport::WaitForJournal(3));
    QCOMPARE(TestSupport::Journal(),
             isRestarted ? (QStringList{"killall scepd", "sleep 1", "scepd -d"}) : QStringList());
}

void TestNamedNetworkScep::scepDaemonRunsInTheBackground()
{
    // It ends when told to, or after five seconds.
    TestSupport::Answer("scepd", "for i in $(seq 50); do [ -e /tmp/scepd.go ] && break; sleep 0.1; done\n"
                                 "touch /tmp/scepd.ended");
    WriteNetwork("lan", {{"securityMode", "802.1X (TLS/EAP with SCEP)"}});

    const NamedNetwork network("lan", false, nullptr);

    QVERIFY(!QFile::exists("/tmp/scepd.ended"));
    TestSupport::WriteFile("/tmp/scepd.go", "");
    QTRY_VERIFY(QFile::exists("/tmp/scepd.ended"));
}

void TestNamedNetworkScep::scepDaemonIsRestartedAfterTheBlock()
{
    // The identity is looked up while the block is built.
    WriteNetwork("lan", {{"securityMode", "802.1X (TLS/EAP with SCEP)"}, {"identity", "$mac"}});

    const NamedNetwork network("lan", false, nullptr);

    QVERIFY(TestSupport::WaitForJournal(4));
    QCOMPARE(TestSupport::Journal(),
             (QStringList{"ip -br link show", "killall scepd", "sleep 1", "scepd -d"}));
}

void TestNamedNetworkScep::scepDaemonThatNoShellRestartsIsLogged()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    WriteNetwork("lan", {{"securityMode", "802.1X (TLS/EAP with SCEP)"}});
    hasShell = false;
    const auto restorer = qScopeGuard([] { hasShell = true; });

    const NamedNetwork network("lan", false, nullptr);

    QVERIFY(TestSupport::LogText().contains("No shell to restart the SCEP daemon \n"));
    QVERIFY(network.Block().contains("\teap=TLS"));
}

QTEST_GUILESS_MAIN(TestNamedNetworkScep)
#include "tst_namednetwork_scep.moc"
