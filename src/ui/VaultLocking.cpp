// Locking writes edited copies back into the vault, which takes its time and may fail.
#include "ui/VaultLocking.h"

#include "core/VaultManager.h"
#include "ui/Formatting.h"
#include "ui/ProgressDialog.h"
#include "ui/Translated.h"

#include <QDir>
#include <QStringList>

namespace Tessarin::UI {

bool lockShowingProgress(QWidget *parent, Core::VaultManager &vault)
{
    ProgressDialog progress(parent, translated("Bloquear cofre"));
    const bool locked = vault.lockVault(progress.reporter(translated("Gravando %1 no cofre...\n%2 de %3")));
    progress.finish();
    return locked;
}

QString lockFailureDetails(const Core::VaultManager &vault)
{
    const QString workspace = QDir::toNativeSeparators(vault.workspacePath());
    if (vault.state() != Core::VaultManager::Unlocked)
        return translated("O cofre está bloqueado, mas cópias descriptografadas podem ter ficado em:\n%1\n\n"
                          "Apague essa pasta quando nenhum programa a estiver usando.")
            .arg(workspace);

    const QList<Core::TrackedTempFile> copies = vault.modifiedOpenFiles();
    QStringList paths;
    for (const Core::TrackedTempFile &copy : copies)
        paths.append(QDir::toNativeSeparators(copy.tempPath));
    paths.sort();
    return translated(
               "O cofre continua aberto, porque cópias editadas não puderam ser gravadas de volta nele. As "
               "edições não se perderam: estão em\n%1\n\n%2\n\nVerifique se a unidade USB está conectada e "
               "tem espaço livre, e bloqueie o cofre de novo. Se outro programa alterou este cofre, copie as "
               "edições para outro lugar, apague-as da pasta acima e bloqueie o cofre.")
        .arg(workspace, shortList(paths).join(u'\n'));
}

} // namespace Tessarin::UI
