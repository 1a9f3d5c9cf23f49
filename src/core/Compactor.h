// Rebuilds a container without its dead bytes: builds a new one among the temporary files, verifies it, and
// puts it in the place of the old one. Blocks are moved as they are stored. docs/architecture.md tells the
// steps and what is true at each of them.
#pragma once

#include "core/ContainerManager.h"
#include "core/Failure.h"
#include "core/ProgressCallback.h"
#include "core/SecureFileIndex.h"
#include "core/VaultUnderLock.h"

#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <optional>

class QIODevice;

namespace Tessarin::Core {

/// One compaction. What it has made and does not need any more goes with it.
class Compactor
{
public:
    enum class Result {
        Kept,      ///< It failed, and the old container is as it was.
        Preserved, ///< The old container is gone and its place empty; the new one lies at preservedPath().
        Replaced,
    };

    /// `header` is the header in force, perhaps without its index, and `identityInForce` tells that index
    /// (`indexIdentity`).
    Compactor(const VaultUnderLock &vaultUnderLock, const ContainerDocument &header,
              const QByteArray &identityInForce, ProgressCallback progressCallback);
    ~Compactor();
    Q_DISABLE_COPY_MOVE(Compactor)

    /// Writes the new container into a working folder and reads it again. False when something cannot be
    /// read, or the temporary files have no room.
    [[nodiscard]] bool build();

    /// After build(). From the deletion of the old container on, which closes it, the new header and index
    /// count, whatever comes.
    [[nodiscard]] Result putInPlace();

    [[nodiscard]] const ContainerDocument &newDocument() const;
    [[nodiscard]] const SecureFileIndex &newIndex() const;
    [[nodiscard]] QString preservedPath() const;
    /// Why it was not Replaced.
    [[nodiscard]] Failure failure() const;

private:
    [[nodiscard]] bool prepareFolder();
    [[nodiscard]] bool copyLiveBlocks(QIODevice &output);
    [[nodiscard]] bool padBlocks(QIODevice &output) const;
    [[nodiscard]] bool verify() const;
    [[nodiscard]] bool putTwinBeside(const QString &path);
    [[nodiscard]] bool isOldInForce(const QString &path) const;

    VaultUnderLock vault;
    ContainerDocument oldHeader;
    QByteArray oldIdentity;
    ProgressCallback progress;
    ContainerManager containers;

    std::optional<QTemporaryDir> folder;
    QFile folderLock; ///< Tells other programs that the folder is in use.
    QString builtPath;
    ContainerDocument document; ///< Of the new container.
    SecureFileIndex index;
    QFile twin; ///< Open while a second container lies beside the first.
    QString preserved;
    Failure reason = Failure::Other;
};

} // namespace Tessarin::Core
