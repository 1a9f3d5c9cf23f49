// Decoding of Base64 (RFC 4648, standard alphabet), fast enough for an encrypted index of several megabytes.
#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <optional>

namespace Tessarin::Core {

/// The bytes that the text stands for. As lenient as QByteArray::fromBase64: what is no Base64 is skipped.
[[nodiscard]] QByteArray decodeBase64(QByteArrayView text);

/// The same for text that these bytes, encoded, give again letter by letter; nothing for any other.
[[nodiscard]] std::optional<QByteArray> decodeCanonicalBase64(QByteArrayView text);

} // namespace Tessarin::Core
