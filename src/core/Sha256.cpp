// The digest behind OpenSSL's EVP interface.
#include "core/Sha256.h"

#include <openssl/evp.h>

#include <new>

namespace Tessarin::Core {

Sha256::Sha256() : context(EVP_MD_CTX_new())
{
    // These calls fail only when memory is out or the library has no SHA-256; neither can be gone on from.
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1)
        throw std::bad_alloc();
}

Sha256::~Sha256() = default;

void Sha256::add(QByteArrayView bytes)
{
    EVP_DigestUpdate(context.get(), bytes.data(), static_cast<size_t>(bytes.size()));
}

QByteArray Sha256::result()
{
    QByteArray digest(sizeBytes, '\0');
    EVP_DigestFinal_ex(context.get(), reinterpret_cast<unsigned char *>(digest.data()), nullptr);
    return digest;
}

QByteArray Sha256::of(QByteArrayView bytes)
{
    Sha256 hash;
    hash.add(bytes);
    return hash.result();
}

void Sha256::ContextDeleter::operator()(evp_md_ctx_st *released) const
{
    EVP_MD_CTX_free(released);
}

} // namespace Tessarin::Core
