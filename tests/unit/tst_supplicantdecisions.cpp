// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "supplicantdecisions.h"

#include <QtTest>

using namespace SupplicantDecisions;

Q_DECLARE_METATYPE(WiredAction)
Q_DECLARE_METATYPE(HoldOffAction)
Q_DECLARE_METATYPE(WaitAction)

namespace {

/// The inputs that a pattern of '0', '1' and '-' (either) stands for, one character an input.
QStringList Expand(const QString &pattern)
{
    const auto either = pattern.indexOf('-');
    if (either == -1)
        return {pattern};
    QString off = pattern;
    QString on = pattern;
    off[either] = '0';
    on[either] = '1';
    return Expand(off) + Expand(on);
}

} // namespace

/// The decisions about the supplicant.
class TestSupplicantDecisions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void wiredTick_data();
    void wiredTick();
    void holdOff_data();
    void holdOff();
    void authenticationTogglesTheCount_data();
    void authenticationTogglesTheCount();
    void waitWithoutAuthentication_data();
    void waitWithoutAuthentication();
    void waitEndsAtItsLimit_data();
    void waitEndsAtItsLimit();
};

void TestSupplicantDecisions::wiredTick_data()
{
    // The link came up, 802.1X, in fallback, supplicant active, reconfigure wanted, starts pause.
    QTest::addColumn<QString>("inputs");
    QTest::addColumn<WiredAction>("expected");
    QTest::newRow("no 802.1X") << "-0----" << WiredAction::RELEASE_SUPPLICANT;
    QTest::newRow("link came up, none there") << "11-0--" << WiredAction::START_SUPPLICANT;
    QTest::newRow("link came up, one there") << "11-1--" << WiredAction::RECONFIGURE_SUPPLICANT;
    QTest::newRow("in fallback") << "011---" << WiredAction::LEAVE_ALONE;
    QTest::newRow("none there") << "010000" << WiredAction::START_SUPPLICANT;
    QTest::newRow("none there, file changed") << "01001-" << WiredAction::START_SUPPLICANT;
    QTest::newRow("none there, starts have failed") << "010001" << WiredAction::LEAVE_ALONE;
    QTest::newRow("one there, file changed") << "01011-" << WiredAction::RECONFIGURE_SUPPLICANT;
    QTest::newRow("one there") << "01010-" << WiredAction::AWAIT_AUTHENTICATION;
}

void TestSupplicantDecisions::wiredTick()
{
    QFETCH(QString, inputs);
    QFETCH(WiredAction, expected);
    for (const QString &bits : Expand(inputs)) {
        const auto isSet = [bits](int index) {
            return bits.at(index) == '1';
        };
        QVERIFY2(ForWiredTick({isSet(0), isSet(1), isSet(2), isSet(3), isSet(4), isSet(5)}) == expected,
                 qPrintable(bits));
    }
}

void TestSupplicantDecisions::holdOff_data()
{
    QTest::addColumn<int>("ticks");
    // 802.1X or wireless, stop pending, supplicant active.
    QTest::addColumn<QString>("inputs");
    QTest::addColumn<HoldOffAction>("expected");
    QTest::newRow("over") << 0 << "---" << HoldOffAction::CONFIGURE;
    QTest::newRow("long over") << -1 << "---" << HoldOffAction::CONFIGURE;
    for (const int ticks : {1, 2, 3}) {
        QTest::addRow("%d left, no need", ticks) << ticks << "0--" << HoldOffAction::END;
        QTest::addRow("%d left, stop pending", ticks) << ticks << "11-" << HoldOffAction::AWAIT_STOP;
        QTest::addRow("%d left, none there", ticks) << ticks << "100" << HoldOffAction::COUNT_DOWN;
        QTest::addRow("%d left, one there", ticks) << ticks << "101" << HoldOffAction::STOP_SUPPLICANT;
    }
}

void TestSupplicantDecisions::holdOff()
{
    QFETCH(int, ticks);
    QFETCH(QString, inputs);
    QFETCH(HoldOffAction, expected);
    for (const QString &bits : Expand(inputs)) {
        const auto isSet = [bits](int index) {
            return bits.at(index) == '1';
        };
        QVERIFY2(ForHoldOff({ticks, isSet(0), isSet(1), isSet(2)}) == expected, qPrintable(bits));
    }
}

void TestSupplicantDecisions::authenticationTogglesTheCount_data()
{
    QTest::addColumn<int>("before");
    QTest::addColumn<int>("after");
    QTest::newRow("from 0") << 0 << 1;
    QTest::newRow("from 1") << 1 << 0;
    QTest::newRow("from 2") << 2 << 0;
    QTest::newRow("from a long wait") << 61 << 0;
}

void TestSupplicantDecisions::authenticationTogglesTheCount()
{
    QFETCH(int, before);
    QFETCH(int, after);
    for (const bool isAnnounced : {false, true}) {
        const Wait wait = ForWait({true, isAnnounced, true, before});
        QVERIFY(wait.action == WaitAction::GO_ON);
        QCOMPARE(wait.ticks, after);
    }
}

void TestSupplicantDecisions::waitWithoutAuthentication_data()
{
    QTest::addColumn<int>("before");
    // Address announced, fallback enabled.
    QTest::addColumn<QString>("inputs");
    QTest::addColumn<WaitAction>("expected");
    QTest::addColumn<int>("after");
    QTest::newRow("first tick") << 0 << "--" << WaitAction::GO_ON << 1;
    QTest::newRow("tenth tick over") << 10 << "--" << WaitAction::GO_ON << 11;
    QTest::newRow("eleventh tick over") << 11 << "11" << WaitAction::KEEP_ADDRESS << 11;
    QTest::newRow("no address announced") << 11 << "0-" << WaitAction::GO_ON << 12;
    QTest::newRow("fallback not enabled") << 11 << "-0" << WaitAction::GO_ON << 12;
    QTest::newRow("flags that come late") << 30 << "11" << WaitAction::KEEP_ADDRESS << 30;
    QTest::newRow("59 ticks over, no address announced") << 59 << "0-" << WaitAction::GO_ON << 60;
    QTest::newRow("60 ticks over, no address announced") << 60 << "0-" << WaitAction::TRY_UNSECURED << 61;
    QTest::newRow("60 ticks over, fallback not enabled") << 60 << "-0" << WaitAction::TRY_UNSECURED << 61;
    QTest::newRow("60 ticks over, both") << 60 << "11" << WaitAction::KEEP_ADDRESS << 60;
}

void TestSupplicantDecisions::waitWithoutAuthentication()
{
    QFETCH(int, before);
    QFETCH(QString, inputs);
    QFETCH(WaitAction, expected);
    QFETCH(int, after);
    for (const QString &bits : Expand(inputs)) {
        const Wait wait = ForWait({false, bits.at(0) == '1', bits.at(1) == '1', before});
        QVERIFY2(wait.action == expected, qPrintable(bits));
        QCOMPARE(wait.ticks, after);
    }
}

void TestSupplicantDecisions::waitEndsAtItsLimit_data()
{
    QTest::addColumn<bool>("announced");
    QTest::addColumn<bool>("fallback");
    for (const bool announced : {false, true})
        for (const bool fallback : {false, true})
            QTest::addRow("address %d, fallback %d", announced, fallback) << announced << fallback;
}

void TestSupplicantDecisions::waitEndsAtItsLimit()
{
    QFETCH(bool, announced);
    QFETCH(bool, fallback);
    Wait wait{WaitAction::GO_ON, 0};
    int count = 0;

    while (wait.action == WaitAction::GO_ON) {
        wait = ForWait({false, announced, fallback, wait.ticks});
        ++count;
    }

    // One second lies between two ticks.
    QCOMPARE(count - 1, WaitLimit(announced, fallback));
}

QTEST_GUILESS_MAIN(TestSupplicantDecisions)
#include "tst_supplicantdecisions.moc"
