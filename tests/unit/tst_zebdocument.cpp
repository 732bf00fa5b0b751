// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "parsedsection.h"

#include <QtTest>

Q_DECLARE_METATYPE(ZebConsequence)

namespace {

const QByteArray WIRED = "<name>lan</name>";

} // namespace

/// How a section of the store is read and written, and what is said of its places.
class TestZebDocument : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void malformedTextIsRefused_data();
    void malformedTextIsRefused();
    void malformedTextIsNotQuoted_data();
    void malformedTextIsNotQuoted();
    void longDocumentIsTaken();
    void rootMayHaveAnyName();
    void fewOddElementsAreLeftOut_data();
    void fewOddElementsAreLeftOut();
    void badHostIsLeftOut();
    void badSettingIsLeftOut();
    void otherNetworksStay();
    void textOf16KiBIsTheLongest_data();
    void textOf16KiBIsTheLongest();
    void problemKnowsItsPlace_data();
    void problemKnowsItsPlace();
    void veryLongNameIsCut_data();
    void veryLongNameIsCut();
    void leftOutNetworkKeepsItsLastGoodDefinition();
    void goodNetworkIsNotReplacedByItsEarlierDefinition_data();
    void goodNetworkIsNotReplacedByItsEarlierDefinition();
    void writtenSectionReadsTheSame();
    void writtenSectionHasALineForEachElement();
};

void TestZebDocument::malformedTextIsRefused_data()
{
    QTest::addColumn<QByteArray>("xml");
    QTest::addColumn<QString>("reason");
    QTest::newRow("empty") << QByteArray() << "line 1, column 1: Premature end";
    QTest::newRow("not XML") << QByteArray("lan = dhcp\n") << "line 1, column 1: Start tag expected";
    QTest::newRow("cut in a tag") << QByteArray("<c>\n<network><na") << "line 2, column 12: Premature end";
    QTest::newRow("cut after a network")
        << QByteArray("<c>\n<network></network>\n") << "line 3, column 1: Premature end";
    QTest::newRow("tags crossed") << QByteArray("<c><a><b></a></b></c>")
                                  << "line 1, column 13: Opening and ending tag";
    QTest::newRow("second root") << QByteArray("<c></c>\n<d></d>") << "line 2, column 3: Extra content";
    QTest::newRow("text after the root") << QByteArray("<c></c>x") << "line 1, column 8: Extra content";
    QTest::newRow("not UTF-8") << QByteArray("<c><a>\xff\xfe</a></c>")
                               << "line 1, column 7: Encountered incorrectly encoded";
    QTest::newRow("Latin-1 behind much else")
        << "<c>\n" + QByteArray("<a>\xc3\xbc</a>\n").repeated(3000) + "<a>K\xc3\xbc\xfc</a>\n</c>"
        << "line 3002, column 6: Encountered incorrectly encoded";
    QTest::newRow("less than, unescaped") << QByteArray("<c><a>b<c<d</a></c>") << "but got '<'";
    QTest::newRow("quote for a name") << QByteArray("<c><'/></c>") << "line 1, column 5: Unexpected '...'.";
    QTest::newRow("ampersand in a tag") << QByteArray("<c></c&>") << "Expected '>', but got '&'.";
    QTest::newRow("blank left out") << QByteArray("<c a='1'b='2'/>") << "Expected '>' or '/', but got '...'.";
    QTest::newRow("binary zeros") << QByteArray(100, '\0') << "line 1";
    QTest::newRow("unknown entity") << QByteArray("<c><a>&secret;</a></c>") << "Entity '...' not declared";
    QTest::newRow("control character") << QByteArray("<c><a>&#1;</a></c>") << "line 1, column";
    QTest::newRow("entity bomb")
        << QByteArray(
               "<!DOCTYPE c [<!ENTITY a \"xxxxxxxxxx\"><!ENTITY b \"&a;&a;&a;&a;\">]><c><a>&b;</a></c>")
        << "document type definition is not accepted";
    QTest::newRow("external entity")
        << QByteArray("<!DOCTYPE c [<!ENTITY a SYSTEM \"file:///etc/passwd\">]><c><a>&a;</a></c>")
        << "document type definition is not accepted";
    QTest::newRow("tag with very many attributes") << "<c" + QByteArray(" a=''").repeated(4000) + "/>"
                                                   << "a tag or a text is longer than 16 KiB";
    QTest::newRow("tag with ends of tags in its attributes")
        << "<c" + QByteArray(" a='>'").repeated(4000) + "/>"
        << "a tag or a text is longer than 16 KiB";
    QTest::newRow("very long text") << "<c><a>" + QByteArray(17000, 'x') + "</a></c>"
                                    << "a tag or a text is longer than 16 KiB";
    QTest::newRow("nothing but text") << QByteArray(17000, 'x') << "a tag or a text is longer than 16 KiB";
    QTest::newRow("plain document type")
        << QByteArray("<!DOCTYPE c>\n<c></c>") << "document type definition is not accepted";
}

void TestZebDocument::malformedTextIsRefused()
{
    QFETCH(QByteArray, xml);
    QFETCH(QString, reason);

    const ParsedSection result(xml);

    QVERIFY(!result.isWellFormed);
    QCOMPARE(result.problems.constLast().consequence, ZebConsequence::DocumentRefused);
    const QString text = result.problems.constLast().Text();
    QVERIFY2(text.contains(reason), qPrintable(text));
}

void TestZebDocument::malformedTextIsNotQuoted_data()
{
    QTest::addColumn<QByteArray>("password");
    QTest::newRow("ampersand") << QByteArray("Tom&secret;7");
    QTest::newRow("ampersand without an end") << QByteArray("Tom&secret");
    QTest::newRow("less than") << QByteArray("Tom<secret>");
    QTest::newRow("attribute twice") << QByteArray("a<b secret='' secret=''/>");
    QTest::newRow("prefix") << QByteArray("a<secret:b/>");
    QTest::newRow("prefix of an attribute") << QByteArray("a<b secret:c=''/>");
    QTest::newRow("processing instruction") << QByteArray("a<?xml secret?>");
    QTest::newRow("end of another tag") << QByteArray("a</secret>");
}

void TestZebDocument::malformedTextIsNotQuoted()
{
    QFETCH(QByteArray, password);

    const ParsedSection result("<c><network><password>" + password + "</password></network></c>");

    QVERIFY(!result.isWellFormed);
    const QString texts = result.Texts().join('\n');
    QVERIFY2(!texts.contains("secret"), qPrintable(texts));
}

void TestZebDocument::longDocumentIsTaken()
{
    const ParsedSection result("<c><!--" + QByteArray(15000, ' ') + "-->" +
                               QByteArray("<a>1</a>\n").repeated(100000) + "</c>");

    QVERIFY2(result.isWellFormed, qPrintable(result.Texts().join('\n')));
    QCOMPARE(result.document.settings.value("a"), "1");
}

void TestZebDocument::rootMayHaveAnyName()
{
    const ParsedSection result("<?xml version=\"1.0\"?><!-- note --><anything version='1'>"
                               "<useNewDriver>true</useNewDriver></anything>");

    QVERIFY(result.isWellFormed);
    QCOMPARE(result.Texts(), QStringList());
    QCOMPARE(result.document.settings.value("useNewDriver"), "true");
}

void TestZebDocument::fewOddElementsAreLeftOut_data()
{
    QTest::addColumn<QByteArray>("xml");
    QTest::addColumn<QString>("problem");
    const QByteArray good = "<network><name>lan</name><mtu>1400</mtu></network>";
    QTest::newRow("network without a name") << good + "\n<network><mtu>1300</mtu></network>"
                                            << "name: is missing; the network is left out";
    QTest::newRow("name with a line end")
        << good + "<network><name>a\nb</name></network>"
        << "name: holds a control character or a line end; the network is left out";
    QTest::newRow("name taken")
        << good + "<network><name>lan</name><mtu>1300</mtu></network>"
        << "network \"lan\": name: is taken by an earlier network; the network is left out";
    QTest::newRow("setting twice") << good + "<a>1</a><a>2</a>"
                                   << "a: stands there again; the first one holds";
    QTest::newRow("setting with elements") << good + "<b><c>2</c></b><a>1</a>"
                                           << "b: has elements inside; not used";
    QTest::newRow("property twice")
        << QByteArray("<network><name>lan</name><mtu>1400</mtu><mtu>1300</mtu></network>")
        << "network \"lan\": mtu: stands there again; the first one holds";
    QTest::newRow("property with elements")
        << QByteArray("<network><name>lan</name><dns1><ip>1.1.1.1</ip></dns1><mtu>1400</mtu></network>")
        << "network \"lan\": dns1: has elements inside; not used";
    QTest::newRow("unknown property")
        << QByteArray("<network><name>lan</name><MTU>9</MTU><mtu>1400</mtu></network>")
        << "network \"lan\": MTU: no such property; not used";
    QTest::newRow("not a host")
        << QByteArray("<network><name>lan</name><hosts><ip>1</ip></hosts><mtu>1400</mtu></network>")
        << "network \"lan\": hosts: an element that is not a host; not used";
}

void TestZebDocument::fewOddElementsAreLeftOut()
{
    QFETCH(QByteArray, xml);
    QFETCH(QString, problem);

    const ParsedSection result("<c>" + xml + "</c>");

    QVERIFY2(result.isWellFormed, qPrintable(result.Texts().join('\n')));
    QCOMPARE(result.Texts(), QStringList{problem});
    QCOMPARE(result.document.networkNames, QStringList{"lan"});
    QCOMPARE(result.document.networks.value("lan").properties.value("mtu"), "1400");
}

void TestZebDocument::badHostIsLeftOut()
{
    const ParsedSection result =
        ParsedNetwork(WIRED + "<hosts><host>10.0.0.3\ta</host><host>10.0.0.4 b\n0.0.0.0 c</host>"
                              "<host></host><host>10.0.0.5 d</host></hosts>");

    QCOMPARE(result.document.networks.value("lan").hosts, (QStringList{"10.0.0.3\ta", "10.0.0.5 d"}));
    QCOMPARE(result.Texts(),
             QStringList{"network \"lan\": hosts: holds a control character or a line end; not used"});
}

void TestZebDocument::badSettingIsLeftOut()
{
    const ParsedSection result("<c><bonding_mode>1\n2</bonding_mode><useNewDriver>true</useNewDriver></c>");

    QCOMPARE(result.document.settings.keys(), QStringList{"useNewDriver"});
    QCOMPARE(result.Texts(), QStringList{"bonding_mode: holds a control character or a line end; not used"});
}

void TestZebDocument::otherNetworksStay()
{
    const ParsedSection result("<c><network><name>lan1</name></network><network><name>lan2</name>"
                               "<ssid>a\nb</ssid></network><network><name>lan3</name></network></c>");

    QCOMPARE(result.document.networkNames, (QStringList{"lan1", "lan3"}));
}

void TestZebDocument::textOf16KiBIsTheLongest_data()
{
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<QByteArray>("after");
    QTest::newRow("between tags") << QByteArray("<c><a>") << QByteArray("</a></c>");
    QTest::newRow("in a tag") << QByteArray("<c a='") << QByteArray("'></c>");
    QTest::newRow("at the end") << QByteArray("<c></c><!--") << QByteArray("-->");
}

void TestZebDocument::textOf16KiBIsTheLongest()
{
    QFETCH(QByteArray, before);
    QFETCH(QByteArray, after);
    // All that stands between the starts of two tags counts.
    const int around = static_cast<int>(before.size() - before.lastIndexOf('<') - 1) +
                       static_cast<int>(after.contains('<') ? after.indexOf('<') : 0);
    const int atTheEnd = after.contains('<') ? 0 : static_cast<int>(after.size());
    const QByteArray longest(16 * 1024 - around - atTheEnd, 'x');

    QVERIFY(ParsedSection(before + longest + after).isWellFormed);

    QVERIFY(!ParsedSection(before + longest + "x" + after).isWellFormed);
}

void TestZebDocument::problemKnowsItsPlace_data()
{
    QTest::addColumn<QByteArray>("xml");
    QTest::addColumn<int>("line");
    QTest::addColumn<int>("column");
    QTest::addColumn<QString>("network");
    QTest::addColumn<QString>("property");
    QTest::addColumn<ZebConsequence>("consequence");
    const auto row = [](const char *name, const QByteArray &xml, int line, int column, const char *network,
                        const char *property, ZebConsequence consequence) {
        QTest::newRow(name) << xml << line << column << QString(network) << QString(property) << consequence;
    };
    const QByteArray lan = "<c>\n <network>\n  <name>lan</name>\n";
    const QByteArray end = "\n </network>\n</c>";
    row("bad value", lan + "  <mtu>\xc3\xa9</mtu>" + end, 4, 8, "lan", "mtu", ZebConsequence::DefaultUsed);
    row("behind other elements", lan + "\xc3\xa9<dns1/><mtu>9</mtu>" + end, 4, 14, "lan", "mtu",
        ZebConsequence::DefaultUsed);
    row("value that leaves the network out", lan + "  <wepKey>x</wepKey>" + end, 4, 11, "lan", "wepKey",
        ZebConsequence::NetworkLeftOut);
    row("the same again", lan + "  <mtu>1400</mtu><mtu>1300</mtu>" + end, 4, 23, "lan", "mtu",
        ZebConsequence::FirstHolds);
    row("unknown property", lan + "  <MTU a='1'>9</MTU>" + end, 4, 14, "lan", "MTU", ZebConsequence::NotUsed);
    row("elements inside", lan + "<mtu>\n<b/></mtu>" + end, 4, 6, "lan", "mtu", ZebConsequence::NotUsed);
    row("bad host", lan + "<hosts>\n <host>10.0.0.1 a</host>\n <host>a\nb</host></hosts>" + end, 6, 8, "lan",
        "hosts", ZebConsequence::NotUsed);
    row("unknown mode", lan + "  <securityMode>x</securityMode>" + end, 4, 17, "lan", "securityMode",
        ZebConsequence::NoSupplicantBlock);
    row("missing property", "<c>\n <network><name>Office</name></network></c>", 2, 11, "Office", "ssid",
        ZebConsequence::NetworkLeftOut);
    row("missing name", "<c>\n <network><mtu>1400</mtu></network></c>", 2, 11, "", "name",
        ZebConsequence::NetworkLeftOut);
    row("bad name", "<c>\n <network>\n<name>a\nb</name></network></c>", 3, 7, "", "name",
        ZebConsequence::NetworkLeftOut);
    row("name taken", "<c><network><name>lan</name></network>\n<network><name>lan</name></network></c>", 2,
        16, "lan", "name", ZebConsequence::NetworkLeftOut);
    row("bad setting", "<c>\n<a>x\ny</a></c>", 2, 4, "", "a", ZebConsequence::NotUsed);
    row("not well-formed", "<c>\n<a></b></c>", 2, 7, "", "", ZebConsequence::DocumentRefused);
    row("long text", "<c>\n\xc3\xa9<a>" + QByteArray(17000, 'x') + "</a></c>", 2, 3, "", "",
        ZebConsequence::DocumentRefused);
}

void TestZebDocument::problemKnowsItsPlace()
{
    QFETCH(QByteArray, xml);
    QFETCH(int, line);
    QFETCH(int, column);

    const ParsedSection section(xml);

    QCOMPARE(section.problems.size(), 1);
    const ZebProblem &problem = section.problems.constFirst();
    QCOMPARE(int(problem.place.line), line);
    QCOMPARE(int(problem.place.column), column);
    QTEST(problem.network, "network");
    QTEST(problem.property, "property");
    QTEST(problem.consequence, "consequence");
    QVERIFY(problem.Text().startsWith(QString("line %1, column %2: ").arg(line).arg(column)));
}

void TestZebDocument::veryLongNameIsCut_data()
{
    QTest::addColumn<QByteArray>("xml");
    const auto inNetwork = [](const QByteArray &xml) {
        return QByteArray("<network><name>lan</name>" + xml + "</network>");
    };
    QTest::newRow("unknown property") << inNetwork("<NAME>1</NAME>");
    QTest::newRow("property with elements") << inNetwork("<NAME><b/></NAME>");
    QTest::newRow("setting twice") << QByteArray("<NAME>1</NAME><NAME>1</NAME>");
    QTest::newRow("bad setting") << QByteArray("<NAME>a\nb</NAME>");
}

void TestZebDocument::veryLongNameIsCut()
{
    QFETCH(QByteArray, xml);

    const ParsedSection section("<c>" + xml.replace("NAME", QByteArray(65, 'n')) + "</c>");

    QCOMPARE(section.problems.size(), 1);
    QCOMPARE(section.problems.constFirst().property, QString(64, 'n'));
}

void TestZebDocument::leftOutNetworkKeepsItsLastGoodDefinition()
{
    const ZebDocument earlier = ParsedSection("<c><network><name>lan</name><mtu>1400</mtu></network>"
                                              "<network><name>lan2</name></network></c>")
                                    .document;
    ParsedSection edited("<c><network><name>lan</name><wepKey>x</wepKey><caCert>..</caCert></network>"
                         "<network><name>lan3</name><wepKey>x</wepKey></network></c>");

    edited.document.KeepLastGood(earlier, edited.problems);

    QCOMPARE(edited.document.networkNames, QStringList{"lan"});
    QCOMPARE(edited.document.networks.size(), 1);
    QCOMPARE(edited.document.networks.value("lan").properties, earlier.networks.value("lan").properties);
    const QRegularExpression kept("; the network's last good definition stays in force$");
    QCOMPARE(edited.Texts().filter(kept).size(), 2);
    QCOMPARE(edited.Texts().filter("the network is left out"),
             edited.Texts().filter("network \"lan3\": wepKey: is not a WEP key"));
}

void TestZebDocument::goodNetworkIsNotReplacedByItsEarlierDefinition_data()
{
    QTest::addColumn<QByteArray>("networks");
    const QByteArray bad = "<network><name>lan</name><wepKey>x</wepKey></network>";
    const QByteArray good = "<network><name>lan</name><mtu>1300</mtu></network>";
    QTest::newRow("bad definition before it") << bad + good;
    QTest::newRow("bad definition behind it") << good + bad;
}

void TestZebDocument::goodNetworkIsNotReplacedByItsEarlierDefinition()
{
    QFETCH(QByteArray, networks);
    const ZebDocument earlier =
        ParsedSection("<c><network><name>lan</name><mtu>1400</mtu></network></c>").document;
    ParsedSection edited("<c>" + networks + "</c>");

    edited.document.KeepLastGood(earlier, edited.problems);

    QCOMPARE(edited.document.networkNames, QStringList{"lan"});
    QCOMPARE(edited.document.networks.value("lan").properties.value("mtu"), QString("1300"));
    QVERIFY(edited.Texts().filter("last good").isEmpty());
}

void TestZebDocument::writtenSectionReadsTheSame()
{
    const ZebDocument section =
        ParsedSection("<c><a> &lt;&amp;\"'&gt; \xc3\xa9\xf0\x9f\x98\x80 </a><b>true</b>"
                      "<network><name>lan</name><mtu>1400</mtu>"
                      "<hosts><host>10.0.0.1\ta</host><host> b </host></hosts></network>"
                      "<network><name> Office </name><ssid>  </ssid></network></c>")
            .document;
    QCOMPARE(section.networks.size(), 2);

    const ParsedSection read(section.ToXml());

    QCOMPARE(read.Texts(), QStringList());
    QCOMPARE(read.document.settings, section.settings);
    QCOMPARE(read.document.networkNames, section.networkNames);
    for (const QString &name : section.networkNames) {
        QCOMPARE(read.document.networks.value(name).properties, section.networks.value(name).properties);
        QCOMPARE(read.document.networks.value(name).hosts, section.networks.value(name).hosts);
    }
}

void TestZebDocument::writtenSectionHasALineForEachElement()
{
    const QByteArray xml = ParsedNetwork(WIRED + "<mtu>1400</mtu>").document.ToXml();

    QCOMPARE(xml.trimmed().split('\n').size(), 7);
}

QTEST_GUILESS_MAIN(TestZebDocument)
#include "tst_zebdocument.moc"
