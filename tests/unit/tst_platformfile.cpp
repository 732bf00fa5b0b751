// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "platformfile.h"

#include "logging.h"
#include "testsupport.h"

#include <QtTest>

namespace {

const QString FOLDER = QStringLiteral("/tmp/config/files");

} // namespace

/// Files that root obeys only where nobody else could have put them.
class TestPlatformFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void fileOfThePlatformCounts();
    void missingFileIsAbsent();
    void fileInAFolderForAllIsAbsentAndToldOnce();
};

void TestPlatformFile::init()
{
    Logging::GetInstance(Level::NOTICE, true);
    TestSupport::Remove(FOLDER);
    TestSupport::WriteFile(FOLDER + "/flag", "contents");
}

void TestPlatformFile::fileOfThePlatformCounts()
{
    QVERIFY(PlatformFile::Exists(FOLDER + "/flag"));
    QCOMPARE(PlatformFile::Read(FOLDER + "/flag").value_or("nothing"), QByteArray("contents"));
    QCOMPARE(TestSupport::LogText(), QString());
}

void TestPlatformFile::missingFileIsAbsent()
{
    TestSupport::SetMode(FOLDER, 0777);

    QVERIFY(!PlatformFile::Exists(FOLDER + "/missing"));
    QVERIFY(!PlatformFile::Read(FOLDER + "/missing"));
    QCOMPARE(TestSupport::LogText(), QString());
}

void TestPlatformFile::fileInAFolderForAllIsAbsentAndToldOnce()
{
    const QString told =
        "PlatformFile::Exists - /tmp/config/files/flag is not obeyed: /tmp/config/files may be "
        "written by others than its owner";
    for (int time = 1; time <= 2; ++time) {
        TestSupport::SetMode(FOLDER, 0777);
        for (int look = 0; look < 3; ++look) {
            QVERIFY(!PlatformFile::Exists(FOLDER + "/flag"));
            QVERIFY(!PlatformFile::Read(FOLDER + "/flag"));
        }
        QCOMPARE(TestSupport::LogText().count(told), time);
        QCOMPARE(TestSupport::LogText().count('\n'), time);

        TestSupport::SetMode(FOLDER, 0755);
        QVERIFY(PlatformFile::Exists(FOLDER + "/flag"));
    }
}

QTEST_GUILESS_MAIN(TestPlatformFile)
#include "tst_platformfile.moc"
