// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "fakesupplicant.h"
#include "fastclock.h"
#include "logging.h"
#include "testsupport.h"
#include "wpasuppthreadpeer.h"

#include <QCoreApplication>
#include <QTest>

/// An authentication that fails, as the log tells it.
class TestWpaSuppThreadRefusal : public QObject
{
    Q_OBJECT
private slots:
    void tellsARefusalFromSilence_data();
    void tellsARefusalFromSilence();
};

void TestWpaSuppThreadRefusal::tellsARefusalFromSilence_data()
{
    QTest::addColumn<int>("quietSeconds");
    QTest::addColumn<QString>("told");
    const QString nobody = QStringLiteral("Nobody answers on the port, so no password was refused on");
    const QString refused = QStringLiteral("The authentication was refused on");
    QTest::newRow("right after the port's question") << 0 << refused;
    QTest::newRow("a server that takes its time") << 5 << refused;
    QTest::newRow("after the supplicant's own time") << 29 << nobody;
}

/// The supplicant says the same in both cases, and the text of its event is fixed.
void TestWpaSuppThreadRefusal::tellsARefusalFromSilence()
{
    QFETCH(int, quietSeconds);
    QFETCH(QString, told);
    Logging::GetInstance(Logging::KEEP_LEVEL, false)->SetLoggingLevel(Level::NOTICE);
    TestSupport::ClearLog();
    const FakeSupplicant supplicant;
    WpaSuppThreadPeer supervisor;
    supervisor.Supervise(QStringLiteral("wlan0"), QStringLiteral("wired"));
    FastClock::Advance(std::chrono::seconds(25));
    supervisor.MessageReceived(QStringLiteral("<3>CTRL-EVENT-EAP-STARTED EAP authentication started"));
    FastClock::Advance(std::chrono::seconds(quietSeconds));

    supervisor.MessageReceived(QStringLiteral("<3>CTRL-EVENT-EAP-FAILURE EAP authentication failed"));

    QVERIFY2(TestSupport::LogText().contains(" :  WpaSuppThread -- " + told +
                                             " wlan0 - the supplicant goes on trying \n"),
             qPrintable(TestSupport::LogText()));
}

QTEST_GUILESS_MAIN(TestWpaSuppThreadRefusal)
#include "tst_wpasuppthread_refusal.moc"
