// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// From definitions in the store to the supplicant's file, by number of definitions. "Wpa3" needs no outside
// program; "Wpa2" has its hashed keys from an earlier building; "Wpa2Anew" has new passphrases each time and
// runs wpa_passphrase once for each definition, and tool_share is the part of the time that goes there. The
// floor is writing a file of the same size with bare system calls.

#include "logging.h"
#include "namednetwork.h"
#include "sandboxed.h"
#include "testsupport.h"
#include "utils.h"

#include <QByteArray>
#include <QFile>

#include <benchmark/benchmark.h>

#include <chrono>

#include <fcntl.h>
#include <unistd.h>

namespace {

const QString WRITTEN_FILE = QStringLiteral("/tmp/wpa_supplicant.conf");

void WriteStore(int count, const QByteArray &mode, const QByteArray &passphrase = "passphrase")
{
    QByteArray networks;
    for (int i = 0; i < count; ++i) {
        const QByteArray number = QByteArray::number(i);
        networks += "<network><name>net" + number + "</name><ssid>ssid" + number + "</ssid><securityMode>" +
                    mode + "</securityMode><passphrase>" + passphrase + number + "</passphrase></network>";
    }
    TestSupport::WriteNetworks(networks);
}

void BuildAndWrite()
{
    QStringList lines;
    const QStringList names = ZebNetConfig::GetNetworkNames();
    for (const QString &name : names)
        lines += NamedNetwork(name, false, nullptr).Block();
    if (!WpaSupplicantCfg::WriteCfg(lines))
        Sandboxed::Fail("write the supplicant's file");
}

void Wpa3Definitions(benchmark::State &state)
{
    WriteStore(int(state.range(0)), "WPA Personal 3");
    for (auto _ : state)
        BuildAndWrite();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void Wpa2Definitions(benchmark::State &state)
{
    WriteStore(int(state.range(0)), "WPA Personal 1/2");
    BuildAndWrite();
    for (auto _ : state)
        BuildAndWrite();
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void Wpa2DefinitionsAnew(benchmark::State &state)
{
    using Clock = std::chrono::steady_clock;
    std::chrono::duration<double> inTool{0};
    std::chrono::duration<double> inAll{0};
    static int version = 0;
    for (auto _ : state) {
        state.PauseTiming();
        WriteStore(int(state.range(0)), "WPA Personal 1/2",
                   "passphrase " + QByteArray::number(++version) + ' ');
        state.ResumeTiming();
        const auto start = Clock::now();
        BuildAndWrite();
        const auto end = Clock::now();
        inAll += end - start;

        state.PauseTiming();
        const auto toolStart = Clock::now();
        for (int i = 0; i < state.range(0); ++i) {
            const QString number = QString::number(i);
            Utils::Execute(QStringLiteral("wpa_passphrase"),
                           {QStringLiteral("ssid") + number, QStringLiteral("passphrase") + number}, false);
        }
        inTool += Clock::now() - toolStart;
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.counters["tool_share"] = inTool / inAll;
}

/// The file that Wpa3Definitions writes.
void FloorWriteOnly(benchmark::State &state)
{
    WriteStore(int(state.range(0)), "WPA Personal 3");
    BuildAndWrite();
    QFile file(WRITTEN_FILE);
    if (!file.open(QIODevice::ReadOnly))
        Sandboxed::Fail("read the supplicant's file");
    const QByteArray contents = file.readAll();
    for (auto _ : state) {
        const int fd = ::open("/tmp/floor.conf", O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600);
        benchmark::DoNotOptimize(::write(fd, contents.constData(), size_t(contents.size())));
        ::close(fd);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void Counts(benchmark::internal::Benchmark *bench)
{
    bench->Arg(1)->Arg(10)->Arg(100)->Arg(500)->Unit(benchmark::kMicrosecond)->UseRealTime();
}

BENCHMARK(FloorWriteOnly)->Apply(Counts);
BENCHMARK(Wpa3Definitions)->Apply(Counts);
BENCHMARK(Wpa2Definitions)->Apply(Counts);
BENCHMARK(Wpa2DefinitionsAnew)->Apply(Counts);

} // namespace

int main(int argc, char *argv[])
{
    Logging::GetInstance(2, false);
    return Sandboxed::RunBenchmarks(argc, argv);
}
