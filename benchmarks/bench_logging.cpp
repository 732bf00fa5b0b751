// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// A line of the log: dropped by its level, beside a call that does nothing; written, beside bare open, write
// and close of a line of the same length.

#include "logging.h"

#include "allocationcounter.h"
#include "sandboxed.h"

#include <fcntl.h>

namespace {

constexpr int CURRENT_LEVEL = 2;

void CountAllocations(benchmark::State &state, long before)
{
    state.counters["allocations"] = benchmark::Counter(
        static_cast<double>(AllocationCounter::allocations - before), benchmark::Counter::kAvgIterations);
}

[[gnu::noinline]] void CallNothing(const QString &text, int number)
{
    benchmark::DoNotOptimize(&text);
    benchmark::DoNotOptimize(number);
}

void FloorEmptyCall(benchmark::State &state)
{
    const QString text = QStringLiteral("eth0");
    for (auto _ : state)
        CallNothing(text, 7);
}

void LineNotWritten(benchmark::State &state)
{
    const QString text = QStringLiteral("eth0");
    const long before = AllocationCounter::allocations;
    for (auto _ : state)
        Log(Level::TRACE) << "NetworkDevice::RefreshStatus --" << text << 7;
    CountAllocations(state, before);
}

void FloorOpenWriteClose(benchmark::State &state)
{
    const QByteArray line = "2025-05-03 17:05:01.234 :  NetworkDevice::RefreshStatus -- eth0 7 \n";
    for (auto _ : state) {
        const int fd = ::open("/var/log/floor.log", O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        if (::write(fd, line.constData(), static_cast<size_t>(line.size())) != line.size())
            Sandboxed::Fail("write a line");
        ::close(fd);
    }
    ::unlink("/var/log/floor.log");
}

void LineWritten(benchmark::State &state)
{
    const QString text = QStringLiteral("eth0");
    const long before = AllocationCounter::allocations;
    for (auto _ : state)
        Log(CURRENT_LEVEL) << "NetworkDevice::RefreshStatus --" << text << 7;
    CountAllocations(state, before);
    Logging::GetInstance(CURRENT_LEVEL, true);
}

BENCHMARK(FloorEmptyCall);
BENCHMARK(LineNotWritten);
BENCHMARK(FloorOpenWriteClose);
BENCHMARK(LineWritten);

} // namespace

int main(int argc, char *argv[])
{
    Logging::GetInstance(CURRENT_LEVEL, false);
    return Sandboxed::RunBenchmarks(argc, argv);
}
