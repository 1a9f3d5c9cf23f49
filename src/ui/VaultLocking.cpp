// Locking writes edited copies back into the vault, which takes its time and may fail.
#include "ui/VaultLocking.h"

#include "core/VaultManager.h"
#include "ui/FailureText.h"
#include "ui/Formatting.h"
#include "ui/ProgressDialog.h"
#include "ui/Translated.h"

#include <QDir>
#include <QStringList>

namespace Tessarin::UI {

namespace {

QString advice(Core::Failure reason)
{
    // The usual advice, to lock and unlock, is what has just failed.
    if (reason == Core::Failure::ChangedByOther)
        return translated(
            "Outro programa alterou este cofre depois que ele foi aberto aqui. Copie as edições "
            "para outro lugar, apague-as da pasta indicada abaixo e bloqueie o cofre de novo.");
    if (reason == Core::Failure::SourceUnreadable)
        return translated(
            "Uma das cópias não pode ser lida. Salve-a de novo no programa em que ela está aberta e "
            "bloqueie o cofre outra vez.");
    if (const QString text = failureText(reason); !text.isEmpty())
        return text;
    return translated(
        "Verifique se a unidade USB está conectada e tem espaço livre e bloqueie o cofre de novo.");
}

} // namespace

bool lockShowingProgress(QWidget *parent, Core::VaultManager &vault)
{
    ProgressDialog progress(parent, translated("Bloquear cofre"));
    return vault.lockVault(progress.reporter(translated("Gravando %1 no cofre...\n%2 de %3")));
}

QString lockFailureDetails(const Core::VaultManager &vault)
{
    const QString workspace = QDir::toNativeSeparators(vault.workspacePath());
    if (vault.state() != Core::VaultManager::Unlocked)
        return translated(
                   "O cofre já foi fechado, e o que está nele continua protegido. O que não terminou foi a "
                   "limpeza: cópias descriptografadas podem ter ficado em\n%1\n\nFeche os programas que as "
                   "usam e apague essa pasta.")
            .arg(workspace);

    const QList<Core::TrackedTempFile> copies = vault.modifiedOpenFiles();
    QStringList names;
    for (const Core::TrackedTempFile &copy : copies)
        names.append(shownName(copy.vaultPath));
    names.sort();
    return translated(
               "O cofre continua aberto, porque estes arquivos editados não puderam ser gravados nele:\n%1"
               "\n\n%2\n\nNada se perdeu: as cópias editadas estão em\n%3")
        .arg(shortList(names).join(u'\n'), advice(vault.lastFailure()), workspace);
}

} // namespace Tessarin::UI
