// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// A full rescan by number of interfaces, beside the bare system calls that list and read them, and beside the
// programs that it runs: `setup_resolved` once, and `ifconfig NAME up` for each, as it brings every wired
// interface up. And one of a single radio by number of WPA2 definitions whose passphrases are all new, beside
// `wpa_passphrase` alone, run once after the other.

#include "corvi.h"
#include "logging.h"

#include "sandboxed.h"
#include "testsupport.h"

#include <QCoreApplication>

#include <cstdlib>

#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

namespace {

QByteArray NameOf(long number)
{
    return "eth" + QByteArray::number(static_cast<qlonglong>(number));
}

/// Makes the interfaces eth0 ... and takes away those beyond `count`.
void GivenInterfaces(long count)
{
    static long present = 0;
    QByteArray commands;
    for (; present < count; ++present)
        commands += "link add name " + NameOf(present) + " type bridge\n";
    for (; present > count; --present)
        commands += "link delete dev " + NameOf(present - 1) + "\n";
    Sandboxed::Ip(commands);
    TestSupport::WriteNetworks("<network><name>lan</name></network>");
}

double Milliseconds(const timeval &time)
{
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

/// What this process and the programs that it ran have taken of the processor so far.
double CpuMs()
{
    double sum = 0;
    for (const auto who : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
        rusage usage = {};
        if (::getrusage(who, &usage) != 0)
            Sandboxed::Fail("read the processor time");
        sum += Milliseconds(usage.ru_utime) + Milliseconds(usage.ru_stime);
    }
    return sum;
}

/// On a busy machine the wall time may be several times this one, as each program is waited for several
/// times. Google Benchmark's own column leaves the programs out.
void ReportCpu(benchmark::State &state, double cpuMs)
{
    state.counters["cpu_ms"] = benchmark::Counter(cpuMs, benchmark::Counter::kAvgIterations);
}

void FloorListAndRead(benchmark::State &state)
{
    GivenInterfaces(state.range(0));
    for (auto _ : state) {
        DIR *const folder = ::opendir("/sys/class/net");
        long found = 0;
        while (const dirent *const entry = ::readdir(folder)) {
            if (entry->d_name[0] == '.')
                continue;
            const QByteArray path = QByteArray("/sys/class/net/") + entry->d_name + "/type";
            const int fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
            char type[16] = {};
            if (::read(fd, type, sizeof type) <= 0)
                Sandboxed::Fail("read a type");
            ::close(fd);
            ++found;
        }
        ::closedir(folder);
        if (found < state.range(0))
            Sandboxed::Fail("find the interfaces");
    }
}

void FloorPrograms(benchmark::State &state)
{
    GivenInterfaces(state.range(0));
    const double before = CpuMs();
    for (auto _ : state) {
        if (std::system("setup_resolved") != 0)
            Sandboxed::Fail("run setup_resolved");
        for (long i = 0; i < state.range(0); ++i) {
            QByteArray program = "ifconfig";
            QByteArray name = NameOf(i);
            QByteArray up = "up";
            char *const arguments[] = {program.data(), name.data(), up.data(), nullptr};
            pid_t child = 0;
            int status = 0;
            if (::posix_spawnp(&child, "ifconfig", nullptr, nullptr, arguments, environ) != 0 ||
                ::waitpid(child, &status, 0) != child || status != 0)
                Sandboxed::Fail("run ifconfig");
        }
    }
    ReportCpu(state, CpuMs() - before);
}

void Rescan(benchmark::State &state)
{
    GivenInterfaces(state.range(0));
    static Corvi corvi(nullptr);
    const double before = CpuMs();
    for (auto _ : state)
        corvi.Init();
    ReportCpu(state, CpuMs() - before);
}

QByteArray NewPassphrase()
{
    static int made = 0;
    return "passphrase " + QByteArray::number(++made);
}

void FloorNewKeys(benchmark::State &state)
{
    for (auto _ : state) {
        for (long i = 0; i < state.range(0); ++i) {
            if (std::system(("wpa_passphrase ssid '" + NewPassphrase() + "' >/dev/null").constData()) != 0)
                Sandboxed::Fail("run wpa_passphrase");
        }
    }
}

void RescanNewKeys(benchmark::State &state)
{
    GivenInterfaces(0);
    Sandboxed::Ip("link add name wlan0 type bridge\n");
    static Corvi corvi(nullptr);
    for (auto _ : state) {
        state.PauseTiming();
        QByteArray networks;
        for (long i = 0; i < state.range(0); ++i)
            networks += "<network><name>" + NameOf(i) + "</name><ssid>" + NameOf(i) +
                        "</ssid><securityMode>WPA Personal 1/2</securityMode><passphrase>" + NewPassphrase() +
                        "</passphrase></network>";
        TestSupport::WriteNetworks(networks);
        state.ResumeTiming();
        corvi.Init();
    }
    Sandboxed::Ip("link delete dev wlan0\n");
}

void Counts(benchmark::internal::Benchmark *bench)
{
    bench->Arg(1)->Arg(10)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK(FloorListAndRead)->Apply(Counts);
BENCHMARK(FloorPrograms)->Apply(Counts);
BENCHMARK(Rescan)->Apply(Counts);
BENCHMARK(FloorNewKeys)->Arg(1)->Arg(10)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(RescanNewKeys)->Arg(1)->Arg(10)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    return Sandboxed::RunBenchmarks(argc, argv);
}
