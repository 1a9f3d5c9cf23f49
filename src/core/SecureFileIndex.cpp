// The catalogue and its JSON.
#include "core/SecureFileIndex.h"

#include "core/JsonText.h"
#include "core/VaultPath.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <utility>

namespace Tessarin::Core {

namespace {

constexpr qint64 indexFormatVersion = 1;

/// The one form in which this program writes dates.
constexpr QLatin1String dateForm("0000-00-00T00:00:00.000Z");

void putDigits(char *at, int number, int digits)
{
    for (char *digit = at + digits - 1; digit >= at; --digit, number /= 10)
        *digit = static_cast<char>('0' + number % 10);
}

/// Qt's general formatting takes longer than all the rest of an entry.
QByteArray dateToJson(const QDateTime &when)
{
    const QDateTime utc = when.toUTC();
    const QDate date = utc.date();
    const QTime time = utc.time();
    if (!utc.isValid() || date.year() < 0 || date.year() > 9999)
        return utc.toString(Qt::ISODateWithMs).toLatin1();

    QByteArray text(dateForm.data(), dateForm.size());
    char *at = text.data();
    putDigits(at, date.year(), 4);
    putDigits(at + 5, date.month(), 2);
    putDigits(at + 8, date.day(), 2);
    putDigits(at + 11, time.hour(), 2);
    putDigits(at + 14, time.minute(), 2);
    putDigits(at + 17, time.second(), 2);
    putDigits(at + 20, time.msec(), 3);
    return text;
}

/// Qt's parser drops a byte order mark at the beginning of a text that needs no decoding, and so would merge
/// names that older programs have written.
QByteArray withMarksEscaped(const QByteArray &json)
{
    constexpr QByteArrayView beginning("\"\xEF\xBB\xBF");
    return json.contains(beginning) ? QByteArray(json).replace(beginning, "\"\\ufeff") : json;
}

QDateTime dateFromJson(const QJsonValue &value)
{
    const QString text = value.toString();
    if (text.isEmpty())
        return {};
    return QDateTime::fromString(text, Qt::ISODateWithMs);
}

void writeBlock(JsonText &json, const VaultFileBlock &block)
{
    json.beginObject();
    json.key("offset");
    json.value(block.offset);
    json.key("plainSize");
    json.value(block.plainSize);
    json.key("encryptedSize");
    json.value(block.encryptedSize);
    json.key("nonce");
    json.plainValue(block.nonce.toBase64());
    json.endObject();
}

void writeFile(JsonText &json, const VaultFileEntry &entry)
{
    json.beginObject();
    json.key("id");
    json.value(entry.id);
    json.key("vaultPath");
    json.value(entry.vaultPath);
    json.key("sizeBytes");
    json.value(entry.sizeBytes);
    json.key("lastModifiedUtc");
    json.plainValue(dateToJson(entry.lastModifiedUtc));
    json.key("sha256");
    json.plainValue(entry.sha256.toHex());
    json.key("blocks");
    json.beginArray();
    for (const VaultFileBlock &block : entry.blocks)
        writeBlock(json, block);
    json.endArray();
    json.endObject();
}

void writeDirectory(JsonText &json, const VaultDirectoryEntry &entry)
{
    json.beginObject();
    json.key("path");
    json.value(entry.path);
    json.key("createdUtc");
    json.plainValue(dateToJson(entry.createdUtc));
    json.key("modifiedUtc");
    json.plainValue(dateToJson(entry.modifiedUtc));
    json.endObject();
}

VaultFileBlock readBlock(const QJsonObject &object)
{
    VaultFileBlock block;
    block.offset = object.value(QLatin1String("offset")).toInteger();
    block.plainSize = object.value(QLatin1String("plainSize")).toInteger();
    block.encryptedSize = object.value(QLatin1String("encryptedSize")).toInteger();
    block.nonce = QByteArray::fromBase64(object.value(QLatin1String("nonce")).toString().toLatin1());
    return block;
}

VaultFileEntry readFile(const QJsonObject &object)
{
    VaultFileEntry entry;
    entry.id = object.value(QLatin1String("id")).toString();
    entry.vaultPath = object.value(QLatin1String("vaultPath")).toString();
    entry.sizeBytes = object.value(QLatin1String("sizeBytes")).toInteger();
    entry.lastModifiedUtc = dateFromJson(object.value(QLatin1String("lastModifiedUtc")));
    entry.sha256 = QByteArray::fromHex(object.value(QLatin1String("sha256")).toString().toLatin1());
    const QJsonArray blocks = object.value(QLatin1String("blocks")).toArray();
    for (const QJsonValue block : blocks)
        entry.blocks.append(readBlock(block.toObject()));
    return entry;
}

VaultDirectoryEntry readDirectory(const QJsonObject &object)
{
    VaultDirectoryEntry entry;
    entry.path = object.value(QLatin1String("path")).toString();
    entry.createdUtc = dateFromJson(object.value(QLatin1String("createdUtc")));
    entry.modifiedUtc = dateFromJson(object.value(QLatin1String("modifiedUtc")));
    return entry;
}

} // namespace

const QList<VaultFileEntry> &SecureFileIndex::entries() const &
{
    return fileEntries;
}

QList<VaultFileEntry> SecureFileIndex::entries() &&
{
    return std::move(fileEntries);
}

const QList<VaultDirectoryEntry> &SecureFileIndex::directories() const &
{
    return directoryEntries;
}

QList<VaultDirectoryEntry> SecureFileIndex::directories() &&
{
    return std::move(directoryEntries);
}

bool SecureFileIndex::contains(const QString &vaultPath) const
{
    return fileLookup.byPath.contains(vaultPath);
}

bool SecureFileIndex::containsDirectory(const QString &path) const
{
    return directoryLookup.byPath.contains(path);
}

const VaultFileEntry *SecureFileIndex::findFile(const QString &vaultPath) const
{
    const auto found = fileLookup.firstByKey.constFind(vaultPathKey(vaultPath));
    return found == fileLookup.firstByKey.cend() ? nullptr : &fileEntries.at(*found);
}

const VaultDirectoryEntry *SecureFileIndex::findDirectory(const QString &path) const
{
    const auto found = directoryLookup.firstByKey.constFind(vaultPathKey(path));
    return found == directoryLookup.firstByKey.cend() ? nullptr : &directoryEntries.at(*found);
}

bool SecureFileIndex::addOrReplace(const VaultFileEntry &entry)
{
    if (entry.vaultPath.isEmpty())
        return false;

    if (const auto position = fileLookup.byPath.constFind(entry.vaultPath);
        position != fileLookup.byPath.cend()) {
        fileEntries[*position] = entry;
        return true;
    }
    fileLookup.add(entry.vaultPath, fileEntries.size());
    fileEntries.append(entry);
    return true;
}

bool SecureFileIndex::addDirectory(const VaultDirectoryEntry &entry)
{
    if (entry.path.isEmpty())
        return false;

    if (const auto position = directoryLookup.byPath.constFind(entry.path);
        position != directoryLookup.byPath.cend()) {
        directoryEntries[*position] = entry;
        return true;
    }
    directoryLookup.add(entry.path, directoryEntries.size());
    directoryEntries.append(entry);
    return true;
}

bool SecureFileIndex::setVaultPath(const QString &vaultPath, const QString &newVaultPath)
{
    const auto position = fileLookup.byPath.constFind(vaultPath);
    if (position == fileLookup.byPath.cend() || newVaultPath.isEmpty() || contains(newVaultPath))
        return false;

    // `vaultPath` may be a reference into the entry that changes; so may the paths of the two functions
    // below.
    const QString formerPath = std::exchange(fileEntries[*position].vaultPath, newVaultPath);
    if (!fileLookup.rename(formerPath, newVaultPath))
        rebuildFileLookup();
    return true;
}

bool SecureFileIndex::remove(const QString &vaultPath)
{
    const auto position = fileLookup.byPath.constFind(vaultPath);
    if (position == fileLookup.byPath.cend())
        return false;

    const QString removedPath = fileEntries.takeAt(*position).vaultPath;
    if (!fileLookup.remove(removedPath))
        rebuildFileLookup();
    return true;
}

bool SecureFileIndex::removeInAnyCase(const QString &vaultPath)
{
    const VaultFileEntry *first = findFile(vaultPath);
    if (first == nullptr)
        return false;
    if (fileLookup.byPath.size() == fileLookup.firstByKey.size())
        return remove(first->vaultPath);

    const QString key = vaultPathKey(vaultPath);
    fileEntries.removeIf(
        [&key](const VaultFileEntry &entry) { return vaultPathKey(entry.vaultPath) == key; });
    rebuildFileLookup();
    return true;
}

bool SecureFileIndex::removeDirectory(const QString &path)
{
    const auto position = directoryLookup.byPath.constFind(path);
    if (position == directoryLookup.byPath.cend())
        return false;

    const QString removedPath = directoryEntries.takeAt(*position).path;
    if (!directoryLookup.remove(removedPath))
        rebuildDirectoryLookup();
    return true;
}

void SecureFileIndex::clear()
{
    *this = SecureFileIndex();
}

QByteArray SecureFileIndex::toJson() const
{
    constexpr qsizetype usualEntrySize = 360;
    JsonText json(fileEntries.size() * usualEntrySize);
    json.beginObject();
    json.key("formatVersion");
    json.value(indexFormatVersion);
    json.key("files");
    json.beginArray();
    for (const VaultFileEntry &entry : fileEntries)
        writeFile(json, entry);
    json.endArray();
    json.key("directories");
    json.beginArray();
    for (const VaultDirectoryEntry &entry : directoryEntries)
        writeDirectory(json, entry);
    json.endArray();
    json.endObject();
    return json.take();
}

bool SecureFileIndex::fromJson(const QByteArray &json)
{
    const QJsonDocument document = QJsonDocument::fromJson(withMarksEscaped(json));
    if (!document.isObject())
        return false;

    const QJsonObject object = document.object();
    const QJsonArray files = object.value(QLatin1String("files")).toArray();
    for (const QJsonValue file : files)
        addOrReplace(readFile(file.toObject()));
    const QJsonArray directories = object.value(QLatin1String("directories")).toArray();
    for (const QJsonValue directory : directories)
        addDirectory(readDirectory(directory.toObject()));
    return true;
}

void SecureFileIndex::PathLookup::add(const QString &path, qsizetype position)
{
    byPath.insert(path, position);
    const QString key = vaultPathKey(path);
    if (!firstByKey.contains(key))
        firstByKey.insert(key, position);
}

bool SecureFileIndex::PathLookup::remove(const QString &path)
{
    if (byPath.size() != firstByKey.size())
        return false;

    const qsizetype gap = byPath.take(path);
    firstByKey.remove(vaultPathKey(path));
    for (QHash<QString, qsizetype> *positions : {&byPath, &firstByKey}) {
        for (qsizetype &position : *positions)
            position -= position > gap;
    }
    return true;
}

bool SecureFileIndex::PathLookup::rename(const QString &from, const QString &to)
{
    const qsizetype position = byPath.take(from);
    firstByKey.remove(vaultPathKey(from));
    add(to, position);
    return byPath.size() == firstByKey.size();
}

void SecureFileIndex::rebuildFileLookup()
{
    fileLookup = {};
    for (qsizetype position = 0; position < fileEntries.size(); ++position)
        fileLookup.add(fileEntries.at(position).vaultPath, position);
}

void SecureFileIndex::rebuildDirectoryLookup()
{
    directoryLookup = {};
    for (qsizetype position = 0; position < directoryEntries.size(); ++position)
        directoryLookup.add(directoryEntries.at(position).path, position);
}

bool indexContainsFilePath(const SecureFileIndex &index, const QString &path)
{
    return index.findFile(path) != nullptr;
}

bool indexContainsDirectoryPath(const SecureFileIndex &index, const QString &path)
{
    return index.findDirectory(path) != nullptr;
}

qint64 plaintextBytes(const SecureFileIndex &index)
{
    quint64 total = 0;
    for (const VaultFileEntry &file : index.entries())
        total += static_cast<quint64>(file.sizeBytes);
    return static_cast<qint64>(total);
}

} // namespace Tessarin::Core
