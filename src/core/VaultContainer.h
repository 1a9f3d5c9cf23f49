// What a session knows of its container: where it lies, the master key, the header, and the index in force,
// with what tells that index from every other. A change goes: begin a transaction, append blocks, commit an
// index.
#pragma once

#include "core/ContainerManager.h"
#include "core/ContainerTransaction.h"
#include "core/Failure.h"
#include "core/Secret.h"
#include "core/SecureFileIndex.h"

#include <QByteArray>
#include <QSet>
#include <QString>

namespace Tessarin::Core {

struct OpenedVault;

class VaultContainer
{
public:
    /// Takes over a vault that its password has opened.
    void adopt(const QString &newPath, OpenedVault vault);
    /// After a compaction: another header and index are in force, under the same key.
    void replace(const ContainerDocument &newDocument, const SecureFileIndex &newIndex);
    /// Wipes the key. The index stays.
    void close();

    [[nodiscard]] const QString &path() const;
    /// Empty while no vault is open.
    [[nodiscard]] const SecretBytes &masterKey() const;
    [[nodiscard]] const SecureFileIndex &index() const;

    /// Locks the container for a change. Puts right what an earlier change of this session that broke off has
    /// left, and clears records that have nothing to undo. ChangedByOther when the index in force is not the
    /// one that this session knows: another program has saved, or another file lies there.
    [[nodiscard]] Failure begin(ContainerTransaction &transaction);
    /// Seals an index under a nonce of its own, commits it, and adopts it when it is in force.
    [[nodiscard]] ContainerTransaction::Outcome commitIndex(ContainerTransaction &transaction,
                                                            const SecureFileIndex &newIndex,
                                                            ContainerTransaction::Policy policy);

    /// Reads the header of the container anew, whatever its length line. False when its index is not the one
    /// that this session knows.
    [[nodiscard]] bool reload();
    /// Tells the index in force from every other.
    [[nodiscard]] const QByteArray &identityOfIndex() const;
    /// The header in force, but for its sealed index.
    [[nodiscard]] const ContainerDocument &document() const;

private:
    [[nodiscard]] bool recallHeader(ContainerTransaction &transaction) const;
    [[nodiscard]] bool parseHeader(ContainerTransaction &transaction);
    [[nodiscard]] bool rollBackOwnChange(ContainerTransaction &transaction);
    void know(const ContainerDocument &knownDocument, const QByteArray &headerHash);

    QString containerPath;
    SecretBytes key;                  ///< 64 bytes.
    SecureFileIndex indexInForce;     ///< As far as this session knows.
    QByteArray identity;              ///< Of that index: its nonce and tag.
    QSet<QByteArray> triedIdentities; ///< Of every index that this session tried to commit.
    QByteArray knownHeaderHash;       ///< Of the header that `header` was read from; empty when none was.
    ContainerDocument header;
};

} // namespace Tessarin::Core
