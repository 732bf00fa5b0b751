// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#pragma once

#include <QString>

/// Why another user could have put or changed what stands at `path`, or an empty text. Each folder on the way
/// and the file itself, links followed, must belong to this user or to the owner of the root folder and must
/// be writable by its owner alone, or by root's own group as well, and by nobody else whom a POSIX access
/// control list names. /tmp is taken for what it is: a folder for all, where only owners remove files. The
/// kind of protection does not count elsewhere: in a folder for all that is sticky, too, another user can be
/// the first to make a file. What is not there is no reason: whoever reads it will see. A path that is
/// trusted stays so until its owner changes that, so that it can be opened afterwards.
[[nodiscard]] QString TrustProblem(const QString &path);
