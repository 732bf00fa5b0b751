// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// A command and its reply.

#include "controlworld.h"
#include "fakesupplicant.h"
#include "testsupport.h"
#include "wpactrl.h"
#include "wpasupplicantcontrol.h"

#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

class TestWpaSupplicantControlCommands : public QObject
{
    Q_OBJECT
private slots:
    void cleanup();

    void returnsReplies_data();
    void returnsReplies();
    void sendsTheLengthInCharacters();
    void cutsLongReplies();
    void failsWithoutConnection();
    void failsAfterTenSeconds();
    void failsAtOnceWhenTheSupplicantIsGone();
    void losesEventsDuringACommand();
    void handlesNothingElseDuringACommand();
};

void TestWpaSupplicantControlCommands::cleanup()
{
    QCOMPARE(LocalNames(), 0);
    TestSupport::Remove(QStringLiteral("/var/run/wpa_supplicant"));
}

void TestWpaSupplicantControlCommands::returnsReplies_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("expected");
    QTest::newRow("with its line feed") << QByteArray("OK\n") << "OK\n";
    QTest::newRow("up to the first zero byte") << QByteArray("a\0b", 3) << "a";
    QTest::newRow("nothing") << QByteArray("") << "";
    QTest::newRow("any bytes") << QByteArray("\xff\xc3") << QString(QChar(0xff)) + QChar(0xc3);
}

void TestWpaSupplicantControlCommands::returnsReplies()
{
    QFETCH(QByteArray, reply);
    FakeSupplicant supplicant;
    supplicant.SetReply("STATUS", reply);
    OpenControl control;

    QTEST(control.SendCommand(QStringLiteral("STATUS")), "expected");
}

void TestWpaSupplicantControlCommands::sendsTheLengthInCharacters()
{
    FakeSupplicant supplicant;
    OpenControl control;

    // 3 characters and 4 bytes.
    control.SendCommand(QString::fromUtf8("a\xc3\xa9z"));

    QCOMPARE(supplicant.Commands().last(), QString::fromUtf8("a\xc3\xa9"));
}

void TestWpaSupplicantControlCommands::cutsLongReplies()
{
    FakeSupplicant supplicant;
    supplicant.SetReply("STATUS", QByteArray(20000, 'x'));
    OpenControl control;

    QCOMPARE(control.SendCommand(QStringLiteral("STATUS")), QString(16383, QLatin1Char('x')));
}

void TestWpaSupplicantControlCommands::failsWithoutConnection()
{
    WpaSupplicantControl control(nullptr);

    QCOMPARE(control.SendCommand(QStringLiteral("STATUS")), CONTROL_ERROR);
}

void TestWpaSupplicantControlCommands::failsAfterTenSeconds()
{
    FakeSupplicant supplicant;
    supplicant.SetSilent("STATUS");
    OpenControl control;
    QElapsedTimer timer;
    timer.start();

    QCOMPARE(control.SendCommand(QStringLiteral("STATUS")), CONTROL_ERROR);

    // Not twice as long either, on a busy machine.
    const qint64 elapsed = timer.elapsed();
    QVERIFY2(elapsed >= 10000 && elapsed < 60000, qPrintable(QString::number(elapsed)));
    // The connection itself stays.
    QVERIFY(control.isCtrlOpen());
}

void TestWpaSupplicantControlCommands::failsAtOnceWhenTheSupplicantIsGone()
{
    FakeSupplicant supplicant;
    OpenControl control;
    supplicant.Die();
    QElapsedTimer timer;
    timer.start();

    QCOMPARE(control.SendCommand(QStringLiteral("STATUS")), CONTROL_ERROR);

    // Far from the ten seconds that a reply may take.
    QVERIFY(timer.elapsed() < 10000);
}

void TestWpaSupplicantControlCommands::losesEventsDuringACommand()
{
    FakeSupplicant supplicant;
    FakeSupplicant::Answer answer;
    answer.eventsFirst = {"<3>CTRL-EVENT-CONNECTED"};
    supplicant.SetAnswer("STATUS", answer);
    OpenControl control;
    QSignalSpy events(&control, &WpaSupplicantControl::MessageReady);

    QCOMPARE(control.SendCommand(QStringLiteral("STATUS")), QStringLiteral("OK\n"));
    QCoreApplication::processEvents();

    QCOMPARE(events.size(), 0);
    // What comes only once is known to be lost; no other is.
    auto dropped = control.TakeDropped();
    QVERIFY(dropped.connected && !dropped.disconnected);
    dropped = control.TakeDropped();
    QVERIFY(!dropped.connected && !dropped.disconnected);
    answer.eventsFirst = {"<3>CTRL-EVENT-DISCONNECTED", "<3>CTRL-EVENT-CONNECTE"};
    supplicant.SetAnswer("STATUS", answer);
    QCOMPARE(control.SendCommand(QStringLiteral("STATUS")), QStringLiteral("OK\n"));
    dropped = control.TakeDropped();
    QVERIFY(!dropped.connected && dropped.disconnected);
}

void TestWpaSupplicantControlCommands::handlesNothingElseDuringACommand()
{
    FakeSupplicant supplicant;
    FakeSupplicant::Answer answer;
    answer.delayMs = 200;
    supplicant.SetAnswer("STATUS", answer);
    OpenControl control;
    bool hasFired = false;
    QTimer::singleShot(0, &control, [&] { hasFired = true; });

    control.SendCommand(QStringLiteral("STATUS"));

    QVERIFY(!hasFired);
    QTRY_VERIFY(hasFired);
}

QTEST_GUILESS_MAIN(TestWpaSupplicantControlCommands)
#include "tst_wpasupplicantcontrol_commands.moc"
