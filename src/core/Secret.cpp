// Guarded memory for keys.
#include "core/Secret.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace Tessarin::Core {

SecretBytes::SecretBytes(QByteArray plain)
{
    if (plain.isEmpty())
        return;
    const WipedAtScopeEnd wipePlain(plain);
    memory = static_cast<char *>(sodium_malloc(static_cast<size_t>(plain.size())));
    if (memory == nullptr)
        return;
    size = plain.size();
    std::memcpy(memory, plain.constData(), static_cast<size_t>(size));
}

SecretBytes::~SecretBytes()
{
    clear();
}

SecretBytes::SecretBytes(SecretBytes &&other) noexcept
    : memory(std::exchange(other.memory, nullptr)), size(std::exchange(other.size, 0))
{
}

SecretBytes &SecretBytes::operator=(SecretBytes &&other) noexcept
{
    SecretBytes taken(std::move(other));
    std::swap(memory, taken.memory);
    std::swap(size, taken.size);
    return *this;
}

bool SecretBytes::isEmpty() const
{
    return size == 0;
}

QByteArray SecretBytes::view() const
{
    return QByteArray::fromRawData(memory, size);
}

QByteArray SecretBytes::view(qsizetype firstBytes) const
{
    return QByteArray::fromRawData(memory, std::min(size, firstBytes));
}

void SecretBytes::clear()
{
    sodium_free(std::exchange(memory, nullptr));
    size = 0;
}

} // namespace Tessarin::Core
