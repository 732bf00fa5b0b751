// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "debugoutput.h"
#include "testsupport.h"
#include "zebnetconfig.h"
#include "zebxmlconfig.h"

#include <QDir>
#include <QtTest>

namespace {

const QString SAMPLES = QStringLiteral(SAMPLES_FOLDER);

QStringList SampleFiles()
{
    return QDir(SAMPLES).entryList({"*.xml"}, QDir::Files, QDir::Name);
}

/// All samples one after the other.
QString AllSamples()
{
    QString text;
    for (const QString &file : SampleFiles())
        text += QString::fromUtf8(TestSupport::ReadFile(SAMPLES + file));
    return text;
}

} // namespace

/// The samples that the documentation shows: they are what people start from.
class TestZebSamples : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void loadsWithoutWarning_data();
    void loadsWithoutWarning();
    void everyElementIsTaken_data();
    void everyElementIsTaken();
    void everySecurityModeIsShown_data();
    void everySecurityModeIsShown();
    void everyPropertyIsShown();
};

void TestZebSamples::loadsWithoutWarning_data()
{
    QTest::addColumn<QString>("file");
    for (const QString &file : SampleFiles())
        QTest::newRow(qPrintable(file)) << file;
}

void TestZebSamples::loadsWithoutWarning()
{
    QFETCH(QString, file);
    const DebugOutput warnings("zeb");
    TestSupport::WriteStore(TestSupport::ReadFile(SAMPLES + file));

    const QStringList names = ZebNetConfig::GetNetworkNames();

    QCOMPARE(warnings.Take(), QStringList());
    QVERIFY(!names.isEmpty());
    for (const QString &name : names)
        QVERIFY(ZebNetConfig(nullptr).Load(name, false));
}

void TestZebSamples::everyElementIsTaken_data()
{
    loadsWithoutWarning_data();
}

void TestZebSamples::everyElementIsTaken()
{
    QFETCH(QString, file);
    const QByteArray sample = TestSupport::ReadFile(SAMPLES + file);
    TestSupport::WriteStore(sample);

    QCOMPARE(ZebNetConfig::GetNetworkNames().size(), sample.count("<network>"));
}

void TestZebSamples::everySecurityModeIsShown_data()
{
    QTest::addColumn<QString>("mode");
    for (const char *mode :
         {"WEP", "WEP (Shared)", "WPA Personal 1/2", "WPA Personal 3", "WPA Personal 2/3",
          "WPA Enterprise 1/2 (TLS)", "WPA Enterprise 1/2 (LEAP)", "WPA Enterprise 1/2 (EAP-FAST)",
          "WPA Enterprise 1/2 (PEAP/GTC)", "WPA Enterprise 1/2 (PEAP/MSCHAPv2)", "802.1X (TLS/EAP)",
          "802.1X (TLS/EAP with SCEP)", "802.1X (PEAP/MSCHAPv2)", "WPA Enterprise 1/2 (TLS with SCEP)",
          "Unsecured"})
        QTest::newRow(mode) << QString(mode);
}

void TestZebSamples::everySecurityModeIsShown()
{
    QFETCH(QString, mode);

    QVERIFY(AllSamples().contains("<securityMode>" + mode + "</securityMode>"));
}

void TestZebSamples::everyPropertyIsShown()
{
    // The text form names all properties.
    const QString text = AllSamples();
    const QStringList items = ZebNetConfig(nullptr).toString().split("; ");
    QVERIFY(items.size() > 30);
    for (const QString &item : items) {
        const QString property = item.section('=', 0, 0);
        QVERIFY2(text.contains("<" + property + ">"), qPrintable(property));
    }
}

QTEST_GUILESS_MAIN(TestZebSamples)
#include "tst_zebsamples.moc"
