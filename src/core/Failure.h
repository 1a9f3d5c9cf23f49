// Why an operation failed, without a text: the window words it.
#pragma once

namespace Tessarin::Core {

enum class Failure {
    None,
    Refused,                ///< Not in this state of the session, or not with these names.
    WrongPasswordOrDamaged, ///< The two cannot be told apart.
    DamagedData,            ///< Stored data is not what was written.
    OtherLayout,      ///< The length line is another than this program writes: only compaction can change it.
    NoSpace,          ///< The drive of the container is full.
    ReadOnly,         ///< The container or its drive cannot be written.
    DriveGone,        ///< The container is not there any more, or its drive answers with errors.
    InUse,            ///< Another program holds the container's lock.
    ChangedByOther,   ///< Another program has saved, or another container lies there.
    IndexFull,        ///< The header has no room for so large an index.
    SourceUnreadable, ///< The local file to import is not there or cannot be read.
    SourceChanged,    ///< It became shorter while it was read.
    TargetUnwritable, ///< The local file to export to cannot be written.
    TargetFull,       ///< There is no room for it.
    NameTooLong,      ///< The local file system does not take the name.
    FormerKeyRemains, ///< The new password is in force, but the former one may still open the drive.
    WorkspaceUnavailable, ///< The folder of the temporary copies cannot be made, used or removed.
    Other,
};

} // namespace Tessarin::Core
