// The files are one series for the engine, which waits for the drive now and then instead of once per file.
#include "ui/FileImport.h"

#include "core/VaultManager.h"
#include "core/VaultPath.h"
#include "ui/FailureText.h"
#include "ui/Formatting.h"
#include "ui/ProgressDialog.h"
#include "ui/Translated.h"

#include <QFileInfo>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

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
        endSeries();
    }
    const QStringList lost = lostFiles();
    for (const QString &target : lost)
        fail(Core::vaultBaseName(target), endReason);
    const qsizetype count = imported.size() - lost.size();
    return {.contentsChanged = true,
            .freeSpaceChanged = true,
            .itemToShow = imported.value(imported.size() - 1),
            .warnings = warnings(),
            .status = count == 1 ? tr("Arquivo importado com sucesso.")
                                 : tr("%1 arquivos importados com sucesso.").arg(count)};
}

void FileImport::importOne(const QString &source, const QString &target, ProgressDialog &progress)
{
    progress.report(0, 0,
                    tr("Importando %1...\n\n%2").arg(shownName(Core::vaultBaseName(target)), speedNote()));
    if (Core::indexContainsFilePath(vault.fileIndex(), target)) {
        // Nothing waits for the answer, neither these files nor another program.
        endSeries();
        const bool isConfirmed = confirmReplacement(target);
        vault.beginImportSeries();
        if (!isConfirmed)
            return;
    }

    const auto showProgress = [&](qint64 doneBytes, qint64 totalBytes, const QString &label) {
        progress.report(
            doneBytes, totalBytes,
            tr("Importando %1...\n%2 de %3\n\n%4")
                .arg(shownName(label), formatFileSize(doneBytes), formatFileSize(totalBytes), speedNote()));
    };
    if (!vault.importFile(source, target, showProgress)) {
        fail(QFileInfo(source).fileName(), failureText(vault.lastFailure()));
        return;
    }
    imported.append(target);
    importedIds[target] = vault.fileIndex().findFile(target)->id;
}

/// A drive that fails at the end takes back what had not reached it.
void FileImport::endSeries()
{
    if (!vault.endImportSeries())
        endReason = failureText(vault.lastFailure());
}

QStringList FileImport::lostFiles() const
{
    const Core::SecureFileIndex index = vault.fileIndex();
    QStringList lost;
    for (auto file = importedIds.cbegin(); file != importedIds.cend(); ++file) {
        const Core::VaultFileEntry *stored = index.findFile(file.key());
        if (stored == nullptr || stored->id != *file)
            lost.append(file.key());
    }
    return lost;
}

void FileImport::fail(const QString &fileName, const QString &reason)
{
    const auto known = std::ranges::find(failed, reason, &Failed::reason);
    if (known == failed.end())
        failed.append({reason, {shownName(fileName)}});
    else
        known->fileNames.append(shownName(fileName));
}

QList<Notice> FileImport::warnings() const
{
    QList<Notice> notices;
    for (const auto &[reason, fileNames] : failed) {
        QStringList paragraphs;
        if (fileNames.size() > 1)
            paragraphs << tr("O mesmo aconteceu com:\n%1").arg(shortList(fileNames.sliced(1)).join(u'\n'));
        if (!reason.isEmpty())
            paragraphs << reason;
        notices.append(
            {tr("Não foi possível importar %1.").arg(fileNames.first()), paragraphs.join(u"\n\n"_s)});
    }
    return notices;
}

} // namespace Tessarin::UI
