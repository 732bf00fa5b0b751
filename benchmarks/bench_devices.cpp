// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// The status of a device, read four times a second, beside the bare system calls that it takes; and the
// loading of the definitions for two wired devices and a wireless one, by number of definitions, beside
// reading the store's file and beside one pass of the XML reader over it.

#include "logging.h"
#include "namednetwork.h"
#include "wireddevice.h"
#include "wirelessdevice.h"

#include "allocationcounter.h"
#include "sandboxed.h"
#include "testsupport.h"

#include <QFile>
#include <QXmlStreamReader>

#include <fcntl.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace {

void GivenInterface()
{
    static bool made = false;
    if (made)
        return;
    made = true;
    Sandboxed::Ip("link add name eth0 type veth peer name peer0\n"
                  "link set dev eth0 up\n"
                  "link set dev peer0 up\n"
                  "addr add 10.1.2.3/24 broadcast 10.1.2.255 dev eth0\n");
}

void FloorStatusSystemCalls(benchmark::State &state)
{
    GivenInterface();
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    for (auto _ : state) {
        for (const unsigned long request : {SIOCGIFADDR, SIOCGIFBRDADDR, SIOCGIFNETMASK, SIOCGIFHWADDR}) {
            ifreq answer = {};
            qstrncpy(answer.ifr_name, "eth0", sizeof answer.ifr_name);
            if (::ioctl(fd, request, &answer) != 0)
                Sandboxed::Fail("ask for an address");
        }
        const int carrier = ::open("/sys/class/net/eth0/carrier", O_RDONLY | O_CLOEXEC);
        char first = 0;
        if (::read(carrier, &first, 1) != 1)
            Sandboxed::Fail("read the carrier");
        ::close(carrier);
    }
    ::close(fd);
}

void RefreshStatus(benchmark::State &state)
{
    GivenInterface();
    NetworkDevice device(QStringLiteral("eth0"), nullptr);
    device.RefreshStatus();
    const long before = AllocationCounter::allocations;
    for (auto _ : state)
        device.RefreshStatus();
    state.counters["allocations"] = benchmark::Counter(
        static_cast<double>(AllocationCounter::allocations - before), benchmark::Counter::kAvgIterations);
    if (!device.isUp || device.ipAddress.isEmpty())
        Sandboxed::Fail("see the interface's address");
}

/// Half of the definitions are wired, half wireless; none needs an outside program.
void GivenDefinitions(long count)
{
    QByteArray networks;
    for (long i = 0; i < count; ++i) {
        const QByteArray number = QByteArray::number(static_cast<qlonglong>(i));
        const bool wired = i % 2 == 0;
        networks += "<network><name>" + (wired ? "lan" + number : "net" + number) + "</name><ssid>net" +
                    number + "</ssid><securityMode>" +
                    (wired ? "802.1X (PEAP/MSCHAPv2)" : "WPA Enterprise 1/2 (PEAP/MSCHAPv2)") +
                    "</securityMode><identity>user</identity><password>secret</password></network>";
    }
    TestSupport::WriteNetworks(networks);
}

QByteArray ReadStoreFile()
{
    const int fd = ::open(QFile::encodeName(TestSupport::STORE_FILE).constData(), O_RDONLY | O_CLOEXEC);
    struct stat info = {};
    ::fstat(fd, &info);
    QByteArray contents(static_cast<int>(info.st_size), Qt::Uninitialized);
    if (::read(fd, contents.data(), static_cast<size_t>(contents.size())) != contents.size())
        Sandboxed::Fail("read the store");
    ::close(fd);
    return contents;
}

/// So that the store takes its file for a new version.
void TouchStoreFile()
{
    if (::utimensat(AT_FDCWD, QFile::encodeName(TestSupport::STORE_FILE).constData(), nullptr, 0) != 0)
        Sandboxed::Fail("touch the store");
}

void FloorReadStoreFile(benchmark::State &state)
{
    GivenDefinitions(state.range(0));
    for (auto _ : state)
        benchmark::DoNotOptimize(ReadStoreFile());
}

void FloorReadStoreXml(benchmark::State &state)
{
    GivenDefinitions(state.range(0));
    for (auto _ : state) {
        QXmlStreamReader xml(ReadStoreFile());
        while (!xml.atEnd())
            xml.readNext();
        if (xml.hasError())
            Sandboxed::Fail("read the store's XML");
    }
}

void LoadForThreeDevices(benchmark::State &state, bool changed)
{
    GivenDefinitions(state.range(0));
    for (auto _ : state) {
        if (changed)
            TouchStoreFile();
        const WiredDevice first(QStringLiteral("eth0"), nullptr);
        const WiredDevice second(QStringLiteral("eth1"), nullptr);
        const WirelessDevice third(QStringLiteral("wlan0"), nullptr);
        const auto loaded = first.namedNetworks.size() + third.namedNetworks.size();
        if (loaded != state.range(0))
            Sandboxed::Fail("load all definitions");
    }
}

void Counts(benchmark::internal::Benchmark *bench)
{
    bench->Arg(1)->Arg(10)->Arg(100)->Arg(200)->Unit(benchmark::kMicrosecond);
}

BENCHMARK(FloorStatusSystemCalls);
BENCHMARK(RefreshStatus);
BENCHMARK(FloorReadStoreFile)->Apply(Counts);
BENCHMARK(FloorReadStoreXml)->Apply(Counts);
BENCHMARK_CAPTURE(LoadForThreeDevices, StoreChanged, true)->Apply(Counts);
BENCHMARK_CAPTURE(LoadForThreeDevices, StoreUnchanged, false)->Apply(Counts);

} // namespace

int main(int argc, char *argv[])
{
    Logging::GetInstance(2, false);
    return Sandboxed::RunBenchmarks(argc, argv);
}
