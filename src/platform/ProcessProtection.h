// Keeps what the process has in memory out of files and out of the reach of other programs. It is the
// program's own concern: whoever uses the vault in another program decides for that one.
#pragma once

namespace Tessarin::Platform {

/// From now on a crash leaves no core dump, and no process of the same user can attach to this one. Programs
/// that it starts leave no dumps either, but can be attached to as ever.
void keepMemoryPrivate();

} // namespace Tessarin::Platform
