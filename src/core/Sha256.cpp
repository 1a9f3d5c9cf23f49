// The digest behind OpenSSL's EVP interface.
#include "core/Sha256.h"

#include <openssl/evp.h>

namespace Tessarin::Core {

Sha256::Sha256() : context(EVP_MD_CTX_new())
{
    // Fails when memory is out, and where the library's configuration offers no SHA-256.
    isSound = context && EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1;
}

Sha256::~Sha256() = default;

void Sha256::add(QByteArrayView bytes)
{
    isSound =
        isSound && EVP_DigestUpdate(context.get(), bytes.data(), static_cast<size_t>(bytes.size())) == 1;
}

QByteArray Sha256::result()
{
    QByteArray digest(sizeBytes, '\0');
    auto *bytes = reinterpret_cast<unsigned char *>(digest.data());
    isSound = isSound && EVP_DigestFinal_ex(context.get(), bytes, nullptr) == 1;
    return isSound ? digest : QByteArray();
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
