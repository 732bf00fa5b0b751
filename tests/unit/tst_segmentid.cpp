// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "segmentid.h"

#include "testsupport.h"

#include <QtTest>

#include <cstdarg>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>

namespace {

const QString MAPS = QStringLiteral("/tmp/maps");

} // namespace

/// In the place of the C library's: the list of our own mappings is a file of the test.
extern "C" int open64(const char *path, int flags, ...)
{
    using Open = int (*)(const char *, int, ...);
    static const auto real = reinterpret_cast<Open>(::dlsym(RTLD_NEXT, "open64"));
    // A mode that is not given is not looked at.
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return real(std::strcmp(path, "/proc/self/maps") == 0 ? "/tmp/maps" : path, flags, mode);
}

/// Which segment stands at an address, by the list of the process's mappings.
class TestSegmentId : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void segmentIsFoundByItsRange_data();
    void segmentIsFoundByItsRange();
    void listThatCannotBeReadNamesNone();
    void lockIsNamedAsItsSegment();
};

void TestSegmentId::segmentIsFoundByItsRange_data()
{
    QTest::addColumn<QByteArray>("maps");
    QTest::addColumn<int>("id");

    const QByteArray own = "00006000-00008000 rw-s 00000000 00:01 42     /SYSV51 (deleted)\n";
    QTest::newRow("one line") << own << 42;
    QTest::newRow("another segment") << QByteArray("00001000-00002000 rw-s 00000000 00:01 41 /SYSV52\n")
                                     << -1;
    QTest::newRow("after another segment")
        << "00001000-00002000 rw-s 00000000 00:01 41 /SYSV52\n" + own << 42;
    QTest::newRow("its beginning") << QByteArray("7000-8000 rw-s 00000000 00:01 42\n") << 42;
    QTest::newRow("behind its end") << QByteArray("6000-7000 rw-s 00000000 00:01 42\n") << -1;
    QTest::newRow("line of too few fields") << "6000-8000 rw-s 00000000 7\n" + own << 42;
    QTest::newRow("line without a range") << "heap rw-s 00000000 00:01 7\n" + own << 42;
    QTest::newRow("line with more than a range") << "6000-8000-9000 rw-s 00000000 00:01 7\n" + own << 42;
    QTest::newRow("no line") << QByteArray() << -1;
}

void TestSegmentId::segmentIsFoundByItsRange()
{
    QFETCH(QByteArray, maps);
    TestSupport::WriteFile(MAPS, maps);

    QTEST(SegmentIdAt(reinterpret_cast<const void *>(0x7000)), "id");
}

void TestSegmentId::listThatCannotBeReadNamesNone()
{
    TestSupport::Remove(MAPS);

    QCOMPARE(SegmentIdAt(reinterpret_cast<const void *>(0x7000)), -1);
}

void TestSegmentId::lockIsNamedAsItsSegment()
{
    // As Qt names the two files.
    QCOMPARE(LockFileOf("/tmp/qipc_sharedmemory_key0123"), QString("/tmp/qipc_systemsem_key0123"));
}

QTEST_GUILESS_MAIN(TestSegmentId)
#include "tst_segmentid.moc"
