// Checks a password against a stored hash of its derived key. Part of what the library offers to other
// programs; the vault session verifies passwords by opening the master key instead.
#pragma once

#include "core/CryptoManager.h"

namespace Tessarin::Core {

class AuthManager
{
public:
    explicit AuthManager(CryptoManager cryptoManager);

    /// True when SHA-256 of the key derived from `password` equals `expectedHash` (32 raw bytes).
    [[nodiscard]] bool authenticate(const QByteArray &password, const QByteArray &expectedHash,
                                    const KeyDerivationParams &params) const;

private:
    CryptoManager crypto;
};

} // namespace Tessarin::Core
