// The stored blocks of one container: sealed and appended, read and opened. Nothing that an index says of a
// block is taken on trust: it may be damaged or hostile.
#pragma once

#include "core/CryptoManager.h"
#include "core/Secret.h"
#include "core/SecureFileIndex.h"

#include <QByteArray>
#include <QByteArrayView>

#include <optional>

class QIODevice;

namespace Tessarin::Core {

/// Its memory is used again from block to block; what was plain in it is wiped at the end.
class BlockStore
{
public:
    /// Both must outlive this object, and the container is open.
    BlockStore(QIODevice &containerDevice, const SecretBytes &masterKey);
    ~BlockStore();
    Q_DISABLE_COPY_MOVE(BlockStore)

    // What these return is valid until the next call. No block is empty: an empty view is a failure.

    /// Reads the plaintext of a new block: all that comes, up to 16 MiB.
    [[nodiscard]] QByteArrayView readPlain(QIODevice &source);
    /// Seals that plaintext under a nonce of its own, and writes it where the container stands.
    [[nodiscard]] std::optional<VaultFileBlock> append();

    /// The stored bytes of a block, ciphertext and tag, as they are. Empty when the block's sizes cannot be
    /// right or it does not lie whole in the container. Never takes more than one block of 16 MiB.
    [[nodiscard]] QByteArrayView readStored(const VaultFileBlock &block);
    /// The plaintext of a block; empty also when it does not authenticate.
    [[nodiscard]] QByteArrayView read(const VaultFileBlock &block);

private:
    [[nodiscard]] char *plainBuffer();
    [[nodiscard]] char *storedBuffer();

    QIODevice &container;
    const SecretBytes &key;
    CryptoManager crypto;
    QByteArray plain; ///< Room for one block, once it is needed. Only the pages that are used are touched.
    QByteArray stored;
    qsizetype plainSize = 0;     ///< Of the block that was read last.
    qsizetype mostPlainSize = 0; ///< Of all so far.
};

} // namespace Tessarin::Core
