// Compaction as people see it: the question, the progress, and which of its three outcomes came about.
#include "ui/MainWindow.h"

#include "ui/MessageBoxes.h"
#include "ui/ProgressDialog.h"

namespace Tessarin::UI {

bool MainWindow::confirmCompactVault() const
{
    return questionYesNo(
        window(), tr("Compactar cofre"),
        tr("A compactação reconstruirá o container removendo fisicamente dados de arquivos já "
           "excluídos.\n\nDurante a operação, será criado temporariamente um container "
           "criptografado no disco local. Nenhum arquivo descriptografado será gravado fora "
           "do cofre.\n\nDeseja continuar?"));
}

void MainWindow::compactVault()
{
    if (!confirmCompactVault())
        return;

    const QString title = tr("Compactar cofre");
    QString preservedPath;
    bool compacted = false;
    {
        ProgressDialog progress(this, title,
                                tr("Compactando o cofre...\n\nSerá criado temporariamente um container "
                                   "criptografado no disco local."),
                                Qt::ApplicationModal);
        compacted = vaultManager.compactVault(progress.reporter(tr("%1...\n%2 de %3")), &preservedPath);
        progress.finish();
    }

    if (compacted) {
        refreshVaultFiles();
        refreshDevices();
        updateActions();
        const QString message = tr("Cofre compactado com sucesso.");
        setStatusMessage(message, statusTimeoutMs);
        showInformation(this, title, message);
        return;
    }
    showWarning(this, title,
                preservedPath.isEmpty()
                    ? tr("Não foi possível compactar o cofre.")
                    : tr("Não foi possível substituir o container no USB.\n\nUm container compactado "
                         "criptografado foi preservado em:\n%1")
                          .arg(preservedPath));
    updateActions();
    setStatusMessage(tr("Falha ao compactar o cofre."), statusTimeoutMs);
}

} // namespace Tessarin::UI
