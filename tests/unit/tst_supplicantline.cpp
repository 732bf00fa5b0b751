// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "supplicantline.h"
#include "testsupport.h"

#include <QProcess>
#include <QtTest>

namespace {

const QString CONFIGURATION = QStringLiteral("/tmp/rule.conf");

QString Repeated(int count)
{
    return QString(count, QLatin1Char('a'));
}

QString Quoted(const QString &text)
{
    return QLatin1Char('"') + text + QLatin1Char('"');
}

/// What the real supplicant prints when it reads a network with this line; the interface does not exist, so
/// it ends after that.
QByteArray RealAnswer(const QString &key, const QString &value)
{
    TestSupport::WriteFile(CONFIGURATION,
                           "network={\n\t" + (key + QLatin1Char('=') + value).toUtf8() + "\n}\n");
    QProcess supplicant;
    supplicant.setProcessChannelMode(QProcess::MergedChannels);
    supplicant.start("/usr/sbin/wpa_supplicant", {"-ddK", "-Dwired", "-inope0", "-c" + CONFIGURATION});
    supplicant.waitForFinished();
    return supplicant.readAll();
}

} // namespace

class TestSupplicantLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void takesWhatTheSupplicantTakes_data();
    void takesWhatTheSupplicantTakes();
    void refusesWhatTheSupplicantRefuses_data();
    void refusesWhatTheSupplicantRefuses();
    void refusesACommentInTheValue_data();
    void refusesACommentInTheValue();
    void refusesControlCharacters_data();
    void refusesControlCharacters();
    void refusesEscapesOfNoFixedLength_data();
    void refusesEscapesOfNoFixedLength();
    void refusesNoSsid();
    void neverShowsTheValue();
};

void TestSupplicantLine::takesWhatTheSupplicantTakes_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");

    QTest::newRow("ssid of 32 bytes") << "ssid" << Quoted(Repeated(32));
    QTest::newRow("ssid of 32 bytes in 16 letters") << "ssid" << Quoted(QString(16, QChar(0xe9)));
    QTest::newRow("ssid with a quote") << "ssid"
                                       << "\"a\"b\"";
    QTest::newRow("ssid with a number sign") << "ssid"
                                             << "\"a#b\"";
    QTest::newRow("passphrase of 8 bytes") << "psk" << Quoted(Repeated(8));
    QTest::newRow("passphrase of 63 bytes") << "psk" << Quoted(Repeated(63));
    QTest::newRow("passphrase of 8 bytes in 4 letters") << "psk" << Quoted(QString(4, QChar(0xe9)));
    QTest::newRow("hashed key") << "psk" << QString(64, QLatin1Char('f'));
    QTest::newRow("hashed key in capitals") << "psk" << QString(64, QLatin1Char('F'));
    QTest::newRow("no WEP key") << "wep_key0"
                                << "";
    for (const int length : {5, 13, 16}) {
        QTest::addRow("WEP text of %d bytes", length) << "wep_key0" << Quoted(Repeated(length));
        QTest::addRow("WEP key of %d digits", 2 * length) << "wep_key0" << Repeated(2 * length);
    }
    for (const char *key : {"P\"abcde\"", "P\"ab\\\"de\"", "P\"ab\"de\"", "P\"\\x41\\xfF\\\\\\e\\n\"",
                            "P\"abcdefghijk\\r\\t\"", "P\"abcdefghijklmnop\"", "P\"abc#d\""})
        QTest::addRow("WEP text %s", key) << "wep_key0" << key;
    for (const char *ciphers :
         {"CCMP", "TKIP", "GCMP", "CCMP-256", "GCMP-256", "CCMP TKIP", " CCMP  TKIP "}) {
        QTest::addRow("pairwise %s", ciphers) << "pairwise" << ciphers;
        QTest::addRow("group %s", ciphers) << "group" << ciphers;
    }
    QTest::newRow("no identity") << "identity"
                                 << "\"\"";
    QTest::newRow("longest identity") << "identity" << Quoted(Repeated(1987));
    QTest::newRow("longest key password") << "private_key_passwd" << Quoted(Repeated(1977));
    QTest::newRow("no SAE password") << "sae_password"
                                     << "\"\"";
    QTest::newRow("negative priority") << "priority"
                                       << "-5";
}

void TestSupplicantLine::takesWhatTheSupplicantTakes()
{
    QFETCH(QString, key);
    QFETCH(QString, value);

    QCOMPARE(SupplicantLineProblem(key, value), QString());

    const QByteArray answer = RealAnswer(key, value);
    QVERIFY2(answer.contains("Priority group") && !answer.contains("ignored"), answer.constData());
}

void TestSupplicantLine::refusesWhatTheSupplicantRefuses_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("problem");

    const QString psk = "psk is not a key of 64 hexadecimal digits";
    const QString wep =
        "wep_key0 is not a WEP key: 10, 26 or 32 hexadecimal digits, or 5, 13 or 16 bytes in double "
        "quotes, with a P before these for escapes";
    QTest::newRow("ssid of 33 bytes")
        << "ssid" << Quoted(Repeated(33)) << "ssid has 33 bytes, the limit is 32";
    QTest::newRow("ssid of 34 bytes in 17 letters")
        << "ssid" << Quoted(QString(17, QChar(0xe9))) << "ssid has 34 bytes, the limit is 32";
    QTest::newRow("no passphrase") << "psk"
                                   << "\"\""
                                   << "psk is not from 8 to 63 bytes long";
    QTest::newRow("passphrase of 7 bytes")
        << "psk" << Quoted(Repeated(7)) << "psk is not from 8 to 63 bytes long";
    QTest::newRow("passphrase of 64 bytes")
        << "psk" << Quoted(Repeated(64)) << "psk is not from 8 to 63 bytes long";
    QTest::newRow("key cut short") << "psk" << QString(63, QLatin1Char('f')) << psk;
    QTest::newRow("key with a digit too many") << "psk" << QString(65, QLatin1Char('f')) << psk;
    QTest::newRow("key with another letter") << "psk" << QString(63, QLatin1Char('f')) + 'g' << psk;
    QTest::newRow("no key") << "psk"
                            << "" << psk;
    QTest::newRow("key with one quote") << "psk"
                                        << "\"long enough" << psk;
    QTest::newRow("WEP text without quotes") << "wep_key0"
                                             << "hello" << wep;
    QTest::newRow("WEP key of 9 digits") << "wep_key0"
                                         << "123456789" << wep;
    QTest::newRow("WEP key of 12 digits") << "wep_key0"
                                          << "123456789012" << wep;
    QTest::newRow("WEP key with one quote") << "wep_key0"
                                            << "\"12345" << wep;
    QTest::newRow("WEP key with another letter") << "wep_key0"
                                                 << "012345678g" << wep;
    QTest::newRow("WEP text of 6 bytes") << "wep_key0"
                                         << "\"123456\"" << wep;
    QTest::newRow("WEP text of 17 bytes") << "wep_key0" << Quoted(Repeated(17)) << wep;
    for (const char *wepKey :
         {"P\"abcd\"", "P\"abcdef\"", "P\"abcde", "p\"abcde\"", "P\"abcd\\x41\\x42\"", "\"", "P\""})
        QTest::addRow("WEP text %s", wepKey) << "wep_key0" << wepKey << wep;
    QTest::newRow("WEP key of 11 digits") << "wep_key0"
                                          << "12345678901" << wep;
    QTest::newRow("no cipher") << "pairwise"
                               << ""
                               << "pairwise is not a list of CCMP, TKIP, GCMP, CCMP-256 and GCMP-256";
    QTest::newRow("blank for a cipher")
        << "pairwise"
        << " "
        << "pairwise is not a list of CCMP, TKIP, GCMP, CCMP-256 and GCMP-256";
    QTest::newRow("small letters") << "group"
                                   << "ccmp"
                                   << "group is not a list of CCMP, TKIP, GCMP, CCMP-256 and GCMP-256";
    QTest::newRow("provisioning word") << "group"
                                       << "automatic"
                                       << "group is not a list of CCMP, TKIP, GCMP, CCMP-256 and GCMP-256";
    QTest::newRow("commas") << "pairwise"
                            << "CCMP,TKIP"
                            << "pairwise is not a list of CCMP, TKIP, GCMP, CCMP-256 and GCMP-256";
    QTest::newRow("one bad cipher of two")
        << "pairwise"
        << "CCMP AES"
        << "pairwise is not a list of CCMP, TKIP, GCMP, CCMP-256 and GCMP-256";
    QTest::newRow("identity too long") << "identity" << Quoted(Repeated(1988)) << "identity is too long";
    QTest::newRow("identity too long in UTF-8")
        << "identity" << Quoted(QString(994, QChar(0xe9))) << "identity is too long";
    QTest::newRow("key password too long")
        << "private_key_passwd" << Quoted(Repeated(1978)) << "private_key_passwd is too long";
}

void TestSupplicantLine::refusesWhatTheSupplicantRefuses()
{
    QFETCH(QString, key);
    QFETCH(QString, value);

    QTEST(SupplicantLineProblem(key, value), "problem");

    const QByteArray answer = RealAnswer(key, value);
    QVERIFY2(answer.contains("Failed to read or parse configuration") || answer.contains("ignored"),
             answer.constData());
}

void TestSupplicantLine::refusesACommentInTheValue_data()
{
    QTest::addColumn<QString>("inner");
    QTest::addColumn<bool>("isCut");

    QTest::newRow("quote, then number sign") << "a\"#b" << true;
    QTest::newRow("apart") << "a\" x #b" << true;
    QTest::newRow("between two quotes") << "a\"#b\"c" << true;
    QTest::newRow("number sign, then quote") << "#\"" << false;
    QTest::newRow("after two quotes") << "x \"\"# y" << false;
    QTest::newRow("after three quotes") << "\"\"\"#y" << true;
}

void TestSupplicantLine::refusesACommentInTheValue()
{
    QFETCH(QString, inner);
    QFETCH(bool, isCut);

    const QString problem = SupplicantLineProblem("identity", Quoted(inner));

    QCOMPARE(problem, isCut ? QString("identity holds a number sign after a quote, which begins a comment")
                            : QString());
    const QByteArray taken = "identity - hexdump_ascii(len=" + QByteArray::number(inner.size()) + ')';
    QCOMPARE(RealAnswer("identity", Quoted(inner)).contains(taken), !isCut);
}

void TestSupplicantLine::refusesControlCharacters_data()
{
    QTest::addColumn<QChar>("character");

    for (const uint code :
         {0x00U, 0x01U, 0x09U, 0x0aU, 0x0dU, 0x1fU, 0x7fU, 0x80U, 0x9fU, 0x2028U, 0x2029U, 0xd800U})
        QTest::addRow("%04x", code) << QChar(code);
}

void TestSupplicantLine::refusesControlCharacters()
{
    QFETCH(QChar, character);

    QCOMPARE(SupplicantLineProblem("identity", Quoted(QString("us") + character + "er")),
             QString("identity holds a control character or a line end"));
}

void TestSupplicantLine::refusesEscapesOfNoFixedLength_data()
{
    QTest::addColumn<QString>("escape");

    for (const char *escape : {"\\q", "\\0", "\\1", "\\x4", "\\xgg", "\\"})
        QTest::newRow(escape) << escape;
}

void TestSupplicantLine::refusesEscapesOfNoFixedLength()
{
    QFETCH(QString, escape);

    // The supplicant takes some of them, with lengths of its own.
    for (int length = 0; length < 16; ++length)
        QVERIFY(!SupplicantLineProblem("wep_key0", "P\"" + Repeated(length) + escape + '"').isEmpty());
}

void TestSupplicantLine::refusesNoSsid()
{
    // The supplicant takes it, and with it any network in range.
    QCOMPARE(SupplicantLineProblem("ssid", "\"\""), QString("ssid is empty, which stands for any network"));
}

void TestSupplicantLine::neverShowsTheValue()
{
    for (const QString &value : {Quoted("s3cret"), Quoted("s3cret\"#" + Repeated(70)), Quoted("s3cret\n")}) {
        for (const char *key : {"psk", "wep_key0", "private_key_passwd"})
            QVERIFY(!SupplicantLineProblem(key, value).contains("s3cret"));
    }
}

QTEST_GUILESS_MAIN(TestSupplicantLine)
#include "tst_supplicantline.moc"
