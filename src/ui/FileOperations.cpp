// Letter case aside, no two items of a folder share a name: that is asked of the index before the engine is.
#include "ui/FileOperations.h"

#include "core/HostFile.h"
#include "core/VaultManager.h"
#include "core/VaultPath.h"
#include "ui/FailureText.h"
#include "ui/FileCopy.h"
#include "ui/FileDialogs.h"
#include "ui/Formatting.h"
#include "ui/MessageBoxes.h"
#include "ui/MoveFileDialog.h"
#include "ui/OpenCopies.h"
#include "ui/ProgressDialog.h"

#include <QFile>
#include <QFileInfo>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>

namespace Tessarin::UI {

Outcome FileOperations::exportFile(const QString &path, const QString &containerPath) const
{
    const QString title = tr("Exportar arquivo");
    QString copyPath = copies.editedCopyOf(path);
    if (!copyPath.isEmpty() &&
        questionOther(parent, title,
                      tr("%1 foi editado, e as alterações ainda não estão no cofre.").arg(shownName(path)),
                      tr("Qual versão deve ser exportada?"), tr("Versão do cofre"), tr("Versão editada")))
        copyPath.clear();
    const QString target = askForTarget(parent, title, Core::vaultBaseName(path), {});
    if (target.isEmpty())
        return {};
    ProgressDialog progress(parent, title);
    const auto report = progress.reporter(tr("Exportando %1...\n%2 de %3"));
    Core::Failure reason = Core::Failure::None;
    if (!copyPath.isEmpty())
        reason = exportCopy(copyPath, target, containerPath, [&](qint64 doneBytes, qint64 totalBytes) {
            report(doneBytes, totalBytes, path);
        });
    else if (!vault.exportFile(path, target, report))
        reason = vault.lastFailure();
    if (reason == Core::Failure::Refused)
        return {.warnings = {{tr("Não foi possível exportar o arquivo."),
                              tr("O destino é o próprio cofre, ou a cópia que está aberta. Escolha outro.")}},
                .status = tr("Falha ao exportar o arquivo.")};
    if (reason != Core::Failure::None)
        return {.warnings = {{tr("Não foi possível exportar o arquivo."), failureText(reason, path)}},
                .status = tr("Falha ao exportar o arquivo.")};
    return {.status = tr("Arquivo exportado com sucesso.")};
}

Core::Failure FileOperations::exportCopy(const QString &copyPath, const QString &target,
                                         const QString &containerPath,
                                         const std::function<void(qint64, qint64)> &report) const
{
    if (Core::isSameFile(target, containerPath) || Core::isSameFile(target, copyPath))
        return Core::Failure::Refused;
    QFile copy(copyPath);
    if (!copy.open(QIODevice::ReadOnly))
        return Core::Failure::SourceUnreadable;
    QFile exported(target);
    if (!exported.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return Core::Failure::TargetUnwritable;
    return copyFile(copy, exported, report);
}

QString FileOperations::whyNotRelocated(const QString &path) const
{
    if (vault.lastFailure() == Core::Failure::Refused && copies.hasAnyAt(path))
        return tr(
            "Um arquivo que foi aberto só pode ser movido ou renomeado depois que o cofre é bloqueado e "
            "desbloqueado, e o mesmo vale para a pasta em que ele está. Antes, salve o arquivo no outro "
            "programa e feche-o.");
    return failureText(vault.lastFailure());
}

QString FileOperations::editNote(const QString &path, const QString &consequence) const
{
    if (copies.editedCopyOf(path).isEmpty())
        return {};
    return tr("O arquivo foi aberto e editado, e as alterações ainda não estão no cofre. %1")
        .arg(consequence);
}

QString FileOperations::prepareForEditing(const QString &path)
{
    const QString edited = copies.editedCopyOf(path);
    if (!edited.isEmpty() &&
        !questionOther(
            parent, tr("Abrir arquivo"),
            tr("%1 já foi aberto e editado, e as alterações ainda não estão no cofre.").arg(shownName(path)),
            tr("Você pode continuar com a cópia editada, ou descartar as alterações e abrir o arquivo "
               "como está no cofre."),
            tr("Descartar alterações"), tr("Continuar editando")))
        return edited;
    ProgressDialog progress(parent, tr("Abrir arquivo"));
    QString copyPath;
    const bool prepared =
        vault.prepareFileForEditing(path, &copyPath, progress.reporter(tr("Abrindo %1...\n%2 de %3")));
    return prepared ? copyPath : QString();
}

Outcome FileOperations::failedOpening()
{
    return {.warnings = {{tr("Não foi possível abrir o arquivo no aplicativo padrão."),
                          tr("O sistema não tem um programa para este tipo de arquivo ou não conseguiu "
                             "iniciá-lo. Escolha um no gerenciador de arquivos ou exporte o arquivo.")}},
            .status = tr("Falha ao abrir o arquivo.")};
}

Outcome FileOperations::deleteFile(const QString &path)
{
    if (!vault.deleteFile(path))
        return {.warnings = {{tr("Não foi possível excluir o arquivo do cofre."),
                              failureText(vault.lastFailure())}},
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
                        "novamente."),
                     whyNotRelocated(path)}}};
    return {.contentsChanged = true,
            .itemToShow = Core::joinVaultPath(target, name),
            .status = tr("Arquivo movido.")};
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
                             "tente novamente."),
                          whyNotRelocated(path)}}};
    return {.contentsChanged = true, .itemToShow = name.path, .status = tr("Arquivo renomeado.")};
}

Outcome FileOperations::createDirectory(const QString &parentDirectory)
{
    const QString title = tr("Nova pasta");
    const NewName name = askForName(title, tr("Nome da pasta:"), {}, parentDirectory, directoryNameRule());
    if (name.path.isEmpty())
        return name.refusal;
    if (!vault.createDirectory(name.path))
        return {.title = title,
                .warnings = {{tr("Não foi possível criar a pasta."), failureText(vault.lastFailure())}}};
    return {.contentsChanged = true, .itemToShow = name.path, .status = tr("Pasta criada.")};
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
                             "novamente."),
                          whyNotRelocated(path)}}};
    *newPath = name.path;
    return {.contentsChanged = true, .itemToShow = name.path, .status = tr("Pasta renomeada.")};
}

Outcome FileOperations::deleteDirectory(const QString &path)
{
    const QString title = tr("Excluir pasta");
    if (!questionYesNo(parent, title, tr("Excluir a pasta vazia %1?").arg(shownName(path))))
        return {};
    if (!vault.deleteDirectory(path))
        return {.title = title,
                .warnings = {{tr("A pasta não está vazia ou não pode ser excluída."),
                              failureText(vault.lastFailure())}}};
    return {.contentsChanged = true, .status = tr("Pasta excluída.")};
}

FileOperations::NewName FileOperations::askForName(const QString &title, const QString &prompt,
                                                   const QString &formerName, const QString &directory,
                                                   const QString &nameRule) const
{
    QInputDialog dialog(parent);
    dialog.setWindowTitle(title);
    // In the field, marks that change the direction of reading do their work; here they are seen.
    const bool isMisleading = shownName(formerName).contains(QLatin1StringView("[U+"));
    dialog.setLabelText(isMisleading ? tr("Nome atual: %1").arg(shownName(formerName)) + u'\n' + prompt
                                     : prompt);
    dialog.findChild<QLabel *>()->setTextFormat(Qt::PlainText);
    dialog.setTextValue(formerName);
    dialog.resize(360, dialog.sizeHint().height()); // by itself it is too narrow for its title
    // The dialog selects all of it when it shows. What ends in a suffix is nearly always to keep it.
    const QString stem = QFileInfo(formerName).completeBaseName();
    const bool isFile = vault.fileIndex().findFile(Core::joinVaultPath(directory, formerName)) != nullptr;
    const auto selectStem = [&] {
        if (isFile && !stem.isEmpty())
            dialog.findChild<QLineEdit *>()->setSelection(0, static_cast<int>(stem.size()));
    };
    QMetaObject::invokeMethod(&dialog, selectStem, Qt::QueuedConnection);
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
