// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include "logging.h"

#include <QString>

#include <chrono>
#include <optional>

/// Keeps a fault that lasts from filling the log: the first time it is told is news, further times are
/// counted, and after pauses of 30 and then 60 minutes one of them says how often and since when. The
/// member of whoever tells it, one for each thing to tell; LogOnce writes its lines. Works on the clock it is
/// given.
class ReportOnce
{
public:
    using Time = std::chrono::steady_clock::time_point;

    /// What to do about a line: its level, and what its end says.
    struct Telling
    {
        Logging::LoggingLevel level; ///< NOTICE for what an operator is to see, otherwise TRACE
        int times;                   ///< how often it was told since it was last news, this time included
        std::chrono::seconds since;  ///< the age of that news

        /// "-- 34 times since 2025-05-03 17:05:01" for the end of a line that sums up, otherwise empty.
        QString Summary() const;
    };

    /// A change is what the device does or what is done to it; somebody may look for the line of each. A step
    /// comes with a fault or a change that has its own line, which says how often: it is not summed up, too.
    enum class Of { FAULT, CHANGE, STEP };

    explicit ReportOnce(Of kind = Of::FAULT)
        : isSummedUp(kind != Of::STEP), mostCredits(kind == Of::CHANGE ? 5 : 3)
    {
    }
    /// `known` is no news at the start, such as that there is no address yet.
    explicit ReportOnce(const QString &known) : told(known), lastTold(Time::max()), summaryTime(Time::max())
    {
    }

    /// `what` is told at `now`. It is news when it was not told last, and when nothing was told for an hour.
    /// News that comes again and again, as from a link that flaps, is counted too: three are free (of changes
    /// five), and every 30 minutes bring one more. What comes more often is summed up like what lasts, until
    /// it has kept quiet for 30 minutes. So no fault writes more than four lines an hour, no change more than
    /// six, and what is made of four changes or five faults stays at about 20.
    Telling Tell(const QString &what, Time now);
    /// What was told last was news, was only counted, and has stayed: nothing was told for 30 minutes. Told
    /// once more it is written, so that the log does not end with another state than the one that lasts.
    bool IsOwed(Time now) const { return isOwed && now - lastTold >= CREDIT_INTERVAL; }
    /// It is over: whatever is told next is news.
    void Over()
    {
        told.reset();
        isOwed = false;
    }

private:
    bool IsNews(const QString &what, Time now) const;
    bool TakeCredit(Time now);

    static constexpr std::chrono::minutes SHORTEST{30};
    static constexpr std::chrono::minutes LONGEST{60};
    static constexpr std::chrono::minutes CREDIT_INTERVAL{30};

    std::optional<QString> told;
    Time lastTold;
    Time newsTime;
    Time summaryTime; ///< when a repetition is to be written
    std::chrono::minutes pause = SHORTEST;
    bool isSummedUp = true;
    bool isOwed = false;     ///< the last news was not written
    bool isRestless = false; ///< there was more news than is free, and no quiet time since
    int times = 0;
    int mostCredits = 3;
    int credits = mostCredits;
    Time creditTime; ///< when the next credit comes, while one is missing
};

/// One line of the log about something that is to be reported once:
/// `LogOnce(dhcpReport) << "dhclient failed";`. A line that says how often does so after its own text:
/// "dhclient failed -- 34 times since 2025-05-03 17:05:01".
class LogOnce : public Log
{
public:
    /// `what` tells one state from another, such as an address or a reason; a fault that is there or not
    /// needs none.
    explicit LogOnce(ReportOnce &report, const QString &what = QString(),
                     ReportOnce::Time now = ReportOnce::Time::clock::now());
    ~LogOnce();

private:
    explicit LogOnce(const ReportOnce::Telling &telling);

    const QString summary;
};
