// The workspace on disk.
#include "core/TempWorkspaceManager.h"

#include "core/HostFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QStandardPaths>
#include <QUuid>

#include <sys/stat.h>

namespace Tessarin::Core {

namespace {

constexpr QLatin1String lockFileName(".tessarin-workspace.lock");

/// The folder that the workspaces of all users share. Like the temporary directory above it, everyone may
/// add to it and nobody may remove what is another's.
bool makeCommonFolder(const QString &path)
{
    if (QFileInfo(path).isDir())
        return true;
    if (!QDir().mkpath(QFileInfo(path).absolutePath()))
        return false;

    const QByteArray name = QFile::encodeName(path);
    return ::mkdir(name.constData(), S_IRWXU) == 0 &&
           ::chmod(name.constData(), S_ISVTX | S_IRWXU | S_IRWXG | S_IRWXO) == 0;
}

} // namespace

TempWorkspaceManager::TempWorkspaceManager()
    : directory(
          QDir(QStandardPaths::writableLocation(QStandardPaths::TempLocation))
              .absoluteFilePath(
                  QStringLiteral("Tessarin/%1").arg(QUuid::createUuid().toString(QUuid::WithoutBraces))))
{
}

TempWorkspaceManager::~TempWorkspaceManager() = default;

QString TempWorkspaceManager::workspacePath() const
{
    return directory;
}

QString TempWorkspaceManager::pathForVaultFile(const QString &vaultPath) const
{
    return QDir(directory).filePath(vaultPath);
}

bool TempWorkspaceManager::isReservedPath(const QString &vaultPath) const
{
    return vaultPath == lockFileName || vaultPath.startsWith(lockFileName + QLatin1Char('/'));
}

bool TempWorkspaceManager::prepare()
{
    if (!makeCommonFolder(QFileInfo(directory).absolutePath()) || !makePrivatePath(directory))
        return false;

    auto newLock = std::make_unique<QLockFile>(pathForVaultFile(lockFileName));
    newLock->setStaleLockTime(0);
    if (!newLock->tryLock(0))
        return false;

    lock = std::move(newLock);
    return true;
}

bool TempWorkspaceManager::cleanup()
{
    if (!QFileInfo::exists(directory))
        return true;

    lock.reset();
    return QDir(directory).removeRecursively();
}

} // namespace Tessarin::Core
