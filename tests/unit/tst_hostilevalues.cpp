// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "debugoutput.h"
#include "logging.h"
#include "namednetwork.h"
#include "securitymodes.h"
#include "writerworld.h"

#include <QProcess>
#include <QRandomGenerator>
#include <QtTest>

#include <memory>
#include <vector>

namespace {

/// What could break out of a quoted value, a line or a block, beside plain letters.
const QStringList PIECES = {"a",   "Z",          "7",   " ",     "\"",        "#",   "\\",     "'",
                            "=",   "{",          "}",   "%",     "\n",        "\t",  "\u00e9", "<",
                            "&",   "\U0001f642", "\"#", "hash:", "network={", "\\x", "psk=",   "abcdefghijkl",
                            "P\"", "$"};

/// A quarter of the values, so that some networks have none that is refused.
QString HostileText(QRandomGenerator &random)
{
    if (random.bounded(4) != 0)
        return QStringLiteral("long enough");
    // Mostly as long as the limits of an SSID and a passphrase, at times beyond those of a line.
    const int pieces = random.bounded(30) == 0 ? random.bounded(1200) : random.bounded(14);
    QString text = random.bounded(30) == 0 ? QStringLiteral("\n}") : QString();
    for (int i = 0; i < pieces; ++i)
        text += PIECES.at(random.bounded(int(PIECES.size())));
    return text;
}

QByteArray Element(const char *property, const QString &value)
{
    QString escaped = value.toHtmlEscaped();
    escaped.replace("\n", "&#10;").replace("\t", "&#9;");
    return QStringLiteral("<%1>%2</%1>").arg(QLatin1String(property), escaped).toUtf8();
}

/// One network of each mode.
QByteArray HostileStore(QRandomGenerator &random)
{
    QByteArray networks;
    for (auto mode = SecurityModes.begin(); mode != SecurityModes.end(); ++mode) {
        const bool isWired = FindSecurityMode(mode.key())->kind == ModeKind::Wired;
        const QByteArray name = (isWired ? "lan" : "net") + QByteArray::number(random.generate());
        networks +=
            "<network>" + Element("name", QString::fromLatin1(name)) + Element("securityMode", mode.key());
        const bool isWep = FindSecurityMode(mode.key())->kind == ModeKind::Wep;
        networks += Element("wepKey", isWep ? QLatin1Char('"') + HostileText(random).left(5) + '"' : "");
        for (const char *property : {"ssid", "passphrase", "identity", "password", "caCert", "clientCert",
                                     "privateKey", "privateKeyPassword", "pacFile"})
            networks += Element(property, HostileText(random));
        networks += "</network>\n";
    }
    return networks;
}

QStringList NamesIn(const QByteArray &store)
{
    static const QRegularExpression name("<name>(.+?)</name>");
    QStringList names;
    for (auto matches = name.globalMatch(QString::fromUtf8(store)); matches.hasNext();)
        names.append(matches.next().captured(1));
    return names;
}

/// The values that the supplicant says it has read in one block, as "NAME - hexdump_ascii(len=N):" and lines
/// of 16 bytes each.
QHash<QString, QByteArray> ValuesIn(const QStringList &lines)
{
    static const QRegularExpression head("^(.+) - hexdump_ascii\\(len=(\\d+)\\):$");
    QHash<QString, QByteArray> values;
    for (int i = 0; i < lines.size(); ++i) {
        const QRegularExpressionMatch match = head.match(lines.at(i));
        if (!match.hasMatch())
            continue;
        const int length = match.captured(2).toInt();
        QByteArray bytes;
        while (bytes.size() < length && i + 1 < lines.size()) {
            const int inLine = qMin(16, length - int(bytes.size()));
            bytes += QByteArray::fromHex(lines.at(++i).mid(5, 3 * inLine).toLatin1());
        }
        values.insert(match.captured(1), bytes);
    }
    return values;
}

/// What the real supplicant prints of the file; the interface does not exist, so it ends after that.
QString RealReading()
{
    QProcess supplicant;
    supplicant.setProcessChannelMode(QProcess::MergedChannels);
    supplicant.start("/usr/sbin/wpa_supplicant", {"-ddK", "-Dwired", "-inope0", "-c" + FILE_PATH});
    supplicant.waitForFinished();
    return QString::fromLatin1(supplicant.readAll());
}

void CompareValues(const ZebNetConfig &config, const QHash<QString, QByteArray> &read)
{
    const QHash<QString, QString> expected = {{"ssid", config.ssid},
                                              {"identity", config.identity},
                                              {"anonymous_identity", "FAST-" + config.identity},
                                              {"sae_password", config.passphrase},
                                              {"PSK (ASCII passphrase)", config.passphrase},
                                              {"private_key_passwd", config.privateKeyPassword}};
    for (auto value = expected.begin(); value != expected.end(); ++value) {
        if (read.contains(value.key()))
            QCOMPARE(read.value(value.key()), value.value().toUtf8());
    }
}

} // namespace

/// Any texts as the values of every security mode, with the real supplicant as the judge: it reads the file
/// without an error and with the same values, or the one network is left out and named in the log.
class TestHostileValues : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void areReadAsMeantOrLeftOut();
};

/// A long run: CORVI_HOSTILE_STORES=10000 QTEST_FUNCTION_TIMEOUT=36000000 (ms), with CORVI_HOSTILE_SEED for
/// another beginning.
void TestHostileValues::areReadAsMeantOrLeftOut()
{
    StartWriterFromNothing();
    Logging::GetInstance(2, false);
    const int stores = qEnvironmentVariable("CORVI_HOSTILE_STORES", "25").toInt();
    QRandomGenerator random(qEnvironmentVariable("CORVI_HOSTILE_SEED", "1").toUInt());
    int kept = 0;
    int leftOut = 0;

    for (int store = 0; store < stores; ++store) {
        const QByteArray contents = HostileStore(random);
        TestSupport::WriteNetworks(contents);
        const DebugOutput output;
        const QStringList stored = ZebNetConfig::GetNetworkNames();
        std::vector<std::unique_ptr<NamedNetwork>> written;
        QStringList missing = NamesIn(contents);
        QStringList lines;
        for (const QString &name : stored) {
            auto network = std::make_unique<NamedNetwork>(name, false, nullptr);
            if (network->Block().isEmpty())
                continue;
            lines += network->Block();
            missing.removeAll(name);
            written.push_back(std::move(network));
        }
        const QString told = output.Take().join("\n") + TestSupport::LogText();
        for (const QString &name : missing)
            QVERIFY2(told.contains(name), qPrintable(name));
        leftOut += int(missing.size());
        QVERIFY(WpaSupplicantCfg::WriteCfg(lines));

        const QString reading = RealReading();

        QVERIFY2(!reading.contains("Failed to read or parse"), qPrintable(reading));
        const QStringList blocks = reading.split("start of a new network block").mid(1);
        QCOMPARE(int(blocks.size()), int(written.size()));
        for (int i = 0; i < blocks.size(); ++i)
            CompareValues(*written.at(size_t(i))->Config(), ValuesIn(blocks.at(i).split('\n')));
        kept += int(written.size());
    }

    qInfo() << stores << "stores:" << kept << "networks kept," << leftOut << "left out";
    QVERIFY(kept > stores && leftOut > stores);
}

QTEST_GUILESS_MAIN(TestHostileValues)

#include "tst_hostilevalues.moc"
