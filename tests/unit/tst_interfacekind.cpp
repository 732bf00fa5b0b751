// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "interfacekind.h"

#include "testsupport.h"

#include <QElapsedTimer>
#include <QtTest>

/// The question to `iw` whether it knows an interface. The program's name ends with a blank.
class TestInterfaceKind : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void answerHasSeveralLines_data();
    void answerHasSeveralLines();
    void toolIsAskedByItsNameWithTheBlank();
    void toolWithoutTheBlankIsNotAsked();
    void toolHasNoInputAndItsErrorsGoNowhere();
    void toolThatHangsMeansNo();
};

void TestInterfaceKind::init()
{
    TestSupport::RestorePrograms();
    TestSupport::ClearJournal();
    TestSupport::ClearAnswers();
    TestSupport::AddProgram("iw ");
}

void TestInterfaceKind::answerHasSeveralLines_data()
{
    QTest::addColumn<QByteArray>("script");
    QTest::addColumn<bool>("wireless");

    QTest::newRow("known") << QByteArray("printf 'Interface wlan0\\n\\tifindex 3\\n'") << true;
    QTest::newRow("one line") << QByteArray("printf 'Interface wlan0\\n'") << true;
    QTest::newRow("no line feed") << QByteArray("printf 'Interface wlan0'") << false;
    QTest::newRow("nothing") << QByteArray("exit 0") << false;
    QTest::newRow("error only") << QByteArray("printf 'no such\\ndevice\\n' >&2; exit 237") << false;
    QTest::newRow("lines and an error status") << QByteArray("printf 'a\\nb\\n'; exit 1") << true;
    QTest::newRow("crash") << QByteArray("kill -SEGV $$") << false;
}

void TestInterfaceKind::answerHasSeveralLines()
{
    QFETCH(QByteArray, script);
    TestSupport::Answer("iw ", script);

    QTEST(interfaceIsWireless("wlan0"), "wireless");
}

void TestInterfaceKind::toolIsAskedByItsNameWithTheBlank()
{
    interfaceIsWireless("mlan0");

    QCOMPARE(TestSupport::Journal(), QStringList{"'iw ' mlan0 info"});
}

void TestInterfaceKind::toolWithoutTheBlankIsNotAsked()
{
    TestSupport::RemoveProgram("iw ");
    TestSupport::Answer("iw", "printf 'a\\nb\\n'");

    QVERIFY(!interfaceIsWireless("wlan0"));

    QCOMPARE(TestSupport::Journal(), QStringList());
}

void TestInterfaceKind::toolHasNoInputAndItsErrorsGoNowhere()
{
    TestSupport::Answer("iw ", "readlink /proc/self/fd/0 /proc/self/fd/2 >/tmp/channels");

    interfaceIsWireless("wlan0");

    QCOMPARE(TestSupport::ReadFile("/tmp/channels"), QByteArray("/dev/null\n/dev/null\n"));
}

void TestInterfaceKind::toolThatHangsMeansNo()
{
    TestSupport::Answer("iw ", "printf 'a\\nb\\n'; exec sleep 60");
    QElapsedTimer timer;
    timer.start();

    QVERIFY(!interfaceIsWireless("wlan0"));

    QVERIFY2(timer.elapsed() >= 30000 && timer.elapsed() < 60000,
             qPrintable(QString::number(timer.elapsed())));
}

QTEST_GUILESS_MAIN(TestInterfaceKind)
#include "tst_interfacekind.moc"
