// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "reportonce.h"

#include "testsupport.h"

#include <QRegularExpression>
#include <QtTest>

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;

namespace {

const QString FAULT = QStringLiteral("fault");
const QString OTHER_FAULT = QStringLiteral("other fault");
const ReportOnce::Time START{hours(1000)};

bool IsWritten(ReportOnce &report, const QString &what, ReportOnce::Time now)
{
    return report.Tell(what, now).level == Level::NOTICE;
}

} // namespace

/// What is told again and again is written once, then now and then with its count.
class TestReportOnce : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void firstTimeIsNews();
    void repetitionIsTrace();
    void otherTextIsNews();
    void whatIsKnownIsNoNews();
    void isNewsAgainOnceItWasOver();
    void isNewsAgainAfterAnHourOfSilence();
    void isSummedUpAfterGrowingPauses();
    void countBeginsAnewWithNews();
    void frequentNewsIsCounted();
    void frequentChangesAreCountedLater();
    void creditsComeBackOneByOne();
    void newsWithoutAnEndIsSummedUp();
    void newsAfterAQuietTimeIsToldAgain();
    void stepIsNotSummedUp();
    void sumTakesACredit();
    void lastOfAStormIsToldAfterAQuietTime();
    void stepIsNotOwed();
    void hourOfAnythingWritesFewLines_data();
    void hourOfAnythingWritesFewLines();
    void lineOfNewsHasNothingAdded();
    void laterLineSaysHowOftenAndSinceWhen();
};

void TestReportOnce::firstTimeIsNews()
{
    ReportOnce report;

    const ReportOnce::Telling telling = report.Tell(FAULT, START);

    QCOMPARE(telling.level, Level::NOTICE);
    QCOMPARE(telling.times, 1);
}

void TestReportOnce::repetitionIsTrace()
{
    ReportOnce report;
    report.Tell(FAULT, START);

    const ReportOnce::Telling telling = report.Tell(FAULT, START + minutes(30) - seconds(1));

    QCOMPARE(telling.level, Level::TRACE);
    QCOMPARE(telling.times, 2);
}

void TestReportOnce::otherTextIsNews()
{
    ReportOnce report;
    report.Tell(FAULT, START);

    QVERIFY(IsWritten(report, OTHER_FAULT, START));
    QVERIFY(!IsWritten(report, OTHER_FAULT, START));
}

void TestReportOnce::whatIsKnownIsNoNews()
{
    ReportOnce report(FAULT);

    QVERIFY(!IsWritten(report, FAULT, START));
    QVERIFY(!IsWritten(report, FAULT, START + minutes(30)));
    QVERIFY(IsWritten(report, OTHER_FAULT, START + minutes(31)));
}

void TestReportOnce::isNewsAgainOnceItWasOver()
{
    ReportOnce report;
    report.Tell(FAULT, START);

    report.Over();

    QVERIFY(IsWritten(report, FAULT, START));
    QVERIFY(!IsWritten(report, FAULT, START));
}

void TestReportOnce::isNewsAgainAfterAnHourOfSilence()
{
    ReportOnce report;
    report.Tell(FAULT, START);
    report.Tell(FAULT, START + minutes(5));

    const ReportOnce::Telling telling = report.Tell(FAULT, START + minutes(65) + seconds(1));

    QCOMPARE(telling.level, Level::NOTICE);
    QCOMPARE(telling.times, 1);
}

void TestReportOnce::isSummedUpAfterGrowingPauses()
{
    ReportOnce report;
    QList<qint64> writtenMinutes;
    QList<int> counts;

    for (int minute = 0; minute < 200; ++minute) {
        const ReportOnce::Telling telling = report.Tell(FAULT, START + minutes(minute));
        if (telling.level != Level::NOTICE)
            continue;
        QCOMPARE(telling.since, seconds(minutes(minute)));
        writtenMinutes << minute;
        counts << telling.times;
    }

    QCOMPARE(writtenMinutes, (QList<qint64>{0, 30, 90, 150}));
    QCOMPARE(counts, (QList<int>{1, 31, 91, 151}));
}

void TestReportOnce::countBeginsAnewWithNews()
{
    ReportOnce report;
    for (int minute = 0; minute <= 30; ++minute)
        report.Tell(FAULT, START + minutes(minute));
    const ReportOnce::Time again = START + minutes(31);

    QCOMPARE(report.Tell(OTHER_FAULT, again).times, 1);
    QVERIFY(!IsWritten(report, OTHER_FAULT, again + minutes(30) - seconds(1)));
    const ReportOnce::Telling summary = report.Tell(OTHER_FAULT, again + minutes(30));
    QCOMPARE(summary.level, Level::NOTICE);
    QCOMPARE(summary.times, 3);
    QCOMPARE(summary.since, seconds(minutes(30)));
}

void TestReportOnce::frequentNewsIsCounted()
{
    ReportOnce report;
    QList<bool> written;

    for (int i = 0; i < 6; ++i) {
        written << IsWritten(report, FAULT, START + seconds(i));
        report.Over();
    }

    QCOMPARE(written, (QList<bool>{true, true, true, false, false, false}));
    QCOMPARE(report.Tell(FAULT, START + minutes(29)).times, 5);
}

void TestReportOnce::frequentChangesAreCountedLater()
{
    ReportOnce report(ReportOnce::Of::CHANGE);
    QList<bool> written;

    for (int i = 0; i < 7; ++i) {
        written << IsWritten(report, FAULT, START + seconds(i));
        report.Over();
    }

    QCOMPARE(written, (QList<bool>{true, true, true, true, true, false, false}));
}

void TestReportOnce::creditsComeBackOneByOne()
{
    ReportOnce report;
    for (int i = 0; i < 3; ++i) {
        report.Tell(FAULT, START);
        report.Over();
    }

    QCOMPARE(report.Tell(FAULT, START + minutes(30)).times, 1);
    report.Over();
    QCOMPARE(report.Tell(FAULT, START + minutes(30)).times, 2);
}

void TestReportOnce::newsWithoutAnEndIsSummedUp()
{
    ReportOnce report;
    QList<int> writtenSeconds;
    QList<int> counts;

    for (int second = 0; second < 3 * 3600; ++second) {
        const auto telling = report.Tell(second % 2 == 0 ? FAULT : OTHER_FAULT, START + seconds(second));
        if (telling.level != Level::NOTICE)
            continue;
        writtenSeconds << second;
        counts << telling.times;
    }

    QCOMPARE(writtenSeconds, (QList<int>{0, 1, 2, 2 + 1800, 2 + 5400, 2 + 9000}));
    QCOMPARE(counts, (QList<int>{1, 1, 1, 1801, 5401, 9001}));
}

void TestReportOnce::newsAfterAQuietTimeIsToldAgain()
{
    ReportOnce report;
    for (int i = 0; i < 6; ++i) {
        report.Over();
        report.Tell(FAULT, START);
    }

    report.Over();
    QVERIFY(!IsWritten(report, FAULT, START + minutes(5)));
    report.Over();
    const ReportOnce::Telling telling = report.Tell(FAULT, START + minutes(35));

    QCOMPARE(telling.level, Level::NOTICE);
    QCOMPARE(telling.times, 1);
}

void TestReportOnce::stepIsNotSummedUp()
{
    ReportOnce report(ReportOnce::Of::STEP);
    report.Tell(FAULT, START);

    for (int minute = 1; minute < 200; ++minute)
        QVERIFY(!IsWritten(report, FAULT, START + minutes(minute)));
    QVERIFY(IsWritten(report, OTHER_FAULT, START + minutes(200)));
}

void TestReportOnce::sumTakesACredit()
{
    ReportOnce report;
    for (int i = 0; i < 3; ++i) {
        report.Over();
        report.Tell(FAULT, START);
    }
    QVERIFY(IsWritten(report, FAULT, START + minutes(30)));

    report.Over();

    QVERIFY(!IsWritten(report, FAULT, START + minutes(31)));
}

void TestReportOnce::hourOfAnythingWritesFewLines_data()
{
    QTest::addColumn<int>("period");
    QTest::addColumn<bool>("changesText");
    QTest::addColumn<bool>("getsOver");
    QTest::newRow("lasting") << 1 << false << false;
    QTest::newRow("flapping") << 1 << true << false;
    QTest::newRow("over each time") << 1 << false << true;
    QTest::newRow("now and then") << 60 << true << true;
}

void TestReportOnce::hourOfAnythingWritesFewLines()
{
    QFETCH(int, period);
    QFETCH(bool, changesText);
    QFETCH(bool, getsOver);
    ReportOnce report;

    for (int hour = 0; hour < 5; ++hour) {
        int written = 0;
        for (int second = 0; second < 3600; second += period) {
            const bool isOther = changesText && (second / period) % 2 == 1;
            if (IsWritten(report, isOther ? OTHER_FAULT : FAULT, START + hours(hour) + seconds(second)))
                ++written;
            if (getsOver)
                report.Over();
        }
        // Five things told of one fault stay at 20 lines.
        QVERIFY2(written >= 1 && written <= 4, qPrintable(QString::number(written)));
    }
}

void TestReportOnce::lineOfNewsHasNothingAdded()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::DEBUG);
    TestSupport::ClearLog();
    ReportOnce report;

    LogOnce(report) << "The link is gone" << 5;
    LogOnce(report) << "The link is gone" << 5;

    const QStringList lines = TestSupport::LogText().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 2);
    for (const QString &line : lines)
        QVERIFY2(line.endsWith(QStringLiteral(" :  The link is gone 5 ")), qPrintable(line));
}

void TestReportOnce::laterLineSaysHowOftenAndSinceWhen()
{
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    TestSupport::ClearLog();
    ReportOnce report;
    for (int i = 0; i < 33; ++i)
        report.Tell(FAULT, START);

    const QDateTime before = QDateTime::currentDateTime();
    LogOnce(report, FAULT, START + minutes(45)) << "The link is gone";

    const QRegularExpressionMatch match =
        QRegularExpression(QStringLiteral(" :  The link is gone -- 34 times since (.{19}) \n$"))
            .match(TestSupport::LogText());
    QVERIFY2(match.hasMatch(), qPrintable(TestSupport::LogText()));
    const QDateTime since = QDateTime::fromString(match.captured(1), QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    const qint64 age = since.secsTo(before);
    QVERIFY2(age >= 2640 && age <= 2701, qPrintable(match.captured(1)));
}

void TestReportOnce::lastOfAStormIsToldAfterAQuietTime()
{
    ReportOnce report;
    for (int second = 0; second < 6; ++second)
        report.Tell(second % 2 == 0 ? FAULT : OTHER_FAULT, START + seconds(second));
    const ReportOnce::Time last = START + seconds(5);

    QVERIFY(!report.IsOwed(last + seconds(1799)));
    QVERIFY(report.IsOwed(last + minutes(30)));
    const ReportOnce::Telling telling = report.Tell(OTHER_FAULT, last + minutes(30));

    QCOMPARE(int(telling.level), int(Level::NOTICE));
    QVERIFY(!report.IsOwed(last + minutes(90)));
}

void TestReportOnce::stepIsNotOwed()
{
    ReportOnce report(ReportOnce::Of::STEP);
    for (int second = 0; second < 6; ++second)
        report.Tell(second % 2 == 0 ? FAULT : OTHER_FAULT, START + seconds(second));

    QVERIFY(!report.IsOwed(START + minutes(40)));
    QVERIFY(!IsWritten(report, OTHER_FAULT, START + minutes(40)));
}

QTEST_APPLESS_MAIN(TestReportOnce)
#include "tst_reportonce.moc"
