// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "processstat.h"
#include "testsupport.h"

#include <QProcess>
#include <QtTest>

#include <optional>

using State = std::optional<bool>;
Q_DECLARE_METATYPE(State)

class TestProcessStat : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { TestSupport::UseRights(true); }

    void tellsWhoseNetworkIsOurs_data();
    void tellsWhoseNetworkIsOurs();
    void tellsWhetherAProcessIsStopped_data();
    void tellsWhetherAProcessIsStopped();
};

void TestProcessStat::tellsWhoseNetworkIsOurs_data()
{
    QTest::addColumn<QStringList>("command");
    QTest::addColumn<bool>("hasRights");
    QTest::addColumn<bool>("expected");
    const QStringList ours = {"env", "sh"};
    const QStringList theirs = {"unshare", "--net", "sh"};
    QTest::newRow("ours") << ours << true << true;
    QTest::newRow("another") << theirs << true << false;
    QTest::newRow("of one that may do more than we, ours") << ours << false << true;
    QTest::newRow("of one that may do more than we, another") << theirs << false << false;
}

void TestProcessStat::tellsWhoseNetworkIsOurs()
{
    QFETCH(QStringList, command);
    QFETCH(bool, hasRights);
    QProcess process;
    process.start(command.first(), command.mid(1) + QStringList{"-c", "echo up; read line"});
    QVERIFY(process.waitForReadyRead());

    TestSupport::UseRights(hasRights);

    QTEST(ProcessStat::IsInOurNetwork(QByteArray::number(process.processId())), "expected");

    TestSupport::UseRights(true);
    process.closeWriteChannel();
    QVERIFY(process.waitForFinished());
}

void TestProcessStat::tellsWhetherAProcessIsStopped_data()
{
    QTest::addColumn<QByteArray>("stat");
    QTest::addColumn<State>("expected");
    QTest::newRow("runs") << QByteArray("7 (corvi) R 1 7") << State(false);
    QTest::newRow("sleeps") << QByteArray("7 (corvi) S 1 7") << State(false);
    QTest::newRow("stopped by a signal") << QByteArray("7 (corvi) T 1 7") << State(true);
    QTest::newRow("held by a debugger") << QByteArray("7 (corvi) t 1 7") << State(true);
    QTest::newRow("has ended") << QByteArray("7 (corvi) Z 1 7") << State(false);
    QTest::newRow("an odd name") << QByteArray("7 (a) T (b) S 1 7") << State(false);
    QTest::newRow("gone") << QByteArray() << State();
    QTest::newRow("cut") << QByteArray("7 (corvi)") << State(false);
}

void TestProcessStat::tellsWhetherAProcessIsStopped()
{
    QFETCH(QByteArray, stat);
    QFETCH(State, expected);

    QCOMPARE(ProcessStat::IsStopped(stat), expected);
}

QTEST_APPLESS_MAIN(TestProcessStat)
#include "tst_processstat.moc"
