// Base64 with a fast way for what is plain and Qt's for the rest: both give the same bytes. The fast way
// takes exactly the one form in which bytes are written.
#include "Require.h"

#include "core/Base64.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    const QByteArray bytes = QByteArray::fromBase64(input);
    Tessarin::Fuzz::require(Tessarin::Core::decodeBase64(input) == bytes);
    const bool isCanonical = !input.isEmpty() && bytes.toBase64() == input;
    Tessarin::Fuzz::require(Tessarin::Core::decodeCanonicalBase64(input) ==
                            (isCanonical ? std::optional(bytes) : std::nullopt));
    return 0;
}
