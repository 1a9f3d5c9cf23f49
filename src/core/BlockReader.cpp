// Reads blocks, trusting nothing the index says of them.
#include "core/BlockReader.h"

#include "core/ContainerFormat.h"
#include "core/CryptoManager.h"

#include <QIODevice>

namespace Tessarin::Core {

namespace {

bool hasPossibleSizes(const VaultFileBlock &block)
{
    return block.offset > 0 && block.plainSize > 0 && block.plainSize <= ContainerFormat::blockPlainSize &&
           block.encryptedSize == block.plainSize + CryptoManager::tagSizeBytes;
}

} // namespace

bool readStoredBlock(QIODevice &container, const VaultFileBlock &block, QByteArray &stored)
{
    if (!hasPossibleSizes(block) || !container.seek(block.offset))
        return false;

    // A new buffer instead of resize(), which would copy the old bytes into it.
    if (stored.capacity() < block.encryptedSize)
        stored = QByteArray(block.encryptedSize, Qt::Uninitialized);
    stored.resize(block.encryptedSize);
    return container.read(stored.data(), stored.size()) == stored.size();
}

} // namespace Tessarin::Core
