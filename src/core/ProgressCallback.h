// How long work reports its progress.
#pragma once

#include <QString>
#include <QtGlobal>

#include <functional>

namespace Tessarin::Core {

/// Told after every block or chunk: bytes done, bytes in all, and what is being worked on, for files the
/// vault path. May be empty; it cannot cancel anything.
using ProgressCallback = std::function<void(qint64 doneBytes, qint64 totalBytes, const QString &label)>;

} // namespace Tessarin::Core
