// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "debugoutput.h"
#include "testsupport.h"
#include "zebnetconfig.h"
#include "zebxmlconfig.h"

#include <QDir>
#include <QProcess>
#include <QtTest>

#include <sys/stat.h>

namespace {

const QString FOLDER = QStringLiteral("/var/lib/corvi");
const QString KEPT = FOLDER + QStringLiteral("/last-good.xml");

/// What a process that has just begun reads of the store, and what it tells.
struct Reading
{
    QString networks;
    QString told;
};

Reading ReadInANewProcess(const QString &keptPath = KEPT)
{
    QProcess reader;
    reader.start(QStringLiteral(READSTORE), {keptPath});
    if (!reader.waitForFinished() || reader.exitStatus() != QProcess::NormalExit || reader.exitCode() != 0)
        qFatal("cannot read the store");
    return {QString::fromUtf8(reader.readAllStandardOutput()),
            QString::fromUtf8(reader.readAllStandardError())};
}

QByteArray Network(const QByteArray &name, const QByteArray &elements)
{
    return "<network><name>" + name + "</name>" + elements + "</network>";
}

uint ModeOf(const QString &path)
{
    struct stat info = {};
    return ::lstat(qPrintable(path), &info) == 0 ? info.st_mode & 07777 : 0;
}

} // namespace

/// What outlives a process that has read the store.
class TestZebLastGood : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void storeOutlivesTheProcess_data();
    void storeOutlivesTheProcess();
    void keptFileIsForItsOwnerAlone();
    void unchangedStoreIsNotWrittenAgain();
    void storeThatIsPutBackIsKept();
    void badNetworkKeepsItsDefinitionOfTheProcessBefore();
    void removedNetworkIsNotKept();
    void unusableKeptFileIsToldAndReplaced_data();
    void unusableKeptFileIsToldAndReplaced();
    void fileThatCannotBeWrittenIsTold_data();
    void fileThatCannotBeWrittenIsTold();
    void fileThatCannotBeWrittenIsToldOnce();
    void secretsOfTwoProcessesLookDifferent();
};

void TestZebLastGood::init()
{
    TestSupport::Remove(FOLDER);
    TestSupport::RemoveStore();
    TestSupport::WriteNetworks(Network("lan", "<mtu>1400</mtu>"));
}

void TestZebLastGood::storeOutlivesTheProcess_data()
{
    QTest::addColumn<QString>("fault");
    QTest::addColumn<QString>("told");
    QTest::newRow("no store") << ""
                              << "No such file or directory";
    QTest::newRow("cut store") << "<c><network><na"
                               << "Premature end of document.";
}

void TestZebLastGood::storeOutlivesTheProcess()
{
    QFETCH(QString, fault);
    QFETCH(QString, told);
    const Reading before = ReadInANewProcess();
    QVERIFY(before.networks.contains("mtu=1400"));
    QCOMPARE(before.told, QString());

    TestSupport::RemoveStore();
    if (!fault.isEmpty())
        TestSupport::WriteStore(fault.toUtf8());

    for (int start = 0; start < 2; ++start) {
        const Reading after = ReadInANewProcess();
        QCOMPARE(after.networks, before.networks);
        QVERIFY2(after.told.contains(told + "; the last good version is in force, kept in " + KEPT),
                 qPrintable(after.told));
        QCOMPARE(after.told.count('\n'), 1);
    }
}

void TestZebLastGood::keptFileIsForItsOwnerAlone()
{
    ReadInANewProcess();

    QCOMPARE(ModeOf(FOLDER), 0700U);
    QCOMPARE(ModeOf(KEPT), 0600U);
    QCOMPARE(TestSupport::EntryCount(FOLDER), 1);
}

void TestZebLastGood::unchangedStoreIsNotWrittenAgain()
{
    ReadInANewProcess();
    struct stat before = {};
    QCOMPARE(::stat(qPrintable(KEPT), &before), 0);

    ReadInANewProcess();

    struct stat after = {};
    QCOMPARE(::stat(qPrintable(KEPT), &after), 0);
    QCOMPARE(after.st_ino, before.st_ino);
}

/// The process takes up what an earlier one kept; it must not mistake that for what it kept itself since.
void TestZebLastGood::storeThatIsPutBackIsKept()
{
    ReadInANewProcess();
    ZebXmlConfig::KeepLastGood(KEPT);

    for (const char *mtu : {"1400", "1300", "1400"}) {
        TestSupport::WriteNetworks(Network("lan", QByteArray("<mtu>") + mtu + "</mtu>"));
        ZebNetConfig config(nullptr);
        QVERIFY(config.Load("lan", false));
        QVERIFY(TestSupport::ReadFile(KEPT).contains(mtu));
    }
}

void TestZebLastGood::badNetworkKeepsItsDefinitionOfTheProcessBefore()
{
    ReadInANewProcess();
    TestSupport::WriteNetworks(Network("lan", "<mtu>1300</mtu><wepKey>x</wepKey>") + Network("lan2", ""));

    for (int start = 0; start < 2; ++start) {
        const Reading after = ReadInANewProcess();
        QVERIFY(after.networks.contains("name=lan;") && after.networks.contains("mtu=1400"));
        QVERIFY(after.networks.contains("name=lan2;"));
        QVERIFY2(after.told.contains("network \"lan\": wepKey: is not a WEP key"), qPrintable(after.told));
        QVERIFY2(after.told.contains("; the network's last good definition stays in force"),
                 qPrintable(after.told));
    }
}

void TestZebLastGood::removedNetworkIsNotKept()
{
    ReadInANewProcess();
    TestSupport::WriteNetworks(Network("lan2", ""));
    ReadInANewProcess();
    TestSupport::RemoveStore();

    const Reading after = ReadInANewProcess();

    QVERIFY(!after.networks.contains("name=lan;"));
    QVERIFY(after.networks.contains("name=lan2;"));
}

void TestZebLastGood::unusableKeptFileIsToldAndReplaced_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<uint>("mode");
    QTest::addColumn<QString>("told");
    QTest::newRow("cut") << QByteArray("<c><network><na") << 0600U
                         << "line 1, column 15: Premature end of document.";
    QTest::newRow("others may write it")
        << QByteArray("<c/>") << 0666U << KEPT + " may be written by others than its owner";
    QTest::newRow("too large") << QByteArray(8 * 1024 * 1024 + 1, ' ') << 0600U << "is larger than 8 MiB";
}

void TestZebLastGood::unusableKeptFileIsToldAndReplaced()
{
    QFETCH(QByteArray, contents);
    QFETCH(uint, mode);
    QFETCH(QString, told);
    TestSupport::WriteFile(KEPT, contents);
    TestSupport::SetMode(KEPT, mode);

    const Reading reading = ReadInANewProcess();

    QVERIFY2(reading.told.contains(KEPT + ": " + told + "; it is not used\n"), qPrintable(reading.told));
    QCOMPARE(reading.told.count('\n'), 1);
    QCOMPARE(ModeOf(KEPT), 0600U);
    QVERIFY(TestSupport::ReadFile(KEPT).contains("<mtu>1400</mtu>"));
}

void TestZebLastGood::fileThatCannotBeWrittenIsTold_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("told");
    QTest::newRow("no file can be made") << "/sys/kernel/last-good.xml"
                                         << "Permission denied";
    QTest::newRow("no folder above") << "/var/lib/missing/corvi/last-good.xml"
                                     << "No such file or directory";
    QTest::newRow("folder for all") << "/tmp/for-all/last-good.xml"
                                    << "/tmp/for-all may be written by others than its owner";
}

void TestZebLastGood::fileThatCannotBeWrittenIsTold()
{
    QFETCH(QString, path);
    QFETCH(QString, told);
    QVERIFY(QDir().mkpath("/tmp/for-all"));
    TestSupport::SetMode("/tmp/for-all", 0777);

    const Reading reading = ReadInANewProcess(path);

    QVERIFY(reading.networks.contains("mtu=1400"));
    QVERIFY2(reading.told.contains(path + ": " + told + "; what is in force does not outlive a restart"),
             qPrintable(reading.told));
    QCOMPARE(reading.told.count('\n'), 1);
}

void TestZebLastGood::fileThatCannotBeWrittenIsToldOnce()
{
    const DebugOutput warnings("zeb");
    ZebXmlConfig::KeepLastGood("/sys/kernel/last-good.xml");

    for (const char *mtu : {"1300", "1200", "1100"}) {
        TestSupport::WriteNetworks(Network("lan", QByteArray("<mtu>") + mtu + "</mtu>"));
        ZebNetConfig config(nullptr);
        QVERIFY(config.Load("lan", false));
        QCOMPARE(config.mtu, QString(mtu));
    }

    QCOMPARE(warnings.Take(), QStringList{"ZebStore::Section - /sys/kernel/last-good.xml: Permission denied; "
                                          "what is in force does not outlive a restart"});
}

void TestZebLastGood::secretsOfTwoProcessesLookDifferent()
{
    TestSupport::WriteNetworks(Network("lan", "<password>s3cret</password>"));

    const QString first = ReadInANewProcess().networks;
    const QString second = ReadInANewProcess().networks;

    QVERIFY(first.contains("; password="));
    const QRegularExpression digest("; password=[0-9a-f]{64};");
    QVERIFY(digest.match(first).hasMatch() && digest.match(second).hasMatch());
    QVERIFY(digest.match(first).captured() != digest.match(second).captured());
    QCOMPARE(QString(first).remove(digest), QString(second).remove(digest));
}

QTEST_GUILESS_MAIN(TestZebLastGood)
#include "tst_zeblastgood.moc"
