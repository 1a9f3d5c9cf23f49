// Owns the private directory that holds the decrypted copies of opened files, and the lock that guards it.
// One program run uses one workspace path, drawn at construction.
//
// The directory above it is everybody's. So the workspace is held open, and every folder in it is reached
// from there without following links; what belongs to someone else or is open to others is refused.
#pragma once

#include <QByteArray>
#include <QString>

#include <memory>

class QFile;
class QLockFile;

namespace Tessarin::Core {

class TempWorkspaceManager
{
public:
    TempWorkspaceManager();
    ~TempWorkspaceManager(); ///< Releases the lock; the directory stays until cleanup().
    Q_DISABLE_COPY_MOVE(TempWorkspaceManager)

    [[nodiscard]] QString workspacePath() const;

    /// Where the copy of a vault file lies; `vaultPath` is normalized already. It is joined to the
    /// workspace's path, with other names in the place of those that a file system cannot hold (256 bytes and
    /// more, halves of surrogate pairs).
    [[nodiscard]] QString pathForVaultFile(const QString &vaultPath) const;

    /// Creates the workspace, readable by its owner alone, and takes its lock without waiting.
    [[nodiscard]] bool prepare();

    /// Opens a new file for writing, readable by its owner alone, which becomes a copy by putCopy(). False,
    /// and nothing written, unless the workspace is prepared.
    [[nodiscard]] bool openNewCopy(QFile &copy);

    /// Closes it and puts it where the copy of a vault file lies, in place of a former one; creates the
    /// folders above. False unless all on the way is private, and for the lock file's own path: then a former
    /// copy stays as it is.
    [[nodiscard]] bool putCopy(const QString &vaultPath, QFile &copy);

    /// Closes and deletes one that could not be completed.
    void dropCopy(QFile &copy);

    /// True when the path of a copy leads, without a link, to a regular file in this workspace.
    [[nodiscard]] bool holdsCopy(const QString &vaultPath) const;

    /// Releases the lock and deletes the workspace with all in it; true when none is left.
    [[nodiscard]] bool cleanup();

private:
    class Directory;

    [[nodiscard]] QString copyPath(const QString &vaultPath) const;
    [[nodiscard]] QString substituteName(const QString &original, const QString &name) const;

    QString directory;
    std::unique_ptr<Directory> handle;
    std::unique_ptr<QLockFile> lock;
    QByteArray newCopyName; ///< In the workspace, until it is put in its place.
};

} // namespace Tessarin::Core
