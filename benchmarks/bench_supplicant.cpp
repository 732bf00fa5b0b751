// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// The control socket and the supervisor's tick, each beside the bare system calls with the same peer: a
// command and its reply, an event from the socket to the signal, a tick that finds nothing to do.

#include "wpasupplicantcontrol.h"
#include "wpasuppthreadpeer.h"

#include "sandboxed.h"

#include <QCoreApplication>
#include <QDir>

#include <cstring>
#include <thread>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

const QString INTERFACE = QStringLiteral("wlan0");
constexpr char PEER_PATH[] = "/var/run/wpa_supplicant/wlan0";
constexpr char OWN_PATH[] = "/tmp/bench_supplicant";
constexpr char EVENT[] = "<3>CTRL-EVENT-SIGNAL-CHANGE above=1 signal=-40 noise=-95 txrate=65000";

sockaddr_un Address(const char *path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path);
    return address;
}

const sockaddr *Generic(const sockaddr_un &address)
{
    return reinterpret_cast<const sockaddr *>(&address);
}

int BindTo(const char *path)
{
    ::unlink(path);
    const sockaddr_un address = Address(path);
    const int descriptor = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0 || ::bind(descriptor, Generic(address), sizeof address) != 0)
        Sandboxed::Fail("bind a socket");
    return descriptor;
}

/// Answers every datagram with "OK" as fast as it can, and sends events to the last one who asked.
class Peer
{
public:
    Peer()
    {
        QDir().mkpath(QStringLiteral("/var/run/wpa_supplicant"));
        descriptor = BindTo(PEER_PATH);
        thread = std::thread([this] { Serve(); });
    }

    ~Peer()
    {
        const sockaddr_un self = Address(PEER_PATH);
        ::sendto(descriptor, "", 0, 0, Generic(self), sizeof self);
        thread.join();
        ::close(descriptor);
    }

    void SendEvent() { ::sendto(descriptor, EVENT, sizeof EVENT - 1, 0, Generic(client), sizeof client); }

private:
    void Serve()
    {
        char buffer[4096];
        for (;;) {
            sockaddr_un from{};
            socklen_t length = sizeof from;
            if (::recvfrom(descriptor, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr *>(&from),
                           &length) <= 0)
                return;
            client = from;
            ::sendto(descriptor, "OK\n", 3, 0, Generic(from), length);
        }
    }

    int descriptor = -1;
    sockaddr_un client{};
    std::thread thread;
};

/// A client that is nothing but its socket.
class BareClient
{
public:
    BareClient() : descriptor(BindTo(OWN_PATH))
    {
        const sockaddr_un peer = Address(PEER_PATH);
        if (::connect(descriptor, Generic(peer), sizeof peer) != 0)
            Sandboxed::Fail("connect to the peer");
    }

    ~BareClient()
    {
        ::close(descriptor);
        ::unlink(OWN_PATH);
    }

    void Send() const { ::send(descriptor, "PING", 4, 0); }
    void Receive() const
    {
        char buffer[4096];
        benchmark::DoNotOptimize(::recv(descriptor, buffer, sizeof buffer, 0));
    }

    const int descriptor;
};

void FloorDatagramRoundTrip(benchmark::State &state)
{
    Peer peer;
    BareClient client;
    for (auto _ : state) {
        client.Send();
        client.Receive();
    }
}

void CommandRoundTrip(benchmark::State &state)
{
    Peer peer;
    WpaSupplicantControl control(nullptr);
    if (!control.openControlInterface(INTERFACE))
        Sandboxed::Fail("open the control interface");
    const QString command = QStringLiteral("PING");
    for (auto _ : state)
        benchmark::DoNotOptimize(control.SendCommand(command));
}

void FloorEventReceived(benchmark::State &state)
{
    Peer peer;
    BareClient client;
    client.Send();
    client.Receive();
    for (auto _ : state) {
        peer.SendEvent();
        client.Receive();
    }
}

void EventToSignal(benchmark::State &state)
{
    Peer peer;
    WpaSupplicantControl control(nullptr);
    if (!control.openControlInterface(INTERFACE))
        Sandboxed::Fail("open the control interface");
    int received = 0;
    QObject::connect(&control, &WpaSupplicantControl::MessageReady, &control, [&received] { ++received; });
    for (auto _ : state) {
        const int before = received;
        peer.SendEvent();
        while (received == before)
            QCoreApplication::processEvents();
    }
}

/// What a tick asks the kernel: whether the peer's socket lives, has its name, and its process runs.
void FloorLookAtPeer(benchmark::State &state)
{
    Peer peer;
    BareClient client;
    const sockaddr_un address = Address(PEER_PATH);
    const QByteArray statPath = "/proc/" + QByteArray::number(::getpid()) + "/stat";
    for (auto _ : state) {
        if (::connect(client.descriptor, Generic(address), sizeof address) != 0 ||
            ::access(PEER_PATH, F_OK) != 0)
            Sandboxed::Fail("connect again");
        char buffer[128];
        const int file = ::open(statPath.constData(), O_RDONLY | O_CLOEXEC);
        if (::read(file, buffer, sizeof buffer) <= 0)
            Sandboxed::Fail("read the peer's state");
        ::close(file);
    }
}

void IdleTickSupervising(benchmark::State &state)
{
    Peer peer;
    WpaSuppThreadPeer supervisor;
    supervisor.Supervise(INTERFACE);
    if (!supervisor.IsControlOpen())
        Sandboxed::Fail("open the control interface");
    supervisor.TakeForAssociated();
    for (auto _ : state)
        supervisor.MyTimerTimeout();
}

void IdleTickWithoutSupplicant(benchmark::State &state)
{
    WpaSuppThreadPeer supervisor;
    for (auto _ : state)
        supervisor.MyTimerTimeout();
}

BENCHMARK(FloorDatagramRoundTrip)->UseRealTime();
BENCHMARK(CommandRoundTrip)->UseRealTime();
BENCHMARK(FloorEventReceived);
BENCHMARK(EventToSignal);
BENCHMARK(FloorLookAtPeer);
BENCHMARK(IdleTickSupervising);
BENCHMARK(IdleTickWithoutSupplicant);

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    return Sandboxed::RunBenchmarks(argc, argv);
}
