// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebstore.h"

#include <QCryptographicHash>
#include <QFile>
#include <QScopeGuard>

#include <cerrno>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(zebLog, "zeb")

namespace {

const QString STORE_FOLDER = QStringLiteral("/tmp/config/xmlconfig/");
constexpr int SIZE_LIMIT = 4 * 1024 * 1024; // 200 networks take a twentieth of it

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

/// One section with its file: follows the file and keeps the last good contents.
class CachedSection
{
public:
    explicit CachedSection(const QString &path)
        : filePath(STORE_FOLDER + path), nativePath(QFile::encodeName(filePath))
    {
    }

    const ZebDocument &Current();

private:
    void Reload(const struct stat &seen);
    bool Read(QByteArray &contents, QString &reason);
    void Take(const QByteArray &contents);
    void ReportUnreadable(const QString &reason);
    void Refuse(const QString &reason);
    void Warn(const QString &text) const
    {
        qCWarning(zebLog, "%s: %s", nativePath.constData(), qUtf8Printable(text));
    }

    const QString filePath;
    const QByteArray nativePath;
    Stamp stamp;
    bool mayChangeUnseen = false;
    QString toldReason; ///< why the file cannot be read, since it could be
    QByteArray digest;  ///< of the contents that were last looked at, good or bad
    bool hasGoodContents = false;
    ZebDocument document;
};

const ZebDocument &CachedSection::Current()
{
    struct stat info = {};
    if (::stat(nativePath.constData(), &info) != 0) {
        ReportUnreadable(QString::fromLocal8Bit(std::strerror(errno)));
        return document;
    }
    if (mayChangeUnseen || !(stamp == StampOf(info)))
        Reload(info);
    return document;
}

/// Told once. The file is tried again at each call, as the reason may go without a change of the file: no
/// descriptor or memory left, a disk that failed once.
void CachedSection::ReportUnreadable(const QString &reason)
{
    stamp = {};
    mayChangeUnseen = false;
    digest.clear();
    if (reason == toldReason)
        return;
    toldReason = reason;
    Refuse(reason);
}

void CachedSection::Refuse(const QString &reason)
{
    Warn(reason + (hasGoodContents ? QStringLiteral("; what was read before stays in force")
                                   : QStringLiteral("; nothing is configured")));
}

void CachedSection::Reload(const struct stat &seen)
{
    stamp = StampOf(seen);
    mayChangeUnseen = false;
    QByteArray contents;
    QString reason;
    if (!Read(contents, reason)) {
        ReportUnreadable(reason);
        return;
    }
    toldReason.clear();
    const QByteArray newDigest = QCryptographicHash::hash(contents, QCryptographicHash::Sha256);
    if (newDigest == digest)
        return;
    digest = newDigest;
    Take(contents);
}

bool CachedSection::Read(QByteArray &contents, QString &reason)
{
    // Without O_NONBLOCK a FIFO at the path would stop the program here.
    const int fd = ::open(nativePath.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd == -1) {
        reason = QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    const auto closer = qScopeGuard([fd] { ::close(fd); });

    struct stat info = {};
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        reason = QStringLiteral("is not a regular file");
        return false;
    }
    if (info.st_size > SIZE_LIMIT) {
        reason = QStringLiteral("is larger than 4 MiB");
        return false;
    }
    stamp = StampOf(info);
    mayChangeUnseen = IsFresh(stamp);

    QFile file;
    if (!file.open(fd, QIODevice::ReadOnly)) {
        reason = file.errorString();
        return false;
    }
    // It may have grown since.
    contents = file.read(SIZE_LIMIT);
    if (file.error() != QFileDevice::NoError)
        reason = file.errorString();
    return reason.isEmpty();
}

void CachedSection::Take(const QByteArray &contents)
{
    ZebDocument parsed;
    QStringList problems;
    QString error;
    if (!parsed.Parse(contents, problems, error)) {
        Refuse(error);
        return;
    }
    for (const QString &problem : problems.mid(0, PROBLEM_LIMIT))
        Warn(problem);
    if (problems.size() > PROBLEM_LIMIT)
        Warn(QStringLiteral("%1 more problems").arg(problems.size() - PROBLEM_LIMIT));
    document = parsed;
    hasGoodContents = true;
}

} // namespace

const QString ZebStore::NETWORK_SECTION = QStringLiteral("user/hardware/networkconfig");

const ZebDocument &ZebStore::Section(const QString &path)
{
    static QHash<QString, std::shared_ptr<CachedSection>> sections;
    std::shared_ptr<CachedSection> &section = sections[path];
    if (!section)
        section = std::make_shared<CachedSection>(path);
    return section->Current();
}
