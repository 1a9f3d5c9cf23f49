// Unlocking, locking, the password, and the encrypted backup of the container.
#include "ui/MainWindow.h"

#include "core/HostFile.h"
#include "core/Secret.h"
#include "ui/ChangePasswordDialog.h"
#include "ui/DeviceList.h"
#include "ui/Formatting.h"
#include "ui/MessageBoxes.h"
#include "ui/ProgressDialog.h"
#include "ui/WaitCursor.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

namespace Tessarin::UI {

namespace {

constexpr qint64 backupChunkBytes = 8 * 1024 * 1024;
constexpr qsizetype listedCopies = 10;

QString proposedBackupPath()
{
    const QString stamp = QDateTime::currentDateTime().toString(u"yyyy-MM-dd_HHmm");
    return QDir::home().filePath(u"tessarin_backup_%1.trvx"_s.arg(stamp));
}

bool isContainerItself(const QString &destinationPath, const QString &containerPath)
{
    const auto cleaned = [](const QString &path) {
        return QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    };
    // Links and other mount points give one file several names; opening it for writing would empty it.
    return cleaned(destinationPath) == cleaned(containerPath) ||
           Core::isSameFile(destinationPath, containerPath);
}

} // namespace

void MainWindow::unlockVault()
{
    QByteArray password = requestPassword(tr("Senha do cofre"));
    if (password.isEmpty())
        return;
    bool unlocked = false;
    {
        const Core::WipedAtScopeEnd wiped(password);
        const WaitCursor waitCursor;
        unlocked = vaultManager.unlockVault(containerPath, password);
    }
    deviceList->watchContainerDrive();
    refreshVaultFiles();
    updateActions();
    if (unlocked) {
        setStatusMessage(tr("Cofre desbloqueado."), statusTimeoutMs);
        if (const QString note = compactionLeftoverNote(); !note.isEmpty())
            showInformation(this, tr("Tessarin"), tr("O cofre está aberto."), note);
        return;
    }
    showWarning(this, tr("Tessarin"),
                tr("Não foi possível desbloquear o cofre. Verifique a senha ou se o container foi alterado."),
                isUnlocked()
                    ? tr("A senha está certa e o cofre está aberto, mas a área temporária não pôde ser "
                         "preparada. Abrir arquivos para edição pode falhar.")
                    : compactionTwinNote(containerPath));
}

QString MainWindow::compactionLeftoverNote() const
{
    const QStringList leftovers = vaultManager.compactionLeftovers();
    if (leftovers.isEmpty())
        return {};
    return tr("Uma compactação deste cofre parece ter sido interrompida e deixou outro container, que abre "
              "com a senha daquele momento:\n%1\n\nEle pode ter arquivos que este cofre não tem. Confira-o "
              "e apague-o quando não precisar mais dele.")
        .arg(QDir::toNativeSeparators(leftovers.join(u'\n')));
}

void MainWindow::lockVault()
{
    const bool locked = lockShowingProgress();
    refreshVaultFiles();
    updateActions();
    if (!locked)
        showWarning(this, tr("Tessarin"), tr("Não foi possível limpar a área temporária."),
                    lockFailureDetails());
    setStatusMessage(tr("Cofre bloqueado."), statusTimeoutMs);
}

bool MainWindow::lockShowingProgress()
{
    ProgressDialog progress(this, tr("Bloquear cofre"));
    const bool locked = vaultManager.lockVault(progress.reporter(tr("Gravando %1 no cofre...\n%2 de %3")));
    progress.finish();
    return locked;
}

QString MainWindow::lockFailureDetails() const
{
    const QString workspace = QDir::toNativeSeparators(vaultManager.workspacePath());
    if (!isUnlocked())
        return tr("O cofre está bloqueado, mas cópias descriptografadas podem ter ficado em:\n%1\n\n"
                  "Apague essa pasta quando nenhum programa a estiver usando.")
            .arg(workspace);

    const QList<Core::TrackedTempFile> copies = vaultManager.modifiedOpenFiles();
    QStringList paths;
    for (const Core::TrackedTempFile &copy : copies)
        paths.append(QDir::toNativeSeparators(copy.tempPath));
    paths.sort();
    if (const qsizetype rest = paths.size() - listedCopies; rest > 0)
        paths = paths.first(listedCopies) << tr("e mais %1").arg(rest);
    return tr("O cofre continua aberto, porque cópias editadas não puderam ser gravadas de volta nele. As "
              "edições não se perderam: estão em\n%1\n\n%2\n\nVerifique se a unidade USB está conectada e "
              "tem espaço livre, e bloqueie o cofre de novo. Se outro programa alterou este cofre, copie as "
              "edições para outro lugar, apague-as da pasta acima e bloqueie o cofre.")
        .arg(workspace, paths.join(u'\n'));
}

void MainWindow::changeVaultPassword()
{
    if (containerPath.isEmpty()) {
        showInformation(this, tr("Tessarin"), tr("Selecione um container primeiro."));
        return;
    }
    if (isUnlocked()) {
        showInformation(this, tr("Tessarin"), tr("Bloqueie o cofre antes de alterar a senha."));
        return;
    }

    bool changed = false;
    {
        ChangePasswordDialog dialog(this);
        if (dialog.exec() != QDialog::Accepted)
            return;
        QByteArray currentPassword = dialog.currentPassword();
        QByteArray newPassword = dialog.newPassword();
        const Core::WipedAtScopeEnd wipedCurrent(currentPassword);
        const Core::WipedAtScopeEnd wipedNew(newPassword);
        const WaitCursor waitCursor;
        changed = vaultManager.changePassword(containerPath, currentPassword, newPassword);
    }

    updateActions();
    if (changed) {
        const QString message = tr("Senha alterada com sucesso.");
        setStatusMessage(message, statusTimeoutMs);
        showInformation(this, tr("Tessarin"), message, compactionLeftoverNote());
        return;
    }
    showWarning(this, tr("Tessarin"),
                tr("Não foi possível alterar a senha. Verifique a senha atual e tente novamente."));
    setStatusMessage(tr("Falha ao alterar a senha."), statusTimeoutMs);
}

void MainWindow::backupContainer()
{
    if (containerPath.isEmpty()) {
        showInformation(this, tr("Tessarin"), tr("Selecione um container primeiro."));
        return;
    }
    if (isUnlocked()) {
        showInformation(this, tr("Tessarin"), tr("Bloqueie o cofre antes de fazer o backup."));
        return;
    }
    const QString title = tr("Fazer backup");
    if (!QFileInfo(containerPath).isFile()) {
        showWarning(this, title, tr("O arquivo do container não foi encontrado."));
        return;
    }

    const QString destinationPath =
        QFileDialog::getSaveFileName(this, tr("Fazer backup do container"), proposedBackupPath(),
                                     tr("Tessarin Container (*.trvx);;Todos os arquivos (*.*)"));
    if (destinationPath.isEmpty())
        return;
    if (isContainerItself(destinationPath, containerPath)) {
        showWarning(this, title, tr("Escolha um destino diferente do container original."));
        return;
    }

    QFile source(containerPath);
    if (!source.open(QIODevice::ReadOnly)) {
        showWarning(this, title, tr("Não foi possível abrir o container para backup."));
        return;
    }
    QFile destination(destinationPath);
    if (!destination.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        showWarning(this, title, tr("Não foi possível criar o arquivo de backup."));
        return;
    }

    // Behind a link the partial file is the one that the link leads to.
    const QString writtenPath = QFileInfo(destinationPath).canonicalFilePath();
    const bool copied = copyContainer(source, destination);
    source.close();
    destination.close();
    if (!copied) {
        QFile::remove(writtenPath);
        showWarning(this, title, tr("Não foi possível concluir o backup."));
        setStatusMessage(tr("Falha ao fazer backup do container."), statusTimeoutMs);
        return;
    }
    Core::syncDirectory(QFileInfo(writtenPath).absolutePath());
    setStatusMessage(tr("Backup do container concluído."), statusTimeoutMs);
    showInformation(
        this, title,
        tr("Backup concluído com sucesso.\n\nO arquivo de backup é uma cópia criptografada do container "
           "e permanece protegido pela senha do cofre."));
}

bool MainWindow::copyContainer(QFile &source, QFile &destination)
{
    ProgressDialog progress(
        this, tr("Fazer backup"),
        tr("Copiando backup criptografado...\n\nO backup permanece protegido pela senha do "
           "cofre."),
        Qt::WindowModal);
    const qint64 totalBytes = source.size();
    qint64 copiedBytes = 0;
    QByteArray chunk(backupChunkBytes, Qt::Uninitialized);
    for (;;) {
        const qint64 readBytes = source.read(chunk.data(), chunk.size());
        if (readBytes < 0 ||
            (readBytes > 0 && destination.write(chunk.constData(), readBytes) != readBytes)) {
            progress.finish();
            return false;
        }
        if (readBytes == 0)
            break;
        copiedBytes += readBytes;
        progress.report(copiedBytes, totalBytes,
                        tr("Copiando backup criptografado...\n%1 de %2")
                            .arg(formatFileSize(copiedBytes), formatFileSize(totalBytes)));
    }
    // A container that came up short, or grew meanwhile, is no copy to rely on.
    const bool complete = copiedBytes == totalBytes && Core::syncFile(destination);
    progress.finish();
    return complete;
}

} // namespace Tessarin::UI
