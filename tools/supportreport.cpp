// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "supportreport.h"

#include "masking.h"
#include "paths.h"
#include "reporttext.h"
#include "securefile.h"
#include "systemfacts.h"
#include "timing.h"
#include "utils.h"
#include "zebsectionfile.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

/// Of a log, its end: some thousand lines.
constexpr qint64 TAIL_BYTES = 524288;
/// As large as the daemon takes one. The supplicant's file is smaller.
constexpr int STORE_LIMIT_MIB = ZebSectionFile::SIZE_LIMIT_MIB;
constexpr mode_t OWNER_ONLY = 0600;

/// A file of the archive, and where it is from.
struct Source
{
    const char *entry;
    QString path;
};

/// A file of the archive, and the program that prints it.
struct Question
{
    const char *entry;
    const char *program;
    QStringList arguments;
};

QVector<Source> Logs()
{
    return {
        {"corvi-mon.log", QStringLiteral("/var/log/corvi-mon.log")},
        {"wpa_supplicant.log", QStringLiteral("/var/log/wpa_supplicant.log")},
        {"dhclient.log", CORVI_DHCP_LOG},
        {"dhclient.leases", DHCP_LEASES},
        {"resolv.conf", QStringLiteral("/etc/resolv.conf")},
        {"state.json", ServiceState::PATH},
        {"os-release", QStringLiteral("/etc/os-release")},
    };
}

QVector<Question> Questions()
{
    const auto words = [](const char *line) {
        return QString::fromLatin1(line).split(QLatin1Char(' '));
    };
    return {
        {"ip-address.txt", "ip", words("-d -s address show")},
        {"ip-route.txt", "ip", words("route show table all")},
        {"unit.txt", "systemctl", words("--no-pager --full status corvi.service corvi-wait-online.service")},
        {"unit-properties.txt", "systemctl", words("--no-pager show corvi.service")},
        {"journal.txt", "journalctl", words("--no-pager --lines=1000 --unit=corvi.service")},
        {"kernel.txt", "uname", words("-a")},
        {"packages.txt", "dpkg-query", words("-W corvi libzeb3-3 wpasupplicant isc-dhcp-client iproute2")},
        {"wpa_supplicant-version.txt", "wpa_supplicant", words("-v")},
        {"dhclient-version.txt", "dhclient", words("--version")},
    };
}

/// Where every user can put a link to what only root may read, or give it a second name.
bool IsInSharedFolder(const QString &path)
{
    return path.startsWith(QLatin1String("/tmp/"));
}

/// The whole lines among its last bytes.
QByteArray Tail(const QString &path)
{
    const bool isShared = IsInSharedFolder(path);
    // There can be a pipe, too, on which reading would wait.
    const int fd = ::open(QFile::encodeName(path).constData(),
                          O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY | (isShared ? O_NOFOLLOW : 0));
    struct stat info = {};
    QFile file;
    if (fd == -1 || !file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle))
        return QByteArray("cannot be read: " + qt_error_string().toUtf8() + '\n');
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode))
        return QByteArrayLiteral("is not a regular file\n");
    if (isShared && info.st_nlink != 1)
        return QByteArrayLiteral("has a second name\n");
    if (file.size() <= TAIL_BYTES)
        return file.readAll();
    file.seek(file.size() - TAIL_BYTES);
    file.readLine();
    return file.read(TAIL_BYTES);
}

/// The files of one report, in a folder that only we can enter.
class Collection
{
public:
    explicit Collection(const QString &folder) : path(folder) {}

    /// False when the disk takes no more, with the reason in errno.
    bool Fill()
    {
        // The secrets are known from here on: of a store that is broken, those behind the error from its last
        // good version, which is in force.
        const QByteArray lastGood = Masked(LAST_GOOD_STORE, 0, &Masking::Store);
        const QByteArray store = Masked(XML_FULL_NETWORK_PATH, 0, &Masking::Store);
        const QByteArray supplicantFile = Masked(WPA_SUPPLICANT_CONF, O_NOFOLLOW, &Masking::SupplicantFile);
        const QByteArray clientFile = masking.ClientFile(Tail(DHCLIENT_CONF));
        if (!Add("networkconfig.xml", store) || !Add("last-good.xml", lastGood) ||
            !Add("wpa_supplicant.conf", supplicantFile) || !Add("dhclient.conf", clientFile))
            return false;
        const SystemReport report = SystemFacts::Read();
        if (!Add("status.txt", ReportText::ForPerson(report, false).toUtf8()) ||
            !Add("status.json", QJsonDocument(ReportText::ForProgram(report)).toJson()))
            return false;
        const QVector<Source> logs = Logs();
        for (const Source &log : logs)
            if (!Add(log.entry, Tail(log.path)))
                return false;
        const QVector<Question> questions = Questions();
        for (const Question &question : questions)
            if (!Add(question.entry, AnswerTo(question)))
                return false;
        return true;
    }

private:
    QByteArray Masked(const QString &source, int flags, QByteArray (Masking::*mask)(const QByteArray &))
    {
        const SecureFile::Reading file = SecureFile::Read(source, STORE_LIMIT_MIB, flags);
        return file.problem.isEmpty() ? (masking.*mask)(file.contents)
                                      : QByteArray("cannot be read: " + file.problem.toUtf8() + '\n');
    }

    static QByteArray AnswerTo(const Question &question)
    {
        const QStringList lines = Utils::ExecuteMerged(QString::fromLatin1(question.program),
                                                       question.arguments, PROGRAM_TIME_LIMIT_MS);
        return lines.join(QLatin1Char('\n')).toUtf8();
    }

    [[nodiscard]] bool Add(const char *entry, const QByteArray &contents) const
    {
        return SecureFile::Replace(path + QLatin1Char('/') + QLatin1String(entry), masking.Text(contents),
                                   OWNER_ONLY);
    }

    const QString path;
    Masking masking;
};

bool Pack(const QString &folder, const QString &name, const QString &archive)
{
    return QProcess::execute(QStringLiteral("tar"),
                             {QStringLiteral("-czf"), archive, QStringLiteral("-C"), folder, name}) == 0;
}

/// Replaces a link of that name, where QFile::rename() would write through it.
bool PutInPlace(const QString &packed, const QString &archive)
{
    return std::rename(QFile::encodeName(packed).constData(), QFile::encodeName(archive).constData()) == 0;
}

} // namespace

SupportReport::Outcome SupportReport::Write(const QString &folder)
{
    // Nothing that this process or one of its programs makes is for others, not even for a moment.
    ::umask(077);
    const QTemporaryDir work(folder + QStringLiteral("/.corvi-report-XXXXXX"));
    if (!work.isValid())
        return {QString(), QStringLiteral("%1: %2").arg(folder, work.errorString())};
    const QString name = QStringLiteral("corvi-report-") +
                         QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    const QString files = work.filePath(name);
    const QString packed = work.filePath(QStringLiteral("archive"));
    if (!QDir().mkdir(files) || !Collection(files).Fill())
        return {QString(), qt_error_string()};
    const QString archive = QDir(folder).absoluteFilePath(name + QStringLiteral(".tar.gz"));
    if (!Pack(work.path(), name, packed) || !PutInPlace(packed, archive))
        return {QString(), QStringLiteral("the archive cannot be made")};
    return {archive, QString()};
}
