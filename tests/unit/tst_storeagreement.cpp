// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "debugoutput.h"
#include "storecheck.h"
#include "testsupport.h"
#include "zebdocument.h"
#include "zebnetconfig.h"
#include "zebproperties.h"

#include <QRandomGenerator>
#include <QtTest>

namespace {

/// Of each kind some that are good, some that are refused and some that are another's.
const QStringList VALUES = {"true",
                            "false",
                            "True",
                            "1",
                            "",
                            "0",
                            "1400",
                            "99999999999",
                            "-70",
                            "10.0.0.2",
                            "255.255.255.0",
                            "255.0.255.0",
                            "10.0.0.256",
                            "2001:db8::1",
                            "a.example",
                            "a,b",
                            "5.0",
                            "5G",
                            "CCMP TKIP",
                            "CCPM",
                            "fallback",
                            "none",
                            "ca.pem",
                            "../ca.pem",
                            "a/b.pac",
                            "\"abcde\"",
                            "0123456789",
                            "correct horse battery staple",
                            "short",
                            "a\nb",
                            "a\"#b",
                            "&lt;",
                            "<b/>",
                            "\u00e9",
                            "WEP",
                            "WPA Personal 1/2",
                            "WPA Personal 3",
                            "WPA Enterprise 1/2 (TLS)",
                            "802.1X (TLS/EAP)",
                            "802.1X (PEAP/MSCHAPv2)",
                            "Unsecured",
                            "WPA2",
                            "wired_tls"};

/// All that a network may hold, and what somebody may have meant by it.
QStringList Elements()
{
    QStringList elements{"hosts", "MTU"};
    for (const ZebProperty &property : ZebProperties::All())
        elements.append(property.key);
    return elements;
}

/// Faults of the text as a whole.
const QStringList FAULTS = {"</network>", "<", "&", "&x;", "<a>", "<!DOCTYPE c>", "\x01"};

/// Stores of a few networks of which much is wrong. The number in their names keeps those of one store apart
/// from the next one's, whose good networks would otherwise stay in force.
class StoreMaker
{
public:
    explicit StoreMaker(quint32 seed) : random(seed), elements(Elements()) {}

    QByteArray Make(int number)
    {
        QString xml = "<c>\n";
        if (OneIn(3))
            xml += "<useNewDriver>" + Any(VALUES) + "</useNewDriver>\n";
        for (int network = 0; network < 3; ++network)
            xml += Network(Any({"lan", "wiredeth", "Office"}) + QString("%1-%2").arg(number).arg(network));
        xml += "</c>";
        if (OneIn(6))
            xml.insert(random.bounded(static_cast<int>(xml.size())), Any(FAULTS));
        return xml.toUtf8();
    }

private:
    bool OneIn(int count) { return random.bounded(count) == 0; }
    QString Any(const QStringList &list) { return list.at(random.bounded(static_cast<int>(list.size()))); }

    QString Network(const QString &name)
    {
        QString xml = "<network>";
        if (!OneIn(10))
            xml += "<name>" + name + "</name>";
        for (int count = random.bounded(8); count > 0; --count) {
            const QString element = Any(elements);
            xml += '<' + element + '>' + Any(VALUES) + "</" + element + '>' + (OneIn(2) ? "\n" : " ");
        }
        return xml + "</network>\n";
    }

    QRandomGenerator random;
    QStringList elements;
};

/// What the daemon tells of the store: without the name of the operation and the file.
QStringList ToldByTheDaemon()
{
    QStringList told;
    for (const QString &line : DebugOutput::Take())
        told << line.section(TestSupport::STORE_FILE + ": ", 1);
    return told;
}

/// The same, of what the checker finds.
QStringList ToldByTheChecker(const StoreReport &report)
{
    QStringList told;
    for (const StoreFinding &finding : report.findings) {
        QString line = QString("line %1, column %2: ").arg(finding.place.line).arg(finding.place.column);
        if (!finding.network.isEmpty())
            line += "network \"" + finding.network + "\": ";
        if (!finding.property.isEmpty())
            line += finding.property + ": ";
        told << line + finding.reason;
    }
    return told;
}

QStringList Sorted(QStringList list)
{
    list.sort();
    return list;
}

} // namespace

/// Whether the checker and the daemon's reader say and take the same of any store.
class TestStoreAgreement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void checkerSaysWhatTheDaemonSays();
};

void TestStoreAgreement::checkerSaysWhatTheDaemonSays()
{
    // 10000 take half a minute on a slow machine.
    constexpr int COUNT = 10000;
    StoreMaker maker(20261121);
    const DebugOutput warnings("zeb");
    QStringList inForce;
    int refused = 0;
    for (int number = 0; number < COUNT; ++number) {
        const QByteArray store = maker.Make(number);
        TestSupport::WriteStore(store);

        const QStringList networks = ZebNetConfig::GetNetworkNames();
        const QStringList daemon = ToldByTheDaemon();
        ZebDocument document;
        const StoreReport report = ReadStore(store, document);

        if (report.isUsable) {
            QVERIFY2(Sorted(daemon) == Sorted(ToldByTheChecker(report)), store.constData());
            QVERIFY2(networks == document.networkNames, store.constData());
            inForce = networks;
            continue;
        }
        ++refused;
        QCOMPARE(daemon.size(), 1);
        QVERIFY2(daemon.constFirst().startsWith(ToldByTheChecker(report).constLast() + "; "),
                 store.constData());
        QCOMPARE(networks, inForce);
    }
    // Both kinds must have been there.
    QVERIFY(refused > COUNT / 20 && refused < COUNT / 2);
}

QTEST_GUILESS_MAIN(TestStoreAgreement)
#include "tst_storeagreement.moc"
