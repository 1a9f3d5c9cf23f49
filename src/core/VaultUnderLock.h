// An open vault whose container file is locked against other programs, as compaction and the judging of
// leftovers see it.
#pragma once

class QFile;

namespace Tessarin::Core {

class SecretBytes;
class SecureFileIndex;

/// Its container is open and locked, so that no other program is at work on it, and the index is the one in
/// force. All must outlive this.
struct VaultUnderLock
{
    QFile &container;
    const SecretBytes &masterKey;
    const SecureFileIndex &index;
};

} // namespace Tessarin::Core
