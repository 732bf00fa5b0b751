// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "securitymodes.h"
#include "spelling.h"

#include <QtTest>

/// What a misspelt word is taken for.
class TestSpelling : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nearestWordIsFound_data();
    void nearestWordIsFound();
    void nearnessHasALimit_data();
    void nearnessHasALimit();
    void firstOfSeveralIsTaken();
    void exchangedLettersAreNearerThanAReplacedOne();
    void rightWordNeedsNoOther();
    void veryLongWordIsNotCompared();
};

void TestSpelling::nearestWordIsFound_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<QString>("nearest");
    QTest::newRow("letters exchanged") << "passwrod"
                                       << "password";
    QTest::newRow("letters left out") << "passwd"
                                      << "password";
    QTest::newRow("letter too many") << "passswords"
                                     << "password";
    QTest::newRow("letter replaced") << "netmusk"
                                     << "netmask";
    QTest::newRow("other case") << "NETMASK"
                                << "netmask";
    QTest::newRow("beginning left out") << "mask"
                                        << "netmask";
    QTest::newRow("other word") << "gateway"
                                << "";
    QTest::newRow("a few letters in common") << "psk"
                                             << "";
    QTest::newRow("empty") << ""
                           << "";
    QTest::newRow("mode without its first number") << "WPA Personal 2"
                                                   << "WPA Personal 1/2";
    QTest::newRow("mode without blanks") << "WPAPersonal3"
                                         << "WPA Personal 3";
    QTest::newRow("mode without its method") << "WPA Enterprise (TLS)"
                                             << "WPA Enterprise 1/2 (TLS)";
    QTest::newRow("another name of a mode") << "WPA2"
                                            << "";
}

void TestSpelling::nearestWordIsFound()
{
    QFETCH(QString, word);

    QTEST(NearestWord(word, QStringList{"name", "password", "netmask"} + SecurityModes.keys()), "nearest");
}

void TestSpelling::nearnessHasALimit_data()
{
    QTest::addColumn<int>("common");
    QTest::addColumn<int>("more");
    QTest::addColumn<bool>("isNear");
    QTest::newRow("two thirds of the letters") << 2 << 2 << true;
    QTest::newRow("less") << 1 << 2 << false;
    QTest::newRow("six letters more") << 32 << 6 << true;
    QTest::newRow("seven letters more") << 32 << 7 << false;
}

void TestSpelling::nearnessHasALimit()
{
    QFETCH(int, common);
    QFETCH(int, more);
    const QString word(common, 'x');

    QTEST(!NearestWord(word, {word + QString(more, 'y')}).isEmpty(), "isNear");
}

void TestSpelling::firstOfSeveralIsTaken()
{
    QCOMPARE(NearestWord("dns", {"dns1", "dns2"}), QString("dns1"));
}

void TestSpelling::exchangedLettersAreNearerThanAReplacedOne()
{
    QCOMPARE(NearestWord("anme", {"anmx", "name"}), QString("name"));
    QCOMPARE(NearestWord("naem", {"xaem", "name"}), QString("name"));
}

void TestSpelling::rightWordNeedsNoOther()
{
    QCOMPARE(NearestWord("dns1", {"dns2", "dns1"}), QString());
}

void TestSpelling::veryLongWordIsNotCompared()
{
    const QString longest(64, 'x');

    QCOMPARE(NearestWord(longest, {longest + 'y'}), longest + 'y');
    QCOMPARE(NearestWord(longest + 'x', {longest}), QString());
}

QTEST_GUILESS_MAIN(TestSpelling)
#include "tst_spelling.moc"
