// SPDX-License-Identifier: MIT
// Copyright (c) 2026 The Corvi developers

#include "zebstore.h"

#include <QFile>
#include <QScopeGuard>
#include <QXmlStreamReader>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(zebLog, "zeb")

namespace ZebStore {

const QString NETWORK_SECTION = QStringLiteral("user/hardware/networkconfig");

namespace {

const QString STORE_FOLDER = QStringLiteral("/tmp/config/xmlconfig/");
constexpr off_t SIZE_LIMIT = 4 * 1024 * 1024; // 200 networks take a tenth of it

/// Tells one version of a file from the next.
struct Stamp
{
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified = {};

    bool operator==(const Stamp &other) const
    {
        return device == other.device && inode == other.inode && size == other.size &&
               modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec;
    }
};

struct CachedSection
{
    bool seen = false;
    Stamp stamp;
    Document document;
};

Stamp StampOf(const struct stat &info)
{
    return {info.st_dev, info.st_ino, info.st_size, info.st_mtim};
}

Network ReadNetwork(QXmlStreamReader &xml)
{
    Network network;
    while (xml.readNextStartElement()) {
        if (xml.name() != QLatin1String("hosts")) {
            const QString key = xml.name().toString();
            network.properties.insert(key, xml.readElementText());
            continue;
        }
        while (xml.readNextStartElement())
            network.hosts << xml.readElementText();
    }
    return network;
}

void ReadSection(QXmlStreamReader &xml, Document &document)
{
    xml.readNextStartElement();
    while (xml.readNextStartElement()) {
        if (xml.name() != QLatin1String("network")) {
            const QString key = xml.name().toString();
            document.settings.insert(key, xml.readElementText());
            continue;
        }
        const Network network = ReadNetwork(xml);
        const QString name = network.properties.value(QStringLiteral("name"));
        if (name.isEmpty() || document.networks.contains(name))
            continue;
        document.networkNames << name;
        document.networks.insert(name, network);
    }
}

void Refresh(const QString &filePath, CachedSection &section)
{
    struct stat info = {};
    const QByteArray nativePath = QFile::encodeName(filePath);
    if (::stat(nativePath.constData(), &info) != 0 || (section.seen && section.stamp == StampOf(info)))
        return;

    // Without O_NONBLOCK a FIFO at the path would stop the program here.
    const int fd = ::open(nativePath.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd == -1)
        return;
    const auto closer = qScopeGuard([fd] { ::close(fd); });
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > SIZE_LIMIT)
        return;
    section.seen = true;
    section.stamp = StampOf(info);

    QFile file;
    if (!file.open(fd, QIODevice::ReadOnly))
        return;
    QXmlStreamReader xml(file.read(SIZE_LIMIT));
    Document document;
    ReadSection(xml, document);
    if (!xml.hasError()) {
        section.document = document;
        return;
    }
    qCWarning(zebLog).noquote().nospace()
        << filePath << ":" << xml.lineNumber() << ":" << xml.columnNumber() << ": " << xml.errorString();
}

} // namespace

const Document &Section(const QString &path)
{
    static QHash<QString, CachedSection> sections;
    CachedSection &section = sections[path];
    Refresh(STORE_FOLDER + path, section);
    return section.document;
}

} // namespace ZebStore
