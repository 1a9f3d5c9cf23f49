// Reads and writes the container file: a short prologue, a JSON header in a reserved area of 8 MiB, then the
// encrypted blocks. It knows nothing of keys. Each call opens and closes the file itself; failure is false
// or empty.
#pragma once

#include "core/ContainerFormat.h"
#include "core/SecureFileIndex.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QHash>
#include <QJsonObject>
#include <QString>

#include <functional>

class QIODevice;

namespace Tessarin::Core {

/// How the master key and the index are sealed.
struct ContainerCryptoMetadata
{
    QString kdf;
    QString cipher;
    qint32 kdfIterations = ContainerFormat::defaultKdfIterations;
    QByteArray salt;
    QByteArray nonce;        ///< Of the master key.
    QByteArray payloadNonce; ///< Of the index.
    QByteArray authTag;      ///< Always empty in files this program writes: tags follow their ciphertext.
    QByteArray encryptedMasterKey;
    bool operator==(const ContainerCryptoMetadata &) const = default;
};

/// A container without its blocks.
struct ContainerDocument
{
    qint32 formatVersion = ContainerFormat::version;
    ContainerCryptoMetadata crypto;
    SecureFileIndex fileIndex; ///< From a legacy plain index; empty in current files.
    QByteArray encryptedIndex;
    QByteArray encryptedPayload;             ///< Legacy, read and never written.
    QHash<QString, QByteArray> filePayloads; ///< Legacy, read and never written.
    qint64 payloadOffset = 0;                ///< Bytes before the block area; set by reading.
};

class ContainerManager
{
public:
    /// Appends the blocks to the device, which stands at the start of the block area; false aborts.
    using PayloadWriter = std::function<bool(QIODevice &)>;

    /// The default container inside a drive's root directory.
    [[nodiscard]] QString containerPath(const QString &rootPath) const;
    [[nodiscard]] bool containerExists(const QString &rootPath) const;

    /// Also what the library offers to other programs, as are updateDocumentHeader() and readContainer(): the
    /// session changes containers by transactions.
    [[nodiscard]] QJsonObject cryptoMetadataToJson(const ContainerCryptoMetadata &metadata) const;
    [[nodiscard]] ContainerCryptoMetadata cryptoMetadataFromJson(const QJsonObject &object) const;

    /// The header as compact JSON, keys in the order of the format.
    [[nodiscard]] QByteArray buildHeader(const ContainerDocument &document) const;

    /// Writes a whole container beside `path` and puts it in place when it is complete. The header is built
    /// after the writer returned, so it holds what the writer changed in the document it refers to.
    [[nodiscard]] bool writeDocument(const QString &path, const ContainerDocument &document,
                                     const PayloadWriter &payloadWriter) const;
    [[nodiscard]] bool writeDocument(const QString &path, const ContainerDocument &document) const;

    /// Rewrites the header in place, so that a power cut leaves it old or new (see ContainerTransaction).
    /// False when the file is no container or in use, its block area does not begin where this program puts
    /// it, or the header exceeds its area; or a record is left that does not know the header: a session
    /// clears it.
    [[nodiscard]] bool updateDocumentHeader(const QString &path, const ContainerDocument &document) const;

    /// Reads a header by itself, which does not tell the payloadOffset: that is 0 afterwards. Fills
    /// `document` only on success.
    [[nodiscard]] bool parseHeader(QByteArrayView header, ContainerDocument *document) const;

    /// Fills `document` only on success.
    [[nodiscard]] bool readDocument(const QString &path, ContainerDocument *document) const;

    /// Whole files at once; empty or false on failure. Writing is atomic.
    [[nodiscard]] QByteArray readContainer(const QString &path) const;
    [[nodiscard]] bool writeContainer(const QString &path, const QByteArray &bytes) const;
};

} // namespace Tessarin::Core
