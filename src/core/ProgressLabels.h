// What the engine itself calls the steps that are no file of the vault: the only words in it that people
// read.
#pragma once

#include <QCoreApplication>
#include <QString>

namespace Tessarin::Core {

/// Of reading the container as it is on the drive.
[[nodiscard]] inline QString checkingLabel()
{
    return QCoreApplication::translate("VaultManager", "Conferindo o container no USB");
}

/// Of copying the new container to the drive and reading it again.
[[nodiscard]] inline QString replacingLabel()
{
    return QCoreApplication::translate("VaultManager", "Substituindo container no USB");
}

} // namespace Tessarin::Core
