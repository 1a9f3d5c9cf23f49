// Blocks on their way into a container and out of it.
#include "core/BlockStore.h"

#include "core/ContainerFormat.h"
#include "core/VaultKeys.h"

#include <QIODevice>

#include <algorithm>

namespace Tessarin::Core {

namespace {

bool hasPossibleSizes(const VaultFileBlock &block)
{
    return block.offset > 0 && block.plainSize > 0 && block.plainSize <= ContainerFormat::blockPlainSize &&
           block.encryptedSize == block.plainSize + CryptoManager::tagSizeBytes;
}

QByteArray blockAssociatedData()
{
    return associatedData({}, Purpose::FileBlock);
}

} // namespace

BlockStore::BlockStore(QIODevice &containerDevice, const SecretBytes &masterKey)
    : container(containerDevice), key(masterKey)
{
}

BlockStore::~BlockStore()
{
    sodium_memzero(plain.data(), static_cast<size_t>(mostPlainSize));
}

QByteArrayView BlockStore::readPlain(QIODevice &source)
{
    plainSize = std::max(qint64(0), source.read(plainBuffer(), ContainerFormat::blockPlainSize));
    mostPlainSize = std::max(mostPlainSize, plainSize);
    return QByteArrayView(plain).first(plainSize);
}

std::optional<VaultFileBlock> BlockStore::append()
{
    VaultFileBlock block;
    block.offset = container.pos();
    block.plainSize = plainSize;
    block.encryptedSize = plainSize + CryptoManager::tagSizeBytes;
    block.nonce = crypto.generateNonce(CryptoManager::nonceSizeBytes);
    const bool isWritten = hasPossibleSizes(block) &&
                           crypto.encryptInto(storedBuffer(), QByteArrayView(plain).first(plainSize),
                                              dataKey(key), block.nonce, blockAssociatedData()) &&
                           container.write(stored.constData(), block.encryptedSize) == block.encryptedSize;
    return isWritten ? std::optional(block) : std::nullopt;
}

QByteArrayView BlockStore::readStored(const VaultFileBlock &block)
{
    if (!hasPossibleSizes(block) || !container.seek(block.offset) ||
        container.read(storedBuffer(), block.encryptedSize) != block.encryptedSize) {
        return {};
    }
    return QByteArrayView(stored).first(block.encryptedSize);
}

QByteArrayView BlockStore::read(const VaultFileBlock &block)
{
    const QByteArrayView ciphertext = readStored(block);
    if (ciphertext.isEmpty())
        return {};
    plainSize = block.plainSize;
    mostPlainSize = std::max(mostPlainSize, plainSize);
    return crypto.decryptInto(plainBuffer(), ciphertext, dataKey(key), block.nonce, blockAssociatedData())
               ? QByteArrayView(plain).first(plainSize)
               : QByteArrayView();
}

char *BlockStore::plainBuffer()
{
    if (plain.isEmpty())
        plain = QByteArray(ContainerFormat::blockPlainSize, Qt::Uninitialized);
    return plain.data();
}

char *BlockStore::storedBuffer()
{
    if (stored.isEmpty()) {
        stored = QByteArray(ContainerFormat::blockPlainSize + CryptoManager::tagSizeBytes, Qt::Uninitialized);
    }
    return stored.data();
}

} // namespace Tessarin::Core
