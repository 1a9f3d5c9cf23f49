// The key hierarchy of a vault: the password opens the master key, and the first 32 bytes of the master key,
// the data key, seal the index and every block. Each ciphertext is bound to its purpose and to the header's
// parameters by its associated data. Failure is empty or false.
#pragma once

#include "core/ContainerManager.h"
#include "core/FormatNames.h"
#include "core/Secret.h"
#include "core/SecureFileIndex.h"

#include <QByteArray>

namespace Tessarin::Core {

[[nodiscard]] QByteArray associatedData(const ContainerDocument &document, Purpose purpose);

/// 64 random bytes.
[[nodiscard]] SecretBytes newMasterKey();

/// A view of the bytes that seal the index and the blocks; `masterKey` must outlive it.
[[nodiscard]] QByteArray dataKey(const SecretBytes &masterKey);

/// Sets what a fresh wrapping of the master key needs, but for the wrapped key itself.
void renewKeyParameters(ContainerDocument &document);

/// The master key, wrapped under the password as the document's parameters say.
[[nodiscard]] QByteArray encryptMasterKey(const ContainerDocument &document, const QByteArray &password,
                                          const SecretBytes &masterKey);
/// Empty when the password is wrong or the header is damaged: the two are not told apart.
[[nodiscard]] SecretBytes decryptMasterKey(const ContainerDocument &document, const QByteArray &password);

/// True when two headers hold the same wrapping of the key, and agree in all but the index and its nonce.
[[nodiscard]] bool wrapAlike(const ContainerDocument &first, const ContainerDocument &second);

[[nodiscard]] QByteArray encryptIndex(const ContainerDocument &document, const SecureFileIndex &index,
                                      const SecretBytes &masterKey);
/// Fills `index` only on success.
[[nodiscard]] bool decryptIndex(const ContainerDocument &document, const SecretBytes &masterKey,
                                SecureFileIndex *index);

/// Tells one sealed index from every other: its nonce, which is never used twice, and its tag.
[[nodiscard]] QByteArray indexIdentity(const ContainerDocument &document);

} // namespace Tessarin::Core
