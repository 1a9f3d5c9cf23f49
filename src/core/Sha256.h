// SHA-256 (FIPS 180-4) through Nettle, which uses the processor's SHA instructions where it has them.
#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <nettle/sha2.h>

namespace Tessarin::Core {

class Sha256
{
public:
    static constexpr qsizetype sizeBytes = SHA256_DIGEST_SIZE;

    Sha256();
    ~Sha256(); ///< Wipes what it holds of the bytes.
    Q_DISABLE_COPY_MOVE(Sha256)

    void add(QByteArrayView bytes);

    /// 32 raw bytes. What is added afterwards begins a new digest.
    [[nodiscard]] QByteArray result();

    [[nodiscard]] static QByteArray of(QByteArrayView bytes);

private:
    sha256_ctx context;
};

} // namespace Tessarin::Core
