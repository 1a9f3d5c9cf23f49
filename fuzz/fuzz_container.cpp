// A whole container whose index is the input, sealed with a key that is known here. It is unlocked as any
// other, all its files are exported, and some are renamed or deleted: whatever the index says, that is true
// or false and nothing worse. scripts/fuzz also bounds the size of every allocation.
#include "Require.h"

#include "core/ContainerManager.h"
#include "core/FormatNames.h"
#include "core/VaultManager.h"

#include <QIODevice>

#include <sys/mman.h>
#include <unistd.h>

using namespace Tessarin::Core;
using Tessarin::Fuzz::require;

namespace {

constexpr char password[] = "uma senha bem longa";
constexpr qsizetype savedOneIn = 8;

/// Takes every byte and keeps none.
class NullDevice : public QIODevice
{
public:
    NullDevice() { require(open(WriteOnly | Unbuffered)); }

protected:
    qint64 readData(char *, qint64) override { return -1; }
    qint64 writeData(const char *, qint64 size) override { return size; }
};

class SealedContainer
{
public:
    SealedContainer()
    {
        // One round of the fallback derivation: opening costs next to nothing.
        metadata.kdf = QStringLiteral("PBKDF2");
        metadata.cipher = nameOf(Cipher::XChaCha20Poly1305);
        metadata.kdfIterations = 1;
        metadata.salt = QByteArray(CryptoManager::saltSizeBytes, 's');
        metadata.nonce = metadata.payloadNonce = QByteArray(CryptoManager::nonceSizeBytes, 'n');
        const QByteArray passwordKey =
            crypto.deriveKey(password, {metadata.kdf, metadata.salt, metadata.kdfIterations, 64});
        metadata.encryptedMasterKey = crypto.encrypt(
            QByteArray(64, 'k'), passwordKey.first(CryptoManager::keySizeBytes), metadata.nonce,
            "TRAVEX|master-key|3|" + metadata.cipher.toUtf8() + "|PBKDF2|1|" + metadata.salt + '|' +
                metadata.nonce);
    }

    QString path() const { return QStringLiteral("/proc/self/fd/%1").arg(descriptor); }

    void write(const QByteArray &index) const
    {
        ContainerDocument document;
        document.crypto = metadata;
        document.encryptedIndex =
            crypto.encrypt(index, dataKey, metadata.payloadNonce,
                           "TRAVEX|index|3|" + metadata.cipher.toUtf8() + '|' + metadata.payloadNonce);
        const QByteArray header = ContainerManager().buildHeader(document);
        const QByteArray beginning =
            ContainerFormat::fileMagic +
            QByteArray::number(header.size()).rightJustified(ContainerFormat::lengthDigits, '0') + '\n' +
            header;
        // One block, of the bytes "conteúdo", under a nonce of zeros.
        const QByteArray block =
            crypto.encrypt("conteúdo", dataKey, QByteArray(24, '\0'), "TRAVEX|file-block|3");
        require(ftruncate(descriptor, 0) == 0);
        put(0, beginning);
        put(ContainerFormat::blockAreaOffset, block);
    }

private:
    void put(off_t offset, const QByteArray &bytes) const
    {
        require(pwrite(descriptor, bytes.constData(), static_cast<size_t>(bytes.size()), offset) ==
                bytes.size());
    }

    const int descriptor = memfd_create("container", MFD_CLOEXEC);
    const QByteArray dataKey{CryptoManager::keySizeBytes, 'k'};
    CryptoManager crypto;
    ContainerCryptoMetadata metadata;
};

void checkSaving(const SealedContainer &container, VaultManager &vault, const SecureFileIndex &index)
{
    if (!index.directories().isEmpty())
        static_cast<void>(
            vault.renameDirectory(index.directories().first().path, QStringLiteral("outra pasta")));
    if (!index.entries().isEmpty() && vault.deleteFile(index.entries().first().vaultPath)) {
        const QByteArray saved = vault.fileIndex().toJson();
        require(vault.lockVault() && vault.unlockVault(container.path(), password));
        require(vault.fileIndex().toJson() == saved);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const SealedContainer container;
    static VaultManager vault;
    const auto input =
        QByteArray::fromRawData(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    container.write(input);
    SecureFileIndex index;
    const bool isIndex = !input.isEmpty() && index.fromJson(input);
    require(vault.unlockVault(container.path(), password) == isIndex);
    if (!isIndex)
        return 0;

    NullDevice sink;
    for (const VaultFileEntry &file : index.entries())
        static_cast<void>(vault.writeVaultFileToDevice(file.vaultPath, &sink));
    // Saving takes much longer than reading, so only some inputs get there.
    if (input.size() % savedOneIn == 0)
        checkSaving(container, vault, index);
    require(vault.lockVault());
    return 0;
}
