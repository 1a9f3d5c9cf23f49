// The digest of Nettle, whose version 4 no longer asks for a size.
#include "core/Sha256.h"

#include <nettle/version.h>
#include <sodium.h>

namespace Tessarin::Core {

Sha256::Sha256()
{
    sha256_init(&context);
}

Sha256::~Sha256()
{
    sodium_memzero(&context, sizeof(context));
}

void Sha256::add(QByteArrayView bytes)
{
    sha256_update(&context, static_cast<size_t>(bytes.size()),
                  reinterpret_cast<const uint8_t *>(bytes.data()));
}

QByteArray Sha256::result()
{
    QByteArray digest(sizeBytes, '\0');
    auto *bytes = reinterpret_cast<uint8_t *>(digest.data());
#if NETTLE_VERSION_MAJOR < 4
    sha256_digest(&context, sizeBytes, bytes);
#else
    sha256_digest(&context, bytes);
#endif
    return digest;
}

QByteArray Sha256::of(QByteArrayView bytes)
{
    Sha256 hash;
    hash.add(bytes);
    return hash.result();
}

} // namespace Tessarin::Core
