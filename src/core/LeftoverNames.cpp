// How the names of leftovers are made, and told from others.
#include "core/LeftoverNames.h"

#include "core/HostFile.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QUuid>

namespace Tessarin::Core {

namespace {

const QLatin1StringView containerSuffix(".trvx");
const QLatin1StringView workingFolderPrefix("Tessarin-compact-");

/// Tells the leftovers of a container from those of others in its folder. FAT takes names that differ in
/// letter case for one.
QString nameDigest(const QFileInfo &container)
{
    constexpr qsizetype digits = 8;
    const QByteArray name = container.fileName().toCaseFolded().toUtf8();
    return QString::fromLatin1(QCryptographicHash::hash(name, QCryptographicHash::Sha256).toHex())
        .left(digits);
}

/// What the names of all twins of a container begin with. A long name is cut off, since file systems hold no
/// more than 255 bytes.
QString twinBaseName(const QFileInfo &container)
{
    constexpr qsizetype longest = 200;
    QString base = container.completeBaseName();
    if (base.toUtf8().size() > longest)
        base = base.left(longest / 4) + QLatin1Char('-') + nameDigest(container);
    return base + QLatin1String("-compactado-");
}

QString creationBaseName(const QFileInfo &container)
{
    return QLatin1String("tessarin-criacao-") + nameDigest(container) + QLatin1Char('-');
}

/// Of the names that begin with `baseName`, those that this program gives.
QRegularExpression namesOf(const QString &baseName, QLatin1StringView rest)
{
    return QRegularExpression(
        QRegularExpression::anchoredPattern(QRegularExpression::escape(baseName) + rest));
}

QRegularExpression twinNames(const QFileInfo &container)
{
    return namesOf(twinBaseName(container), QLatin1StringView("[0-9]+\\.trvx"));
}

QRegularExpression creationNames(const QFileInfo &container)
{
    return namesOf(creationBaseName(container), QLatin1StringView("[0-9a-f]{8}\\.trvx"));
}

/// The file itself, where a link leads to it.
QFileInfo containerAt(const QString &path)
{
    const QFileInfo place(path);
    return place.exists() ? QFileInfo(place.canonicalFilePath()) : place;
}

} // namespace

QString workingFolderTemplate()
{
    return temporaryDirectory() + QLatin1Char('/') + workingFolderPrefix + QLatin1String("XXXXXX");
}

QFileInfoList presentWorkingFolders()
{
    return QDir(temporaryDirectory())
        .entryInfoList({workingFolderPrefix + QLatin1Char('*')}, QDir::Dirs | QDir::NoSymLinks);
}

QString newTwinPath(const QString &containerPath)
{
    const QFileInfo container(containerPath);
    QString path;
    for (int number = 1; path.isEmpty() || QFileInfo::exists(path); ++number)
        path = container.dir().filePath(twinBaseName(container) + QString::number(number) + containerSuffix);
    return path;
}

QString newCreationPath(const QString &containerPath)
{
    const QFileInfo container(containerPath);
    return container.dir().filePath(creationBaseName(container) +
                                    QUuid::createUuid().toString(QUuid::Id128).left(8) + containerSuffix);
}

QStringList leftoversBeside(const QString &containerPath)
{
    const QFileInfo container = containerAt(containerPath);
    const QRegularExpression twins = twinNames(container);
    const QRegularExpression creations = creationNames(container);
    QStringList leftovers;
    const QFileInfoList files = container.dir().entryInfoList(QDir::Files | QDir::NoSymLinks, QDir::Name);
    for (const QFileInfo &file : files) {
        if (twins.match(file.fileName()).hasMatch() || creations.match(file.fileName()).hasMatch())
            leftovers.append(file.filePath());
    }
    return leftovers;
}

bool isCreationName(const QString &containerPath, const QString &path)
{
    return creationNames(containerAt(containerPath)).match(QFileInfo(path).fileName()).hasMatch();
}

} // namespace Tessarin::Core
