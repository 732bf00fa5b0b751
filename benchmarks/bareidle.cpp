// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// The least that a program like the daemon does while nothing happens: the timers, and on each the bare
// system calls, every file opened anew. Takes the names of the interfaces.

#include <QCoreApplication>
#include <QTimer>

#include <array>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

struct Interface
{
    QByteArray name;
    QByteArray carrierPath;
    int socketFd = -1;
};

void LookAt(const Interface &interface)
{
    for (const unsigned long request : {SIOCGIFADDR, SIOCGIFBRDADDR, SIOCGIFNETMASK, SIOCGIFHWADDR}) {
        ifreq answer = {};
        qstrncpy(answer.ifr_name, interface.name.constData(), sizeof answer.ifr_name);
        [[maybe_unused]] const int ignored = ::ioctl(interface.socketFd, request, &answer);
    }
    const int fd = ::open(interface.carrierPath.constData(), O_RDONLY | O_CLOEXEC);
    char first = 0;
    [[maybe_unused]] const ssize_t length = ::read(fd, &first, 1);
    ::close(fd);
}

void Tick(const std::vector<Interface> &interfaces)
{
    for (const char *flag : {"/tmp/kill_corvi", "/tmp/refresh_network", "/tmp/config/files/network/reload",
                             "/sys/class/net/wlan0/carrier"})
        [[maybe_unused]] const int ignored = ::access(flag, F_OK);
    for (const Interface &interface : interfaces)
        LookAt(interface);
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    std::vector<Interface> interfaces;
    for (int i = 1; i < argc; ++i) {
        const QByteArray name = argv[i];
        interfaces.push_back(
            {name, "/sys/class/net/" + name + "/carrier", ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)});
    }

    std::vector<std::unique_ptr<QTimer>> timers;
    for (const Interface &interface : interfaces) {
        timers.push_back(std::make_unique<QTimer>());
        QObject::connect(timers.back().get(), &QTimer::timeout, [&interface] { LookAt(interface); });
        timers.back()->start(250);
    }
    QTimer tick;
    tick.setTimerType(Qt::PreciseTimer);
    QObject::connect(&tick, &QTimer::timeout, [&interfaces] { Tick(interfaces); });
    tick.start(1000);
    return QCoreApplication::exec();
}
