// Files that are in their place as a whole or not at all, whatever breaks off.
#pragma once

#include <QString>

#include <functional>

class QFile;

namespace Tessarin::Core {

/// Writes a whole file under another name in its directory and puts it in place when it is durable. What lay
/// there counts until then, and is locked meanwhile. False, with nothing changed, when it is no regular file
/// or is in use by another program, and when the writer fails. Where a drive makes nothing durable any more,
/// both may stay; on one whose file system cannot exchange names (exFAT), the former may be gone then.
[[nodiscard]] bool writeAtomically(const QString &path, const std::function<bool(QFile &)> &writeContents);

} // namespace Tessarin::Core
