// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "managersocket.h"
#include "servicemanager.h"

#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <unistd.h>

namespace {

const char *const VARIABLE = "NOTIFY_SOCKET";

} // namespace

/// What the service manager is told.
class TestServiceManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void managerIsTold_data();
    void managerIsTold();
    void programsThatAreStartedAreNotToSpeakForUs();
    void withoutAManagerNothingHappens_data();
    void withoutAManagerNothingHappens();
    void managerThatIsBusyIsNotWaitedFor();
    void managerThatEndedDoesNoHarm();
    void descriptorIsNotPassedOnAndIsClosed();

private:
    std::unique_ptr<QTemporaryDir> folder;
};

void TestServiceManager::init()
{
    folder = std::make_unique<QTemporaryDir>();
    // Names below are short and relative, whatever the folder's own is.
    QVERIFY(QDir::setCurrent(folder->path()));
}

void TestServiceManager::cleanup()
{
    qunsetenv(VARIABLE);
    QDir::setCurrent("/");
}

void TestServiceManager::managerIsTold_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("socket file") << QByteArray("notify");
    QTest::newRow("longest name") << QByteArray(107, 'n');
    QTest::newRow("abstract socket") << QByteArray("@corvi-test-") + QByteArray::number(::getpid());
}

void TestServiceManager::managerIsTold()
{
    QFETCH(QByteArray, name);
    ManagerSocket manager(name);
    qputenv(VARIABLE, name);
    QVERIFY(manager.bound);
    const ServiceManager serviceManager;

    serviceManager.TellReady();
    serviceManager.TellAlive();

    QCOMPARE(manager.Heard(), QByteArray("READY=1"));
    QCOMPARE(manager.Heard(), QByteArray("WATCHDOG=1"));
    QCOMPARE(manager.Heard(), QByteArray());
}

void TestServiceManager::programsThatAreStartedAreNotToSpeakForUs()
{
    ManagerSocket manager("notify");
    qputenv(VARIABLE, "notify");

    const ServiceManager serviceManager;

    QVERIFY(!qEnvironmentVariableIsSet(VARIABLE));
}

void TestServiceManager::withoutAManagerNothingHappens_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("no name") << QByteArray();
    QTest::newRow("nobody there") << QByteArray("notify");
    QTest::newRow("name too long") << QByteArray(200, 'n');
}

void TestServiceManager::withoutAManagerNothingHappens()
{
    QFETCH(QByteArray, name);
    if (!name.isEmpty())
        qputenv(VARIABLE, name);
    const int lowestFree = ::dup(STDOUT_FILENO);
    ::close(lowestFree);

    const ServiceManager serviceManager;
    serviceManager.TellReady();

    QCOMPARE(::fcntl(lowestFree, F_GETFD), -1);
}

void TestServiceManager::managerThatIsBusyIsNotWaitedFor()
{
    ManagerSocket manager("notify");
    qputenv(VARIABLE, "notify");
    const ServiceManager serviceManager;

    // More than any queue of a socket holds (net.unix.max_dgram_qlen is in the hundreds at most). One that
    // waited would not come back.
    for (int i = 0; i < 20000; ++i)
        serviceManager.TellAlive();

    QCOMPARE(manager.Heard(), QByteArray("WATCHDOG=1"));
}

void TestServiceManager::managerThatEndedDoesNoHarm()
{
    auto manager = std::make_unique<ManagerSocket>("notify");
    qputenv(VARIABLE, "notify");
    const ServiceManager serviceManager;
    manager.reset();

    serviceManager.TellAlive();
}

void TestServiceManager::descriptorIsNotPassedOnAndIsClosed()
{
    ManagerSocket manager("notify");
    qputenv(VARIABLE, "notify");
    const int lowestFree = ::dup(STDOUT_FILENO);
    ::close(lowestFree);

    {
        const ServiceManager serviceManager;
        QCOMPARE(::fcntl(lowestFree, F_GETFD), FD_CLOEXEC);
    }

    QCOMPARE(::fcntl(lowestFree, F_GETFD), -1);
}

QTEST_GUILESS_MAIN(TestServiceManager)
#include "tst_servicemanager.moc"
