// What a compaction that was killed has left, and when it may go: only when the present container provably
// holds all that is in it. It opens with the password that the vault had then, for as long as it stays.
#include "core/Leftovers.h"

#include "core/BlockStore.h"
#include "core/HostFile.h"
#include "core/VaultKeys.h"
#include "core/VaultRecovery.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

#include <algorithm>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessarin::Core {

namespace {

const QLatin1StringView twinSuffix(".trvx");
const QLatin1StringView workingFolderPrefix("Tessarin-compact-");

QString twinBaseName(const QFileInfo &container)
{
    return container.completeBaseName() + QLatin1String("-compactado-");
}

bool isTwinName(const QString &name, const QString &baseName)
{
    if (!name.startsWith(baseName) || !name.endsWith(twinSuffix))
        return false;
    const QString number = name.chopped(twinSuffix.size()).mid(baseName.size());
    return !number.isEmpty() && std::all_of(number.cbegin(), number.cend(), [](QChar digit) {
        return digit >= QLatin1Char('0') && digit <= QLatin1Char('9');
    });
}

QStringList workingFolders()
{
    QStringList folders;
    const QFileInfoList found =
        QDir::temp().entryInfoList({workingFolderPrefix + QLatin1Char('*')}, QDir::Dirs | QDir::NoSymLinks);
    for (const QFileInfo &folder : found)
        folders.append(folder.filePath());
    return folders;
}

/// A copy of a container gets its first bytes last: one without them never came to its end, and opens with no
/// password.
bool isUnfinishedCopy(QFile &file)
{
    const QByteArray beginning = file.seek(0) ? file.read(ContainerFormat::headerAreaSize) : QByteArray();
    return (!beginning.isEmpty() || file.size() == 0) &&
           std::all_of(beginning.cbegin(), beginning.cend(), [](char byte) { return byte == '\0'; });
}

bool isSameFileEntry(const VaultFileEntry &first, const VaultFileEntry &second)
{
    return first.id == second.id && first.sizeBytes == second.sizeBytes && first.sha256 == second.sha256 &&
           std::equal(first.blocks.cbegin(), first.blocks.cend(), second.blocks.cbegin(),
                      second.blocks.cend(), [](const VaultFileBlock &a, const VaultFileBlock &b) {
                          return a.nonce == b.nonce && a.plainSize == b.plainSize;
                      });
}

/// True when every file and folder of one index is in the other one too: the same import under the same path.
bool isContainedIn(const SecureFileIndex &part, const SecureFileIndex &whole)
{
    QHash<QString, const VaultFileEntry *> files;
    for (const VaultFileEntry &file : whole.entries())
        files.insert(file.vaultPath, &file);
    const QList<VaultFileEntry> &entries = part.entries();
    const QList<VaultDirectoryEntry> &directories = part.directories();
    return std::all_of(entries.cbegin(), entries.cend(),
                       [&](const VaultFileEntry &file) {
                           const VaultFileEntry *other = files.value(file.vaultPath);
                           return other != nullptr && isSameFileEntry(file, *other);
                       }) &&
           std::all_of(directories.cbegin(), directories.cend(), [&](const VaultDirectoryEntry &directory) {
               return whole.containsDirectory(directory.path);
           });
}

} // namespace

QString workingFolderTemplate()
{
    return QDir::tempPath() + QLatin1Char('/') + workingFolderPrefix + QLatin1String("XXXXXX");
}

FileLock lockWorkingFolder(const QString &path, QFile &folder)
{
    const int descriptor =
        ::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    struct stat status = {};
    const bool isOwn = descriptor >= 0 &&
                       folder.open(descriptor, QIODevice::ReadOnly, QFile::AutoCloseHandle) &&
                       ::fstat(descriptor, &status) == 0 && status.st_uid == ::geteuid();
    return isOwn ? takeLock(folder) : FileLock::Held;
}

QString newTwinPath(const QString &containerPath)
{
    const QFileInfo container(containerPath);
    QString path;
    for (int number = 1; path.isEmpty() || QFileInfo::exists(path); ++number)
        path = container.dir().filePath(twinBaseName(container) + QString::number(number) + twinSuffix);
    return path;
}

QStringList VaultManager::compactionTwins(const QString &containerPath)
{
    const QFileInfo container(containerPath);
    QStringList twins;
    const QFileInfoList files = container.dir().entryInfoList(QDir::Files | QDir::NoSymLinks, QDir::Name);
    for (const QFileInfo &file : files) {
        if (isTwinName(file.fileName(), twinBaseName(container)))
            twins.append(file.filePath());
    }
    return twins;
}

QStringList VaultManager::compactionLeftovers() const
{
    return leftovers;
}

/// Looks at all leftovers that may be this vault's, and notes those that have to stay.
void VaultManager::clearLeftovers(const LockedVault &present, const ProgressCallback &progress)
{
    leftovers = compactionTwins(QFileInfo(present.container).canonicalFilePath());
    const QStringList folders = workingFolders();
    if (leftovers.isEmpty() && folders.isEmpty())
        return;
    std::optional<bool> isWhole; // Found out when it is needed: that takes a while.
    const auto isSuperfluous = [&](const QString &path, bool &isOfThisVault) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered) || takeLock(file) != FileLock::Taken) {
            return false;
        }
        ContainerDocument document;
        SecureFileIndex index;
        isOfThisVault =
            containers.readDocument(path, &document) && decryptIndex(document, present.key, &index);
        if (!(isOfThisVault ? isContainedIn(index, present.index) : isUnfinishedCopy(file)))
            return false;
        if (!isWhole)
            isWhole = everyBlockOpens(present, progress);
        return *isWhole;
    };

    leftovers.removeIf([&](const QString &twin) {
        bool isOfThisVault = false;
        return !isSameFile(twin, present.container.fileName()) && isSuperfluous(twin, isOfThisVault) &&
               QFile::remove(twin);
    });
    const QLatin1StringView built(ContainerFormat::defaultFileName);
    for (const QString &path : folders) {
        QFile folder;
        if (lockWorkingFolder(path, folder) != FileLock::Taken)
            continue;
        // The finished container, and the unfinished one under the name that QSaveFile gives it.
        const QDir directory(path);
        const QStringList files =
            directory.entryList({built, built + QLatin1String(".??????")}, QDir::Files | QDir::NoSymLinks);
        for (const QString &name : files) {
            const QString file = directory.filePath(name);
            bool isOfThisVault = false;
            if (isSuperfluous(file, isOfThisVault))
                QFile::remove(file);
            else if (isOfThisVault)
                leftovers.append(file);
        }
        QDir().rmdir(path); // It stays when anything is left in it.
    }
}

/// After unlocking. Nothing is touched while another program works on the container, and where the file
/// system has no locks to tell.
void VaultManager::clearLeftoversOfSession()
{
    QFile container(sessionContainerPath);
    if (container.open(QIODevice::ReadOnly | QIODevice::Unbuffered) && takeLock(container) == FileLock::Taken)
        clearLeftovers({container, masterKey, sessionIndex}, {});
    else
        leftovers = compactionTwins(sessionContainerPath);
}

/// True when the drive, and not only memory, holds the header with this index.
bool VaultManager::isOnDrive(const LockedVault &present) const
{
    const QString path = present.container.fileName();
    if (!syncFile(present.container))
        return false;
    syncDirectory(QFileInfo(path).absolutePath());
    dropCachedPages(present.container);
    ContainerDocument document;
    SecureFileIndex index;
    return containers.readDocument(path, &document) && decryptIndex(document, present.key, &index) &&
           isContainedIn(present.index, index);
}

/// False also when there is more to read than may be read now.
bool VaultManager::everyBlockOpens(const LockedVault &present, const ProgressCallback &progress) const
{
    const qint64 totalBytes = present.container.size() - ContainerFormat::blockAreaOffset;
    qint64 doneBytes = 0;
    if (totalBytes > present.mostBytesRead || !isOnDrive(present))
        return false;
    BlockStore blocks(present.container, present.key);
    for (const VaultFileEntry &file : present.index.entries()) {
        for (const VaultFileBlock &block : file.blocks) {
            if (blocks.read(block).isEmpty())
                return false;
            doneBytes += block.encryptedSize;
            if (progress)
                progress(qMin(doneBytes, totalBytes), totalBytes,
                         QCoreApplication::translate("VaultManager", "Conferindo o container no USB"));
        }
    }
    return true;
}

} // namespace Tessarin::Core
