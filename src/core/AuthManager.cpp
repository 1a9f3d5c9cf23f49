// Password check against a stored hash.
#include "core/AuthManager.h"

#include "core/Secret.h"

#include <QCryptographicHash>

namespace Tessarin::Core {

AuthManager::AuthManager(CryptoManager cryptoManager) : crypto(cryptoManager) {}

bool AuthManager::authenticate(const QByteArray &password, const QByteArray &expectedHash,
                               const KeyDerivationParams &params) const
{
    QByteArray key = crypto.deriveKey(password, params);
    const WipedAtScopeEnd wipeKey(key);
    if (key.isEmpty())
        return false;

    return QCryptographicHash::hash(key, QCryptographicHash::Sha256) == expectedHash;
}

} // namespace Tessarin::Core
