// Key material: kept in guarded memory while it is needed, wiped when it is not. A QByteArray shares its
// bytes between copies, so only the last owner wipes them; code that handles secrets moves them or lends a
// view, and never copies.
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

/// Overwrites what functions that have returned left on the stack: ciphers spill their key there.
inline void wipeUnusedStack()
{
    sodium_stackzero(16 * 1024);
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

/// A key in memory of its own (libsodium's guarded allocation: between guard pages, kept out of swap and core
/// dumps where the system allows it), wiped when it is released.
class SecretBytes
{
public:
    SecretBytes() = default;

    /// Takes the bytes over and wipes them where they were. Empty when the memory cannot be had.
    explicit SecretBytes(QByteArray plain);
    ~SecretBytes();
    SecretBytes(SecretBytes &&other) noexcept;
    SecretBytes &operator=(SecretBytes &&other) noexcept;
    Q_DISABLE_COPY(SecretBytes)

    [[nodiscard]] bool isEmpty() const;

    /// The bytes, or the first of them, without a copy; valid until this object changes or goes.
    [[nodiscard]] QByteArray view() const;
    [[nodiscard]] QByteArray view(qsizetype firstBytes) const;

    void clear();

private:
    char *memory = nullptr;
    qsizetype size = 0;
};

} // namespace Tessarin::Core
