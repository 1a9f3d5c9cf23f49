// The table of the window, under the names that the rest of the window uses.
#include "ui/MainWindow.h"

#include "ui/MessageBoxes.h"
#include "ui/ProtectedFilesLabel.h"
#include "ui/VaultBrowser.h"
#include "ui/WindowActions.h"

#include <QMenu>

namespace Tessarin::UI {

void MainWindow::refreshVaultFiles()
{
    browser->refresh();
}

void MainWindow::updateProtectedFilesLabel()
{
    if (isUnlocked())
        protectedFilesLabel->showFolder(browser->currentDirectory(),
                                        vaultManager.fileIndex().entries().size());
    else
        protectedFilesLabel->showNoVault();
    browser->setAccessibleDescription(protectedFilesLabel->accessibleName());
}

QString MainWindow::selectedVaultPath() const
{
    return browser->selectedVaultPath();
}

QString MainWindow::selectedDirectoryPath() const
{
    return browser->selectedDirectoryPath();
}

bool MainWindow::selectedItemIsDirectory() const
{
    return browser->selectedItemIsDirectory();
}

bool MainWindow::selectedItemIsParentDirectory() const
{
    return browser->selectedItemIsParentDirectory();
}

void MainWindow::enterSelectedDirectory()
{
    browser->enterSelectedDirectory();
}

void MainWindow::navigateToParentDirectory()
{
    browser->navigateToParentDirectory();
}

void MainWindow::showTableMenu(const QPoint &position)
{
    const QModelIndex index = browser->indexAt(position);
    if (index.isValid())
        browser->selectRow(index.row());
    updateActions();

    QMenu menu(this);
    menu.setAccessibleName(tr("Arquivos protegidos"));
    windowActions->addTo(menu, !selectedVaultPath().isEmpty());
    menu.exec(browser->viewport()->mapToGlobal(position));
}

void MainWindow::explainDropRefusal(DropRefusal reason)
{
    switch (reason) {
    case DropRefusal::NothingToCopy:
    case DropRefusal::OperationRunning:
        return; // The pointer says enough.
    case DropRefusal::VaultLocked:
        setStatusMessage(tr("Desbloqueie o cofre para importar arquivos."), statusTimeoutMs);
        return;
    case DropRefusal::NotOnlyLocalFiles:
        run([this] {
            showInformation(
                this, tr("Importar arquivos"),
                tr("Nada foi importado. Só arquivos deste computador podem ser arrastados para o "
                   "cofre, e não pastas nem endereços de rede.\n\nPara importar o conteúdo de uma "
                   "pasta, abra-a e arraste os arquivos."));
        });
    }
}

} // namespace Tessarin::UI
