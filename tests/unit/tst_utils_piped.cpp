// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "utils.h"

#include "debugoutput.h"
#include "shellscript.h"
#include "testsupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QThread>
#include <QtTest>

/// Several programs at once: side by side, or each reading what the one before prints.
class TestUtilsPiped : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void twoProgramsArePiped();
    void threeProgramsArePiped();
    void pipedProgramsHaveADisplay();
    void pipedCrashOfTheLastIsTheWholeResult();
    void pipedProgramsRunAtOnce();
    void pipedCrashOfTheFirstIsNotSeen();
    void pipedProgramsHaveALimitEach();
    void pipedMissingProgram_data();
    void pipedMissingProgram();
    void eachGivesItsOwnResult();
    void eachHasADisplay();
    void oneForEachCoreRunsSideBySide();
    void hangingOnesShareOneLimit();
    void hangingOnesAreToldOnce();
    void nothingToRunGivesNothing();
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

void TestUtilsPiped::pipedProgramsRunAtOnce()
{
    // More than a pipe holds: with nobody to read it, the first would be waited for until its limit passes.
    QElapsedTimer timer;
    timer.start();

    QCOMPARE(Utils::ExecutePiped("head", {"-c", "1048576", "/dev/zero"}, "wc", {"-c"}, QString(), {}),
             (QStringList{"1048576", ""}));

    QVERIFY2(timer.elapsed() < 20000, qPrintable(QString::number(timer.elapsed())));
}

void TestUtilsPiped::pipedCrashOfTheFirstIsNotSeen()
{
    QCOMPARE(Utils::ExecutePiped(SHELL, Script("echo a; kill -SEGV $$"), "cat", {}, QString(), {}),
             (QStringList{"a", ""}));
}

void TestUtilsPiped::pipedProgramsHaveALimitEach()
{
    // The first passes its limit, and takes as long from the second.
    QCOMPARE(Utils::ExecutePiped("sleep", {"60"}, SHELL, Script("sleep 32; echo done"), QString(), {}),
             (QStringList{"done", ""}));
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

    QVERIFY2(timer.elapsed() < 20000, qPrintable(QString::number(timer.elapsed())));
}

void TestUtilsPiped::eachGivesItsOwnResult()
{
    const QVector<QStringList> scripts = {Script("sleep 0.2; echo first"), Script("echo second"),
                                          Script("kill -SEGV $$"), Script("exit 3"), Script("echo last")};

    QCOMPARE(Utils::ExecuteEach(SHELL, scripts),
             (QVector<QStringList>{{"first", ""}, {"second", ""}, {"Process Crashed"}, {""}, {"last", ""}}));
    QCOMPARE(Utils::ExecuteEach("no-such-program", {{"a"}, {"b"}}), (QVector<QStringList>{{""}, {""}}));
}

void TestUtilsPiped::eachHasADisplay()
{
    QCOMPARE(Utils::ExecuteEach(SHELL, {Script("echo $DISPLAY")}), (QVector<QStringList>{{":0", ""}}));
}

void TestUtilsPiped::oneForEachCoreRunsSideBySide()
{
    const int cores = QThread::idealThreadCount();
    const QString folder = QStringLiteral("/tmp/side-by-side");
    TestSupport::Remove(folder);
    QVERIFY(QDir().mkpath(folder));
    // Each stays until as many have come as there are cores, or goes alone after 20 s; the count is of those
    // that are there when it goes, after a time in which one too many would come.
    const QString stay = QStringLiteral("cd %1; >here.$$; >come.$$; i=0\n"
                                        "until set -- come.*; [ $# -ge %2 ] || [ $i -eq 400 ]; do\n"
                                        "i=$((i + 1)); sleep 0.05; done\n"
                                        "[ $i -lt 400 ] || echo alone\n"
                                        "sleep 0.2; set -- here.*; echo $#; rm here.$$")
                             .arg(folder)
                             .arg(cores);

    const QVector<QStringList> results =
        Utils::ExecuteEach(SHELL, QVector<QStringList>(2 * cores, Script(stay)));

    for (const QStringList &result : results)
        QVERIFY2(result.size() == 2 && result.first().toInt() <= cores, qPrintable(result.join(' ')));
}

void TestUtilsPiped::hangingOnesShareOneLimit()
{
    QElapsedTimer timer;
    timer.start();
    QVector<QStringList> scripts(100, Script("sleep 60"));
    scripts[0] = Script("echo first");

    const QVector<QStringList> results = Utils::ExecuteEach(SHELL, scripts, 1000);

    QVERIFY2(timer.elapsed() < 30000, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(results.size(), 100);
    QCOMPARE(results.last(), QStringList());
}

void TestUtilsPiped::hangingOnesAreToldOnce()
{
    const DebugOutput warnings("corvi.program");

    Utils::ExecuteEach("sleep", {{"60"}, {"60"}, {"60"}}, 2000);

    QCOMPARE(warnings.Take(), QStringList{"sleep is killed, it still ran after 2 s "});
}

void TestUtilsPiped::nothingToRunGivesNothing()
{
    QCOMPARE(Utils::ExecuteEach(SHELL, {}), QVector<QStringList>());
}

QTEST_GUILESS_MAIN(TestUtilsPiped)
#include "tst_utils_piped.moc"
