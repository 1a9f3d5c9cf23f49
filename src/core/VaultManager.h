// The vault session, the only door to a vault's contents.
//
// The life of a vault:
//   createVault     a container with a fresh master key and an empty index; it stays locked
//   unlockVault     password -> master key -> index, all in memory; a change that a power cut broke off is
//                   undone; the temporary workspace stands ready
//   importFile      encrypted blocks appended to the container, then the index that lists them
//   exportFile      blocks found by the index, decrypted and checked, written outside
//   prepareFileForEditing   a decrypted copy in the workspace, remembered
//   lockVault       changed copies go back in, the workspace goes, the key is wiped
//   changePassword  the master key wrapped anew; no file is touched
//   compactVault    the container rebuilt without the bytes of deleted files
//
// Every operation answers with true or false and leaves the words to the window. An operation that changes
// the index builds the new one, writes it, and adopts it only when the container holds it; after a failure
// the former index stays in force. Everything runs on the caller's thread.
#pragma once

#include "core/ContainerManager.h"
#include "core/ContainerTransaction.h"
#include "core/CryptoManager.h"
#include "core/Failure.h"
#include "core/FileSyncManager.h"
#include "core/ImportGroup.h"
#include "core/ProgressCallback.h"
#include "core/SecureFileIndex.h"
#include "core/TempWorkspaceManager.h"
#include "core/VaultContainer.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

class QFile;
class QIODevice;

namespace Tessarin::Core {

class VaultManager
{
public:
    enum State : int { Locked = 0, Unlocked = 1 };

    /// Characters (Unicode code points) that a new password has at least.
    static constexpr qsizetype minimumPasswordLength = 12;

    /// Counts in the UTF-8 bytes, so that no other copy of the password is made.
    [[nodiscard]] static bool isLongEnough(QByteArrayView newPassword);

    VaultManager();
    ~VaultManager();
    Q_DISABLE_COPY_MOVE(VaultManager)

    // Session (VaultSession.cpp) ----------------------------------------------------------------------------

    [[nodiscard]] State state() const;

    /// Why the last operation that changes, opens or exports something answered with false; None after true.
    [[nodiscard]] Failure lastFailure() const;

    /// The index in memory. After locking it is still the last vault's: ask state() first.
    [[nodiscard]] SecureFileIndex fileIndex() const;

    /// Writes a new, empty vault; passwords are UTF-8. An unlocked session is locked first. False when the
    /// password is too short or the container cannot be written, and, with the former vault still open, when
    /// an edited copy could not be written back into that one.
    [[nodiscard]] bool createVault(const QString &containerPath, const QByteArray &password);

    /// False on a wrong password or a damaged container (the two are not told apart). Also false, but with
    /// the session unlocked, when the temporary workspace could not be prepared. An unlocked session is
    /// locked first; false, with the former vault still open, when an edited copy could not be written back.
    [[nodiscard]] bool unlockVault(const QString &containerPath, const QByteArray &password);

    /// Writes changed copies back, removes the workspace, forgets the key. False with the session still
    /// unlocked when a copy could not be written back; false with it locked when the workspace stayed.
    [[nodiscard]] bool lockVault();
    [[nodiscard]] bool lockVault(const ProgressCallback &progress);

    /// Wraps the master key under a new password; only while locked. No file data is touched. What deleted
    /// files have left is searched for former wrappings, which takes a while and is reported. False leaves
    /// the former password, with two exceptions: with FormerKeyRemains the new one is in force, but the
    /// former one may still open what the drive has kept; with DriveGone, when the drive failed while the
    /// header was rewritten, the password that opens the vault next is in force.
    [[nodiscard]] bool changePassword(const QString &containerPath, const QByteArray &currentPassword,
                                      const QByteArray &newPassword);
    [[nodiscard]] bool changePassword(const QString &containerPath, const QByteArray &currentPassword,
                                      const QByteArray &newPassword, const ProgressCallback &progress);

    /// Stores a new index in the container and adopts it.
    [[nodiscard]] bool saveIndex(const SecureFileIndex &index);

    // Storage (VaultStorage.cpp) ----------------------------------------------------------------------------

    /// Stores a local file under a vault path, in place of a file of that name. On failure this file is
    /// rolled back; for a series see endImportSeries(). A temporary copy of the replaced file is no longer
    /// written back on lock, unless it is the source itself.
    [[nodiscard]] bool importFile(const QString &sourcePath, const QString &vaultPath,
                                  const ProgressCallback &progress);
    [[nodiscard]] bool importFile(const QString &sourcePath, const QString &vaultPath);

    /// Between these two calls imports are committed together, about every two seconds, instead of one by
    /// one. The index lists them at once, but until then a power cut takes them. Ending is false when some
    /// for which importFile() answered with true are not in the vault after all, because the drive failed or
    /// another program has saved meanwhile; the index no longer lists those. While a series is open,
    /// everything else that changes the container is refused: moving, renaming, deleting, folders, saving the
    /// index, compaction. Locking ends it first, and with it creating or unlocking another vault.
    void beginImportSeries();
    [[nodiscard]] bool endImportSeries();

    /// Writes the plaintext of a file to an open device. The path is used as it is, ignoring letter case.
    [[nodiscard]] bool writeVaultFileToDevice(const QString &vaultPath, QIODevice *device) const;
    [[nodiscard]] bool writeVaultFileToDevice(const QString &vaultPath, QIODevice *device,
                                              const ProgressCallback &progress) const;

    /// Writes the plaintext of a file to a local path. What was written before a failure stays there.
    [[nodiscard]] bool exportFile(const QString &vaultPath, const QString &targetPath) const;
    [[nodiscard]] bool exportFile(const QString &vaultPath, const QString &targetPath,
                                  const ProgressCallback &progress) const;

    // Namespace (VaultNamespace.cpp) ------------------------------------------------------------------------
    // All refuse what does not exist, and a target that exists already, letter case aside. Moving and
    // renaming are refused while a temporary copy of what is moved is open.

    /// `targetDirectory` empty is the root; it must exist.
    [[nodiscard]] bool moveFile(const QString &filePath, const QString &targetDirectory);
    /// `newFilePath` is a whole path.
    [[nodiscard]] bool renameFile(const QString &filePath, const QString &newFilePath);
    /// Takes the file out of the index; its blocks stay in the container until compaction.
    [[nodiscard]] bool deleteFile(const QString &filePath);
    /// Creates missing parents too.
    [[nodiscard]] bool createDirectory(const QString &directoryPath);
    /// Also moves a directory, with all below it.
    [[nodiscard]] bool renameDirectory(const QString &directoryPath, const QString &newDirectoryPath);
    /// Only an empty directory.
    [[nodiscard]] bool deleteDirectory(const QString &directoryPath);

    // Compaction (VaultCompaction.cpp) ----------------------------------------------------------------------

    /// Rebuilds the container without unreferenced blocks. When the old container is gone and the new one
    /// could not be put in its place, `preservedPath` (may be null) receives where the new one lies.
    [[nodiscard]] bool compactVault(const ProgressCallback &progress, QString *preservedPath);
    /// The files beside a container, or where it was, that only a compaction or a creation leaves which was
    /// killed; their paths. One of them may be the only whole container.
    [[nodiscard]] static QStringList compactionTwins(const QString &containerPath);
    /// Which of these, and of the containers among the temporary files, stay and may hold files that the
    /// vault does not; paths. Of the last unlocking, change of the password or compaction, each of which has
    /// removed what the vault provably holds itself.
    [[nodiscard]] QStringList compactionLeftovers() const;

    // Editing (VaultEditing.cpp) ----------------------------------------------------------------------------

    /// Decrypts a file into the workspace and remembers the copy; `tempPath` receives where it lies. A copy
    /// that exists already is overwritten.
    [[nodiscard]] bool prepareFileForEditing(const QString &vaultPath, QString *tempPath);
    [[nodiscard]] bool prepareFileForEditing(const QString &vaultPath, QString *tempPath,
                                             const ProgressCallback &progress);

    /// Imports every changed copy, and once more what is saved meanwhile; stops at the first failure.
    /// Progress counts the bytes of all together.
    [[nodiscard]] bool syncModifiedTempFiles();
    [[nodiscard]] bool syncModifiedTempFiles(const ProgressCallback &progress);

    /// The opened files, each with its copy.
    [[nodiscard]] QList<TrackedTempFile> openFiles() const;

    /// The opened files whose copies have changed.
    [[nodiscard]] QList<TrackedTempFile> modifiedOpenFiles() const;

    /// The directory that holds the temporary copies.
    [[nodiscard]] QString workspacePath() const;

private:
    /// Notes how an operation ended, and is its result.
    [[nodiscard]] bool fail(Failure reason) const;
    [[nodiscard]] bool succeed() const;

    [[nodiscard]] const SecureFileIndex &currentIndex() const;
    [[nodiscard]] bool storeIndex(const SecureFileIndex &index, ContainerTransaction::Policy policy);

    // Storage
    [[nodiscard]] bool commitImports(ImportGroup &group);
    void forgetCopies(const QString &vaultPath, const QString &exceptTempPath);

    // Namespace
    [[nodiscard]] bool relocateFile(const QString &filePath, const QString &newFilePath);
    [[nodiscard]] bool hasOpenCopy(const QString &vaultPath) const;
    [[nodiscard]] bool hasOpenCopyInside(const QString &directoryPath) const;

    // Editing
    [[nodiscard]] bool importCopies(const QList<TrackedTempFile> &modified,
                                    QHash<QString, QDateTime> &savedAt, const ProgressCallback &progress);

    // Compaction
    [[nodiscard]] bool hasOtherLengthLine() const;
    [[nodiscard]] Failure lockForReading(QFile &file);
    void clearLeftoversOfSession();

    State sessionState = Locked;
    mutable Failure failure = Failure::None;
    VaultContainer container;
    std::optional<ImportGroup> importGroup; ///< Between beginImportSeries() and endImportSeries().
    QMap<QString, QByteArray> payloads;     ///< Of the legacy format; always empty.
    QStringList leftovers;                  ///< Of compactions: the paths of those that had to stay.
    ContainerManager containers;
    CryptoManager crypto;
    TempWorkspaceManager workspace;
    FileSyncManager openCopies;
};

} // namespace Tessarin::Core
