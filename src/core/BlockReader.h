// Fetches the stored bytes of a block. The index that says where they lie may be damaged or hostile.
#pragma once

#include "core/SecureFileIndex.h"

#include <QByteArray>

class QIODevice;

namespace Tessarin::Core {

/// Fills `stored`, whose memory is used again, with the block's ciphertext and tag. False when the block's
/// sizes cannot be right or it does not lie whole in the container. Never takes more than one block of 16
/// MiB.
[[nodiscard]] bool readStoredBlock(QIODevice &container, const VaultFileBlock &block, QByteArray &stored);

} // namespace Tessarin::Core
