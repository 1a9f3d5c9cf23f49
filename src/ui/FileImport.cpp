// The files are one series for the engine, which waits for the drive now and then instead of once per file.
#include "ui/FileImport.h"

#include "core/VaultManager.h"
#include "core/VaultPath.h"
#include "ui/Formatting.h"
#include "ui/MessageBoxes.h"
#include "ui/ProgressDialog.h"
#include "ui/Translated.h"

#include <QFileInfo>

#include <algorithm>

namespace Tessarin::UI {

namespace {

QString speedNote()
{
    return translated(
        "A velocidade depende da taxa de leitura e escrita da unidade USB.\nDispositivos USB 3 ou "
        "superiores tendem a ser mais rápidos.");
}

} // namespace

Outcome FileImport::run(const QStringList &sources, const QString &directory)
{
    {
        ProgressDialog progress(parent, tr("Importar arquivos"),
                                tr("Importando arquivos para o cofre...\n\n%1").arg(speedNote()),
                                Qt::ApplicationModal);
        vault.beginImportSeries();
        for (const QString &source : sources)
            importOne(source, Core::joinVaultPath(directory, QFileInfo(source).fileName()), progress);
        // A drive that fails at the end takes back what had not reached it.
        static_cast<void>(vault.endImportSeries());
        progress.finish();
    }
    const QStringList lost = lostFiles();
    for (const QString &target : lost)
        warnAbout(Core::vaultBaseName(target));
    const qsizetype count = imported.size() - lost.size();
    return {.contentsChanged = true,
            .freeSpaceChanged = true,
            .status = count == 1 ? tr("Arquivo importado com sucesso.")
                                 : tr("%1 arquivos importados com sucesso.").arg(count)};
}

void FileImport::importOne(const QString &source, const QString &target, ProgressDialog &progress)
{
    progress.report(0, 0, tr("Importando %1...\n\n%2").arg(Core::vaultBaseName(target), speedNote()));
    if (Core::indexContainsFilePath(vault.fileIndex(), target) && !confirmReplacement(target))
        return;

    const auto showProgress = [&](qint64 doneBytes, qint64 totalBytes, const QString &label) {
        progress.report(doneBytes, totalBytes,
                        tr("Importando %1...\n%2 de %3\n\n%4")
                            .arg(label, formatFileSize(doneBytes), formatFileSize(totalBytes), speedNote()));
    };
    if (!vault.importFile(source, target, showProgress)) {
        warnAbout(QFileInfo(source).fileName());
        return;
    }
    imported.append(target);
    importedIds.insert(vault.fileIndex().findFile(target)->id);
}

QStringList FileImport::lostFiles() const
{
    const Core::SecureFileIndex index = vault.fileIndex();
    QStringList lost;
    std::ranges::copy_if(imported, std::back_inserter(lost), [&](const QString &target) {
        const Core::VaultFileEntry *stored = index.findFile(target);
        return stored == nullptr || !importedIds.contains(stored->id);
    });
    return lost;
}

void FileImport::warnAbout(const QString &fileName) const
{
    showWarning(parent, tr("Tessarin"), tr("Não foi possível importar %1.").arg(fileName));
}

} // namespace Tessarin::UI
