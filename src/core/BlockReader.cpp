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

QByteArray readStoredBlock(QIODevice &container, const VaultFileBlock &block)
{
    if (!hasPossibleSizes(block) || !container.seek(block.offset))
        return {};

    QByteArray stored(block.encryptedSize, Qt::Uninitialized);
    if (container.read(stored.data(), stored.size()) != stored.size())
        return {};
    return stored;
}

} // namespace Tessarin::Core
