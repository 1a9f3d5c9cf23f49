// Remembers which vault file each opened temporary copy belongs to, and tells which copies have changed.
#pragma once

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>

namespace Tessarin::Core {

struct TrackedTempFile
{
    QString vaultPath;
    QString tempPath;
    QDateTime lastModifiedUtc; ///< Of the copy, when it was tracked.
};

class FileSyncManager
{
public:
    /// Remembers the copy and its time; replaces a record of the same vault path. False when `tempPath` is
    /// no regular file.
    [[nodiscard]] bool track(const QString &vaultPath, const QString &tempPath);

    /// Forgets the record; the copy stays where it is.
    void untrack(const QString &vaultPath);

    /// True when the copy still exists and is newer than when it was tracked.
    [[nodiscard]] bool isModified(const QString &vaultPath) const;

    [[nodiscard]] QList<TrackedTempFile> modifiedFiles() const;
    [[nodiscard]] QList<TrackedTempFile> trackedFiles() const;

    void clear();

private:
    QHash<QString, TrackedTempFile> records; ///< By vault path, letter case counting.
};

} // namespace Tessarin::Core
