// Writes JSON (RFC 8259) as text, member by member.
#include "core/JsonText.h"

#include <QChar>
#include <QStringView>

#include <utility>

namespace Tessarin::Core {

namespace {

void appendEscapedUnit(QByteArray &json, char16_t unit)
{
    static constexpr char hexDigits[] = "0123456789abcdef";
    json += "\\u";
    for (int shift = 12; shift >= 0; shift -= 4)
        json += hexDigits[(unit >> shift) & 0xf];
}

/// Surrogates that belong to no pair have no UTF-8 form.
bool isLoneSurrogate(QStringView text, qsizetype position)
{
    const QChar unit = text.at(position);
    return unit.isSurrogate() &&
           !text.mid(unit.isHighSurrogate() ? position : position - 1, 2).isValidUtf16();
}

/// A byte order mark at the beginning of a text is lost to readers that take it for one, as Qt's.
bool needsEscape(QStringView text, qsizetype position)
{
    const char16_t unit = text.at(position).unicode();
    return unit < 0x20 || unit == u'"' || unit == u'\\' || unit == QChar::ByteOrderMark ||
           isLoneSurrogate(text, position);
}

void appendEscaped(QByteArray &json, char16_t unit)
{
    switch (unit) {
    case u'"':
        json += "\\\"";
        break;
    case u'\\':
        json += "\\\\";
        break;
    case u'\b':
        json += "\\b";
        break;
    case u'\f':
        json += "\\f";
        break;
    case u'\n':
        json += "\\n";
        break;
    case u'\r':
        json += "\\r";
        break;
    case u'\t':
        json += "\\t";
        break;
    default:
        appendEscapedUnit(json, unit);
    }
}

void appendString(QByteArray &json, QStringView text)
{
    json += '"';
    qsizetype plainStart = 0;
    for (qsizetype position = 0; position < text.size(); ++position) {
        if (!needsEscape(text, position))
            continue;
        json += text.sliced(plainStart, position - plainStart).toUtf8();
        appendEscaped(json, text.at(position).unicode());
        plainStart = position + 1;
    }
    json += text.sliced(plainStart).toUtf8();
    json += '"';
}

} // namespace

void JsonText::beginObject()
{
    separate();
    json += '{';
    needsComma = false;
}

void JsonText::endObject()
{
    json += '}';
    needsComma = true;
}

void JsonText::beginArray()
{
    separate();
    json += '[';
    needsComma = false;
}

void JsonText::endArray()
{
    json += ']';
    needsComma = true;
}

void JsonText::key(const char *name)
{
    separate();
    json += '"';
    json += name;
    json += "\":";
    needsComma = false;
}

void JsonText::value(qint64 number)
{
    separate();
    json += QByteArray::number(number);
    needsComma = true;
}

void JsonText::value(const QString &text)
{
    separate();
    appendString(json, text);
    needsComma = true;
}

void JsonText::plainValue(const QByteArray &asciiText)
{
    separate();
    json += '"';
    json += asciiText;
    json += '"';
    needsComma = true;
}

QByteArray JsonText::take()
{
    return std::move(json);
}

void JsonText::separate()
{
    if (needsComma)
        json += ',';
}

} // namespace Tessarin::Core
