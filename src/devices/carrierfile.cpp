// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "carrierfile.h"

#include "paths.h"

#include <QFile>

#include <cerrno>

#include <fcntl.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// A process may have 1,024 files open by default. With hundreds of interfaces half of them are left for all
/// else, and the files beyond are opened for each look.
constexpr int KEPT_DESCRIPTORS = 512;

} // namespace

CarrierFile::CarrierFile(const QByteArray &interfaceName)
    : name(interfaceName), path(QFile::encodeName(SYS_NET) + name + "/carrier")
{
}

CarrierFile::~CarrierFile()
{
    Close();
}

char CarrierFile::Read(int socketFd)
{
    if (fd == -1 || Index(socketFd) != openedIndex)
        Open(socketFd);
    char first = 0;
    ssize_t length = ::pread(fd, &first, 1, 0);
    if (IsGone(length)) {
        // Removed since we asked what the name stands for: perhaps made anew already.
        Open(socketFd);
        length = ::pread(fd, &first, 1, 0);
    }
    if (openedIndex == 0)
        Close();
    return length == 1 ? first : '\0';
}

/// Of a file that sysfs removed a read says so; elsewhere, as in a container with a tree of its own, its last
/// text can be read for as long as it is open.
bool CarrierFile::IsGone(ssize_t length) const
{
    if (length == -1)
        return errno == ENODEV;
    struct stat file = {};
    return ::fstat(fd, &file) == 0 && file.st_nlink == 0;
}

/// 0 when there is no interface of this name.
int CarrierFile::Index(int socketFd) const
{
    ifreq request = {};
    qstrncpy(request.ifr_name, name.constData(), sizeof request.ifr_name);
    return ::ioctl(socketFd, SIOCGIFINDEX, &request) == 0 ? request.ifr_ifindex : 0;
}

void CarrierFile::Open(int socketFd)
{
    Close();
    const int before = Index(socketFd);
    fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    // The name may have been given to another interface in between.
    if (fd != -1 && fd < KEPT_DESCRIPTORS && Index(socketFd) == before)
        openedIndex = before;
}

void CarrierFile::Close()
{
    if (fd != -1)
        ::close(fd);
    fd = -1;
    openedIndex = 0;
}
