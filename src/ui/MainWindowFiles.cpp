// What people do with the files and folders of the vault. Each operation reads the chosen row, asks what it
// needs, checks names against the index, calls the engine once and tells the outcome.
#include "ui/MainWindow.h"

#include "core/VaultPath.h"
#include "ui/Formatting.h"
#include "ui/ImportSpace.h"
#include "ui/MessageBoxes.h"
#include "ui/MoveFileDialog.h"
#include "ui/ProgressDialog.h"
#include "ui/VaultBrowser.h"

#include <QDesktopServices>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QSet>
#include <QStorageInfo>
#include <QUrl>

namespace Tessarin::UI {
namespace {

QString importSpeedNote()
{
    return MainWindow::tr(
        "A velocidade depende da taxa de leitura e escrita da unidade USB.\nDispositivos USB 3 ou "
        "superiores tendem a ser mais rápidos.");
}

void warnAboutDirectoryName(QWidget *parent, const QString &title)
{
    showWarning(
        parent, title,
        MainWindow::tr("Use um nome de pasta simples, sem barras, pontos isolados ou caminho relativo."));
}

void warnAboutFailedImport(QWidget *parent, const QString &name)
{
    showWarning(parent, MainWindow::tr("Tessarin"),
                MainWindow::tr("Não foi possível importar %1.").arg(name));
}

/// The typed name without white space around it; empty when cancelled.
QString askForName(QWidget *parent, const QString &title, const QString &prompt, const QString &proposal)
{
    QInputDialog dialog(parent);
    dialog.setWindowTitle(title);
    dialog.setLabelText(prompt);
    dialog.setTextValue(proposal);
    dialog.resize(360, dialog.sizeHint().height()); // by itself it is too narrow for its title
    return dialog.exec() == QDialog::Accepted ? dialog.textValue().trimmed() : QString();
}

} // namespace

void MainWindow::importFiles()
{
    const QStringList sources = QFileDialog::getOpenFileNames(this, tr("Importar arquivos para o cofre"));
    if (!sources.isEmpty())
        importInto(browser->currentDirectory(), sources);
}

void MainWindow::importInto(const QString &directory, const QStringList &sources)
{
    if (!confirmImportFitsStorage(sources))
        return;

    QStringList imported;
    QSet<QString> importedIds;
    {
        ProgressDialog progress(this, tr("Importar arquivos"),
                                tr("Importando arquivos para o cofre...\n\n%1").arg(importSpeedNote()),
                                Qt::ApplicationModal);
        vaultManager.beginImportSeries();
        for (const QString &source : sources) {
            const QString target = importOneFile(source, directory, progress);
            if (target.isEmpty())
                continue;
            imported.append(target);
            importedIds.insert(vaultManager.fileIndex().findFile(target)->id);
        }
        // A drive that fails at the end takes back what had not reached it.
        static_cast<void>(vaultManager.endImportSeries());
        progress.finish();
    }
    // What is left may be the file that was to be replaced.
    const Core::SecureFileIndex index = vaultManager.fileIndex();
    imported.removeIf([&](const QString &target) {
        const Core::VaultFileEntry *stored = index.findFile(target);
        const bool isLost = stored == nullptr || !importedIds.contains(stored->id);
        if (isLost)
            warnAboutFailedImport(this, Core::vaultBaseName(target));
        return isLost;
    });
    refreshVaultFiles();
    refreshDevices();
    updateActions();
    setStatusMessage(imported.size() == 1 ? tr("Arquivo importado com sucesso.")
                                          : tr("%1 arquivos importados com sucesso.").arg(imported.size()),
                     statusTimeoutMs);
}

bool MainWindow::confirmImportFitsStorage(const QStringList &sources) const
{
    const QString title = tr("Importar arquivos");
    qint64 totalBytes = 0;
    for (const QString &source : sources) {
        const QFileInfo file(source);
        if (!file.isFile()) {
            showWarning(nullptr, title,
                        tr("O arquivo %1 não está disponível para importação.").arg(file.fileName()));
            return false;
        }
        totalBytes += file.size();
    }

    const QStorageInfo storage(QFileInfo(containerPath).absolutePath());
    if (!storage.isValid() || !storage.isReady()) {
        showWarning(nullptr, title, tr("Não foi possível verificar o espaço livre da unidade do container."));
        return false;
    }
    const qint64 availableBytes = storage.bytesAvailable();
    const qint64 requiredBytes = requiredImportBytes(totalBytes);
    if (requiredBytes > availableBytes) {
        showWarning(
            nullptr, tr("Espaço insuficiente"),
            tr("Não há espaço livre suficiente na unidade do container.\n\nArquivos selecionados: %1\n"
               "Espaço livre disponível: %2\n\nLibere espaço na unidade USB ou selecione arquivos "
               "menores.")
                .arg(formatFileSize(totalBytes), formatFileSize(availableBytes)));
        return false;
    }
    const qint64 remainingBytes = availableBytes - requiredBytes;
    if (remainingBytes >= lowSpaceBytes)
        return true;
    return questionYesNo(window(), tr("Espaço livre reduzido"),
                         tr("A importação deixará pouco espaço livre na unidade do container.\n\nArquivos "
                            "selecionados: %1\nEspaço livre restante estimado: %2\n\nDeseja continuar?")
                             .arg(formatFileSize(totalBytes), formatFileSize(remainingBytes)));
}

QString MainWindow::importOneFile(const QString &source, const QString &directory, ProgressDialog &progress)
{
    const QString sourceName = QFileInfo(source).fileName();
    const QString target = Core::joinVaultPath(directory, sourceName);
    const QString speedNote = importSpeedNote();
    progress.report(0, 0, tr("Importando %1...\n\n%2").arg(Core::vaultBaseName(target), speedNote));

    if (Core::indexContainsFilePath(vaultManager.fileIndex(), target) && !confirmReplaceVaultFile(target))
        return {};

    const auto showProgress = [&](qint64 doneBytes, qint64 totalBytes, const QString &label) {
        progress.report(doneBytes, totalBytes,
                        tr("Importando %1...\n%2 de %3\n\n%4")
                            .arg(label, formatFileSize(doneBytes), formatFileSize(totalBytes), speedNote));
    };
    if (vaultManager.importFile(source, target, showProgress))
        return target;
    warnAboutFailedImport(this, sourceName);
    return {};
}

void MainWindow::exportSelectedFile()
{
    const QString path = selectedVaultPath();
    if (path.isEmpty() || !confirmExportOutsideVault(path))
        return;
    const QString target =
        QFileDialog::getSaveFileName(this, tr("Exportar arquivo"), Core::vaultBaseName(path));
    if (target.isEmpty())
        return;
    bool exported = false;
    {
        ProgressDialog progress(this, tr("Exportar arquivo"));
        exported = vaultManager.exportFile(path, target, progress.reporter(tr("Exportando %1...\n%2 de %3")));
        progress.finish();
    }
    if (exported) {
        setStatusMessage(tr("Arquivo exportado com sucesso."), statusTimeoutMs);
        return;
    }
    showWarning(this, tr("Tessarin"), tr("Não foi possível exportar o arquivo."));
    setStatusMessage(tr("Falha ao exportar o arquivo."), statusTimeoutMs);
}

void MainWindow::openSelectedFile()
{
    const QString path = selectedVaultPath();
    if (path.isEmpty())
        return;
    QString tempPath;
    bool prepared = false;
    {
        ProgressDialog progress(this, tr("Abrir arquivo"));
        prepared = vaultManager.prepareFileForEditing(path, &tempPath,
                                                      progress.reporter(tr("Abrindo %1...\n%2 de %3")));
        progress.finish();
    }
    if (!prepared) {
        showWarning(this, tr("Tessarin"), tr("Não foi possível preparar o arquivo para edição."));
        return;
    }
    // The copy would be gone before a program has opened it.
    if (closer.isWaiting())
        return;
    if (QDesktopServices::openUrl(QUrl::fromLocalFile(tempPath))) {
        setStatusMessage(tr("Arquivo aberto para edição."), statusTimeoutMs);
        return;
    }
    warnOfFailedOpening();
}

void MainWindow::tellOfFailedOpening()
{
    openingFailed = guard.isRunning();
    if (!guard.isRunning())
        run(&MainWindow::warnOfFailedOpening);
}

void MainWindow::warnOfFailedOpening()
{
    showWarning(this, tr("Tessarin"), tr("Não foi possível abrir o arquivo no aplicativo padrão."));
    setStatusMessage(tr("Falha ao abrir o arquivo."), statusTimeoutMs);
}

void MainWindow::deleteSelectedFile()
{
    const QString path = selectedVaultPath();
    if (path.isEmpty() || !confirmDeleteVaultFile(path))
        return;
    if (!vaultManager.deleteFile(path)) {
        showWarning(this, tr("Tessarin"), tr("Não foi possível excluir o arquivo do cofre."));
        setStatusMessage(tr("Falha ao excluir o arquivo."), statusTimeoutMs);
        return;
    }
    showNamespaceChange(tr("Arquivo excluído do cofre."));
}

void MainWindow::moveSelectedFile()
{
    const QString path = selectedVaultPath();
    if (path.isEmpty())
        return;
    const QString title = tr("Mover arquivo");
    const QString name = Core::vaultBaseName(path);
    const QStringList destinations = moveDestinations(vaultManager.fileIndex(), Core::parentVaultPath(path));
    if (destinations.isEmpty()) {
        showInformation(this, title, tr("Não há outra pasta disponível para receber este arquivo."));
        return;
    }
    MoveFileDialog dialog(name, destinations, this);
    if (dialog.exec() != QDialog::Accepted)
        return;
    const QString target = dialog.destination();
    if (vaultHasItem(Core::joinVaultPath(target, name))) {
        showWarning(this, title, tr("Já existe um item com esse nome na pasta de destino."));
        return;
    }
    if (!vaultManager.moveFile(path, target)) {
        showWarning(this, title,
                    tr("Não foi possível mover o arquivo. Feche o arquivo se ele estiver aberto e tente "
                       "novamente."));
        return;
    }
    showNamespaceChange(tr("Arquivo movido."));
}

void MainWindow::renameSelectedFile()
{
    const QString path = selectedVaultPath();
    if (path.isEmpty())
        return;
    const QString title = tr("Renomear arquivo");
    const QString formerName = Core::vaultBaseName(path);
    const QString name = askForName(this, title, tr("Novo nome:"), formerName);
    if (name.isEmpty() || name == formerName)
        return;
    if (!Core::isValidVaultName(name)) {
        showWarning(this, title,
                    tr("Use um nome de arquivo simples, sem barras, pontos isolados ou caminho relativo."));
        return;
    }
    const QString newPath = Core::joinVaultPath(Core::parentVaultPath(path), name);
    if (vaultHasItem(newPath)) {
        showWarning(this, title, tr("Já existe um item com esse nome nesta pasta."));
        return;
    }
    if (!vaultManager.renameFile(path, newPath)) {
        showWarning(this, title,
                    tr("Não foi possível renomear o arquivo. Feche o arquivo se ele estiver aberto e tente "
                       "novamente."));
        return;
    }
    showNamespaceChange(tr("Arquivo renomeado."));
}

void MainWindow::createDirectory()
{
    const QString title = tr("Nova pasta");
    const QString name = askForName(this, title, tr("Nome da pasta:"), {});
    if (name.isEmpty())
        return;
    if (!Core::isValidVaultName(name)) {
        warnAboutDirectoryName(this, title);
        return;
    }
    const QString path = Core::joinVaultPath(browser->currentDirectory(), name);
    if (vaultHasItem(path)) {
        showWarning(this, title, tr("Já existe um item com esse nome nesta pasta."));
        return;
    }
    if (!vaultManager.createDirectory(path)) {
        showWarning(this, title, tr("Não foi possível criar a pasta."));
        return;
    }
    showNamespaceChange(tr("Pasta criada."));
}

void MainWindow::renameSelectedDirectory()
{
    const QString directory = selectedDirectoryPath();
    if (directory.isEmpty() || selectedItemIsParentDirectory())
        return;
    const QString title = tr("Renomear pasta");
    const QString formerName = Core::vaultBaseName(directory);
    const QString name = askForName(this, title, tr("Novo nome:"), formerName);
    if (name.isEmpty() || name == formerName)
        return;
    if (!Core::isValidVaultName(name)) {
        warnAboutDirectoryName(this, title);
        return;
    }
    const QString newPath = Core::joinVaultPath(Core::parentVaultPath(directory), name);
    if (vaultHasItem(newPath)) {
        showWarning(this, title, tr("Já existe um item com esse nome nesta pasta."));
        return;
    }
    if (!vaultManager.renameDirectory(directory, newPath)) {
        showWarning(this, title,
                    tr("Não foi possível renomear a pasta. Feche arquivos abertos dentro dela e tente "
                       "novamente."));
        return;
    }
    if (Core::vaultPathsEqual(browser->currentDirectory(), directory))
        browser->showDirectory(newPath);
    showNamespaceChange(tr("Pasta renomeada."));
}

void MainWindow::deleteSelectedDirectory()
{
    const QString directory = selectedDirectoryPath();
    if (directory.isEmpty() || selectedItemIsParentDirectory())
        return;
    const QString title = tr("Excluir pasta");
    if (!questionYesNo(this, title, tr("Excluir a pasta vazia %1?").arg(directory)))
        return;
    if (!vaultManager.deleteDirectory(directory)) {
        showWarning(this, title, tr("A pasta não está vazia ou não pode ser excluída."));
        return;
    }
    showNamespaceChange(tr("Pasta excluída."));
}

void MainWindow::showNamespaceChange(const QString &message)
{
    refreshVaultFiles();
    updateActions();
    setStatusMessage(message, statusTimeoutMs);
}

bool MainWindow::confirmReplaceVaultFile(const QString &path) const
{
    return questionYesNo(window(), tr("Substituir arquivo"),
                         tr("%1 já existe no cofre. Deseja substituir o arquivo protegido?").arg(path));
}

bool MainWindow::confirmDeleteVaultFile(const QString &path) const
{
    return questionYesNo(window(), tr("Excluir arquivo"),
                         tr("Excluir %1 removerá o arquivo da lista do cofre.\n\nOs dados físicos só serão "
                            "liberados do container após executar Compactar cofre.")
                             .arg(path));
}

bool MainWindow::confirmExportOutsideVault(const QString &path) const
{
    return questionContinueCancel(
        window(), tr("Exportar arquivo"),
        tr("Exportar %1 criará uma cópia descriptografada fora do cofre. Alterações "
           "feitas nessa cópia não voltam automaticamente para o Tessarin.")
            .arg(path));
}

bool MainWindow::vaultHasItem(const QString &path) const
{
    const Core::SecureFileIndex index = vaultManager.fileIndex();
    return Core::indexContainsFilePath(index, path) || Core::indexContainsDirectoryPath(index, path);
}

} // namespace Tessarin::UI
