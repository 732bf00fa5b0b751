// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "machinecheck.h"
#include "storecheck.h"
#include "storereporttext.h"
#include "testsupport.h"

#include <QDir>
#include <QLoggingCategory>
#include <QProcess>
#include <QtTest>

namespace {

const QString FOLDER = QStringLiteral("/tmp/tls/");

/// Keys and certificates, made once: they take a while.
const QByteArray MAKE_FILES = R"(
set -e
cd /tmp/tls
certificate() { # NAME, then the options of its key
    name=$1; shift
    openssl req -x509 -nodes -keyout $name.key -out $name.pem -days 30 -subj /CN=$name "$@"
}
certificate rsa -newkey rsa:2048
certificate ec -newkey ec -pkeyopt ec_paramgen_curve:prime256v1
certificate other -newkey ec -pkeyopt ec_paramgen_curve:prime256v1
certificate ed25519 -newkey ed25519
openssl pkcs8 -topk8 -in ec.key -passout pass:secret -out locked.key
openssl pkcs8 -topk8 -in ed25519.key -passout pass:secret -out ed25519.locked.key
openssl pkcs8 -topk8 -provider legacy -provider default -v1 PBE-MD5-DES -in rsa.key -passout pass:secret -out old.key
openssl pkcs8 -topk8 -provider legacy -provider default -v2 des -in rsa.key -passout pass:secret -out des.key
openssl pkcs8 -topk8 -provider legacy -provider default -v2 rc2 -in rsa.key -passout pass:secret -out rc2.key
openssl rsa -traditional -provider legacy -provider default -des -in rsa.key -passout pass:secret -out older.key
openssl pkcs12 -export -legacy -inkey rsa.key -in rsa.pem -passout pass:secret -out old.p12
openssl ec -in ec.key -outform DER -out ec.der.key
openssl x509 -in ec.pem -outform DER -out ec.der.pem
openssl x509 -in ec.pem -signkey ec.key -days -1 -out expired.pem
openssl pkcs12 -export -inkey ec.key -in ec.pem -passout pass:secret -out both.p12
openssl pkcs12 -export -inkey ec.key -in expired.pem -passout pass:secret -out expired.p12
cat expired.pem ec.pem >bundle.pem
truncate -s 1048577 large.pem
touch empty.pem index.txt && echo 01 >serial && echo nonsense >nonsense.pem
cat >ca.conf <<END
[ca]
default_ca=d
[d]
database=index.txt
new_certs_dir=.
serial=serial
default_md=sha256
policy=p
[p]
commonName=supplied
END
openssl req -new -key ec.key -subj /CN=early -out early.csr
openssl ca -batch -config ca.conf -selfsign -keyfile ec.key -in early.csr -notext -out early.pem \
    -startdate 20980101000000Z -enddate 20990101000000Z
cp ec.pem /etc/ssl/certs/known-by-name.pem
)";

QStringList Lines(const QByteArray &xml)
{
    ZebDocument document;
    StoreReport report = CheckStore(xml, document);
    report.findings.clear();
    report.Add(MachineFindings(document));
    QStringList lines;
    for (const QString &line : StoreReportText::ForPerson("store", report).split('\n', Qt::SkipEmptyParts))
        lines << line.section(": ", 1);
    return lines;
}

QByteArray Network(const QByteArray &name, const QByteArray &elements)
{
    return "<c><network><name>" + name + "</name><ssid>a</ssid>" + elements + "</network></c>";
}

QByteArray TlsNetwork(const QByteArray &elements)
{
    return Network("lan", "<securityMode>802.1X (TLS/EAP)</securityMode>" + elements);
}

} // namespace

/// What is said of a store that this machine cannot follow.
class TestMachineCheck : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void filesAreChecked_data();
    void filesAreChecked();
    void modeWithoutFilesIsNotChecked_data();
    void modeWithoutFilesIsNotChecked();
    void newDriverIsAskedFor_data();
    void newDriverIsAskedFor();
    void missingEapMethodIsTold_data();
    void missingEapMethodIsTold();
    void methodIsAskedForOnce();
    void realSupplicantTakesEveryMode();
    void supplicantIsNotNeeded();
};

void TestMachineCheck::initTestCase()
{
    // Each way to read a key that is not the right one is told there.
    QLoggingCategory::setFilterRules("qt.network.ssl=false");
    QVERIFY(QDir().mkpath(FOLDER));
    QProcess shell;
    shell.setProcessChannelMode(QProcess::MergedChannels);
    shell.start("/bin/sh", {"-c", MAKE_FILES});
    QVERIFY(shell.waitForFinished(120000));
    QVERIFY2(shell.exitCode() == 0, shell.readAll().constData());
    // Another program's output must not count for the real one's.
    TestSupport::Answer("wpa_supplicant", "exec wpa_supplicant \"$@\"");
}

void TestMachineCheck::cleanup()
{
    TestSupport::RestorePrograms();
    TestSupport::Answer("wpa_supplicant", "exec wpa_supplicant \"$@\"");
    TestSupport::Remove("/tmp/use_nl_driver");
    TestSupport::Remove("/tmp/config/files/use_nl_driver");
}

void TestMachineCheck::filesAreChecked_data()
{
    QTest::addColumn<QByteArray>("elements");
    QTest::addColumn<QStringList>("expected");
    const auto row = [](const char *name, const QStringList &files, const QStringList &expected) {
        const QStringList properties = {"caCert", "clientCert", "privateKey", "privateKeyPassword"};
        QString elements;
        for (int i = 0; i < files.size(); ++i)
            elements +=
                QString("<%1>%2</%1>").arg(properties.at(i), QString(files.at(i)).replace("T/", FOLDER));
        QTest::newRow(name) << elements.toUtf8() << expected;
    };
    const auto about = [](const char *severity, const char *property, const QString &reason) {
        const QString valueClass =
            property == QByteArray("privateKeyPassword") ? "secret text" : "certificate";
        return QString("%1: network \"lan\", property \"%2\" (%3): ").arg(severity, property, valueClass) +
               QString(reason).replace("T/", FOLDER);
    };
    const auto unknown = [](const char *file) {
        return QString("\"T/%1\" can only be read by the supplicant: neither the key nor privateKeyPassword "
                       "is checked")
            .arg(file);
    };
    row("EC", {"none", "T/ec.pem", "T/ec.key"}, {});
    row("RSA", {"none", "T/rsa.pem", "T/rsa.key"}, {});
    row("DER", {"none", "T/ec.der.pem", "T/ec.der.key"}, {});
    row("with a password", {"none", "T/ec.pem", "T/locked.key", "secret"}, {});
    row("PKCS#12", {"none", "none", "T/both.p12", "secret"}, {});
    // The supplicant takes these (2.10 with OpenSSL 3.0: seen with a server of its own).
    row("Ed25519", {"none", "T/ed25519.pem", "T/ed25519.key"},
        {about("warning", "privateKey", unknown("ed25519.key"))});
    row("Ed25519 with a password", {"none", "T/ed25519.pem", "T/ed25519.locked.key", "secret"},
        {about("warning", "privateKey", unknown("ed25519.locked.key"))});
    row("DES", {"none", "T/rsa.pem", "T/old.key", "secret"},
        {about("warning", "privateKey", unknown("old.key"))});
    for (const char *name : {"des.key", "rc2.key", "older.key"})
        row(name, {"none", "T/rsa.pem", QStringLiteral("T/") + name, "secret"},
            {about("warning", "privateKey", unknown(name))});
    row("PKCS#12 with RC2", {"none", "none", "T/old.p12", "secret"},
        {about("warning", "privateKey", unknown("old.p12"))});
    row("authority by name", {"known-by-name.pem", "T/ec.pem", "T/ec.key"}, {});
    row("authorities, one of them expired", {"T/bundle.pem", "T/ec.pem", "T/ec.key"}, {});

    row("authority missing", {"nowhere.pem", "T/ec.pem", "T/ec.key"},
        {about("warning", "caCert",
               "\"/etc/ssl/certs/nowhere.pem\" cannot be read: No such file or directory")});
    row("certificate missing", {"none", "T/nowhere.pem", "T/ec.key"},
        {about("warning", "clientCert", "\"T/nowhere.pem\" cannot be read: No such file or directory")});
    row("key missing", {"none", "T/ec.pem", "T/nowhere.key"},
        {about("warning", "privateKey", "\"T/nowhere.key\" cannot be read: No such file or directory")});
    row("folder", {"/tmp", "T/ec.pem", "T/ec.key"},
        {about("warning", "caCert", "\"/tmp\" cannot be read: is not a regular file")});
    row("empty", {"T/empty.pem", "T/ec.pem", "T/ec.key"},
        {about("error", "caCert", "\"T/empty.pem\" is empty")});
    row("too large", {"T/large.pem", "T/ec.pem", "T/ec.key"},
        {about("warning", "caCert", "\"T/large.pem\" cannot be read: is larger than 1 MiB")});
    row("no certificate", {"T/nonsense.pem", "T/ec.pem", "T/ec.key"},
        {about("error", "caCert", "\"T/nonsense.pem\" holds no certificate")});
    row("key as a certificate", {"none", "T/ec.key", "T/ec.key"},
        {about("error", "clientCert", "\"T/ec.key\" holds no certificate")});
    row("expired", {"none", "T/expired.pem", "T/ec.key"},
        {about("error", "clientCert",
               "\"T/expired.pem\" expired on " +
                   QDateTime::currentDateTimeUtc().addDays(-1).date().toString(Qt::ISODate))});
    row("not yet valid", {"T/early.pem", "T/ec.pem", "T/ec.key"},
        {about("error", "caCert", "\"T/early.pem\" is not valid before 2098-01-01")});
    row("expired in PKCS#12", {"none", "none", "T/expired.p12", "secret"},
        {about("error", "privateKey",
               "\"T/expired.p12\" expired on " +
                   QDateTime::currentDateTimeUtc().addDays(-1).date().toString(Qt::ISODate))});
    row("another EC key", {"none", "T/ec.pem", "T/other.key"},
        {about("error", "privateKey", "\"T/other.key\" does not belong to clientCert")});
    row("key of another kind", {"none", "T/rsa.pem", "T/ec.key"},
        {about("error", "privateKey", "\"T/ec.key\" does not belong to clientCert")});
    for (const char *password : {"", "wrong"})
        row(*password ? "wrong password" : "no password", {"none", "T/ec.pem", "T/locked.key", password},
            {about("error", "privateKey",
                   "\"T/locked.key\" holds no RSA, EC or DSA key that privateKeyPassword opens")});
    row("certificate as a key", {"none", "T/ec.pem", "T/ec.pem"},
        {about("error", "privateKey",
               "\"T/ec.pem\" holds no RSA, EC or DSA key that privateKeyPassword opens")});
    row("no key", {"none", "T/ec.pem"}, {about("error", "privateKey", "is missing, and the mode needs one")});
    row("no certificate for the key", {"none", "none", "T/ec.key"},
        {about("error", "clientCert", "is missing, and the mode needs one")});
}

void TestMachineCheck::filesAreChecked()
{
    QFETCH(QByteArray, elements);

    QTEST(Lines(TlsNetwork(elements)), "expected");
}

void TestMachineCheck::modeWithoutFilesIsNotChecked_data()
{
    QTest::addColumn<QByteArray>("xml");
    const QByteArray files = "<caCert>/nowhere</caCert><clientCert>/nowhere</clientCert>"
                             "<privateKey>/nowhere</privateKey>";
    QTest::newRow("unsecured") << Network("lan", files);
    QTest::newRow("GTC") << Network("Office", "<securityMode>peap_gtc</securityMode>" + files);
    QTest::newRow("mode that its name defeats")
        << Network("Office", "<securityMode>wired_tls</securityMode>" + files);
    QTest::newRow("SCEP") << TlsNetwork("<scep>true</scep>");
    QTest::newRow("SCEP with names") << TlsNetwork(
        "<scep>true</scep><caCert>default</caCert>"
        "<clientCert>a.crt</clientCert><privateKey>none</privateKey>");
}

void TestMachineCheck::modeWithoutFilesIsNotChecked()
{
    QFETCH(QByteArray, xml);

    QCOMPARE(Lines(xml), QStringList());
}

void TestMachineCheck::newDriverIsAskedFor_data()
{
    QTest::addColumn<QByteArray>("settings");
    QTest::addColumn<QString>("flag");
    QTest::addColumn<uint>("mode");
    QTest::addColumn<bool>("isTold");
    QTest::newRow("no") << QByteArray() << "" << 0U << true;
    QTest::newRow("off") << QByteArray("<useNewDriver>false</useNewDriver>") << "" << 0U << true;
    QTest::newRow("on") << QByteArray("<useNewDriver>true</useNewDriver>") << "" << 0U << false;
    QTest::newRow("flag") << QByteArray() << "/tmp/config/files/use_nl_driver" << 0644U << false;
    QTest::newRow("flag that is not obeyed")
        << QByteArray() << "/tmp/config/files/use_nl_driver" << 0666U << true;
    QTest::newRow("temporary flag") << QByteArray() << "/tmp/use_nl_driver" << 0644U << false;
}

void TestMachineCheck::newDriverIsAskedFor()
{
    QFETCH(QByteArray, settings);
    QFETCH(QString, flag);
    QFETCH(bool, isTold);
    if (!flag.isEmpty()) {
        QFETCH(uint, mode);
        TestSupport::WriteFile(flag, "");
        TestSupport::SetMode(flag, mode);
    }

    const QStringList lines = Lines("<c>" + settings +
                                    "<network><name>Office</name><ssid>a</ssid><passphrase>b</passphrase>"
                                    "<securityMode>WPA Personal 3</securityMode></network></c>");

    const QString told = "warning: network \"Office\", property \"securityMode\" (security mode): WPA3 needs "
                         "the driver nl80211, which the setting useNewDriver asks for";
    QCOMPARE(lines, isTold ? QStringList{told} : QStringList());
}

void TestMachineCheck::missingEapMethodIsTold_data()
{
    QTest::addColumn<QByteArray>("network");
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<QByteArray>("method");
    const auto row = [](const char *network, const char *mode, const char *method) {
        QTest::newRow(mode) << QByteArray(network) << QByteArray(mode) << QByteArray(method);
    };
    row("Office", "eap_tls", "TLS");
    row("Office", "eap_leap", "LEAP");
    row("Office", "eap_fast", "FAST");
    row("Office", "peap_gtc", "PEAP");
    row("Office", "peap_mschapv2", "PEAP");
    row("lan", "wired_tls", "TLS");
    row("lan", "wired_peap", "PEAP");
}

void TestMachineCheck::missingEapMethodIsTold()
{
    QFETCH(QByteArray, network);
    QFETCH(QByteArray, mode);
    QFETCH(QByteArray, method);
    const QByteArray store = Network(network, "<securityMode>" + mode + "</securityMode><scep>true</scep>");
    const auto answer = [](const QByteArray &missing) {
        TestSupport::Answer("wpa_supplicant",
                            "grep -qw eap=" + missing +
                                " \"${3#-c}\" && echo 'Line 3: unknown EAP method'; exit 255");
    };

    answer(method);
    const QStringList lines = Lines(store);
    answer("OTHER");
    const QStringList others = Lines(store);

    QCOMPARE(lines, QStringList{QString("warning: network \"%1\", property \"securityMode\" (security mode): "
                                        "this machine's wpa_supplicant was built without EAP-%2, and refuses "
                                        "the whole file with it")
                                    .arg(network.constData(), method.constData())});
    QCOMPARE(others, QStringList());
}

void TestMachineCheck::methodIsAskedForOnce()
{
    TestSupport::ClearJournal();

    Lines("<c><network><name>lan</name><securityMode>wired_peap</securityMode></network>"
          "<network><name>lan 2</name><securityMode>wired_peap</securityMode></network></c>");

    QCOMPARE(TestSupport::Journal().size(), 1);
    QVERIFY(TestSupport::Journal().constFirst().startsWith(
        "wpa_supplicant -Dwired -icorvi-check -c/proc/self/fd/"));
}

void TestMachineCheck::realSupplicantTakesEveryMode()
{
    QByteArray networks;
    for (const char *mode : {"eap_tls", "eap_leap", "eap_fast", "peap_gtc", "peap_mschapv2"})
        networks += QByteArray("<network><name>") + mode + "</name><ssid>a</ssid><securityMode>" + mode +
                    "</securityMode><scep>true</scep></network>";

    QCOMPARE(Lines("<c>" + networks + "</c>"), QStringList());
}

void TestMachineCheck::supplicantIsNotNeeded()
{
    TestSupport::RemoveProgram("wpa_supplicant");

    QCOMPARE(Lines(Network("Office", "<securityMode>eap_leap</securityMode>")), QStringList());
}

QTEST_GUILESS_MAIN(TestMachineCheck)
#include "tst_machinecheck.moc"
