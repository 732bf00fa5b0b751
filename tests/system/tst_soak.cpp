// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "corvipeer.h"
#include "fastclock.h"
#include "heapuse.h"
#include "supplicantprocess.h"
#include "zebnetstatus.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QRandomGenerator>
#include <QtTest>

#include <csignal>
#include <functional>

using namespace CorviWorld;
using namespace TestSupport;
using namespace std::chrono_literals;

namespace {

/// The short form; CORVI_SOAK_TICKS has the long one.
constexpr int SHORT_TICKS = 4000;
/// The longest pause between two attempts, and what the attempts themselves take.
constexpr int TICKS_TO_BE_RIGHT = 100;
/// A fault lasts for up to so many ticks, every second one for less.
constexpr int LONGEST_FAULT = 30;
constexpr int BRIEF_FAULT = 3;
/// And is followed by up to so many ticks of peace.
constexpr int LONGEST_PEACE = 100;
/// A path for each interface and rescan, with its share of the list.
constexpr qint64 BYTES_PER_RESCAN = 4 * 200;

/// What the store asks for, and the address that follows.
struct Definition
{
    QByteArray store;
    QString address;
    bool isSecured;
};

/// What goes wrong, and what ends it where it does not end by itself.
struct Fault
{
    const char *name;
    std::function<void()> begin;
    std::function<void()> end;
};

int Zombies()
{
    int found = 0;
    const QStringList pids = QDir(QStringLiteral("/proc")).entryList({"[0-9]*"}, QDir::Dirs);
    for (const QString &pid : pids)
        found += ReadFile(QStringLiteral("/proc/%1/stat").arg(pid)).contains(") Z ");
    return found;
}

void KillSupplicants()
{
    for (const SupplicantProcess &supplicant : SupplicantProcess::FindWith(SUPPLICANT_FILE))
        supplicant.SendSignal(SIGKILL);
}

void FailTool(const QString &program)
{
    Answer(program, "echo broken >&2; exit 1");
}

} // namespace

/// A hundred thousand seconds of a terminal with faults at random, in the time that the tools take: after
/// each fault the network is as the store asks for, and none leaves anything behind.
class TestSoak : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void everyFaultIsHealed();

private:
    void MendTools();
    void PlugAdapter();
    void Ask(const Definition &definition);
    void MakeFaults();
    void Second(CorviPeer &corvi);
    void Suffer(CorviPeer &corvi, const Fault &fault);
    void GetRight(CorviPeer &corvi, const Fault &fault);
    QString WhatIsWrong(const CorviPeer &corvi) const;
    void Settle(CorviPeer &corvi);
    void NoteUse();
    void CompareUse();

    QRandomGenerator chance;
    QVector<Definition> definitions;
    QVector<Fault> faults;
    const Definition *asked = nullptr;
    QHash<QString, int> slowest; ///< ticks until the network was right again, by the fault's name
    int ticks = 0;
    int rescans = 0;
    int descriptors = 0;
    int threads = 0;
    std::size_t bytes = 0;
    int rescansBefore = 0;
};

void TestSoak::initTestCase()
{
    QLoggingCategory::setFilterRules("*.debug=false\n*.warning=false");
    bool isGiven = false;
    quint32 seed = qEnvironmentVariable("CORVI_SEED").toUInt(&isGiven);
    if (!isGiven)
        seed = QRandomGenerator::global()->generate();
    chance.seed(seed);
    qInfo("CORVI_SEED=%u", seed);
    definitions = {
        {LAN_DHCP, "10.0.0.5", false}, {LAN_STATIC, "10.1.0.2", false}, {LAN_8021X_STATIC, "10.1.0.2", true}};
    StartFromNothing();
    QVERIFY(QDir().mkpath("/tmp/soak"));
    QVERIFY(QFile::link(FAKE_SUPPLICANT_PROGRAM, "/tmp/soak/wpa_supplicant"));
    MakeFaults();
    MendTools();
}

void TestSoak::MendTools()
{
    UseDhcpServer();
    for (const char *program : {"ifconfig", "ip", "mkdir", "route"})
        Answer(program, QByteArray("exec ") + program + " \"$@\"");
    // Let in at once. It closes its output when it listens.
    Answer("wpa_supplicant",
           "{ setsid /tmp/soak/wpa_supplicant \"$@\" --associated 2>/dev/null & } | cat >/dev/null");
}

void TestSoak::PlugAdapter()
{
    MakeInterface("eth0");
    PlugCable("eth0");
}

void TestSoak::Ask(const Definition &definition)
{
    asked = &definition;
    WriteStore(definition.store);
    WriteFile(RELOAD_FLAG, "");
    ++rescans;
}

void TestSoak::MakeFaults()
{
    const auto nothing = [] {
    };
    const auto mend = [this] {
        MendTools();
    };
    faults = {
        {"cable pulled", [] { PullCable("eth0"); },
         [] {
             PlugCable("eth0");
         }},
        {"cable moved", [] { PullCable("eth0"), PlugCable("eth0"); }, nothing},
        {"link taken down",
         [] {
             RealIp({"link", "set", "dev", "eth0", "down"});
         },
         nothing},
        {"address taken away",
         [] {
             RealIp({"addr", "flush", "dev", "eth0"});
         },
         nothing},
        {"adapter pulled",
         [] {
             RealIp({"link", "delete", "dev", "eth0"});
         },
         [this] {
             PlugAdapter();
         }},
        {"adapter replaced",
         [this] {
             RealIp({"link", "delete", "dev", "eth0"}), PlugAdapter();
         },
         nothing},
        {"reload", [this] { WriteFile(RELOAD_FLAG, ""), ++rescans; }, nothing},
        {"other definition",
         [this] { Ask(definitions.at(chance.bounded(static_cast<int>(definitions.size())))); }, nothing},
        {"broken store", [] { WriteStore("<networkconfig><net"); },
         [this] {
             WriteStore(asked->store), WriteFile(RELOAD_FLAG, ""), ++rescans;
         }},
        {"refresh file", [] { WriteFile(REFRESH_FLAG, ""); }, nothing},
        {"folder at the refresh file", [] { QDir().mkpath(REFRESH_FLAG + "/filled"); }, nothing},
        {"folder at the supplicant's file",
         [] { Remove(SUPPLICANT_FILE), QDir().mkpath(SUPPLICANT_FILE + "/filled"); }, nothing},
        {"no DHCP server",
         [] {
             FailTool("dhclient"), RealIp({"addr", "flush", "dev", "eth0"});
         },
         mend},
        {"ifconfig fails",
         [] {
             FailTool("ifconfig"), RealIp({"link", "set", "dev", "eth0", "down"});
         },
         mend},
        {"no supplicant starts", [] { FailTool("wpa_supplicant"), KillSupplicants(); }, mend},
        {"supplicant killed", [] { KillSupplicants(); }, nothing},
        {"segment removed", [] { QProcess::execute("ipcrm", {"--all=shm"}); }, nothing},
    };
}

/// Both service and supervisor tick once, a device looks four times.
void TestSoak::Second(CorviPeer &corvi)
{
    for (int i = 0; i < 4; ++i) {
        FastClock::Advance(250ms);
        QCoreApplication::processEvents();
    }
    Supervisor::Tick();
    corvi.Tick();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    ++ticks;
}

void TestSoak::Suffer(CorviPeer &corvi, const Fault &fault)
{
    fault.begin();
    const int longest = chance.bounded(2) == 0 ? BRIEF_FAULT : LONGEST_FAULT;
    for (int lasts = chance.bounded(longest); lasts > 0; --lasts)
        Second(corvi);
    fault.end();
    GetRight(corvi, fault);
    for (int lasts = chance.bounded(LONGEST_PEACE); lasts > 0; --lasts)
        Second(corvi);
    // What was right before the daemon had noticed the fault may have been wrong since then.
    GetRight(corvi, fault);
    ClearJournal();
    ClearLog();
}

void TestSoak::GetRight(CorviPeer &corvi, const Fault &fault)
{
    int taken = 0;
    QString wrong;
    do {
        Second(corvi);
        wrong = WhatIsWrong(corvi);
    } while (!wrong.isEmpty() && ++taken < TICKS_TO_BE_RIGHT);
    QVERIFY2(wrong.isEmpty(), qPrintable(QStringLiteral("tick %1, %2: %3\n%4")
                                             .arg(QString::number(ticks), QLatin1String(fault.name), wrong,
                                                  LogLines().mid(LogLines().size() - 40).join('\n'))));
    int &worst = slowest[QLatin1String(fault.name)];
    worst = qMax(worst, taken);
}

QString TestSoak::WhatIsWrong(const CorviPeer &corvi) const
{
    const QByteArray held = RealIp({"-4", "-o", "addr", "show", "dev", "eth0"});
    if (held.count('\n') != 1 || !held.contains(' ' + asked->address.toLatin1() + '/'))
        return "addresses " + held;
    ZebNetStatus record;
    if (!record.SetData(ReadSegment()))
        return QStringLiteral("no record");
    if (!record.IsConnected() || record.GetIp() != asked->address)
        return QStringLiteral("record %1 %2").arg(QString::number(record.IsConnected()), record.GetIp());
    const auto supplicants = static_cast<int>(SupplicantProcess::FindWith(SUPPLICANT_FILE).size());
    if (asked->isSecured ? supplicants != 1 || !WpaSuppThread::GetInstance()->IsAssociated()
                         : supplicants > 1)
        return QStringLiteral("%1 supplicants").arg(supplicants);
    if (!corvi.IsWiredUp())
        return QStringLiteral("link not reported");
    return {};
}

/// At rest on a cable that needs no supplicant, the last one gone.
void TestSoak::Settle(CorviPeer &corvi)
{
    Suffer(corvi, {"end", [this] { Ask(definitions.constFirst()); },
                   [] {
                   }});
    for (int i = 0; i < TICKS_TO_BE_RIGHT; ++i)
        Second(corvi);
}

void TestSoak::NoteUse()
{
    descriptors = EntryCount("/proc/self/fd");
    threads = EntryCount("/proc/self/task");
    bytes = HeapUse();
    rescansBefore = rescans;
}

void TestSoak::CompareUse()
{
    const auto growth = static_cast<qint64>(HeapUse()) - static_cast<qint64>(bytes);
    qInfo("%d ticks, %d rescans: heap growth %lld bytes, %d descriptors, %d threads", ticks, rescans,
          static_cast<long long>(growth), EntryCount("/proc/self/fd"), EntryCount("/proc/self/task"));
    for (auto fault = slowest.begin(); fault != slowest.end(); ++fault)
        qInfo("%s: right again after at most %d ticks", qPrintable(fault.key()), fault.value());
    QCOMPARE(EntryCount("/proc/self/fd"), descriptors);
    QCOMPARE(EntryCount("/proc/self/task"), threads);
    QCOMPARE(Zombies(), 0);
    QVERIFY(growth < 64 * 1024 + (rescans - rescansBefore) * BYTES_PER_RESCAN);
}

void TestSoak::everyFaultIsHealed()
{
    bool isLong = false;
    int limit = qEnvironmentVariable("CORVI_SOAK_TICKS").toInt(&isLong);
    if (!isLong)
        limit = SHORT_TICKS;
    asked = &definitions.constFirst();
    WriteStore(asked->store);
    PlugAdapter();
    CorviPeer corvi;
    // Each once, which fills the caches, too.
    for (const Fault &fault : qAsConst(faults)) {
        Suffer(corvi, fault);
        if (QTest::currentTestFailed())
            return;
    }
    Settle(corvi);
    NoteUse();
    while (ticks < limit) {
        Suffer(corvi, faults.at(chance.bounded(static_cast<int>(faults.size()))));
        if (QTest::currentTestFailed())
            return;
    }
    Settle(corvi);
    CompareUse();
}

QTEST_GUILESS_MAIN(TestSoak)
#include "tst_soak.moc"
