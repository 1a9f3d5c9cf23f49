// The walk: one pass, a byte of memory for each level of nesting.
#include "core/JsonScan.h"

#include <QVarLengthArray>

#include <cctype>

namespace Tessarin::Core {

namespace {

constexpr qsizetype deepestNesting = 1024;

bool isDigit(char byte)
{
    return byte >= '0' && byte <= '9';
}

class Scanner
{
public:
    explicit Scanner(QByteArrayView text) : json(text) {}

    [[nodiscard]] bool isAtEnd() const { return at == json.size(); }
    [[nodiscard]] char next() const { return at < json.size() ? json[at] : '\0'; }

    void skipSpace()
    {
        while (next() == ' ' || next() == '\t' || next() == '\n' || next() == '\r')
            ++at;
    }

    bool take(char expected)
    {
        skipSpace();
        if (next() != expected || isAtEnd())
            return false;
        ++at;
        return true;
    }

    /// The bytes between the quotes; null when no string stands here.
    QByteArrayView takeString()
    {
        if (!take('"'))
            return {};
        const qsizetype start = at;
        for (; !isAtEnd() && next() != '"'; ++at) {
            if (next() == '\\' && !skipEscape())
                return {};
        }
        return isAtEnd() ? QByteArrayView() : json.sliced(start, at++ - start);
    }

    /// The bytes of a value of any kind; null when none stands here.
    QByteArrayView takeValue()
    {
        skipSpace();
        const qsizetype start = at;
        QVarLengthArray<char, deepestNesting> open; // What closes the objects and arrays around.
        do {
            if (!(open.isEmpty() || open.back() == ']' || takeKey()))
                return {};
            skipSpace();
            if (next() == '{' || next() == '[') {
                if (open.size() == deepestNesting)
                    return {};
                open.append(json[at++] == '{' ? '}' : ']');
                skipSpace();
                if (next() != open.back())
                    continue;
            } else if (!skipScalar()) {
                return {};
            }
            while (!open.isEmpty() && take(open.back()))
                open.pop_back();
            if (!open.isEmpty() && !take(','))
                return {};
        } while (!open.isEmpty());
        return json.sliced(start, at - start);
    }

    bool takeKey() { return !takeString().isNull() && take(':'); }

private:
    /// Leaves the position at the escape's last byte.
    bool skipEscape()
    {
        ++at;
        if (next() != 'u')
            return !isAtEnd();
        for (int digit = 0; digit < 4; ++digit) {
            ++at;
            if (!std::isxdigit(static_cast<unsigned char>(next())))
                return false;
        }
        return true;
    }

    bool skipScalar()
    {
        if (next() == '"')
            return !takeString().isNull();
        for (const QByteArrayView word : {"true", "false", "null"}) {
            if (json.sliced(at).startsWith(word)) {
                at += word.size();
                return true;
            }
        }
        return skipNumber();
    }

    /// Like Qt's parser, this takes a number with digits on one side of its point only.
    bool skipNumber()
    {
        at += next() == '-';
        const bool startsWithZero = next() == '0';
        const qsizetype wholeDigits = skipDigits();
        if (startsWithZero && wholeDigits > 1)
            return false;
        qsizetype fractionDigits = 0;
        if (next() == '.') {
            ++at;
            fractionDigits = skipDigits();
        }
        if (wholeDigits + fractionDigits == 0)
            return false;
        if (next() != 'e' && next() != 'E')
            return true;
        ++at;
        at += next() == '+' || next() == '-';
        return skipDigits() > 0;
    }

    qsizetype skipDigits()
    {
        const qsizetype start = at;
        while (isDigit(next()))
            ++at;
        return at - start;
    }

    QByteArrayView json;
    qsizetype at = 0;
};

/// A key as its escapes spell it; those of control characters become "?", too.
QByteArray spelledOut(QByteArrayView rawKey)
{
    constexpr qsizetype digits = 4;
    QByteArray key;
    for (qsizetype at = 0; at < rawKey.size(); ++at) {
        if (rawKey[at] != '\\') {
            key += rawKey[at];
            continue;
        }
        const char escape = rawKey[++at];
        if (escape == 'u') {
            const uint unit = rawKey.sliced(at + 1, digits).toUInt(nullptr, 16);
            key += unit < 0x80 ? static_cast<char>(unit) : '?';
            at += digits;
        } else {
            key += QByteArrayView("bfnrt").contains(escape) ? '?' : escape;
        }
    }
    return key;
}

} // namespace

bool visitJsonMembers(QByteArrayView json, const JsonMemberVisitor &visit)
{
    constexpr QByteArrayView byteOrderMark("\xEF\xBB\xBF");
    Scanner scanner(json.startsWith(byteOrderMark) ? json.sliced(byteOrderMark.size()) : json);
    if (!scanner.take('{'))
        return false;
    if (!scanner.take('}')) {
        do {
            const QByteArrayView rawKey = scanner.takeString();
            if (rawKey.isNull() || !scanner.take(':'))
                return false;
            const QByteArrayView value = scanner.takeValue();
            if (value.isNull())
                return false;
            if (rawKey.contains('\\'))
                visit(spelledOut(rawKey), value);
            else
                visit(rawKey, value);
        } while (scanner.take(','));
        if (!scanner.take('}'))
            return false;
    }
    scanner.skipSpace();
    return scanner.isAtEnd();
}

} // namespace Tessarin::Core
