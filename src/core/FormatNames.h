// What headers and associated data name by text, as types, and the one table of these names.
#pragma once

#include <QLatin1StringView>
#include <QStringView>

namespace Tessarin::Core {

/// What a ciphertext is for; part of its associated data.
enum class Purpose { MasterKey, Index, FileBlock };

/// How a password becomes a key. Every name but exactly the first one means the second.
enum class KeyDerivation { Argon2id, Pbkdf2HmacSha256 };

/// Headers may say any name: it is part of the associated data, and the one cipher is used all the same.
enum class Cipher { XChaCha20Poly1305 };

namespace FormatNames {

inline constexpr QLatin1StringView purposes[]{QLatin1StringView("master-key"), QLatin1StringView("index"),
                                              QLatin1StringView("file-block")};
inline constexpr QLatin1StringView keyDerivations[]{QLatin1StringView("Argon2id"),
                                                    QLatin1StringView("PBKDF2-HMAC-SHA256")};
inline constexpr QLatin1StringView ciphers[]{QLatin1StringView("XChaCha20-Poly1305")};

} // namespace FormatNames

[[nodiscard]] constexpr QLatin1StringView nameOf(Purpose purpose)
{
    return FormatNames::purposes[static_cast<int>(purpose)];
}

[[nodiscard]] constexpr QLatin1StringView nameOf(KeyDerivation derivation)
{
    return FormatNames::keyDerivations[static_cast<int>(derivation)];
}

[[nodiscard]] constexpr QLatin1StringView nameOf(Cipher cipher)
{
    return FormatNames::ciphers[static_cast<int>(cipher)];
}

[[nodiscard]] inline KeyDerivation keyDerivationNamed(QStringView name)
{
    return name == nameOf(KeyDerivation::Argon2id) ? KeyDerivation::Argon2id
                                                   : KeyDerivation::Pbkdf2HmacSha256;
}

} // namespace Tessarin::Core
