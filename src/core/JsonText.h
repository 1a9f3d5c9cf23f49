// Writes JSON with its keys in a stated order, which QJsonObject, sorting them, cannot.
#pragma once

#include <QByteArray>
#include <QString>

namespace Tessarin::Core {

/// Builds one compact JSON text from left to right; commas are put in where they belong. Keys are plain
/// ASCII words and written as they are.
class JsonText
{
public:
    /// Makes room for a text of about this many bytes.
    explicit JsonText(qsizetype expectedSize = 0) { json.reserve(expectedSize); }

    void beginObject();
    void endObject();
    void beginArray();
    void endArray();

    void key(const char *name);
    void value(qint64 number);
    void value(const QString &text);
    /// Text that needs no escaping: Base64, hexadecimal, dates.
    void plainValue(const QByteArray &asciiText);

    /// The text; nothing more can be written.
    [[nodiscard]] QByteArray take();

private:
    void separate();

    QByteArray json;
    bool needsComma = false;
};

} // namespace Tessarin::Core
