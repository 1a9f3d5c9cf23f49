// The proof that a leftover may go.
#include "core/Leftovers.h"

#include "core/BlockStore.h"
#include "core/ContainerCopy.h"
#include "core/ContainerManager.h"
#include "core/HostFile.h"
#include "core/LeftoverNames.h"
#include "core/ProgressLabels.h"
#include "core/VaultKeys.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <optional>

namespace Tessarin::Core {

namespace {

/// Every import has an id of its own, and every block a nonce.
bool isSameFileEntry(const VaultFileEntry &first, const VaultFileEntry &second)
{
    return first.id == second.id && std::ranges::equal(first.blocks, second.blocks, {},
                                                       &VaultFileBlock::nonce, &VaultFileBlock::nonce);
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

/// Judges leftovers against one vault.
class LeftoverJudge
{
public:
    LeftoverJudge(const VaultUnderLock &vaultUnderLock, qint64 mostBytesRead,
                  const ProgressCallback &callback)
        : vault(vaultUnderLock), bytesLeft(mostBytesRead), progress(callback)
    {
    }

    /// Opens and locks a leftover. False when another program is at work on it, and for the container itself.
    bool take(QFile &file) const
    {
        return !isSameFile(file.fileName(), vault.container.fileName()) &&
               file.open(QIODevice::ReadOnly | QIODevice::Unbuffered) && takeLock(file) == FileLock::Taken &&
               isOpenAt(file, file.fileName());
    }

    enum class Verdict {
        Superfluous, ///< Nothing is lost with it.
        Needed,      ///< A container of this vault, or one that could not be read yet.
        Foreign,     ///< No container of this vault.
    };

    /// Of a file that a compaction has left.
    Verdict judgeCopy(QFile &file)
    {
        if (!takeFromBudget(ContainerFormat::blockAreaOffset))
            return Verdict::Needed;
        ContainerDocument document;
        SecureFileIndex index;
        const bool isOfThisVault = containers.readDocument(file.fileName(), &document) &&
                                   decryptIndex(document, vault.masterKey, &index);
        if ((isOfThisVault ? isContainedIn(index, vault.index) : isUnfinishedCopy(file)) && isVaultWhole())
            return Verdict::Superfluous;
        return isOfThisVault ? Verdict::Needed : Verdict::Foreign;
    }

    /// True when nothing is lost with a file that a creation has left: the new container that never got its
    /// place, or the former one that has lost it to this vault.
    bool isSuperfluousCreation(QFile &file)
    {
        // On FAT, two names that were about to be exchanged may lead to one file.
        if (!takeFromBudget(beginningSize) || beginningOf(file) == beginningOf(vault.container))
            return false;
        // Until the drive has the container under its name, that name may lead to the leftover there.
        if (file.size() <= ContainerFormat::blockAreaOffset)
            return isOnDrive();
        // Of a creation that failed and could not put the former container back: as long as nothing is in the
        // new one, its user may want that.
        return !vault.index.entries().isEmpty() && isVaultWhole();
    }

private:
    static constexpr qint64 beginningSize = 4096; ///< Key, salt and nonces lie there.

    static QByteArray beginningOf(QFile &file)
    {
        return file.seek(0) ? file.read(beginningSize) : QByteArray();
    }

    bool takeFromBudget(qint64 size)
    {
        if (size > bytesLeft)
            return false;
        bytesLeft -= size;
        return true;
    }

    /// Found out when it is needed: that takes a while.
    bool isVaultWhole()
    {
        if (!isWhole)
            isWhole = isOnDrive() && everyBlockOpens();
        return *isWhole;
    }

    /// True when the drive, and not only memory, holds the header with this index.
    bool isOnDrive()
    {
        const QString path = vault.container.fileName();
        if (!takeFromBudget(ContainerFormat::blockAreaOffset) || !isOpenAt(vault.container, path) ||
            !syncFile(vault.container) || !syncDirectory(QFileInfo(path).absolutePath())) {
            return false;
        }
        dropCachedPages(vault.container);
        ContainerDocument document;
        SecureFileIndex index;
        return containers.readDocument(path, &document) && decryptIndex(document, vault.masterKey, &index) &&
               isContainedIn(vault.index, index);
    }

    bool everyBlockOpens()
    {
        const qint64 totalBytes = plaintextBytes(vault.index);
        qint64 doneBytes = 0;
        BlockStore blocks(vault.container, vault.masterKey);
        for (const VaultFileEntry &file : vault.index.entries()) {
            for (const VaultFileBlock &block : file.blocks) {
                if (!takeFromBudget(block.encryptedSize) || blocks.read(block).isEmpty())
                    return false;
                doneBytes += block.plainSize;
                if (progress)
                    progress(doneBytes, totalBytes, checkingLabel());
            }
        }
        return true;
    }

    const VaultUnderLock &vault;
    qint64 bytesLeft;
    const ProgressCallback &progress;
    ContainerManager containers;
    std::optional<bool> isWhole;
};

/// Clears one working folder; containers of this vault that have to stay are added to `staying`.
void clearWorkingFolder(const QString &path, LeftoverJudge &judge, QStringList &staying)
{
    QFile folder;
    if (lockOwnDirectory(path, folder) != FileLock::Taken)
        return;
    const QDir directory(path);
    const QFileInfo built(directory, QLatin1String(ContainerFormat::defaultFileName));
    const QFileInfoList files = directory.entryInfoList(QDir::Files | QDir::NoSymLinks);
    for (const QFileInfo &found : files) {
        if (found != built && !isCreationName(built.filePath(), found.filePath()))
            continue;
        QFile file(found.filePath());
        if (!judge.take(file))
            continue;
        const LeftoverJudge::Verdict verdict = judge.judgeCopy(file);
        if (verdict == LeftoverJudge::Verdict::Superfluous)
            static_cast<void>(removeWithKey(file.fileName()));
        else if (verdict == LeftoverJudge::Verdict::Needed)
            staying.append(file.fileName());
    }
    QDir().rmdir(path); // It stays when anything is left in it.
}

} // namespace

QStringList clearLeftovers(const VaultUnderLock &vault, qint64 mostBytesRead,
                           const ProgressCallback &progress)
{
    LeftoverJudge judge(vault, mostBytesRead, progress);
    // A vault that was replaced by mistake can perhaps be rescued, as a deleted file: its key stays in it.
    const auto isCleared = [&](const QString &path) {
        QFile file(path);
        if (!judge.take(file))
            return false;
        return isCreationName(vault.container.fileName(), path)
                   ? judge.isSuperfluousCreation(file) && QFile::remove(path)
                   : judge.judgeCopy(file) == LeftoverJudge::Verdict::Superfluous && removeWithKey(path);
    };
    QStringList staying = leftoversBeside(vault.container.fileName());
    staying.removeIf(isCleared);
    for (const QFileInfo &folder : presentWorkingFolders())
        clearWorkingFolder(folder.filePath(), judge, staying);
    return staying;
}

} // namespace Tessarin::Core
