// One sentence or two for each situation, in the order in which people get into them.
#include "ui/TableHint.h"

#include "core/ContainerManager.h"
#include "ui/Translated.h"

#include <QFileInfo>

namespace Tessarin::UI {

namespace {

QString hintWithoutDrive(const TableSituation &now)
{
    if (now.mountedDrives > 1)
        return translated(
            "Há mais de uma unidade na lista acima.\nDê dois cliques na que tem o seu cofre ou, para "
            "criar um cofre, clique em uma e pressione Ctrl+N.");
    if (now.mountedDrives == 1)
        return translated("Clique na unidade USB na lista acima.");
    if (now.unmountedDrives > 0)
        return translated(
            "A unidade USB ainda não está montada.\nAbra-a no gerenciador de arquivos: ela fica "
            "disponível na lista acima.");
    return translated("Conecte uma unidade USB.\nEla aparece sozinha na lista acima.");
}

QString hintWithoutContainer(const TableSituation &now)
{
    if (now.driveRoot.isEmpty())
        return hintWithoutDrive(now);
    if (Core::ContainerManager().containerExists(now.driveRoot))
        return translated("Há um cofre na unidade selecionada.\nDê dois cliques nela, na lista acima, para "
                          "escolhê-lo.");
    return translated(
        "A unidade selecionada ainda não tem um cofre com o nome padrão.\nPressione Ctrl+N para criar "
        "um ou Ctrl+O para escolher um cofre com outro nome.");
}

} // namespace

QString tableHint(const TableSituation &now)
{
    if (now.isUnlocked)
        return now.isFolderEmpty
                   ? translated("Arraste arquivos para cá\nou pressione Ctrl+I para importá-los.")
                   : QString();
    if (now.containerPath.isEmpty())
        return hintWithoutContainer(now);
    if (!QFileInfo(now.containerPath).isFile())
        return translated(
            "O container escolhido não foi encontrado.\nConecte de novo a unidade em que ele fica ou dê "
            "dois cliques em outra, na lista acima.");
    return translated("O cofre está bloqueado.\nClique no cadeado ou pressione Ctrl+L para desbloqueá-lo.");
}

} // namespace Tessarin::UI
