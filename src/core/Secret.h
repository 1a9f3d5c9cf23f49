// Wiping of key material. A QByteArray shares its bytes between copies, so only the last owner wipes them;
// code that handles secrets moves them or lends a view, and never copies.
#pragma once

#include <QByteArray>

#include <sodium.h>

namespace Tessarin::Core {

/// Overwrites the bytes, when no other array shares them, and leaves `secret` empty.
inline void wipe(QByteArray &secret)
{
    if (secret.isDetached())
        sodium_memzero(secret.data(), static_cast<size_t>(secret.size()));
    secret.clear();
}

/// Wipes an array when the scope ends, whichever way it ends.
class WipedAtScopeEnd
{
public:
    explicit WipedAtScopeEnd(QByteArray &target) : secret(target) {}
    ~WipedAtScopeEnd() { wipe(secret); }
    Q_DISABLE_COPY_MOVE(WipedAtScopeEnd)

private:
    QByteArray &secret;
};

} // namespace Tessarin::Core
