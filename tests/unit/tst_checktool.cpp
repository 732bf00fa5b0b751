// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "testsupport.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QtTest>

namespace {

const QByteArray GOOD = "<c>\n<network><name>lan</name></network></c>";
const QByteArray BAD = "<c>\n<network><name>lan</name><mtu>9</mtu></network></c>";
const QByteArray UNUSABLE = "<c>\n<network></c>";
const QString FILE_NAME = QStringLiteral("/tmp/store.xml");

struct Result
{
    int exitCode = -1;
    QString output;
    QString error;
};

Result Run(const QStringList &arguments, const QByteArray &input = {})
{
    QProcess tool;
    tool.start(QStringLiteral(CORVI_CHECK), arguments);
    tool.write(input);
    tool.closeWriteChannel();
    if (!tool.waitForFinished(60000) || tool.exitStatus() != QProcess::NormalExit)
        return {};
    return {tool.exitCode(), QString::fromUtf8(tool.readAllStandardOutput()),
            QString::fromUtf8(tool.readAllStandardError())};
}

} // namespace

/// The program corvi-check as it is called: what it reads, what it ends with.
class TestCheckTool : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void statusSaysWhatTheStoreIs_data();
    void statusSaysWhatTheStoreIs();
    void standardInputIsRead_data();
    void standardInputIsRead();
    void storeInForceIsReadWithoutAFile();
    void storeThatIsNotObeyedIsUnusable();
    void unreadableFileIsTold_data();
    void unreadableFileIsTold();
    void tooLargeStoreIsRefused();
    void largestStoreIsRead();
    void inputThatCannotBeReadIsTold();
    void keyThatCannotBeReadIsToldOnce();
    void jsonIsOneLine();
    void helpSaysWhatEachOptionDoes();
    void versionIsShown();
    void wrongCommandLineIsRefused_data();
    void wrongCommandLineIsRefused();
    void fullOutputIsTold();
    void everySamplePasses_data();
    void everySamplePasses();
    void machineStaysAsItIs();
    void documentShowsWhatIsPrinted();
    void documentShowsThePlan();
    void noNameTurnsTheText();
    void interfacesNeedThePlan();
    void statusCountsTheSupplicantsWord();
};

void TestCheckTool::cleanup()
{
    TestSupport::RemoveStore();
    TestSupport::Remove(FILE_NAME);
    TestSupport::ClearAnswers();
}

void TestCheckTool::statusSaysWhatTheStoreIs_data()
{
    QTest::addColumn<QByteArray>("store");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("output");
    QTest::newRow("good") << GOOD << 0 << "";
    QTest::newRow("one bad value") << BAD << 1
                                   << ":2:31: error: network \"lan\", property \"mtu\" (bytes): \"9\" is not "
                                      "a whole number from 68 to 65535; its default is used\n";
    QTest::newRow("not well-formed") << UNUSABLE << 2 << ":2:13: error: Opening and ending tag mismatch.\n";
}

void TestCheckTool::statusSaysWhatTheStoreIs()
{
    QFETCH(QByteArray, store);
    QFETCH(QString, output);
    TestSupport::WriteFile(FILE_NAME, store);

    const Result result = Run({FILE_NAME});

    QTEST(result.exitCode, "exitCode");
    QCOMPARE(result.output, output.isEmpty() ? QString() : FILE_NAME + output);
    QCOMPARE(result.error, QString());
}

void TestCheckTool::standardInputIsRead_data()
{
    statusSaysWhatTheStoreIs_data();
}

void TestCheckTool::standardInputIsRead()
{
    QFETCH(QByteArray, store);
    QFETCH(QString, output);

    const Result result = Run({"-"}, store);

    QTEST(result.exitCode, "exitCode");
    QCOMPARE(result.output, output.isEmpty() ? QString() : "<stdin>" + output);
}

void TestCheckTool::storeInForceIsReadWithoutAFile()
{
    TestSupport::WriteStore(BAD);

    const Result result = Run({});

    QCOMPARE(result.exitCode, 1);
    QVERIFY2(result.output.startsWith(TestSupport::STORE_FILE + ":2:31: error: "), qPrintable(result.output));
}

void TestCheckTool::storeThatIsNotObeyedIsUnusable()
{
    TestSupport::WriteStore(GOOD);
    TestSupport::SetMode(TestSupport::STORE_FILE, 0666);

    const Result result = Run({});

    QCOMPARE(result.exitCode, 2);
    QVERIFY2(result.output.startsWith(TestSupport::STORE_FILE + ": error: is not obeyed: "),
             qPrintable(result.output));
    // By its name it may be on its way to the place where it counts.
    QCOMPARE(Run({TestSupport::STORE_FILE}).exitCode, 0);
}

void TestCheckTool::unreadableFileIsTold_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("reason");
    QTest::newRow("no such file") << "/tmp/none.xml"
                                  << "No such file or directory";
    QTest::newRow("folder") << "/tmp"
                            << "is not a regular file";
    QTest::newRow("device") << "/dev/zero"
                            << "is not a regular file";
}

void TestCheckTool::unreadableFileIsTold()
{
    QFETCH(QString, file);
    QFETCH(QString, reason);

    const Result result = Run({file});

    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.output, file + ": error: " + reason + '\n');
}

void TestCheckTool::tooLargeStoreIsRefused()
{
    const QByteArray store = "<c>" + QByteArray("<a></a>\n").repeated(600 * 1024) + "</c>";
    TestSupport::WriteFile(FILE_NAME, store);

    QCOMPARE(Run({FILE_NAME}).output, FILE_NAME + ": error: is larger than 4 MiB\n");
    QCOMPARE(Run({"-"}, store).output, QString("<stdin>: error: is larger than 4 MiB\n"));
    QCOMPARE(Run({"-"}, store).exitCode, 2);
}

void TestCheckTool::largestStoreIsRead()
{
    const QByteArray page = "<!--" + QByteArray(4089, ' ') + "-->";
    const QByteArray store = "<c>" + page.repeated(1023) + QByteArray(4089, ' ') + "</c>";

    QCOMPARE(Run({"-"}, store).output, QString());
    QCOMPARE(Run({"-"}, store + ' ').output, QString("<stdin>: error: is larger than 4 MiB\n"));
}

void TestCheckTool::inputThatCannotBeReadIsTold()
{
    QProcess tool;
    tool.setStandardInputFile("/tmp");

    tool.start(QStringLiteral(CORVI_CHECK), {"-"});

    QVERIFY(tool.waitForFinished(60000));
    QCOMPARE(tool.exitCode(), 2);
    QCOMPARE(tool.readAllStandardOutput(), QByteArray("<stdin>: error: Is a directory\n"));
}

void TestCheckTool::keyThatCannotBeReadIsToldOnce()
{
    TestSupport::WriteFile("/tmp/store.key", "nonsense");

    const Result result = Run({"-"}, "<c><network><name>lan</name><securityMode>wired_tls</securityMode>"
                                     "<privateKey>/tmp/store.key</privateKey></network></c>");

    QCOMPARE(result.output.count("/tmp/store.key"), 1);
    // Not by the library as well.
    QCOMPARE(result.error, QString());
}

void TestCheckTool::jsonIsOneLine()
{
    const Result result = Run({"--json", "-"}, BAD);

    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.output.count('\n'), 1);
    const QJsonObject object = QJsonDocument::fromJson(result.output.toUtf8()).object();
    QCOMPARE(object.value("file").toString(), QString("<stdin>"));
    QCOMPARE(object.value("usable").toBool(), true);
    QCOMPARE(Run({"--json", "-"}, UNUSABLE).exitCode, 2);
}

void TestCheckTool::helpSaysWhatEachOptionDoes()
{
    const QString help = Run({"--help"}).output.simplified();

    for (const char *text :
         {"Usage: ", " [FILE] ", " Checks a configuration store of the Corvi daemon before it is in force. ",
          " --json Print for a program: one JSON object. ",
          " --plan Show what the daemon would do with each interface. ",
          " --interfaces <NAMES> Plan for these, apart by commas, instead of this machine's. "})
        QVERIFY2((help + ' ').contains(QLatin1String(text)), qPrintable(help));
    QVERIFY(help.endsWith(" FILE The store; - for standard input. Without: the one in force."));
}

void TestCheckTool::versionIsShown()
{
    const Result result = Run({"--version"});

    QCOMPARE(result.exitCode, 0);
    QVERIFY2(QRegularExpression("^corvi-check \\d+\\.\\d+\\.\\d+\n$").match(result.output).hasMatch(),
             qPrintable(result.output));
}

void TestCheckTool::wrongCommandLineIsRefused_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error");
    QTest::newRow("unknown option") << QStringList{"--nothing"} << "corvi-check: Unknown option 'nothing'.\n";
    QTest::newRow("two files") << QStringList{"-", "b"} << "corvi-check: unexpected argument: b\n";
}

void TestCheckTool::wrongCommandLineIsRefused()
{
    QFETCH(QStringList, arguments);

    const Result result = Run(arguments, GOOD);

    QCOMPARE(result.exitCode, 2);
    QTEST(result.error, "error");
}

void TestCheckTool::fullOutputIsTold()
{
    QProcess tool;
    tool.setStandardOutputFile("/dev/full");
    TestSupport::WriteFile(FILE_NAME, BAD);

    tool.start(QStringLiteral(CORVI_CHECK), {FILE_NAME});

    QVERIFY(tool.waitForFinished(60000));
    QCOMPARE(tool.exitCode(), 2);
    QCOMPARE(tool.readAllStandardError(), QByteArray("corvi-check: cannot write: No space left on device\n"));
}

void TestCheckTool::everySamplePasses_data()
{
    QTest::addColumn<QString>("file");
    const QStringList files = QDir(SAMPLES_FOLDER).entryList({"*.xml"}, QDir::Files, QDir::Name);
    QVERIFY(!files.isEmpty());
    for (const QString &file : files)
        QTest::newRow(qPrintable(file)) << SAMPLES_FOLDER + file;
}

void TestCheckTool::everySamplePasses()
{
    QFETCH(QString, file);

    const Result result = Run({file});

    QVERIFY2(result.exitCode == 0, qPrintable(result.output));
    QVERIFY2(!result.output.contains(": error: "), qPrintable(result.output));
}

void TestCheckTool::machineStaysAsItIs()
{
    TestSupport::ClearJournal();
    TestSupport::ClearLog();
    const QStringList before = QDir("/tmp").entryList(QDir::AllEntries | QDir::System);

    for (const QString &file : QDir(SAMPLES_FOLDER).entryList({"*.xml"}))
        QCOMPARE(Run({SAMPLES_FOLDER + file}).error, QString());

    // The supplicant reads a file about an interface that does not exist, and nothing else is run.
    for (const QString &line : TestSupport::Journal())
        QVERIFY2(line.startsWith("wpa_supplicant -Dwired -icorvi-check -c/proc/self/fd/"), qPrintable(line));
    QCOMPARE(TestSupport::LogText(), QString());
    QCOMPARE(QDir("/tmp").entryList(QDir::AllEntries | QDir::System), before);
}

void TestCheckTool::documentShowsWhatIsPrinted()
{
    const QByteArray store = R"(<networkconfig>
  <network>
    <name>lan</name>
    <MTU>1400</MTU>
  </network>
  <network>
    <name>Office</name><ssid>Office</ssid>
    <passphrase>1234567</passphrase><securityMode>WPA Personal 1/2</securityMode>
  </network>
  <network>
    <name>Campus</name><ssid>Campus</ssid>
    <securityMode>WPA Enterprise 1/2 (PEAP/MSCHAPv2)</securityMode>
    <caCert>campus.pem</caCert>
  </network>
</networkconfig>
)";
    const QString document = QString::fromUtf8(TestSupport::ReadFile(README));

    QString output = Run({"-"}, store).output;

    output.replace("<stdin>", "new.xml");
    QVERIFY2(document.contains("$ corvi-check new.xml\n" + output + "```"), qPrintable(output));
}

void TestCheckTool::documentShowsThePlan()
{
    TestSupport::Answer("wpa_supplicant", "exec wpa_supplicant \"$@\"");
    TestSupport::ClearLog();
    const QByteArray store = R"(<networkconfig>
  <network>
    <name>lan</name>
  </network>
  <network>
    <name>wiredeth0</name>
    <securityMode>802.1X (PEAP/MSCHAPv2)</securityMode>
    <identity>terminal-17</identity>
    <password>a good password</password>
    <staticIp>true</staticIp>
    <ipAddress>10.0.0.17</ipAddress>
    <netmask>255.255.255.0</netmask>
    <gateway>10.0.0.1</gateway>
  </network>
  <network>
    <name>Office</name>
    <ssid>Office</ssid>
    <securityMode>WPA Personal 1/2</securityMode>
    <passphrase>correct horse battery staple</passphrase>
  </network>
</networkconfig>
)";
    const QString document = QString::fromUtf8(TestSupport::ReadFile(README));

    const Result result = Run({"--plan", "--interfaces", "eth0,wlan0", "-"}, store);

    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.error, QString());
    const QString command = "$ corvi-check --plan --interfaces eth0,wlan0 plan.xml\n";
    QVERIFY2(document.contains(command + result.output + "```"), qPrintable(result.output));
    QCOMPARE(TestSupport::LogText(), QString());
    QVERIFY(!QFile::exists("/tmp/wpa_supplicant.conf"));
}

void TestCheckTool::noNameTurnsTheText()
{
    // "Right-to-left override": what follows it looks as if it were another text.
    TestSupport::WriteFile(FILE_NAME, "<c><network><name>Of\xe2\x80\xae"
                                      "fice</name><ssid>a\xe2\x80\xae"
                                      "b</ssid>"
                                      "<securityMode>no\xe2\x80\xaene</securityMode></network></c>");

    const Result result = Run({FILE_NAME, "--plan", "--interfaces", "wlan0"});

    QCOMPARE(result.exitCode, 1);
    QVERIFY2(!result.output.contains(QChar(0x202e)), qPrintable(result.output));
    QVERIFY2(result.output.contains(QString("network \"Of%1fice\"").arg(QChar(0xfffd))),
             qPrintable(result.output));
    QVERIFY2(result.output.contains("\nwlan0: wireless\n"), qPrintable(result.output));
}

void TestCheckTool::interfacesNeedThePlan()
{
    const Result result = Run({"--interfaces", "eth0", "-"}, GOOD);

    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.error, QString("corvi-check: --interfaces is for --plan\n"));
}

void TestCheckTool::statusCountsTheSupplicantsWord()
{
    TestSupport::Answer("wpa_supplicant", "echo 'Line 2: no'; exit 255");
    const QByteArray store = "<c><network><name>Office</name><ssid>a</ssid></network></c>";

    const Result plan = Run({"--json", "--plan", "--interfaces", "wlan0", "-"}, store);

    QCOMPARE(plan.exitCode, 1);
    const QJsonArray interfaces = QJsonDocument::fromJson(plan.output.toUtf8()).object()["plan"].toArray();
    QCOMPARE(interfaces.at(0).toObject().value("complaints").toArray(), QJsonArray{"Line 2: no"});
    QCOMPARE(Run({"-"}, store).exitCode, 0);
    QCOMPARE(Run({"--plan", "-"}, UNUSABLE).exitCode, 2);
}

QTEST_GUILESS_MAIN(TestCheckTool)
#include "tst_checktool.moc"
