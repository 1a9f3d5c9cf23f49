// What counts after a change that broke off: the header on the drive, or the one in the undo record. Nothing
// that was saved later is undone. docs/architecture.md has the table.
#pragma once

#include "core/ContainerManager.h"
#include "core/Failure.h"
#include "core/Secret.h"
#include "core/SecureFileIndex.h"

#include <QByteArray>
#include <QString>

class QIODevice;

namespace Tessarin::Core {

class ContainerTransaction;
struct UndoRecord;

/// A vault that its password has opened.
struct OpenedVault
{
    ContainerDocument document;
    QByteArray headerHash; ///< SHA-256 of the header that was read last, which is the one that opened.
    SecretBytes masterKey;
    SecureFileIndex index;
};

/// Opens a vault. Where a change broke off, the container is put right, unless it cannot be written or
/// locked: then the vault opens from memory. On failure the key is set when only the index is damaged, and no
/// change broke off.
[[nodiscard]] Failure openVault(const QString &path, const QByteArray &password, OpenedVault &opened);

/// True when a header opens under the key with every block that it lists beyond the record's.
[[nodiscard]] bool isWholeHeader(QIODevice &container, QByteArrayView header, const SecretBytes &masterKey,
                                 const UndoRecord &record);

} // namespace Tessarin::Core
