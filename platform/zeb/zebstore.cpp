// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebstore.h"

#include "securefile.h"
#include "zeblastgood.h"
#include "zebsectionfile.h"

#include <QCryptographicHash>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <optional>

#include <sys/stat.h>

Q_LOGGING_CATEGORY(zebLog, "zeb")

namespace {

const QString STORE_FOLDER = QStringLiteral("/tmp/config/xmlconfig/");

// A store that is wrong all over must not flood the log.
constexpr int PROBLEM_LIMIT = 100;

// Two writes within one tick of the file system's clock (at most 10 ms) leave the same time stamp.
constexpr qint64 CLOCK_TICK_NS = 20'000'000;

/// Tells one version of a file from the next.
struct Stamp
{
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = -1;
    timespec modified = {};

    bool operator==(const Stamp &other) const
    {
        return device == other.device && inode == other.inode && size == other.size &&
               modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec;
    }
};

Stamp StampOf(const struct stat &info)
{
    return {info.st_dev, info.st_ino, info.st_size, info.st_mtim};
}

/// Whether the file was written so recently that its next version could have the same stamp.
bool IsFresh(const Stamp &stamp)
{
    timespec now = {};
    ::clock_gettime(CLOCK_REALTIME, &now);
    const qint64 age =
        (now.tv_sec - stamp.modified.tv_sec) * 1'000'000'000LL + now.tv_nsec - stamp.modified.tv_nsec;
    return age >= 0 && age < CLOCK_TICK_NS;
}

void Warn(const QString &path, const QString &text)
{
    qCWarning(zebLog, "ZebStore::Section - %s: %s", qUtf8Printable(path), qUtf8Printable(text));
}

/// Tells news from repetition. Not by counting, as the daemon's ReportOnce does: each line here answers a
/// change that somebody made to the store, who waits for the answer, the fifth within an hour too.
class LastTold
{
public:
    /// Whether there is something to tell that was not told last. Nothing to tell ends what was.
    bool IsNews(const QString &what)
    {
        const bool isOther = what != told;
        told = what;
        return isOther && !what.isEmpty();
    }

private:
    QString told;
};

/// One section with its file: follows the file and keeps the last good contents.
class CachedSection
{
public:
    explicit CachedSection(const QString &path)
        : filePath(STORE_FOLDER + path), nativePath(QFile::encodeName(filePath))
    {
    }

    const ZebDocument &Current();
    /// From now on the contents outlive the process in this file, and begin with what is there.
    void KeepLastGood(const QString &path) { lastGood.emplace(path); }

private:
    void Restore();
    void Reload();
    void Take(const QByteArray &contents);
    void ReportUnreadable(const QString &reason);
    void Refuse(const QString &reason) const;
    QString WhatIsInForce() const;
    void Keep();

    const QString filePath;
    const QByteArray nativePath;
    Stamp stamp;
    bool mayChangeUnseen = false;
    LastTold unreadable; ///< why the file cannot be read
    QByteArray digest;   ///< of the contents that were last looked at, good or bad
    bool hasGoodContents = false;
    ZebDocument document;
    std::optional<ZebLastGood> lastGood;
    bool isLookedFor = false; ///< what an earlier process kept
    bool isRestored = false;
    LastTold notKept; ///< why the contents do not outlive the process
};

const ZebDocument &CachedSection::Current()
{
    if (lastGood && !isLookedFor)
        Restore();
    struct stat info = {};
    if (::stat(nativePath.constData(), &info) != 0) {
        ReportUnreadable(QString::fromLocal8Bit(std::strerror(errno)));
        return document;
    }
    if (mayChangeUnseen || !(stamp == StampOf(info)))
        Reload();
    return document;
}

void CachedSection::Restore()
{
    isLookedFor = true;
    QString problem;
    isRestored = lastGood->Restore(document, problem);
    if (!problem.isEmpty())
        Warn(lastGood->Path(), problem + QStringLiteral("; it is not used"));
}

/// Told once. The file is tried again at each call, as the reason may go without a change of the file: no
/// descriptor or memory left, a disk that failed once.
void CachedSection::ReportUnreadable(const QString &reason)
{
    stamp = {};
    digest.clear();
    if (unreadable.IsNews(reason))
        Refuse(reason);
}

void CachedSection::Refuse(const QString &reason) const
{
    Warn(filePath, reason + QStringLiteral("; ") + WhatIsInForce());
}

QString CachedSection::WhatIsInForce() const
{
    if (hasGoodContents)
        return QStringLiteral("what was read before stays in force");
    if (isRestored)
        return QStringLiteral("the last good version is in force, kept in ") + lastGood->Path();
    return QStringLiteral("nothing is configured");
}

void CachedSection::Reload()
{
    const SecureFile::Reading reading = ZebSectionFile::ReadTrusted(filePath);
    if (!reading.problem.isEmpty()) {
        ReportUnreadable(reading.problem);
        return;
    }
    stamp = StampOf(reading.info);
    mayChangeUnseen = IsFresh(stamp);
    unreadable = {};
    const QByteArray newDigest = QCryptographicHash::hash(reading.contents, QCryptographicHash::Sha256);
    if (newDigest == digest)
        return;
    digest = newDigest;
    Take(reading.contents);
}

void CachedSection::Take(const QByteArray &contents)
{
    ZebDocument parsed;
    ZebProblems problems;
    if (!parsed.Parse(contents, problems)) {
        Refuse(problems.constLast().Text());
        return;
    }
    parsed.KeepLastGood(document, problems);
    for (const ZebProblem &problem : problems.mid(0, PROBLEM_LIMIT))
        Warn(filePath, problem.Text());
    if (problems.size() > PROBLEM_LIMIT)
        Warn(filePath, QStringLiteral("%1 more problems").arg(problems.size() - PROBLEM_LIMIT));
    document = parsed;
    hasGoodContents = true;
    Keep();
}

/// What keeps it from being written is told once: it may last as long as the device.
void CachedSection::Keep()
{
    const QString problem = lastGood ? lastGood->Keep(document) : QString();
    if (notKept.IsNews(problem))
        Warn(lastGood->Path(), problem + QStringLiteral("; what is in force does not outlive a restart"));
}

CachedSection &SectionOf(const QString &path)
{
    static std::map<QString, std::unique_ptr<CachedSection>> sections;
    std::unique_ptr<CachedSection> &section = sections[path];
    if (!section)
        section = std::make_unique<CachedSection>(path);
    return *section;
}

} // namespace

const QString ZebStore::NETWORK_SECTION = QStringLiteral("user/hardware/networkconfig");

const ZebDocument &ZebStore::Section(const QString &path)
{
    return SectionOf(path).Current();
}

void ZebStore::KeepLastGood(const QString &path)
{
    SectionOf(NETWORK_SECTION).KeepLastGood(path);
}
