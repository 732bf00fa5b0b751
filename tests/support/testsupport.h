// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

/// What most tests need of the sandbox they run in: the stand-ins' journal and answers, the log, the store,
/// real interfaces. Outside the sandbox every operation ends the test program.
/// A helper that cannot do what it says ends the test program too, with the reason, so that no test goes on
/// from a state it did not ask for.
namespace TestSupport {

/// Every program run so far through a stand-in, one line each: the name it was called by without its folder,
/// and its arguments, apart by one blank; an argument that is empty or holds unusual characters is in single
/// quotes, as a shell would take it.
QStringList Journal();
void ClearJournal();
/// Waits until the journal holds at least `count` lines, for programs started in the background.
/// @return false when it does not within `timeoutMs` milliseconds.
[[nodiscard]] bool WaitForJournal(int count, int timeoutMs = 5000);

/// From now on the stand-in `program` runs `shellScript` with its own arguments after it wrote its journal
/// line: output, exit status, `sleep`, `kill -SEGV $$`. Plain program names in it are the real programs.
void Answer(const QString &program, const QByteArray &shellScript);
void ClearAnswers();
/// Makes `program` a name that starts nothing, as if it were not installed; the next call of
/// RestorePrograms() brings it back. In a stand-in sandbox only.
void RemoveProgram(const QString &program);
void RestorePrograms();
/// Adds a stand-in under a further name.
void AddProgram(const QString &program);

/// Writes to the standard output at once, for a test program that is a tool of the test itself.
void Print(const QByteArray &bytes);

/// The daemon's log file as it stands, empty when there is none.
QString LogText();
/// Its lines, without the time stamp and the blank that ends each.
QStringList LogLines();
void ClearLog();

/// Makes the folders as needed, replaces the file.
void WriteFile(const QString &path, const QByteArray &bytes);
/// Empty when there is no such file.
QByteArray ReadFile(const QString &path);
/// Removes a file, or a folder with all that is in it; nothing when there is neither.
void Remove(const QString &path);
/// Sets the rights of a file or folder.
void SetMode(const QString &path, uint mode);
/// How many entries of a folder have names that match a wildcard; without any, how many there are.
int EntryCount(const QString &folder, const QStringList &wildcards = {});
/// Without any, this thread is root only by name: the service's unit leaves the daemon few. Those of a
/// program that was started before stay.
void UseRights(bool all);
/// How many descriptors this process has.
int OpenDescriptors();

/// The store's section that holds the networks and the daemon's settings.
inline const QString STORE_FILE = QStringLiteral("/tmp/config/xmlconfig/user/hardware/networkconfig");
void WriteStore(const QByteArray &xml);
/// A store of these `network` elements and settings.
void WriteNetworks(const QByteArray &elements);
void RemoveStore();

/// Runs the real `ip`, also where a stand-in has its name. @return what it printed.
QByteArray RealIp(const QStringList &arguments);
/// Makes two Ethernet interfaces joined by a cable. Both are down; the cable is in when the peer is up.
void MakeVeth(const QString &name, const QString &peer);
/// Puts the cable in or pulls it: the carrier of the interface whose peer this is follows.
void SetCable(const QString &peer, bool present);
/// Removes every interface but the loopback.
void RemoveInterfaces();

} // namespace TestSupport
