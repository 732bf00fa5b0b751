// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "testsupport.h"
#include "zebcert.h"

#include <QtTest>

/// Where certificates are looked for, and in which order.
class TestZebCert : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void findsTheFile_data();
    void findsTheFile();
    void firstFolderWins();
    void missingFileGetsTheFirstFolder();
    void folderIsNoCertificate();
    void absolutePathStays();
    void emptyNameGivesNoPath();
};

void TestZebCert::init()
{
    for (const char *folder : {"/etc/ssl/certs/", "/etc/ssl/private/", "/tmp/config/files/certificates/"})
        TestSupport::Remove(QLatin1String(folder) + "office.pem");
}

void TestZebCert::findsTheFile_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("certificates of the system") << "/etc/ssl/certs/office.pem";
    QTest::newRow("keys of the system") << "/etc/ssl/private/office.pem";
    QTest::newRow("the device's own") << "/tmp/config/files/certificates/office.pem";
}

void TestZebCert::findsTheFile()
{
    QFETCH(QString, path);
    TestSupport::WriteFile(path, "certificate");

    QCOMPARE(ZebCert::GetFullPath("office.pem"), path);
}

void TestZebCert::firstFolderWins()
{
    TestSupport::WriteFile("/tmp/config/files/certificates/office.pem", "certificate");
    TestSupport::WriteFile("/etc/ssl/private/office.pem", "certificate");
    QCOMPARE(ZebCert::GetFullPath("office.pem"), "/etc/ssl/private/office.pem");

    TestSupport::WriteFile("/etc/ssl/certs/office.pem", "certificate");
    QCOMPARE(ZebCert::GetFullPath("office.pem"), "/etc/ssl/certs/office.pem");
}

void TestZebCert::missingFileGetsTheFirstFolder()
{
    QCOMPARE(ZebCert::GetFullPath("office.pem"), "/etc/ssl/certs/office.pem");
}

void TestZebCert::folderIsNoCertificate()
{
    TestSupport::WriteFile("/etc/ssl/certs/office.pem/inside", "certificate");
    TestSupport::WriteFile("/etc/ssl/private/office.pem", "certificate");

    QCOMPARE(ZebCert::GetFullPath("office.pem"), "/etc/ssl/private/office.pem");
}

void TestZebCert::absolutePathStays()
{
    QCOMPARE(ZebCert::GetFullPath("/opt/office.pem"), "/opt/office.pem");
}

void TestZebCert::emptyNameGivesNoPath()
{
    QCOMPARE(ZebCert::GetFullPath(QString()), QString());
}

QTEST_GUILESS_MAIN(TestZebCert)
#include "tst_zebcert.moc"
