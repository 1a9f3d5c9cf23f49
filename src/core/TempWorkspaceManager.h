// Owns the private directory that holds the decrypted copies of opened files, and the lock that guards it.
// One program run uses one workspace path, drawn at construction.
#pragma once

#include <QString>

#include <memory>

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

    /// True for the one path inside the workspace that no copy may take: the lock file's.
    [[nodiscard]] bool isReservedPath(const QString &vaultPath) const;

    /// Creates the workspace, readable by its owner alone, and takes its lock without waiting.
    [[nodiscard]] bool prepare();

    /// Releases the lock and deletes the workspace with all in it; true when none is left.
    [[nodiscard]] bool cleanup();

private:
    QString directory;
    std::unique_ptr<QLockFile> lock;
};

} // namespace Tessarin::Core
