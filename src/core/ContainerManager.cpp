// The header as JSON, and whole containers.
#include "core/ContainerManager.h"

#include "core/AtomicFile.h"
#include "core/Base64.h"
#include "core/ContainerTransaction.h"
#include "core/HeaderArea.h"
#include "core/JsonScan.h"
#include "core/JsonText.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>

#include <algorithm>
#include <initializer_list>
#include <optional>

namespace Tessarin::Core {

using namespace ContainerFormat;

namespace {

bool writeAll(QIODevice &device, const QByteArray &bytes)
{
    return device.write(bytes) == bytes.size();
}

/// What lies before the blocks, with its zeros.
bool writeHeaderArea(QIODevice &device, const QByteArray &header)
{
    return header.size() <= headerAreaSize && device.seek(0) &&
           writeAll(device, HeaderArea(header).bytesOf({0, blockAreaOffset}));
}

QByteArray bytesFromJson(const QJsonObject &object, QLatin1String key)
{
    return decodeBase64(object.value(key).toString().toLatin1());
}

bool isHeaderOfThisFormat(const QJsonObject &header)
{
    return header.value(QLatin1String("magic")).toString() == QLatin1String(headerMagic) &&
           header.value(QLatin1String("formatVersion")).toInt(0) == version;
}

using JsonMembers = QMap<QByteArrayView, QByteArrayView>; ///< A member's key, and the JSON of its value.

/// The members of these names; of equal keys the last one counts. None when the text is no JSON object.
std::optional<JsonMembers> findMembers(QByteArrayView json, std::initializer_list<QByteArrayView> names)
{
    JsonMembers members;
    const bool isObject = visitJsonMembers(json, [&](QByteArrayView key, QByteArrayView value) {
        const auto *name = std::find(names.begin(), names.end(), key);
        if (name != names.end())
            members[*name] = value;
    });
    return isObject ? std::optional(members) : std::nullopt;
}

bool isScalar(QByteArrayView value)
{
    return !value.startsWith('{') && !value.startsWith('[');
}

QByteArray objectOf(const JsonMembers &members)
{
    QByteArray object("{");
    for (auto member = members.cbegin(); member != members.cend(); ++member) {
        object.append(object.size() > 1 ? ",\"" : "\"").append(member.key()).append("\":");
        object.append(member.value());
    }
    return object.append('}');
}

QJsonObject parsed(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}

/// Without nested members: Qt's parser would make a hundred times their size.
QJsonObject scalarsIn(JsonMembers members)
{
    members.removeIf([](auto member) { return !isScalar(member.value()); });
    return parsed(objectOf(members));
}

/// Bytes of memory, estimated from above, that Qt's parser and what becomes of its objects take.
qint64 costOfParsing(QByteArrayView json)
{
    const auto count = [&](char byte) { return std::count(json.begin(), json.end(), byte); };
    const qint64 containers = count('{') + count('[');
    const qint64 members = count(',');
    return 400 * containers + 200 * members + 5 * json.size();
}

/// Nothing uses a legacy index or legacy payloads, so they are left out when they would cost too much: an
/// index of ten thousand files does not.
void readLegacyMembers(const JsonMembers &header, ContainerDocument &document)
{
    constexpr qint64 mostBytes = 56 * 1024 * 1024;
    const QByteArrayView index = header.value("fileIndex");
    const QByteArrayView payloads = header.value("filePayloads");
    if (costOfParsing(index) + costOfParsing(payloads) > mostBytes)
        return;
    static_cast<void>(document.fileIndex.fromJson(QByteArray::fromRawData(index.data(), index.size())));
    const QJsonObject object = parsed(QByteArray::fromRawData(payloads.data(), payloads.size()));
    for (auto payload = object.begin(); payload != object.end(); ++payload)
        document.filePayloads.insert(payload.key(), decodeBase64(payload.value().toString().toLatin1()));
}

} // namespace

QString ContainerManager::containerPath(const QString &rootPath) const
{
    return QDir(rootPath).filePath(QLatin1String(defaultFileName));
}

bool ContainerManager::containerExists(const QString &rootPath) const
{
    return QFileInfo(containerPath(rootPath)).isFile();
}

QJsonObject ContainerManager::cryptoMetadataToJson(const ContainerCryptoMetadata &metadata) const
{
    const auto base64 = [](const QByteArray &bytes) { return QString::fromLatin1(bytes.toBase64()); };
    return {
        {QLatin1String("kdf"), metadata.kdf},
        {QLatin1String("cipher"), metadata.cipher},
        {QLatin1String("kdfIterations"), metadata.kdfIterations},
        {QLatin1String("salt"), base64(metadata.salt)},
        {QLatin1String("nonce"), base64(metadata.nonce)},
        {QLatin1String("payloadNonce"), base64(metadata.payloadNonce)},
        {QLatin1String("authTag"), base64(metadata.authTag)},
        {QLatin1String("encryptedMasterKey"), base64(metadata.encryptedMasterKey)},
    };
}

ContainerCryptoMetadata ContainerManager::cryptoMetadataFromJson(const QJsonObject &object) const
{
    ContainerCryptoMetadata metadata;
    metadata.kdf = object.value(QLatin1String("kdf")).toString();
    metadata.cipher = object.value(QLatin1String("cipher")).toString();
    metadata.kdfIterations = object.value(QLatin1String("kdfIterations")).toInt(defaultKdfIterations);
    metadata.salt = bytesFromJson(object, QLatin1String("salt"));
    metadata.nonce = bytesFromJson(object, QLatin1String("nonce"));
    metadata.payloadNonce = bytesFromJson(object, QLatin1String("payloadNonce"));
    metadata.authTag = bytesFromJson(object, QLatin1String("authTag"));
    metadata.encryptedMasterKey = bytesFromJson(object, QLatin1String("encryptedMasterKey"));
    return metadata;
}

QByteArray ContainerManager::buildHeader(const ContainerDocument &document) const
{
    constexpr qsizetype mostBesideIndex = 1024;
    const ContainerCryptoMetadata &crypto = document.crypto;
    JsonText json(document.encryptedIndex.size() / 3 * 4 + mostBesideIndex);
    json.beginObject();
    json.key("magic");
    json.plainValue(headerMagic);
    json.key("formatVersion");
    json.value(qint64(document.formatVersion));
    json.key("crypto");
    json.beginObject();
    json.key("kdf");
    json.value(crypto.kdf);
    json.key("cipher");
    json.value(crypto.cipher);
    json.key("kdfIterations");
    json.value(qint64(crypto.kdfIterations));
    json.key("salt");
    json.plainValue(crypto.salt.toBase64());
    json.key("nonce");
    json.plainValue(crypto.nonce.toBase64());
    json.key("payloadNonce");
    json.plainValue(crypto.payloadNonce.toBase64());
    json.key("authTag");
    json.plainValue(crypto.authTag.toBase64());
    json.key("encryptedMasterKey");
    json.plainValue(crypto.encryptedMasterKey.toBase64());
    json.endObject();
    json.key("encryptedIndex");
    json.plainValue(document.encryptedIndex.toBase64());
    json.endObject();
    return json.take();
}

bool ContainerManager::writeDocument(const QString &path, const ContainerDocument &document,
                                     const PayloadWriter &payloadWriter) const
{
    return writeAtomically(path, [&](QFile &file) {
        return writeHeaderArea(file, {}) && (!payloadWriter || payloadWriter(file)) &&
               writeHeaderArea(file, buildHeader(document));
    });
}

bool ContainerManager::writeDocument(const QString &path, const ContainerDocument &document) const
{
    return writeDocument(path, document, {});
}

bool ContainerManager::updateDocumentHeader(const QString &path, const ContainerDocument &document) const
{
    ContainerTransaction change(path);
    return change.begin() &&
           change.settleAll([&](const UndoRecord &record) { return record.knows(change.header()); }) &&
           change.commit(buildHeader(document)) == ContainerTransaction::Outcome::Committed;
}

bool ContainerManager::parseHeader(QByteArrayView header, ContainerDocument *document) const
{
    const std::optional<JsonMembers> members =
        findMembers(header, {"magic", "formatVersion", "crypto", "encryptedIndex", "encryptedPayload",
                             "fileIndex", "filePayloads"});
    if (!members)
        return false;
    const QJsonObject object = scalarsIn(*members);
    if (!isHeaderOfThisFormat(object))
        return false;

    const std::optional<JsonMembers> crypto =
        findMembers(members->value("crypto"), {"kdf", "cipher", "kdfIterations", "salt", "nonce",
                                               "payloadNonce", "authTag", "encryptedMasterKey"});
    ContainerDocument fresh;
    fresh.crypto = cryptoMetadataFromJson(scalarsIn(crypto.value_or(JsonMembers())));
    fresh.encryptedIndex = bytesFromJson(object, QLatin1String("encryptedIndex"));
    fresh.encryptedPayload = bytesFromJson(object, QLatin1String("encryptedPayload"));
    readLegacyMembers(*members, fresh);
    *document = fresh;
    return true;
}

bool ContainerManager::readDocument(const QString &path, ContainerDocument *document) const
{
    QFile file(path);
    // Opening a named pipe would wait for ever.
    if (document == nullptr || !QFileInfo(path).isFile() ||
        !file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        return false;
    }
    const std::optional<HeaderArea> area = HeaderArea::read(file);
    if (!area || !parseHeader(area->header(), document))
        return false;
    document->payloadOffset = area->blockAreaOffset();
    return true;
}

QByteArray ContainerManager::readContainer(const QString &path) const
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool ContainerManager::writeContainer(const QString &path, const QByteArray &bytes) const
{
    return writeAtomically(path, [&](QFile &file) { return writeAll(file, bytes); });
}

} // namespace Tessarin::Core
