// Walks a JSON text without building anything, so that a hostile one costs no memory beyond its own.
#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <functional>

namespace Tessarin::Core {

/// Called with every member of an object: its key, in which escapes of other than ASCII characters have
/// become "?", and the JSON of its value. Both are valid during the call only.
using JsonMemberVisitor = std::function<void(QByteArrayView key, QByteArrayView value)>;

/// False when the text is not one JSON object whose values are nested at most 1024 deep; the members before
/// the mistake have been visited by then. JSON is that of RFC 8259, but somewhat laxer, as Qt's parser is: a
/// byte order mark, control characters in strings, and numbers such as "1." and ".5" are accepted.
[[nodiscard]] bool visitJsonMembers(QByteArrayView json, const JsonMemberVisitor &visit);

} // namespace Tessarin::Core
