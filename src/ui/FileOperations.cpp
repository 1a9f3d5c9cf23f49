// Letter case aside, no two items of a folder share a name: that is asked of the index before the engine is.
#include "ui/FileOperations.h"

#include "core/VaultManager.h"
#include "core/VaultPath.h"
#include "ui/MessageBoxes.h"
#include "ui/MoveFileDialog.h"
#include "ui/ProgressDialog.h"

#include <QFileDialog>
#include <QInputDialog>

namespace Tessarin::UI {

Outcome FileOperations::exportFile(const QString &path) const
{
    const QString title = tr("Exportar arquivo");
    const QString target = QFileDialog::getSaveFileName(parent, title, Core::vaultBaseName(path));
    if (target.isEmpty())
        return {};
    ProgressDialog progress(parent, title);
    const bool exported = vault.exportFile(path, target, progress.reporter(tr("Exportando %1...\n%2 de %3")));
    progress.finish();
    if (!exported)
        return {.warnings = {{tr("Não foi possível exportar o arquivo.")}},
                .status = tr("Falha ao exportar o arquivo.")};
    return {.status = tr("Arquivo exportado com sucesso.")};
}

QString FileOperations::prepareForEditing(const QString &path)
{
    ProgressDialog progress(parent, tr("Abrir arquivo"));
    QString copyPath;
    const bool prepared =
        vault.prepareFileForEditing(path, &copyPath, progress.reporter(tr("Abrindo %1...\n%2 de %3")));
    progress.finish();
    return prepared ? copyPath : QString();
}

Outcome FileOperations::deleteFile(const QString &path)
{
    if (!vault.deleteFile(path))
        return {.warnings = {{tr("Não foi possível excluir o arquivo do cofre.")}},
                .status = tr("Falha ao excluir o arquivo.")};
    return {.contentsChanged = true, .status = tr("Arquivo excluído do cofre.")};
}

Outcome FileOperations::moveFile(const QString &path)
{
    const QString title = tr("Mover arquivo");
    const QString name = Core::vaultBaseName(path);
    const QStringList destinations = moveDestinations(vault.fileIndex(), Core::parentVaultPath(path));
    if (destinations.isEmpty())
        return {.title = title,
                .information = {tr("Não há outra pasta disponível para receber este arquivo.")}};
    MoveFileDialog dialog(name, destinations, parent);
    if (dialog.exec() != QDialog::Accepted)
        return {};
    const QString target = dialog.destination();
    if (hasItem(Core::joinVaultPath(target, name)))
        return {.title = title, .warnings = {{tr("Já existe um item com esse nome na pasta de destino.")}}};
    if (!vault.moveFile(path, target))
        return {.title = title,
                .warnings = {
                    {tr("Não foi possível mover o arquivo. Feche o arquivo se ele estiver aberto e tente "
                        "novamente.")}}};
    return {.contentsChanged = true, .status = tr("Arquivo movido.")};
}

Outcome FileOperations::renameFile(const QString &path)
{
    const QString title = tr("Renomear arquivo");
    const NewName name =
        askForName(title, tr("Novo nome:"), Core::vaultBaseName(path), Core::parentVaultPath(path),
                   tr("Use um nome de arquivo simples, sem barras, pontos isolados ou caminho relativo."));
    if (name.path.isEmpty())
        return name.refusal;
    if (!vault.renameFile(path, name.path))
        return {
            .title = title,
            .warnings = {{tr("Não foi possível renomear o arquivo. Feche o arquivo se ele estiver aberto e "
                             "tente novamente.")}}};
    return {.contentsChanged = true, .status = tr("Arquivo renomeado.")};
}

Outcome FileOperations::createDirectory(const QString &parentDirectory)
{
    const QString title = tr("Nova pasta");
    const NewName name = askForName(title, tr("Nome da pasta:"), {}, parentDirectory, directoryNameRule());
    if (name.path.isEmpty())
        return name.refusal;
    if (!vault.createDirectory(name.path))
        return {.title = title, .warnings = {{tr("Não foi possível criar a pasta.")}}};
    return {.contentsChanged = true, .status = tr("Pasta criada.")};
}

Outcome FileOperations::renameDirectory(const QString &path, QString *newPath)
{
    const QString title = tr("Renomear pasta");
    const NewName name = askForName(title, tr("Novo nome:"), Core::vaultBaseName(path),
                                    Core::parentVaultPath(path), directoryNameRule());
    if (name.path.isEmpty())
        return name.refusal;
    if (!vault.renameDirectory(path, name.path))
        return {
            .title = title,
            .warnings = {{tr("Não foi possível renomear a pasta. Feche arquivos abertos dentro dela e tente "
                             "novamente.")}}};
    *newPath = name.path;
    return {.contentsChanged = true, .status = tr("Pasta renomeada.")};
}

Outcome FileOperations::deleteDirectory(const QString &path)
{
    const QString title = tr("Excluir pasta");
    if (!questionYesNo(parent, title, tr("Excluir a pasta vazia %1?").arg(path)))
        return {};
    if (!vault.deleteDirectory(path))
        return {.title = title, .warnings = {{tr("A pasta não está vazia ou não pode ser excluída.")}}};
    return {.contentsChanged = true, .status = tr("Pasta excluída.")};
}

FileOperations::NewName FileOperations::askForName(const QString &title, const QString &prompt,
                                                   const QString &formerName, const QString &directory,
                                                   const QString &nameRule) const
{
    QInputDialog dialog(parent);
    dialog.setWindowTitle(title);
    dialog.setLabelText(prompt);
    dialog.setTextValue(formerName);
    dialog.resize(360, dialog.sizeHint().height()); // by itself it is too narrow for its title
    if (dialog.exec() != QDialog::Accepted)
        return {};
    const QString name = dialog.textValue().trimmed();
    if (name.isEmpty() || name == formerName)
        return {};
    if (!Core::isValidVaultName(name))
        return {.refusal = {.title = title, .warnings = {{nameRule}}}};
    const QString path = Core::joinVaultPath(directory, name);
    if (hasItem(path))
        return {
            .refusal = {.title = title, .warnings = {{tr("Já existe um item com esse nome nesta pasta.")}}}};
    return {.path = path};
}

QString FileOperations::directoryNameRule()
{
    return tr("Use um nome de pasta simples, sem barras, pontos isolados ou caminho relativo.");
}

bool FileOperations::hasItem(const QString &path) const
{
    const Core::SecureFileIndex index = vault.fileIndex();
    return Core::indexContainsFilePath(index, path) || Core::indexContainsDirectoryPath(index, path);
}

} // namespace Tessarin::UI
