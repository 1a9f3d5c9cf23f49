// Records of opened copies.
#include "core/FileSyncManager.h"

#include <QFileInfo>

namespace Tessarin::Core {

bool FileSyncManager::track(const QString &vaultPath, const QString &tempPath)
{
    const QFileInfo copy(tempPath);
    if (!copy.isFile())
        return false;

    records.insert(vaultPath, {vaultPath, tempPath, copy.lastModified().toUTC()});
    return true;
}

void FileSyncManager::untrack(const QString &vaultPath)
{
    records.remove(vaultPath);
}

bool FileSyncManager::isModified(const QString &vaultPath) const
{
    const auto record = records.constFind(vaultPath);
    if (record == records.cend())
        return false;

    // The time of a copy that is gone is invalid, which counts as no later than any that a copy has.
    return record->lastModifiedUtc < QFileInfo(record->tempPath).lastModified().toUTC();
}

QList<TrackedTempFile> FileSyncManager::modifiedFiles() const
{
    QList<TrackedTempFile> modified;
    for (const TrackedTempFile &record : records) {
        if (isModified(record.vaultPath))
            modified.append(record);
    }
    return modified;
}

QList<TrackedTempFile> FileSyncManager::trackedFiles() const
{
    return records.values();
}

void FileSyncManager::clear()
{
    records.clear();
}

} // namespace Tessarin::Core
