// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "securitymodes.h"
#include "storehints.h"
#include "testsupport.h"
#include "zebcheck.h"
#include "zebproperties.h"

#include <QDir>
#include <QProcess>
#include <QXmlStreamReader>
#include <QtTest>

namespace {

const QString SCHEMA = QStringLiteral(STORE_SCHEMA);
const QString FOLDER = QStringLiteral("/tmp/schema/");

/// Good and bad ones of every kind.
const QStringList VALUES = {"true",
                            "false",
                            "True",
                            "1",
                            "0",
                            "-0",
                            "-1",
                            "+1",
                            "01",
                            "1.5",
                            "67",
                            "68",
                            "99",
                            "100",
                            "999",
                            "1400",
                            "9999",
                            "59999",
                            "60000",
                            "65535",
                            "65536",
                            "65540",
                            "65600",
                            "66000",
                            "70000",
                            "79999",
                            "80000",
                            "86399",
                            "86400",
                            "86401",
                            "99999",
                            "100000",
                            "999999",
                            "1000000",
                            "1000001",
                            "-1000000",
                            "-1000001",
                            "-70",
                            "-99",
                            "-119",
                            "-120",
                            "-121",
                            "10.0.0.2",
                            "0.0.0.0",
                            "1.0.0.0",
                            "9.255.249.199",
                            "127.0.0.1",
                            "223.255.255.255",
                            "224.0.0.1",
                            "239.0.0.1",
                            "255.255.255.255",
                            "10.0.0.256",
                            "10.0.0.01",
                            "10.0.0",
                            "10.0.0.1.1",
                            "256.0.0.1",
                            "255.255.255.0",
                            "255.255.254.0",
                            "255.0.255.0",
                            "255.0.0.0",
                            "128.0.0.0",
                            "255.255.255.253",
                            "255.255.255.1",
                            "254.255.0.0",
                            "2001:db8::1",
                            "::",
                            "gateway",
                            "a.example b-c.d_e",
                            "a,b",
                            "5",
                            "5.0",
                            "5 GHz",
                            "5.0 GHz",
                            "2.4",
                            "2.4 and 5.0",
                            "6",
                            "6.0",
                            "60",
                            "2,4",
                            "fallback",
                            "Fallback",
                            "none",
                            "ca.pem",
                            "office/ca.pem",
                            "../ca.pem",
                            "a/../ca.pem",
                            "a/..",
                            "..",
                            ".",
                            "..a",
                            "a..b",
                            "...",
                            "./a",
                            "/etc/../ca.pem",
                            "/",
                            "a.pac",
                            ".pac",
                            "\"abcde\"",
                            "\"abcd\"",
                            "P\"abcde\"",
                            "0123456789",
                            "012345678",
                            "0123456789abcdef0123456789",
                            "ABCDEF",
                            "WPA Personal 3",
                            "WPA Personal 4",
                            "sae",
                            "802.1X (TLS/EAP)",
                            "Unsecured",
                            "unsecured",
                            "UNSECURED",
                            " true",
                            "true ",
                            "a b",
                            "a&b",
                            "<",
                            "line\nend",
                            "tab\tinside",
                            QString(32, 'x'),
                            QString(33, 'x'),
                            QString(1024, 'x'),
                            QString(1025, 'x')};

/// The elements of one definition, each with the definition of its value.
QMap<QString, QString> ElementsOf(const QString &definition)
{
    QMap<QString, QString> elements;
    QXmlStreamReader xml(TestSupport::ReadFile(SCHEMA));
    bool isInside = false;
    QString element;
    while (!xml.atEnd()) {
        xml.readNext();
        const QString name = xml.attributes().value("name").toString();
        if (xml.isStartElement() && xml.name() == QLatin1String("define"))
            isInside = name == definition;
        else if (isInside && xml.isStartElement() && xml.name() == QLatin1String("element"))
            element = name;
        else if (isInside && xml.isStartElement() && xml.name() == QLatin1String("ref"))
            elements.insert(element, name);
    }
    return elements;
}

/// The files that xmllint takes by the schema.
QStringList ValidFiles(const QStringList &files)
{
    QProcess xmllint;
    xmllint.setProcessChannelMode(QProcess::MergedChannels);
    xmllint.start("xmllint", QStringList{"--noout", "--relaxng", SCHEMA} + files);
    if (!xmllint.waitForFinished(100000))
        qFatal("xmllint does not run");
    const QStringList lines = QString::fromUtf8(xmllint.readAll()).split('\n', Qt::SkipEmptyParts);
    QStringList valid;
    for (const QString &line : lines) {
        if (line.endsWith(" validates"))
            valid << line.section(' ', 0, 0);
    }
    return valid;
}

bool IsTaken(const ZebProperty &property, const QString &value)
{
    return ZebCheck::TextProblem(value).isEmpty() && property.rule.check(value).isEmpty() &&
           (property.key != QLatin1String("securityMode") || FindSecurityMode(value));
}

} // namespace

/// Whether docs/store.rng is true.
class TestStoreSchema : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void everySampleIsValid();
    void everyPropertyIsThere();
    void everySettingIsThere();
    void valueIsJudgedAsByTheReader_data();
    void valueIsJudgedAsByTheReader();
    void elementsAreJudged_data();
    void elementsAreJudged();
};

void TestStoreSchema::initTestCase()
{
    QVERIFY(QDir().mkpath(FOLDER));
}

void TestStoreSchema::everySampleIsValid()
{
    const QDir folder(SAMPLES_FOLDER);
    QStringList files;
    for (const QString &file : folder.entryList({"*.xml"}, QDir::Files, QDir::Name))
        files << folder.filePath(file);

    QVERIFY(files.size() > 5);
    QCOMPARE(ValidFiles(files), files);
}

void TestStoreSchema::everyPropertyIsThere()
{
    QMap<QString, QString> expected = {{"host", "host-line"}};
    for (const ZebProperty &property : ZebProperties::All())
        expected.insert(property.key, QString(property.rule.valueClass).replace(' ', '-'));

    QCOMPARE(ElementsOf("network"), expected);
}

void TestStoreSchema::everySettingIsThere()
{
    QMap<QString, QString> expected = {{"bonding_mode", "bonding-mode"}};
    for (const QString &setting : BooleanSettings())
        expected.insert(setting, "boolean");

    QCOMPARE(ElementsOf("settings"), expected);
}

void TestStoreSchema::valueIsJudgedAsByTheReader_data()
{
    QTest::addColumn<QString>("key");
    for (const ZebProperty &property : ZebProperties::All())
        QTest::newRow(property.key) << QString(property.key);
}

void TestStoreSchema::valueIsJudgedAsByTheReader()
{
    QFETCH(QString, key);
    const ZebProperty &property = *ZebProperties::Find(key);
    const QStringList values = VALUES + SecurityModes.keys() + SecurityModes.values();
    const QString other = key == "name" ? QString() : QStringLiteral("<name>lan</name>");
    QStringList files;
    for (const QString &value : values) {
        files << FOLDER + QString::number(files.size());
        TestSupport::WriteFile(files.constLast(), QString("<c><network>%1<%2>%3</%2></network></c>")
                                                      .arg(other, key, value.toHtmlEscaped())
                                                      .toUtf8());
    }

    const QStringList valid = ValidFiles(files);

    for (int i = 0; i < values.size(); ++i)
        QVERIFY2(valid.contains(files.at(i)) == IsTaken(property, values.at(i)), qPrintable(values.at(i)));
}

void TestStoreSchema::elementsAreJudged_data()
{
    QTest::addColumn<QByteArray>("xml");
    QTest::addColumn<bool>("isValid");
    const auto row = [](const char *name, const QByteArray &xml, bool isValid) {
        QTest::newRow(name) << "<c>" + xml + "</c>" << isValid;
    };
    const QByteArray lan = "<network><name>lan</name></network>";
    row("nothing", "", true);
    row("setting between networks", lan + "<UseApScan>true</UseApScan>" + lan, true);
    row("another program's setting", lan + "<wallpaper>blue</wallpaper>", true);
    row("hosts",
        "<network><hosts><host>10.0.0.1\ta b</host><host>10.0.0.2 c</host></hosts><name>lan</name>"
        "</network>",
        true);
    row("name missing", "<network><mtu>1400</mtu></network>", false);
    row("unknown property", "<network><name>lan</name><mask>24</mask></network>", false);
    row("property twice", "<network><name>lan</name><mtu>1400</mtu><mtu>1400</mtu></network>", false);
    row("property with elements", "<network><name>lan</name><mtu><b/></mtu></network>", false);
    row("setting twice", "<UseApScan>true</UseApScan><UseApScan>true</UseApScan>", false);
    row("setting with another value", "<UseApScan>yes</UseApScan>", false);
    row("bonding mode too large", "<bonding_mode>7</bonding_mode>", false);
    row("setting with elements", "<wallpaper><b/></wallpaper>", false);
    row("host on two lines", "<network><name>lan</name><hosts><host>a\nb</host></hosts></network>", false);
    row("not a host", "<network><name>lan</name><hosts><ip>a</ip></hosts></network>", false);
}

void TestStoreSchema::elementsAreJudged()
{
    QFETCH(QByteArray, xml);
    QFETCH(bool, isValid);
    const QString file = FOLDER + "other";
    TestSupport::WriteFile(file, xml);

    QCOMPARE(ValidFiles({file}).contains(file), isValid);
}

QTEST_GUILESS_MAIN(TestStoreSchema)
#include "tst_storeschema.moc"
