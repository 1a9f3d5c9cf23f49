// The header, as JSON or as the beginning of a container. A header that was read says the same when it is
// written and read again, in a container too.
#include "Require.h"

#include "core/Base64.h"
#include "core/ContainerManager.h"
#include "core/HeaderArea.h"
#include "core/JsonScan.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <sys/mman.h>
#include <unistd.h>

using namespace Tessarin::Core;
using Tessarin::Fuzz::require;

namespace {

bool sayTheSame(const ContainerDocument &a, const ContainerDocument &b)
{
    const ContainerManager containers;
    return containers.buildHeader(a) == containers.buildHeader(b);
}

/// The members that are needed are found by a scanner of our own; Qt's parser finds the same.
bool isHeaderForQt(const QByteArray &header, ContainerDocument &document)
{
    const QJsonObject object = QJsonDocument::fromJson(header).object();
    document.crypto = ContainerManager().cryptoMetadataFromJson(object.value(u"crypto").toObject());
    document.encryptedIndex = decodeBase64(object.value(u"encryptedIndex").toString().toLatin1());
    return object.value(u"magic").toString() == QLatin1String(ContainerFormat::headerMagic) &&
           object.value(u"formatVersion").toInt() == ContainerFormat::version;
}

/// The scanner takes for an object what Qt's parser takes for one, and finds the same in it. It looks into no
/// text and no number, so it is content with some that Qt refuses. (And of a text that begins with a byte
/// order mark, Qt's own values are not always equal.)
void checkScanner(const QByteArray &json)
{
    QJsonObject scanned;
    const bool isObject = visitJsonMembers(json, [&](QByteArrayView key, QByteArrayView value) {
        const QByteArray array = '[' + value.toByteArray() + ']';
        scanned.insert(QString::fromUtf8(key), QJsonDocument::fromJson(array).array().at(0));
    });
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    const bool isRefusedByQtAlone =
        isObject &&
        (error.error == QJsonParseError::IllegalUTF8String || error.error == QJsonParseError::DeepNesting ||
         (error.error == QJsonParseError::IllegalNumber && json.toLower().contains('e')));
    require(isObject == document.isObject() || isRefusedByQtAlone);
    require(!document.isObject() || json.contains('\\') || json.contains("\xEF\xBB\xBF") ||
            scanned == document.object());
}

void checkHeader(const QByteArray &header)
{
    checkScanner(header);
    const ContainerManager containers;
    ContainerDocument document;
    const bool isHeader = containers.parseHeader(header, &document);
    ContainerDocument qtDocument;
    const bool isQtHeader = isHeaderForQt(header, qtDocument);
    require(isHeader || !isQtHeader);
    if (!isHeader)
        return;
    // Where they differ, the mistake lies in what is not needed: a number too large, an odd escape.
    require(!isQtHeader || sayTheSame(document, qtDocument));
    ContainerDocument again;
    require(containers.parseHeader(containers.buildHeader(document), &again) && sayTheSame(document, again));
}

void checkFile(const QByteArray &beginning)
{
    static const int descriptor = memfd_create("container", MFD_CLOEXEC);
    // What the former input left is cut off first, so the rest is zeros.
    require(ftruncate(descriptor, 0) == 0 &&
            pwrite(descriptor, beginning.constData(), static_cast<size_t>(beginning.size()), 0) ==
                beginning.size() &&
            ftruncate(descriptor, ContainerFormat::blockAreaOffset) == 0);

    QFile file(QStringLiteral("/proc/self/fd/%1").arg(descriptor));
    require(file.open(QIODevice::ReadWrite | QIODevice::Unbuffered));
    const ContainerManager containers;
    ContainerDocument document;
    if (!containers.readDocument(file.fileName(), &document))
        return;
    const HeaderArea composed(containers.buildHeader(document));
    const QByteArray bytes = composed.bytesOf(composed.pages());
    require(file.seek(0) && file.write(bytes) == bytes.size());
    ContainerDocument again;
    require(containers.readDocument(file.fileName(), &again) && sayTheSame(document, again));
    require(again.payloadOffset == ContainerFormat::blockAreaOffset);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
    if (input.startsWith(ContainerFormat::fileMagic))
        checkFile(input);
    else
        checkHeader(input);
    return 0;
}
