// The index as it comes out of its seal. What it holds once it was read is what writing and reading it keeps.
#include "Require.h"

#include "core/SecureFileIndex.h"

using Tessarin::Core::SecureFileIndex;
using Tessarin::Fuzz::require;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const auto input =
        QByteArray::fromRawData(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    SecureFileIndex index;
    if (!index.fromJson(input)) {
        require(index.entries().isEmpty() && index.directories().isEmpty());
        return 0;
    }

    const QByteArray json = index.toJson();
    SecureFileIndex again;
    require(again.fromJson(json) && again.toJson() == json);
    for (const auto &file : index.entries())
        require(index.contains(file.vaultPath) && index.findFile(file.vaultPath) != nullptr);
    while (!index.entries().isEmpty())
        require(index.remove(QString(index.entries().last().vaultPath)));
    return 0;
}
