// Fetches the stored bytes of a block. The index that says where they lie may be damaged or hostile.
#pragma once

#include "core/SecureFileIndex.h"

#include <QByteArray>

class QIODevice;

namespace Tessarin::Core {

/// The block's ciphertext with its tag; empty when its sizes cannot be right or it does not lie whole in the
/// container. Never takes more memory than one block of 16 MiB.
[[nodiscard]] QByteArray readStoredBlock(QIODevice &container, const VaultFileBlock &block);

} // namespace Tessarin::Core
