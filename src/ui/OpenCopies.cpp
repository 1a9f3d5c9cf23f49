// Many programs save a file by putting a new one in its place: so the folders of the copies are watched with
// them.
#include "ui/OpenCopies.h"

#include "core/VaultManager.h"
#include "core/VaultPath.h"

#include <QFileInfo>
#include <QSet>

#include <algorithm>
#include <utility>

namespace Tessarin::UI {

OpenCopies::OpenCopies(const Core::VaultManager &session) : vault(session)
{
    connect(&watcher, &QFileSystemWatcher::fileChanged, this, &OpenCopies::follow);
    connect(&watcher, &QFileSystemWatcher::directoryChanged, this, &OpenCopies::follow);
}

void OpenCopies::follow()
{
    const bool isOpen = vault.state() == Core::VaultManager::Unlocked;
    const QHash<QString, CopyState> before = std::exchange(states, {});
    QSet<QString> places;
    const QList<Core::TrackedTempFile> copies = isOpen ? vault.openFiles() : QList<Core::TrackedTempFile>();
    for (const Core::TrackedTempFile &copy : copies) {
        states.insert(Core::vaultPathKey(copy.vaultPath), CopyState::Open);
        places << copy.tempPath << QFileInfo(copy.tempPath).path();
    }
    const QList<Core::TrackedTempFile> edited = copies.isEmpty() ? copies : vault.modifiedOpenFiles();
    for (const Core::TrackedTempFile &copy : edited)
        states.insert(Core::vaultPathKey(copy.vaultPath), CopyState::Edited);

    const QStringList watched = watcher.files() + watcher.directories();
    for (const QString &path : watched) {
        if (!places.remove(path))
            watcher.removePath(path);
    }
    for (const QString &path : std::as_const(places)) {
        if (QFileInfo::exists(path))
            watcher.addPath(path);
    }
    if (states != before)
        Q_EMIT changed();
}

CopyState OpenCopies::stateOf(const QString &vaultPath) const
{
    return states.value(Core::vaultPathKey(vaultPath), CopyState::None);
}

bool OpenCopies::hasAnyAt(const QString &path) const
{
    return std::ranges::any_of(vault.openFiles(), [&](const Core::TrackedTempFile &copy) {
        return Core::vaultPathsEqual(copy.vaultPath, path) ||
               Core::pathIsInsideDirectory(copy.vaultPath, path);
    });
}

QString OpenCopies::editedCopyOf(const QString &vaultPath) const
{
    const QList<Core::TrackedTempFile> edited = vault.modifiedOpenFiles();
    for (const Core::TrackedTempFile &copy : edited) {
        if (Core::vaultPathsEqual(copy.vaultPath, vaultPath))
            return copy.tempPath;
    }
    return {};
}

} // namespace Tessarin::UI
