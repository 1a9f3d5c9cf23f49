// The index as it comes out of its seal. What it holds once it was read is what writing and reading it keeps.
#include "Require.h"

#include "core/SecureFileIndex.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using Tessarin::Core::SecureFileIndex;
using Tessarin::Fuzz::require;

namespace {

/// Dates have a fast way of their own; it gives what Qt gives.
void checkDate(const SecureFileIndex &index, const QByteArray &json)
{
    const QJsonArray directories = QJsonDocument::fromJson(json).object().value(u"directories").toArray();
    if (index.directories().size() != 1 || directories.size() != 1)
        return;
    const QString text = directories.first().toObject().value(u"createdUtc").toString();
    const QDateTime created = QDateTime::fromString(text, Qt::ISODateWithMs);
    require(index.directories().first().createdUtc == created);
    require(index.toJson().contains("\"createdUtc\":\"" +
                                    created.toUTC().toString(Qt::ISODateWithMs).toLatin1() + '"'));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const auto input =
        QByteArray::fromRawData(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    SecureFileIndex index;
    if (!index.fromJson(input)) {
        require(index.entries().isEmpty() && index.directories().isEmpty());
        return 0;
    }

    checkDate(index, input);
    const QByteArray json = index.toJson();
    SecureFileIndex again;
    require(again.fromJson(json) && again.toJson() == json);
    for (const auto &file : index.entries()) {
        require(index.contains(file.vaultPath) && index.findFile(file.vaultPath) != nullptr);
        require(again.contains(file.vaultPath));
    }
    while (!index.entries().isEmpty())
        require(index.remove(QString(index.entries().last().vaultPath)));
    return 0;
}
