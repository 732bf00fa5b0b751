// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// To be preloaded into a program: one of its calls into the C library fails, which no limit and no missing
// right brings about, as root has them all.
//   FAILING_CALL   shmat, shmctl, semget, semop, pipe2, or maps: the list of the process's own mappings
//                  cannot be opened
//   FAILING_FROM   the first call that fails, counted from 1
//   FAILING_ERROR  why, a number of errno(3); without it EACCES

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/sem.h>
#include <sys/shm.h>

namespace {

template <typename Function> Function Real(const char *name)
{
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

bool Fails(const char *name)
{
    static int calls = 0;
    const char *const failing = std::getenv("FAILING_CALL");
    if (failing == nullptr || std::strcmp(failing, name) != 0)
        return false;
    const char *const from = std::getenv("FAILING_FROM");
    if (++calls < (from != nullptr ? std::atoi(from) : 1))
        return false;
    const char *const error = std::getenv("FAILING_ERROR");
    errno = error != nullptr ? std::atoi(error) : EACCES;
    return true;
}

} // namespace

extern "C" {

void *shmat(int id, const void *address, int flags)
{
    if (Fails("shmat"))
        return reinterpret_cast<void *>(-1);
    return Real<void *(*)(int, const void *, int)>("shmat")(id, address, flags);
}

int shmctl(int id, int command, shmid_ds *info)
{
    return Fails("shmctl") ? -1 : Real<int (*)(int, int, shmid_ds *)>("shmctl")(id, command, info);
}

int semget(key_t key, int count, int flags)
{
    return Fails("semget") ? -1 : Real<int (*)(key_t, int, int)>("semget")(key, count, flags);
}

int semop(int id, sembuf *operations, std::size_t count)
{
    return Fails("semop") ? -1 : Real<int (*)(int, sembuf *, std::size_t)>("semop")(id, operations, count);
}

int pipe2(int *ends, int flags)
{
    return Fails("pipe2") ? -1 : Real<int (*)(int *, int)>("pipe2")(ends, flags);
}

int open64(const char *path, int flags, ...)
{
    // A mode that is not given is not looked at.
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    if (std::strcmp(path, "/proc/self/maps") == 0 && Fails("maps"))
        return -1;
    return Real<int (*)(const char *, int, ...)>("open64")(path, flags, mode);
}
}
