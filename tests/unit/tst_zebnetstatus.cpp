// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebnetstatus.h"

#include <QRandomGenerator>
#include <QtTest>

namespace {

ZebNetStatus ConnectedStatus()
{
    ZebNetStatus status;
    status.SetConnected(true);
    status.SetIfaceInfo("02:00:5E:10:00:01", "10.0.0.5", "10.0.0.255", "255.255.255.0");
    return status;
}

} // namespace

/// The record that other programs read: its bytes are fixed, and no bytes can harm its reader.
class TestZebNetStatus : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bytesAreTheDocumentedOnes();
    void recordIsPaddedWithZeros();
    void readsBackWhatWasSet_data();
    void readsBackWhatWasSet();
    void leavesOutTextThatDoesNotFit_data();
    void leavesOutTextThatDoesNotFit();
    void acceptsALongerSegment();
    void acceptsTheFieldsAlone();
    void refusesBadBytes_data();
    void refusesBadBytes();
    void refusedBytesChangeNothing();
    void survivesAnyBytes();
};

void TestZebNetStatus::bytesAreTheDocumentedOnes()
{
    ZebNetStatus status = ConnectedStatus();
    status.SetWireless(true);

    const QByteArray record = status.GetData();

    QCOMPARE(record.left(16), QByteArray::fromHex("5a4e5354 0100 d000 03000000 00000000"));
    QCOMPARE(record.mid(16, 18), QByteArray("02:00:5E:10:00:01\0", 18));
    QCOMPARE(record.mid(64, 9), QByteArray("10.0.0.5\0", 9));
    QCOMPARE(record.mid(112, 11), QByteArray("10.0.0.255\0", 11));
    QCOMPARE(record.mid(160, 14), QByteArray("255.255.255.0\0", 14));
}

void TestZebNetStatus::recordIsPaddedWithZeros()
{
    const QByteArray record = ConnectedStatus().GetData();

    QCOMPARE(record.size(), 512);
    QCOMPARE(record.mid(208), QByteArray(512 - 208, '\0'));
}

void TestZebNetStatus::readsBackWhatWasSet_data()
{
    QTest::addColumn<bool>("connected");
    QTest::addColumn<bool>("wireless");
    QTest::addColumn<QString>("ip");
    QTest::newRow("connected") << true << false << "10.0.0.5";
    QTest::newRow("wireless") << false << true << "10.0.0.5";
    QTest::newRow("both") << true << true << "255.255.255.255";
    QTest::newRow("nothing") << false << false << QString();
    QTest::newRow("first and last printable character") << true << false << " ~";
    QTest::newRow("longest text") << true << true << QString(47, 'x');
}

void TestZebNetStatus::readsBackWhatWasSet()
{
    QFETCH(bool, connected);
    QFETCH(bool, wireless);
    QFETCH(QString, ip);
    ZebNetStatus written;
    written.SetConnected(connected);
    written.SetWireless(wireless);
    written.SetIfaceInfo("02:00:5E:10:00:01", ip, "10.0.0.255", "255.255.255.0");

    ZebNetStatus read;
    QVERIFY(read.SetData(written.GetData()));

    QTEST(read.IsConnected(), "connected");
    QTEST(read.IsWireless(), "wireless");
    QTEST(read.GetIp(), "ip");
    QCOMPARE(read.GetMac(), "02:00:5E:10:00:01");
    QCOMPARE(read.GetBroadcast(), "10.0.0.255");
    QCOMPARE(read.GetNetmask(), "255.255.255.0");
    QCOMPARE(read.GetData(), written.GetData());
}

void TestZebNetStatus::leavesOutTextThatDoesNotFit_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("one too long") << QString(48, 'x');
    QTest::newRow("much too long") << QString(100000, 'x');
    QTest::newRow("not ASCII") << QString::fromUtf8("10.0.0.\xc3\xa9");
    QTest::newRow("control character") << QString("10.0.0.5\n");
    QTest::newRow("delete") << QString("10.0.0.5\x7f");
}

void TestZebNetStatus::leavesOutTextThatDoesNotFit()
{
    QFETCH(QString, text);
    ZebNetStatus written;
    written.SetIfaceInfo("02:00:5E:10:00:01", text, "10.0.0.255", "255.255.255.0");

    ZebNetStatus read;
    QVERIFY(read.SetData(written.GetData()));

    QCOMPARE(read.GetIp(), QString());
    QCOMPARE(read.GetBroadcast(), "10.0.0.255");
}

void TestZebNetStatus::acceptsALongerSegment()
{
    ZebNetStatus read;

    QVERIFY(read.SetData(ConnectedStatus().GetData() + QByteArray(3584, '\0')));

    QCOMPARE(read.GetIp(), "10.0.0.5");
}

void TestZebNetStatus::acceptsTheFieldsAlone()
{
    ZebNetStatus read;

    QVERIFY(read.SetData(ConnectedStatus().GetData().left(208)));

    QCOMPARE(read.GetNetmask(), "255.255.255.0");
}

void TestZebNetStatus::refusesBadBytes_data()
{
    QTest::addColumn<QByteArray>("data");
    const QByteArray good = ConnectedStatus().GetData();
    const auto changed = [good](int offset, const QByteArray &bytes) {
        return QByteArray(good).replace(offset, bytes.size(), bytes);
    };
    QTest::newRow("nothing") << QByteArray();
    QTest::newRow("all zeros") << QByteArray(512, '\0');
    QTest::newRow("cut") << good.left(207);
    QTest::newRow("other magic") << changed(0, "ZNSU");
    QTest::newRow("newer version") << changed(4, QByteArray::fromHex("0200"));
    QTest::newRow("big-endian version") << changed(4, QByteArray::fromHex("0001"));
    QTest::newRow("other length") << changed(6, QByteArray::fromHex("d100"));
    QTest::newRow("length beyond the end") << changed(6, QByteArray::fromHex("ffff"));
    QTest::newRow("text without an end") << changed(64, QByteArray(48, 'x'));
    QTest::newRow("last text without an end") << changed(160, QByteArray(48, 'x'));
    QTest::newRow("escape sequence in a text") << changed(64, "\x1b[2J");
    QTest::newRow("delete in a text") << changed(64, "\x7f");
    QTest::newRow("byte beyond ASCII") << changed(64, "\xff");
}

void TestZebNetStatus::refusesBadBytes()
{
    QFETCH(QByteArray, data);

    QVERIFY(!ZebNetStatus().SetData(data));
}

void TestZebNetStatus::refusedBytesChangeNothing()
{
    ZebNetStatus status = ConnectedStatus();
    QByteArray brokenLate = ZebNetStatus().GetData();
    brokenLate.replace(160, 48, QByteArray(48, 'x'));

    QVERIFY(!status.SetData(brokenLate));

    QCOMPARE(status.GetData(), ConnectedStatus().GetData());
}

void TestZebNetStatus::survivesAnyBytes()
{
    QRandomGenerator random(1);
    const QByteArray header = ConnectedStatus().GetData().left(16);
    int accepted = 0;
    for (int round = 0; round < 20000; ++round) {
        QByteArray data(512, '\0');
        for (int i = 0; i < data.size(); ++i)
            data[i] = static_cast<char>(random.bounded(round % 2 == 0 ? 256 : 2) * 0x41);
        // Half of them get past the header, so that the texts are reached.
        if (round % 4 != 0)
            data.replace(0, header.size(), header);
        ZebNetStatus status;
        if (!status.SetData(data))
            continue;
        ++accepted;
        ZebNetStatus again;
        QVERIFY(again.SetData(status.GetData()));
    }
    QVERIFY(accepted > 0);
}

QTEST_GUILESS_MAIN(TestZebNetStatus)
#include "tst_zebnetstatus.moc"
