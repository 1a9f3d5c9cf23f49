// A wrong password and a damaged container have no words here: the text of that box says all that is known.
#include "ui/FailureText.h"

#include "ui/Formatting.h"
#include "ui/Translated.h"

namespace Tessarin::UI {

QString failureText(Core::Failure reason, const QString &damagedFile)
{
    using Core::Failure;
    switch (reason) {
    case Failure::None:
    case Failure::Refused:
    case Failure::WrongPasswordOrDamaged:
    case Failure::Other:
        return {};
    case Failure::DamagedData:
        if (!damagedFile.isEmpty())
            return translated("Os dados de %1 no container estão danificados. Os outros arquivos podem estar "
                              "inteiros: exporte-os e recupere este de um backup.")
                .arg(shownName(damagedFile));
        return translated("Dados guardados no container estão danificados. Exporte os arquivos um a um para "
                          "saber quais estão inteiros e recupere os outros de um backup.");
    case Failure::OtherLayout:
        return translated(
            "Outro programa gravou este container de um modo que só permite leitura. Compacte o "
            "cofre uma vez e tente de novo.");
    case Failure::NoSpace:
        return translated(
            "A unidade do cofre está cheia. Libere espaço nela e tente de novo. Excluir arquivos do "
            "cofre só libera espaço depois de compactá-lo.");
    case Failure::ReadOnly:
        return translated(
            "A unidade do cofre, ou o arquivo do container, só permite leitura. Verifique a trava da "
            "unidade e as permissões do arquivo e tente de novo. Depois de uma queda de energia, ou de uma "
            "remoção sem ejetar, a unidade pode precisar de reparo.");
    case Failure::DriveGone:
        return translated(
            "O container não está acessível: a unidade foi removida ou apresenta erros. Conecte-a de "
            "novo e repita a operação. Se o erro continuar, recupere o cofre de um backup.");
    case Failure::InUse:
        return translated(
            "Outro programa está usando este cofre neste momento. Feche esse programa ou espere que termine "
            "e tente de novo.");
    case Failure::ChangedByOther:
        return translated(
            "Outro programa alterou este cofre depois que ele foi aberto aqui. Bloqueie e desbloqueie "
            "o cofre para ver o que há nele agora e tente de novo.");
    case Failure::IndexFull:
        return translated(
            "A lista de arquivos do cofre está cheia: cabem nela cerca de 15 mil arquivos. Exclua "
            "arquivos de que não precisa mais ou crie outro cofre.");
    case Failure::SourceUnreadable:
        return translated(
            "O arquivo de origem não existe mais ou não pode ser lido. Verifique se ele continua no "
            "mesmo lugar e se você tem permissão para lê-lo.");
    case Failure::SourceChanged:
        return translated(
            "O arquivo de origem mudou enquanto era lido. Espere que o outro programa termine de "
            "gravá-lo e tente de novo.");
    case Failure::TargetUnwritable:
        return translated(
            "Não é possível gravar no destino. Verifique se ele permite gravação e se a unidade "
            "continua conectada, ou escolha outro lugar.");
    case Failure::TargetFull:
        return translated("Não há espaço livre suficiente no destino. Libere espaço ou escolha outro "
                          "lugar.");
    case Failure::NameTooLong:
        return translated("O nome é longo demais para este sistema. Use um nome mais curto.");
    case Failure::FormerKeyRemains:
        return translated(
            "A senha nova já está valendo, mas a unidade não apagou o que restou da anterior. Desbloqueie o "
            "cofre com a senha nova, o que tenta apagá-lo outra vez, ou faça um backup: a unidade apresenta "
            "erros.");
    case Failure::WorkspaceUnavailable:
        return translated(
            "A pasta das cópias temporárias não pode ser usada. Verifique se o disco do computador tem "
            "espaço livre.");
    }
    return {};
}

} // namespace Tessarin::UI
