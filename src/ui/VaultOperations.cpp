// Passwords are wiped before anything is shown: a box may stay open for hours.
#include "ui/VaultOperations.h"

#include "core/Secret.h"
#include "core/VaultManager.h"
#include "ui/ChangePasswordDialog.h"
#include "ui/FailureText.h"
#include "ui/ProgressDialog.h"
#include "ui/Translated.h"
#include "ui/WaitCursor.h"

#include <QDir>
#include <QStringList>

namespace Tessarin::UI {

namespace {

/// Of what a killed compaction or creation has left; empty when there is nothing.
QString compactionLeftoverNote(const Core::VaultManager &vault)
{
    const QStringList leftovers = vault.compactionLeftovers();
    if (leftovers.isEmpty())
        return {};
    return translated(
               "A compactação deste cofre ou a criação de um parece ter sido interrompida e deixou outro "
               "container, que abre com a senha daquele momento:\n%1\n\nEle pode ter arquivos que este cofre "
               "não tem. Confira-o e apague-o quando não precisar mais dele.")
        .arg(QDir::toNativeSeparators(leftovers.join(u'\n')));
}

bool isWrongPassword(const Core::VaultManager &vault)
{
    return vault.state() == Core::VaultManager::Locked &&
           vault.lastFailure() == Core::Failure::WrongPasswordOrDamaged;
}

/// A password as Tessarin 1.0.5 took it where a line break was pasted with it. Appended in place, it could
/// leave a copy of the password in freed memory.
struct WithLineBreak
{
    explicit WithLineBreak(const QByteArray &password)
    {
        bytes.reserve(password.size() + 1);
        bytes.append(password).append('\n');
    }
    ~WithLineBreak() { Core::wipe(bytes); }
    Q_DISABLE_COPY_MOVE(WithLineBreak)

    QByteArray bytes;
};

} // namespace

Outcome VaultOperations::unlock(const QString &containerPath, QByteArray &&password, bool hadLineBreak)
{
    bool unlocked = false;
    bool needsLineBreak = false;
    {
        const Core::WipedAtScopeEnd wiped(password);
        const WaitCursor waitCursor;
        unlocked = vault.unlockVault(containerPath, password);
        if (!unlocked && hadLineBreak && isWrongPassword(vault)) {
            needsLineBreak = vault.unlockVault(containerPath, WithLineBreak(password).bytes);
            unlocked = needsLineBreak;
        }
    }
    if (unlocked) {
        const QString note =
            needsLineBreak
                ? tr("A senha deste cofre termina com uma quebra de linha, que veio junto quando ela foi "
                     "colada: digitada, ela não o abre. Bloqueie o cofre e use USB > Container > Alterar "
                     "senha..., colando a senha atual do mesmo jeito.")
                : compactionLeftoverNote(vault);
        return {.contentsChanged = true,
                .status = tr("Cofre desbloqueado."),
                .information = {note.isEmpty() ? QString() : tr("O cofre está aberto."), note}};
    }
    QStringList notes;
    if (vault.state() == Core::VaultManager::Unlocked) {
        notes << tr("O desbloqueio não terminou: a senha foi aceita, e os arquivos já podem ser vistos e "
                    "exportados, mas não podem ser abertos para edição.")
              << failureText(vault.lastFailure());
    } else {
        notes << failureText(vault.lastFailure()) << compactionTwinNote(containerPath);
    }
    notes.removeAll(QString());
    return {
        .contentsChanged = true,
        .warnings = {
            {tr("Não foi possível desbloquear o cofre. Verifique a senha ou se o container foi alterado."),
             notes.join(QStringLiteral("\n\n"))}}};
}

Outcome VaultOperations::changePassword(const QString &containerPath)
{
    bool changed = false;
    {
        ChangePasswordDialog dialog(parent);
        if (dialog.exec() != QDialog::Accepted)
            return {};
        QByteArray currentPassword = dialog.currentPassword();
        QByteArray newPassword = dialog.newPassword();
        const Core::WipedAtScopeEnd wipedCurrent(currentPassword);
        const Core::WipedAtScopeEnd wipedNew(newPassword);
        ProgressDialog progress(parent, tr("Alterar senha"));
        const auto change = [&](const QByteArray &current) {
            return vault.changePassword(containerPath, current, newPassword,
                                        progress.reporter(tr("%1...\n%2 de %3")));
        };
        changed = change(currentPassword);
        if (!changed && dialog.hadLineBreak() && isWrongPassword(vault))
            changed = change(WithLineBreak(currentPassword).bytes);
    }
    if (!changed)
        return {
            .warnings = {{tr("Não foi possível alterar a senha. Verifique a senha atual e tente novamente."),
                          failureText(vault.lastFailure())}},
            .status = tr("Falha ao alterar a senha.")};
    const QString message = tr("Senha alterada com sucesso.");
    return {.status = message, .information = {message, compactionLeftoverNote(vault)}};
}

Outcome VaultOperations::compact()
{
    const QString title = tr("Compactar cofre");
    ProgressDialog progress(parent, title,
                            tr("Compactando o cofre...\n\nSerá criado temporariamente um container "
                               "criptografado no disco local."),
                            Qt::ApplicationModal);
    QString preservedPath;
    const bool compacted = vault.compactVault(progress.reporter(tr("%1...\n%2 de %3")), &preservedPath);
    if (compacted) {
        const QString message = tr("Cofre compactado com sucesso.");
        return {.contentsChanged = true,
                .freeSpaceChanged = true,
                .title = title,
                .status = message,
                .information = {message}};
    }
    Notice warning{tr("Não foi possível compactar o cofre."), failureText(vault.lastFailure())};
    if (!preservedPath.isEmpty())
        warning = {
            tr("Não foi possível substituir o container no USB.\n\nUm container compactado "
               "criptografado foi preservado em:\n%1")
                .arg(preservedPath),
            tr("Esse arquivo tem tudo o que há no cofre e abre com a mesma senha. Se ele está no computador, "
               "copie-o para a unidade USB antes de reiniciar. Depois escolha-o em USB > Container > "
               "Escolher container...")};
    return {.freeSpaceChanged = true,
            .title = title,
            .warnings = {warning},
            .status = tr("Falha ao compactar o cofre.")};
}

QString compactionTwinNote(const QString &containerPath)
{
    const QStringList twins = Core::VaultManager::compactionTwins(containerPath);
    if (twins.isEmpty())
        return {};
    return translated(
               "A compactação deste cofre ou a criação de um parece ter sido interrompida. O cofre pode "
               "estar inteiro em:\n%1\n\nEscolha esse arquivo em USB > Container > Escolher container... e "
               "use a "
               "senha dele.")
        .arg(QDir::toNativeSeparators(twins.join(u'\n')));
}

} // namespace Tessarin::UI
