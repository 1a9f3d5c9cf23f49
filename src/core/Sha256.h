// SHA-256 (FIPS 180-4) through OpenSSL, which uses the processor's SHA instructions where it has them.
#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <memory>

struct evp_md_ctx_st;

namespace Tessarin::Core {

class Sha256
{
public:
    static constexpr qsizetype sizeBytes = 32;

    Sha256();
    ~Sha256();
    Q_DISABLE_COPY_MOVE(Sha256)

    void add(QByteArrayView bytes);

    /// 32 raw bytes; empty when the library could not compute them. Nothing can be added afterwards.
    [[nodiscard]] QByteArray result();

    [[nodiscard]] static QByteArray of(QByteArrayView bytes);

private:
    struct ContextDeleter
    {
        void operator()(evp_md_ctx_st *context) const;
    };
    std::unique_ptr<evp_md_ctx_st, ContextDeleter> context;
    bool isSound = false;
};

} // namespace Tessarin::Core
