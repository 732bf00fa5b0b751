// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

// Opening and closing a connection.

#include "wpactrl.h"

#include "ctrlconnection.h"
#include "fakesupplicant.h"
#include "resourcelimit.h"
#include "testsupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <future>
#include <memory>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

/// The counter in the connection's own name.
int NumberOf(const Ctrl &ctrl)
{
    return QByteArray(ctrl->local.sun_path).split('-').last().toInt();
}

} // namespace

static std::atomic<bool> refuseFlags{false};

/// In the place of the C library's: no other way makes a descriptor refuse its flags.
extern "C" int fcntl64(int descriptor, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    if (refuseFlags && command == F_SETFL) {
        errno = EPERM;
        return -1;
    }
    return static_cast<int>(syscall(SYS_fcntl, descriptor, command, argument));
}
extern "C" int fcntl(int, int, ...) __attribute__((alias("fcntl64")));

class TestWpaCtrlOpen : public QObject
{
    Q_OBJECT
private slots:
    void cleanup();

    void numbersItsNames();
    void countsNoOpeningWithoutAPath();
    void countsFailedOpeningsToo();
    void countsNoOpeningWithoutADescriptor();
    void failsWhereNothingCanBeBound();
    void replacesAStaleName();
    void givesUpOnANameThatStaysTaken();
    void removesItsNameWhenClosed();
    void closesItsSocketWhereTheProcessHasNoInput();
    void closesNothing();
    void isNotInheritedAndDoesNotBlock();
    void opensThoughItBlocks();
    void failsToOpen_data();
    void failsToOpen();
    void takesTheLongestPath();
    void opensAnAbstractSocket();
    void cutsALongAbstractName_data();
    void cutsALongAbstractName();
};

void TestWpaCtrlOpen::cleanup()
{
    QCOMPARE(LocalNames(), QStringList());
    TestSupport::Remove(QStringLiteral("/var/run/wpa_supplicant"));
}

void TestWpaCtrlOpen::numbersItsNames()
{
    FakeSupplicant supplicant;

    const Ctrl first = Open();
    const Ctrl second = Open();

    QVERIFY(first && second);
    const QByteArray prefix = "/tmp/wpa_ctrl_" + QByteArray::number(getpid()) + '-';
    QCOMPARE(QByteArray(first->local.sun_path), prefix + QByteArray::number(NumberOf(first)));
    QCOMPARE(NumberOf(second), NumberOf(first) + 1);
    // The first connection of the process has number 1; this test is the first one to open any.
    QCOMPARE(NumberOf(first), 1);
}

void TestWpaCtrlOpen::countsNoOpeningWithoutAPath()
{
    FakeSupplicant supplicant;
    const int before = NumberOf(Open());

    QVERIFY(!wpa_ctrl_open(nullptr));

    QCOMPARE(NumberOf(Open()), before + 1);
}

void TestWpaCtrlOpen::countsFailedOpeningsToo()
{
    FakeSupplicant supplicant;
    const Ctrl before = Open();

    // One cannot connect, one cannot bind.
    QVERIFY(!Open("/tmp/nobody"));
    const QString taken = QStringLiteral("/tmp/wpa_ctrl_%1-%2").arg(getpid()).arg(NumberOf(before) + 2);
    QVERIFY(QDir().mkdir(taken));
    QVERIFY(!Open());
    QVERIFY(QDir().rmdir(taken));

    QCOMPARE(NumberOf(Open()), NumberOf(before) + 3);
}

void TestWpaCtrlOpen::countsNoOpeningWithoutADescriptor()
{
    FakeSupplicant supplicant;
    const Ctrl before = Open();
    {
        const ResourceLimit limit(RLIMIT_NOFILE, 3);

        QVERIFY(!wpa_ctrl_open(WLAN0.constData()));
    }
    QCOMPARE(LocalNames().size(), 1);
    QCOMPARE(NumberOf(Open()), NumberOf(before) + 1);
}

void TestWpaCtrlOpen::failsWhereNothingCanBeBound()
{
    FakeSupplicant supplicant;
    const int descriptors = TestSupport::OpenDescriptors();
    QCOMPARE(mount("none", "/tmp", "tmpfs", MS_RDONLY, nullptr), 0);

    wpa_ctrl *const ctrl = wpa_ctrl_open(WLAN0.constData());
    const int reason = errno;

    QCOMPARE(umount("/tmp"), 0);
    QVERIFY(!ctrl);
    QCOMPARE(reason, EROFS);
    QCOMPARE(TestSupport::OpenDescriptors(), descriptors);
}

void TestWpaCtrlOpen::replacesAStaleName()
{
    FakeSupplicant supplicant;
    const int next = NumberOf(Open()) + 1;
    const QString stale = QStringLiteral("/tmp/wpa_ctrl_%1-%2").arg(getpid()).arg(next);
    TestSupport::WriteFile(stale, "left behind");

    const Ctrl ctrl = Open();

    QVERIFY(ctrl);
    QCOMPARE(QString::fromLatin1(ctrl->local.sun_path), stale);
}

void TestWpaCtrlOpen::givesUpOnANameThatStaysTaken()
{
    FakeSupplicant supplicant;
    const int next = NumberOf(Open()) + 1;
    // A folder cannot be unlinked.
    const QString taken = QStringLiteral("/tmp/wpa_ctrl_%1-%2").arg(getpid()).arg(next);
    QVERIFY(QDir().mkdir(taken));
    const int descriptors = TestSupport::OpenDescriptors();

    QVERIFY(!Open());

    QCOMPARE(TestSupport::OpenDescriptors(), descriptors);
    QVERIFY(QDir().rmdir(taken));
}

void TestWpaCtrlOpen::removesItsNameWhenClosed()
{
    FakeSupplicant supplicant;
    const int descriptors = TestSupport::OpenDescriptors();
    Ctrl ctrl = Open();
    QCOMPARE(LocalNames().size(), 1);

    ctrl.reset();

    QCOMPARE(LocalNames(), QStringList());
    QCOMPARE(TestSupport::OpenDescriptors(), descriptors);
}

void TestWpaCtrlOpen::closesItsSocketWhereTheProcessHasNoInput()
{
    FakeSupplicant supplicant;
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    Ctrl ctrl = Open();
    QVERIFY(ctrl);
    QCOMPARE(ctrl->s, 0);

    ctrl.reset();

    const bool isClosed = fcntl(0, F_GETFD) == -1;
    dup2(input, STDIN_FILENO);
    close(input);
    QVERIFY(isClosed);
}

void TestWpaCtrlOpen::closesNothing()
{
    wpa_ctrl_close(nullptr);
}

void TestWpaCtrlOpen::isNotInheritedAndDoesNotBlock()
{
    FakeSupplicant supplicant;
    const Ctrl ctrl = Open();
    QVERIFY(ctrl);

    QVERIFY(fcntl(wpa_ctrl_get_fd(ctrl.get()), F_GETFD) & FD_CLOEXEC);
    QVERIFY(fcntl(wpa_ctrl_get_fd(ctrl.get()), F_GETFL) & O_NONBLOCK);
    QVERIFY(fcntl(ctrl->destFile, F_GETFD) & FD_CLOEXEC);
}

void TestWpaCtrlOpen::opensThoughItBlocks()
{
    FakeSupplicant supplicant;
    QFile printed(QStringLiteral("/tmp/printed"));
    QVERIFY(printed.open(QIODevice::ReadWrite | QIODevice::Truncate));
    const int before = dup(STDERR_FILENO);
    dup2(printed.handle(), STDERR_FILENO);
    refuseFlags = true;

    const Ctrl ctrl = Open();

    refuseFlags = false;
    dup2(before, STDERR_FILENO);
    close(before);
    QVERIFY(ctrl);
    printed.seek(0);
    QCOMPARE(printed.readAll(), QByteArray("fcntl(ctrl->s, O_NONBLOCK): Operation not permitted\n"));
    QVERIFY(printed.remove());
}

void TestWpaCtrlOpen::failsToOpen_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::newRow("no path") << QByteArray();
    QTest::newRow("no such socket") << QByteArray("/var/run/wpa_supplicant/none");
    QTest::newRow("a plain file") << QByteArray("/etc/hosts");
    QTest::newRow("path of 108 characters") << "/tmp/" + QByteArray(103, 'x');
    QTest::newRow("no such abstract socket") << QByteArray("@abstract:nobody");
}

void TestWpaCtrlOpen::failsToOpen()
{
    QFETCH(QByteArray, path);
    const int descriptors = TestSupport::OpenDescriptors();

    QVERIFY(!wpa_ctrl_open(path.isNull() ? nullptr : path.constData()));

    QCOMPARE(TestSupport::OpenDescriptors(), descriptors);
    QCOMPARE(LocalNames(), QStringList());
}

void TestWpaCtrlOpen::takesTheLongestPath()
{
    const QByteArray path = "/tmp/" + QByteArray(102, 'x');
    FakeSupplicant supplicant(Address(path));

    QVERIFY(Open(path));
    QVERIFY(!Open(path + 'x'));

    QVERIFY(QFile::remove(QString::fromLatin1(path)));
}

void TestWpaCtrlOpen::opensAnAbstractSocket()
{
    // Bound as the supplicant binds it: the whole address is the name.
    FakeSupplicant supplicant(Address(QByteArray("\0corvi", 6)));

    const Ctrl ctrl = Open("@abstract:corvi");

    QVERIFY(ctrl);
    QCOMPARE(wpa_ctrl_attach(ctrl.get()), 0);
}

void TestWpaCtrlOpen::cutsALongAbstractName_data()
{
    QTest::addColumn<int>("length");
    QTest::newRow("the longest name that fits") << 107;
    QTest::newRow("one character more") << 108;
    QTest::newRow("far too long") << 500;
}

void TestWpaCtrlOpen::cutsALongAbstractName()
{
    QFETCH(int, length);
    // The name fills the address; there is no terminator.
    FakeSupplicant supplicant(Address('\0' + QByteArray(107, 'x')));

    QVERIFY(Open("@abstract:" + QByteArray(length, 'x')));
}

QTEST_GUILESS_MAIN(TestWpaCtrlOpen)
#include "tst_wpactrl_open.moc"
