// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "paths.h"
#include "resourcelimit.h"
#include "supportreport.h"
#include "testsupport.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString FOLDER = QStringLiteral("/tmp/reports");
const QString UNPACKED = QStringLiteral("/tmp/unpacked");
const QString LOG_FILE = QStringLiteral("/var/log/corvi-mon.log");
const QString TRANSCRIPT = QStringLiteral("/tmp/dhclient.log");

/// What the report says under this name; writes it and unpacks it.
QByteArray Entry(const QString &name)
{
    const SupportReport::Outcome outcome = SupportReport::Write(FOLDER);
    TestSupport::Remove(UNPACKED);
    if (!QDir().mkpath(UNPACKED) ||
        QProcess::execute("tar", {"-xzf", outcome.archive, "-C", UNPACKED, "--strip-components=1"}) != 0)
        return "no archive: " + outcome.error.toUtf8();
    return TestSupport::ReadFile(UNPACKED + '/' + name);
}

} // namespace

/// The archive for somebody who helps: where each of its files is from.
class TestSupportReport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void programsAreAsked();
    void answerIsKept_data();
    void answerIsKept();
    void fileIsFromItsPlace_data();
    void fileIsFromItsPlace();
    void storeIsShown_data();
    void storeIsShown();
    void statusIsShown();
    void secretOfTheSupplicantsFileIsMasked();
    void endOfALongLogIsKept_data();
    void endOfALongLogIsKept();
    void fileThatIsNotReadSaysWhy();
    void secondNameMattersWhereEverybodyCanGiveOne();
    void archiveIsNamedByItsTime();
    void archiveIsForItsOwnerAlone();
    void folderThatIsNotThereIsAFailure();
    void archiveThatCannotBePackedIsAFailure_data();
    void archiveThatCannotBePackedIsAFailure();
    void fullDiskIsAFailure_data();
    void fullDiskIsAFailure();
};

void TestSupportReport::initTestCase()
{
    for (const char *program : {"systemctl", "journalctl", "uname", "dpkg-query"})
        TestSupport::AddProgram(program);
}

void TestSupportReport::init()
{
    TestSupport::ClearJournal();
    TestSupport::ClearAnswers();
    for (const QString &path : {FOLDER, LOG_FILE, TRANSCRIPT})
        TestSupport::Remove(path);
    QVERIFY(QDir().mkpath(FOLDER));
}

void TestSupportReport::programsAreAsked()
{
    QCOMPARE(SupportReport::Write(FOLDER).error, QString());

    QCOMPARE(TestSupport::Journal(),
             QStringList({"ip -d -s address show", "ip route show table all",
                          "systemctl --no-pager --full status corvi.service corvi-wait-online.service",
                          "systemctl --no-pager show corvi.service",
                          "journalctl --no-pager --lines=1000 --unit=corvi.service", "uname -a",
                          "dpkg-query -W corvi libzeb3-3 wpasupplicant isc-dhcp-client iproute2",
                          "wpa_supplicant -v", "dhclient --version"}));
}

void TestSupportReport::answerIsKept_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QString>("program");
    QTest::addColumn<QByteArray>("option");
    const auto row = [](const char *entry, const char *program, const char *option) {
        QTest::newRow(entry) << QString(entry) << QString(program) << QByteArray(option);
    };
    row("ip-address.txt", "ip", "address");
    row("ip-route.txt", "ip", "route");
    row("unit.txt", "systemctl", "status");
    row("unit-properties.txt", "systemctl", "show");
    row("journal.txt", "journalctl", "--unit=corvi.service");
    row("kernel.txt", "uname", "-a");
    row("packages.txt", "dpkg-query", "-W");
    row("wpa_supplicant-version.txt", "wpa_supplicant", "-v");
    row("dhclient-version.txt", "dhclient", "--version");
}

void TestSupportReport::answerIsKept()
{
    QFETCH(QString, entry);
    QFETCH(QString, program);
    QFETCH(QByteArray, option);
    TestSupport::Answer(program, "for option; do [ \"$option\" != \"" + option +
                                     "\" ] || echo Linux; done; echo told >&2");

    QCOMPARE(Entry(entry), QByteArray("Linux\ntold\n"));
}

void TestSupportReport::fileIsFromItsPlace_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QString>("path");
    const auto row = [](const char *entry, const char *path) {
        QTest::newRow(entry) << QString(entry) << QString(path);
    };
    row("corvi-mon.log", "/var/log/corvi-mon.log");
    row("wpa_supplicant.log", "/var/log/wpa_supplicant.log");
    row("dhclient.log", "/tmp/dhclient.log");
    row("dhclient.leases", "/var/lib/dhcp/dhclient.leases");
    row("resolv.conf", "/etc/resolv.conf");
    row("state.json", "/run/corvi/state.json");
    row("os-release", "/etc/os-release");
    row("dhclient.conf", "/etc/dhcp/dhclient.conf");
}

void TestSupportReport::fileIsFromItsPlace()
{
    QFETCH(QString, entry);
    QFETCH(QString, path);
    TestSupport::Remove(path);
    TestSupport::WriteFile(path, "of this file\n");

    QCOMPARE(Entry(entry), QByteArray("of this file\n"));
}

void TestSupportReport::storeIsShown_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QString>("path");
    QTest::newRow("in force") << "networkconfig.xml" << XML_FULL_NETWORK_PATH;
    QTest::newRow("last good") << "last-good.xml" << LAST_GOOD_STORE;
}

void TestSupportReport::storeIsShown()
{
    QFETCH(QString, entry);
    QFETCH(QString, path);
    TestSupport::WriteFile(path, "<networkconfig><network><name>lan</name></network></networkconfig>");
    const auto removal = qScopeGuard([path] { TestSupport::Remove(path); });

    const QByteArray text = Entry(entry);

    QVERIFY2(text.contains("<name>lan</name>"), text.constData());
}

void TestSupportReport::statusIsShown()
{
    const QByteArray text = Entry("status.txt");
    const QByteArray json = TestSupport::ReadFile(UNPACKED + "/status.json");

    // Without colours: it is read anywhere.
    QVERIFY2(text.startsWith("Corvi does not run."), text.constData());
    QVERIFY2(QJsonDocument::fromJson(json).object().contains("daemonWell"), json.constData());
}

void TestSupportReport::secretOfTheSupplicantsFileIsMasked()
{
    TestSupport::WriteFile("/tmp/wpa_supplicant.conf", "network={\n\tpsk=\"open-sesame\"\n}\n");
    TestSupport::WriteFile(LOG_FILE, "key open-sesame\n");

    QCOMPARE(Entry("wpa_supplicant.conf"), QByteArray("network={\n\tpsk=********\n}\n"));
    QCOMPARE(TestSupport::ReadFile(UNPACKED + "/corvi-mon.log"), QByteArray("key ********\n"));
}

void TestSupportReport::endOfALongLogIsKept_data()
{
    QTest::addColumn<int>("before");
    QTest::addColumn<int>("kept");
    // Lines of 16 bytes: what is kept begins with a whole one.
    QTest::newRow("as long as is kept") << 0 << 512 * 1024;
    QTest::newRow("a byte more") << 1 << 512 * 1024 - 16;
    QTest::newRow("a line more") << 16 << 512 * 1024 - 16;
}

void TestSupportReport::endOfALongLogIsKept()
{
    QFETCH(int, before);
    QFETCH(int, kept);
    const QByteArray lines = QByteArray("fifteen letters\n").repeated(512 * 1024 / 16);
    TestSupport::WriteFile(LOG_FILE, QByteArray(before, 'x') + lines);

    const QByteArray entry = Entry("corvi-mon.log");

    QCOMPARE(int(entry.size()), kept);
    QVERIFY(entry.startsWith("fifteen letters\n"));
}

void TestSupportReport::fileThatIsNotReadSaysWhy()
{
    QCOMPARE(Entry("corvi-mon.log"), QByteArray("cannot be read: No such file or directory\n"));

    QCOMPARE(::mkfifo(QFile::encodeName(TRANSCRIPT).constData(), 0600), 0);
    QCOMPARE(Entry("dhclient.log"), QByteArray("is not a regular file\n"));

    TestSupport::Remove(TRANSCRIPT);
    QVERIFY(QFile::link("/etc/passwd", TRANSCRIPT));
    QCOMPARE(Entry("dhclient.log"), "cannot be read: " + QByteArray(std::strerror(ELOOP)) + '\n');
}

void TestSupportReport::secondNameMattersWhereEverybodyCanGiveOne()
{
    for (const QString &path : {TRANSCRIPT, LOG_FILE}) {
        TestSupport::WriteFile(path, "text\n");
        const QString second = path + ".second";
        TestSupport::Remove(second);
        QCOMPARE(::link(QFile::encodeName(path).constData(), QFile::encodeName(second).constData()), 0);
    }

    QCOMPARE(Entry("dhclient.log"), QByteArray("has a second name\n"));
    QCOMPARE(TestSupport::ReadFile(UNPACKED + "/corvi-mon.log"), QByteArray("text\n"));
}

void TestSupportReport::archiveIsNamedByItsTime()
{
    const SupportReport::Outcome outcome = SupportReport::Write(FOLDER);

    // To the day: the clock may be set meanwhile, as at the end of summer time.
    const QDateTime time = QDateTime::fromString(QFileInfo(outcome.archive).fileName(),
                                                 "'corvi-report-'yyyyMMdd-HHmmss'.tar.gz'");
    QVERIFY2(time.isValid(), qPrintable(outcome.archive));
    QVERIFY2(qAbs(time.daysTo(QDateTime::currentDateTime())) <= 1, qPrintable(outcome.archive));
    QCOMPARE(QFileInfo(outcome.archive).absolutePath(), FOLDER);
    QCOMPARE(TestSupport::EntryCount(FOLDER), 1);
}

void TestSupportReport::archiveIsForItsOwnerAlone()
{
    const mode_t before = ::umask(0);
    Entry("kernel.txt");
    ::umask(before);

    struct stat info = {};
    const QString archive = QDir(FOLDER).entryInfoList({"*.tar.gz"}).value(0).filePath();
    QCOMPARE(::stat(QFile::encodeName(archive).constData(), &info), 0);
    QCOMPARE(info.st_mode, mode_t(S_IFREG | 0600));
    QCOMPARE(::stat(QFile::encodeName(UNPACKED + "/kernel.txt").constData(), &info), 0);
    QCOMPARE(info.st_mode, mode_t(S_IFREG | 0600));
}

void TestSupportReport::folderThatIsNotThereIsAFailure()
{
    const SupportReport::Outcome outcome = SupportReport::Write("/tmp/no-such-folder");

    QCOMPARE(outcome.archive, QString());
    QCOMPARE(outcome.error, "/tmp/no-such-folder: " + QString::fromLocal8Bit(std::strerror(ENOENT)));
}

void TestSupportReport::archiveThatCannotBePackedIsAFailure_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::newRow("nothing is packed") << QByteArray("exit 1");
    QTest::newRow("a part is packed") << QByteArray("echo part >\"$2\"; exit 1");
    QTest::newRow("no file is left") << QByteArray("exit 0");
}

void TestSupportReport::archiveThatCannotBePackedIsAFailure()
{
    QFETCH(QByteArray, answer);
    TestSupport::AddProgram("tar");
    const auto removal = qScopeGuard([] { TestSupport::Remove("/tmp/standins/bin/tar"); });
    TestSupport::Answer("tar", answer);

    const SupportReport::Outcome outcome = SupportReport::Write(FOLDER);

    QCOMPARE(outcome.archive, QString());
    QCOMPARE(outcome.error, "the archive cannot be made");
    QCOMPARE(TestSupport::Journal().last().section(' ', 0, 1), "tar -czf");
    QCOMPARE(TestSupport::EntryCount(FOLDER), 0);
}

void TestSupportReport::fullDiskIsAFailure_data()
{
    QTest::addColumn<int>("limit");
    QTest::newRow("from the first file on") << 10;
    QTest::newRow("from the status on") << 200;
    QTest::newRow("from a long log on") << 20000;
    QTest::newRow("from a long answer on") << 60000;
}

void TestSupportReport::fullDiskIsAFailure()
{
    QFETCH(int, limit);
    TestSupport::Remove("/etc/dhcp/dhclient.conf");
    TestSupport::WriteFile(LOG_FILE, QByteArray(500, 'x').append('\n').repeated(100));
    TestSupport::Answer("uname", "head -c 100000 /dev/zero | tr '\\0' x");
    const ResourceLimit fullDisk(RLIMIT_FSIZE, static_cast<rlim_t>(limit));

    const SupportReport::Outcome outcome = SupportReport::Write(FOLDER);

    QCOMPARE(outcome.archive, QString());
    QCOMPARE(outcome.error, QString::fromLocal8Bit(std::strerror(EFBIG)));
    QCOMPARE(TestSupport::EntryCount(FOLDER), 0);
}

QTEST_GUILESS_MAIN(TestSupportReport)
#include "tst_supportreport.moc"
