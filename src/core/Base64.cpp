// A table of all letters: Qt's decoder takes ten times as long, and each change of a large vault decodes its
// index.
#include "core/Base64.h"

#include <array>
#include <string_view>

namespace Tessarin::Core {

namespace {

constexpr quint32 noDigit = 1 << 6;

/// The six bits that a letter stands for, or noDigit.
constexpr std::array<quint32, 256> digits = [] {
    std::array<quint32, 256> table{};
    table.fill(noDigit);
    quint32 digit = 0;
    for (const char letter :
         std::string_view("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"))
        table[static_cast<uchar>(letter)] = digit++;
    return table;
}();

} // namespace

std::optional<QByteArray> decodeCanonicalBase64(QByteArrayView text)
{
    if (text.isEmpty() || text.size() % 4 != 0)
        return {};
    // Only the last group can have padding, or bits that no byte holds.
    const QByteArray end = QByteArray::fromBase64(text.last(4).toByteArray());
    if (end.toBase64() != text.last(4))
        return {};

    QByteArray bytes(text.size() / 4 * 3 - 3, Qt::Uninitialized);
    quint32 seen = 0;
    const auto *letters = reinterpret_cast<const uchar *>(text.data());
    for (char *byte = bytes.data(); byte != bytes.constEnd(); byte += 3, letters += 4) {
        const quint32 first = digits[letters[0]];
        const quint32 second = digits[letters[1]];
        const quint32 third = digits[letters[2]];
        const quint32 fourth = digits[letters[3]];
        seen |= first | second | third | fourth;
        byte[0] = static_cast<char>(first << 2 | second >> 4);
        byte[1] = static_cast<char>(second << 4 | third >> 2);
        byte[2] = static_cast<char>(third << 6 | fourth);
    }
    return seen < noDigit ? std::optional(bytes + end) : std::nullopt;
}

QByteArray decodeBase64(QByteArrayView text)
{
    const std::optional<QByteArray> bytes = decodeCanonicalBase64(text);
    return bytes ? *bytes : QByteArray::fromBase64(text.toByteArray());
}

} // namespace Tessarin::Core
