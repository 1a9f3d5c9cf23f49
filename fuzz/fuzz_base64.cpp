// Base64 with a fast way for what is plain and Qt's for the rest: both give the same bytes.
#include "Require.h"

#include "core/Base64.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    Tessarin::Fuzz::require(Tessarin::Core::decodeBase64(input) == QByteArray::fromBase64(input));
    return 0;
}
