// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "utils.h"

#include "testsupport.h"

#include <QElapsedTimer>
#include <QtTest>

namespace {

const QString SHELL = QStringLiteral("sh");

QStringList Script(const QString &script)
{
    return {"-c", script};
}

} // namespace

/// Programs of which each reads what the one before prints.
class TestUtilsPiped : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void twoProgramsArePiped();
    void threeProgramsArePiped();
    void pipedProgramsHaveADisplay();
    void pipedCrashOfTheLastIsTheWholeResult();
    void pipedMissingProgram_data();
    void pipedMissingProgram();
};

void TestUtilsPiped::twoProgramsArePiped()
{
    QCOMPARE(Utils::ExecutePiped("printf", {"b\\na\\n"}, "sort", {}, QString(), {"ignored"}),
             (QStringList{"a", "b", ""}));
}

void TestUtilsPiped::threeProgramsArePiped()
{
    QCOMPARE(Utils::ExecutePiped("printf", {"b\\na\\n"}, "sort", {}, "tr", {"a-z", "A-Z"}),
             (QStringList{"A", "B", ""}));
}

void TestUtilsPiped::pipedProgramsHaveADisplay()
{
    QCOMPARE(Utils::ExecutePiped(SHELL, Script("echo 1 $DISPLAY"), SHELL, Script("cat; echo 2 $DISPLAY"),
                                 SHELL, Script("cat; echo 3 $DISPLAY")),
             (QStringList{"1 :0", "2 :0", "3 :0", ""}));
}

void TestUtilsPiped::pipedCrashOfTheLastIsTheWholeResult()
{
    QCOMPARE(Utils::ExecutePiped("printf", {"a"}, SHELL, Script("cat; kill -SEGV $$"), QString(), {}),
             QStringList{"Process Crashed"});
}

void TestUtilsPiped::pipedMissingProgram_data()
{
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("second");
    QTest::addColumn<QString>("third");

    QTest::newRow("first of two") << "no-such-program"
                                  << "cat"
                                  << "";
    QTest::newRow("second of two") << "true"
                                   << "no-such-program"
                                   << "";
    QTest::newRow("first of three") << "no-such-program"
                                    << "cat"
                                    << "cat";
    QTest::newRow("second of three") << "true"
                                     << "no-such-program"
                                     << "cat";
    QTest::newRow("third of three") << "true"
                                    << "cat"
                                    << "no-such-program";
}

void TestUtilsPiped::pipedMissingProgram()
{
    QFETCH(QString, first);
    QFETCH(QString, second);
    QFETCH(QString, third);
    QElapsedTimer timer;
    timer.start();

    QCOMPARE(Utils::ExecutePiped(first, {}, second, {}, third, {}), QStringList{""});

    QVERIFY2(timer.elapsed() < 5000, qPrintable(QString::number(timer.elapsed())));
}

QTEST_GUILESS_MAIN(TestUtilsPiped)
#include "tst_utils_piped.moc"
