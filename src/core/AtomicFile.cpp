// Writing beside, then changing places.
#include "core/AtomicFile.h"

#include "core/HostFile.h"
#include "core/LeftoverNames.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>

#include <fcntl.h>

namespace Tessarin::Core {

namespace {

bool renameWith(const QString &from, const QString &to, unsigned int flags)
{
    return ::renameat2(AT_FDCWD, QFile::encodeName(from).constData(), AT_FDCWD,
                       QFile::encodeName(to).constData(), flags) == 0;
}

bool renameOver(const QString &from, const QString &to)
{
    return ::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

/// Makes a file durable under the name that a rename has given it. FAT's rename writes an entry of size 0,
/// which only a sync of the file itself completes.
bool syncRenamed(QFile &file, const QString &path)
{
    return syncFile(file) && syncDirectory(QFileInfo(path).absolutePath());
}

/// These two leave nothing of the new file behind when they fail.
bool putInEmptyPlace(QFile &file, const QString &path)
{
    if (!renameWith(file.fileName(), path, RENAME_NOREPLACE) &&
        !(isUnsupportedRenaming(errno) && renameOver(file.fileName(), path))) {
        file.remove();
        return false;
    }
    if (syncRenamed(file, path))
        return true;
    QFile::remove(path);
    return false;
}

bool putInPlaceOf(QFile &former, QFile &file)
{
    const QString path = former.fileName();
    const QString otherPath = file.fileName();
    // FAT's rename over a file frees it before the new entry is on the drive. Where two files cannot change
    // places (exFAT, FAT before Linux 6.0), a rename has to do. One that tells of a failure may have done it.
    if (!renameWith(otherPath, path, RENAME_EXCHANGE) && !isOpenAt(file, path)) {
        if (isUnsupportedRenaming(errno) && renameOver(otherPath, path))
            return syncRenamed(file, path);
        file.remove();
        return false;
    }
    // On FAT the other name leads to the new file, too, until the former one is synced under it.
    if (syncRenamed(file, path) && syncRenamed(former, otherPath)) {
        QFile::remove(otherPath);
        // Whether the former file is gone for good changes nothing about the new one.
        static_cast<void>(syncDirectory(QFileInfo(path).absolutePath()));
        return true;
    }
    // As long as neither is certain to have the name, neither is removed.
    if (renameWith(otherPath, path, RENAME_EXCHANGE) && syncRenamed(former, path) &&
        syncRenamed(file, otherPath)) {
        QFile::remove(otherPath);
    }
    return false;
}

} // namespace

bool writeAtomically(const QString &path, const std::function<bool(QFile &)> &writeContents)
{
    const QFileInfo place(path);
    const bool replaces = place.exists();
    // Through a link, the file itself is replaced and not the link.
    const QString target = replaces ? place.canonicalFilePath() : path;
    QFile former(target);
    if (replaces && !(place.isFile() &&
                      former.open(QIODevice::ReadWrite | QIODevice::ExistingOnly | QIODevice::Unbuffered) &&
                      lockFile(former))) {
        return false;
    }
    QFile file(newCreationPath(target));
    if (!file.open(QIODevice::ReadWrite | QIODevice::NewOnly))
        return false;
    if (replaces)
        file.setPermissions(former.permissions());
    if (!lockFile(file) || !writeContents(file) || !syncFile(file)) {
        file.remove();
        return false;
    }
    return replaces ? putInPlaceOf(former, file) : putInEmptyPlace(file, target);
}

} // namespace Tessarin::Core
