// Imports that share their waits for the drive (group commit): their blocks are appended one after the other,
// the index grows in memory, and a commit puts all of them in force at once. A single import is a group of
// one.
#pragma once

#include "core/ContainerTransaction.h"
#include "core/Failure.h"
#include "core/ProgressCallback.h"
#include "core/SecureFileIndex.h"

#include <QElapsedTimer>
#include <QList>
#include <QString>

#include <optional>

class QFile;

namespace Tessarin::Core {

class VaultContainer;

struct ImportedFile
{
    QString vaultPath;
    QString sourcePath;
};

class ImportGroup
{
public:
    /// The container, which is open, must outlive this.
    explicit ImportGroup(VaultContainer &vaultContainer);

    /// The index with all files that are still to be committed.
    [[nodiscard]] const SecureFileIndex &index() const;

    /// Appends an open local file and adds it to the index, in place of one of that name. Locks the container
    /// if the group has not done so. On failure that file is rolled back, and where the drive has lost what
    /// it was given before, the others that were not committed are as well.
    [[nodiscard]] bool add(QFile &source, const QString &vaultPath, const ProgressCallback &progress);

    /// To be asked when a file was added. True about every two seconds, less often where commits take long,
    /// and where the header has hardly any room left.
    [[nodiscard]] bool isDue() const;
    /// Puts everything that was added in force. On failure all of it is rolled back: the index is again the
    /// one in force. Whoever added the last file has to tell of that one.
    [[nodiscard]] bool commit();

    /// What was committed since the last call.
    [[nodiscard]] QList<ImportedFile> takeCommitted();

    /// True when files have been rolled back later than by the call that added them. The last one is not
    /// counted where commit() itself has failed.
    [[nodiscard]] bool hasLostFiles() const;
    /// Why the last call failed.
    [[nodiscard]] Failure failure() const;

private:
    [[nodiscard]] bool begin();
    [[nodiscard]] bool hasRoomFor(qint64 growth) const;
    [[nodiscard]] bool append(QFile &source, VaultFileEntry &entry, const ProgressCallback &progress);
    [[nodiscard]] bool fail(Failure why);
    void forgetUncommitted();

    VaultContainer &container;
    /// Empty before the first file, and after a commit that ended undecided.
    std::optional<ContainerTransaction> transaction;
    SecureFileIndex newestIndex;
    QList<ImportedFile> uncommitted;
    QList<ImportedFile> committed;
    qint64 mostGrowth = 0; ///< Of the header by what is uncommitted, in bytes.
    bool lostFiles = false;
    QElapsedTimer sinceCommit;
    qint64 intervalMs; ///< From the last commit to the next.
    Failure reason = Failure::None;
};

} // namespace Tessarin::Core
