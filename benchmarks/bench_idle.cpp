// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// What a minute takes of the processor in which nothing happens, by number of interfaces, one of them in use:
// the daemon beside a program with the same timers that makes the bare system calls. More samples, for
// figures to show: --benchmark_repetitions=10 --benchmark_enable_random_interleaving=true

#include "sandboxed.h"
#include "testsupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>

#include <ctime>

namespace {

/// One look at each interface four times a second, one tick a second.
constexpr unsigned long SAMPLE_SECONDS = 3;
/// The ticks after the one that configures the interface in use.
constexpr unsigned long SETTLE_SECONDS = 3;
constexpr int START_LIMIT_MS = 60000;

QString NameOf(long number)
{
    return QStringLiteral("eth%1").arg(number);
}

/// eth0 has a cable, the others have none. The other ends are in a machine of their own, so that they are no
/// ports of this one.
void GivenInterfaces(long count)
{
    static bool isFarMachineMade = false;
    TestSupport::RemoveInterfaces();
    QByteArray commands = isFarMachineMade ? "" : "netns add far\n";
    isFarMachineMade = true;
    for (long i = 0; i < count; ++i)
        commands += "link add name " + NameOf(i).toLatin1() + " type veth peer name peer" +
                    QByteArray::number(static_cast<qlonglong>(i)) + " netns far\n";
    Sandboxed::Ip(commands);
    TestSupport::RealIp({"-netns", "far", "link", "set", "dev", "peer0", "up"});
    TestSupport::WriteNetworks("<network><name>lan</name><staticIp>true</staticIp>"
                               "<ipAddress>10.1.2.3</ipAddress><netmask>255.255.255.0</netmask></network>");
}

bool IsSetUp(long count)
{
    for (long i = 0; i < count; ++i) {
        if (TestSupport::ReadFile(QStringLiteral("/sys/class/net/%1/carrier").arg(NameOf(i))).isEmpty())
            return false;
    }
    return TestSupport::RealIp({"-4", "addr", "show", "dev", "eth0"}).contains("10.1.2.3");
}

void AwaitSetUp(long count)
{
    const QDeadlineTimer deadline(START_LIMIT_MS);
    while (!IsSetUp(count)) {
        if (deadline.hasExpired())
            Sandboxed::Fail("see the interfaces set up");
        ::usleep(100000);
    }
}

double ProcessorSeconds(clockid_t clock)
{
    timespec time = {};
    if (::clock_gettime(clock, &time) != 0)
        Sandboxed::Fail("read the processor time");
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

void Measure(benchmark::State &state, const char *program, const QStringList &arguments)
{
    QProcess process;
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(QString::fromLocal8Bit(program), arguments);
    if (!process.waitForStarted())
        Sandboxed::Fail("start the program");
    AwaitSetUp(state.range(0));
    ::sleep(SETTLE_SECONDS);

    clockid_t clock = 0;
    if (::clock_getcpuclockid(static_cast<pid_t>(process.processId()), &clock) != 0)
        Sandboxed::Fail("find the program's clock");
    const double before = ProcessorSeconds(clock);
    for (auto _ : state)
        ::sleep(SAMPLE_SECONDS);
    const double seconds = (ProcessorSeconds(clock) - before) / static_cast<double>(state.iterations());
    state.counters["cpu_ms_a_minute"] = seconds * 1e3 * 60 / SAMPLE_SECONDS;
    process.kill();
    process.waitForFinished(-1);
}

void IdleDaemon(benchmark::State &state)
{
    GivenInterfaces(state.range(0));
    Measure(state, DAEMON, {});
}

void FloorIdle(benchmark::State &state)
{
    GivenInterfaces(state.range(0));
    QStringList names;
    QByteArray commands = "addr add 10.1.2.3/24 dev eth0\n";
    for (long i = 0; i < state.range(0); ++i) {
        names.append(NameOf(i));
        commands += "link set dev " + NameOf(i).toLatin1() + " up\n";
    }
    Sandboxed::Ip(commands);
    Measure(state, BARE_PROGRAM, names);
}

BENCHMARK(FloorIdle)->Arg(1)->Arg(10)->Arg(100)->Iterations(1)->UseRealTime();
BENCHMARK(IdleDaemon)->Arg(1)->Arg(10)->Arg(100)->Iterations(1)->UseRealTime();

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    return Sandboxed::RunBenchmarks(argc, argv);
}
