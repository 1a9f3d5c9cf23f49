// Owns the private directory that holds the decrypted copies of opened files, and the lock that guards it.
// One program run uses one workspace path, drawn at construction.
//
// The directory above it is everybody's. So the workspace is held open, and every folder in it is reached
// from there without following links; what belongs to someone else or is open to others is refused.
#pragma once

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

    /// Where the copy of a vault file lies; `vaultPath` is normalized already.
    [[nodiscard]] QString pathForVaultFile(const QString &vaultPath) const;

    /// Creates the workspace, readable by its owner alone, and takes its lock without waiting.
    [[nodiscard]] bool prepare();

    /// Opens the copy of a vault file for writing, emptied and readable by its owner alone, and creates the
    /// folders above it. False, and nothing written, unless the workspace is prepared and all on the way is
    /// private; false too for the lock file's own path.
    [[nodiscard]] bool openCopy(const QString &vaultPath, QFile &copy);

    /// True when the path of a copy leads, without a link, to a regular file in this workspace.
    [[nodiscard]] bool holdsCopy(const QString &vaultPath) const;

    /// Releases the lock and deletes the workspace with all in it; true when none is left.
    [[nodiscard]] bool cleanup();

private:
    class Directory;

    QString directory;
    std::unique_ptr<Directory> handle;
    std::unique_ptr<QLockFile> lock;
};

} // namespace Tessarin::Core
