// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "reportonce.h"

#include <QDateTime>

#include <algorithm>

ReportOnce::Telling ReportOnce::Tell(const QString &what, Time now)
{
    const bool isNews = IsNews(what, now);
    const bool isDue = IsOwed(now) || now >= summaryTime;
    isOwed = isSummedUp && (isOwed || isNews);
    isRestless = isRestless && now - lastTold < CREDIT_INTERVAL;
    told = what;
    lastTold = now;
    if (isNews && !isRestless && TakeCredit(now)) {
        isOwed = false;
        times = 1;
        newsTime = now;
        pause = SHORTEST;
        summaryTime = isSummedUp ? now + pause : Time::max();
        return {Level::NOTICE, times, std::chrono::seconds(0)};
    }
    isRestless = isRestless || isNews;
    ++times;
    const auto since = std::chrono::duration_cast<std::chrono::seconds>(now - newsTime);
    if (!isDue)
        return {Level::TRACE, times, since};
    isOwed = false;
    (void)TakeCredit(now); // It tells what the next news would.
    pause = std::min(pause * 2, LONGEST);
    summaryTime = now + pause;
    return {Level::NOTICE, times, since};
}

bool ReportOnce::IsNews(const QString &what, Time now) const
{
    return !told || *told != what || now - lastTold > LONGEST;
}

bool ReportOnce::TakeCredit(Time now)
{
    while (credits < mostCredits && now >= creditTime) {
        ++credits;
        creditTime += CREDIT_INTERVAL;
    }
    if (credits == 0)
        return false;
    if (credits == mostCredits)
        creditTime = now + CREDIT_INTERVAL;
    --credits;
    return true;
}

QString ReportOnce::Telling::Summary() const
{
    if (level != Level::NOTICE || times == 1)
        return {};
    return QStringLiteral("-- %1 times since %2")
        .arg(QString::number(times), QDateTime::currentDateTime()
                                         .addSecs(-since.count())
                                         .toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")));
}

LogOnce::LogOnce(ReportOnce &report, const QString &what, ReportOnce::Time now)
    : LogOnce(report.Tell(what, now))
{
}

LogOnce::LogOnce(const ReportOnce::Telling &telling) : Log(telling.level), summary(telling.Summary()) {}

LogOnce::~LogOnce()
{
    if (!summary.isEmpty())
        *this << summary;
}
