// A day with the window: each story presses what people press, answers what they are asked, and looks at what
// they would see, in the window and on the drive. The stories follow one another on one vault.
#include "WindowHarness.h"
#include "support/DialogDriver.h"
#include "support/VaultFixture.h"

#include <QComboBox>
#include <QDesktopServices>
#include <QHeaderView>

#include <filesystem>

using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

class WindowStoriesTest : public QObject
{
    Q_OBJECT

public Q_SLOTS:
    void rememberOpened(const QUrl &url) { openedCopy = url.toLocalFile(); }

private Q_SLOTS:
    void initTestCase();
    void aVaultIsCreatedOnlyAtTheDrivesRootWithAGoodPassword();
    void onlyTheRightPasswordUnlocks();
    void foldersAreMadeAndEntered();
    void filesComeInAndNothingElseStartsMeanwhile();
    void anImportThatCannotBeIsRefused();
    void anExportedFileHasTheSameBytes();
    void namesStayAsTheyAre();
    void filesAndFoldersAreRenamedMovedAndDeleted();
    void headersSortAndTheMenuFollowsTheRow();
    void compactionAsksFirstAndTellsHowItEnded();
    void aVaultWhoseCopyCannotComeBackStaysOpen();
    void thePasswordIsChanged();
    void theBackupIsACopyElsewhere();
    void theChosenContainerKeepsItsDriveSelected();

private:
    /// Runs an action and answers its dialogs; returns what went wrong.
    QString act(const QString &action, const QList<DialogStep> &steps)
    {
        return drive([&] { w->trigger(action); }, steps);
    }
    QString unlock() { return act(u"unlock"_s, {type(u"Senha do cofre"_s, u"Senha:"_s, password)}); }
    QString hostFile(const QString &name, const QByteArray &bytes)
    {
        writeFile(host.filePath(name), bytes);
        return host.filePath(name);
    }

    QTemporaryDir host;
    QTemporaryDir stick;
    const QString container = stick.filePath(u"tessarin.trvx"_s);
    const QByteArray photo = noise(300000, 7);
    QString password = u"uma senha boa"_s;
    QString openedCopy;
    std::unique_ptr<WindowHarness> w;
};

void WindowStoriesTest::initTestCase()
{
    w = std::make_unique<WindowHarness>(
        QList{DirectoryDevices::drive(u"PENDRIVE"_s, stick.path(), u"/dev/x1"_s)});
    QVERIFY(QDir(stick.path()).mkdir(u"sub"_s));
}

void WindowStoriesTest::aVaultIsCreatedOnlyAtTheDrivesRootWithAGoodPassword()
{
    const QString save = u"Criar container Tessarin"_s;
    const QString rootOnly =
        u"O cofre deve ser criado como arquivo .trvx diretamente na raiz da unidade USB selecionada."_s;
    const auto define = [](const QString &text) {
        return type(u"Definir senha do cofre"_s, u"Senha:"_s, text);
    };
    const auto confirm = [](const QString &text) {
        return type(u"Confirmar senha do cofre"_s, u"Senha:"_s, text);
    };

    for (const QString &name : {u"sub/cofre.trvx"_s, u"cofre.txt"_s})
        QCOMPARE(
            act(u"createVault"_s, {pick(save, {stick.filePath(name)}), told(rootOnly, u"Criar cofre"_s)}),
            QString());
    QCOMPARE(
        act(u"createVault"_s, {pick(save, {stick.filePath(u"COFRE.TRVX"_s)}), define(u"onze letras"_s),
                               confirm(u"onze letras"_s),
                               told(u"Use uma senha com pelo menos 12 caracteres para criar o cofre."_s)}),
        QString());
    QCOMPARE(act(u"createVault"_s, {pick(save, {container}), define(password), confirm(u"outra senha boa"_s),
                                    told(u"As senhas informadas não coincidem."_s)}),
             QString());
    QVERIFY(!QFile::exists(container) && w->label(u"container"_s) == u"Container: nenhum"_s);

    QCOMPARE(act(u"createVault"_s, {pick(save, {container}), define(password), confirm(password)}),
             QString());
    QCOMPARE(w->status(), u"Cofre criado com sucesso."_s);
    QVERIFY(QFile::exists(container));
    QCOMPARE(w->label(u"container"_s), u"Container: Tessarin"_s);
}

void WindowStoriesTest::onlyTheRightPasswordUnlocks()
{
    QCOMPARE(
        act(u"unlock"_s, {type(u"Senha do cofre"_s, u"Senha:"_s, u"uma senha errada"_s),
                          told(u"Não foi possível desbloquear o cofre. Verifique a senha ou se o container "
                               "foi alterado."_s)}),
        QString());
    QVERIFY(!w->padlock.isChecked());

    QCOMPARE(unlock(), QString());
    QCOMPARE(w->status(), u"Cofre desbloqueado."_s);
    QCOMPARE(w->label(u"protectedFiles"_s), u"Arquivos protegidos | Pasta: Raiz | O cofre está vazio."_s);
}

void WindowStoriesTest::foldersAreMadeAndEntered()
{
    const QString title = u"Nova pasta"_s;
    const auto name = [&](const QString &text) { return type(title, u"Nome da pasta:"_s, text); };
    const auto simple =
        told(u"Use um nome de pasta simples, sem barras, pontos isolados ou caminho relativo."_s, title);

    QCOMPARE(act(u"createDirectory"_s, {name(u"a/b"_s), simple}), QString());
    QCOMPARE(act(u"createDirectory"_s, {name(u" .. "_s), simple}), QString());
    QCOMPARE(act(u"createDirectory"_s, {name(u"  "_s)}), QString());
    QCOMPARE(act(u"createDirectory"_s, {name(u"  Docs "_s)}), QString());
    QCOMPARE(w->status(), u"Pasta criada."_s);
    QCOMPARE(act(u"createDirectory"_s,
                 {name(u"DOCS"_s), told(u"Já existe um item com esse nome nesta pasta."_s, title)}),
             QString());

    w->click(u"Docs"_s, true);
    QCOMPARE(act(u"createDirectory"_s, {name(u"2024"_s)}), QString());
    QCOMPARE(w->rows(), (QStringList{u".."_s, u"2024"_s}));
    w->click(u".."_s, true);
    QCOMPARE(w->rows(), QStringList{u"Docs"_s});
}

void WindowStoriesTest::filesComeInAndNothingElseStartsMeanwhile()
{
    const QString title = u"Importar arquivos para o cofre"_s;
    const QString path = hostFile(u"Foto.JPG"_s, photo);
    const QString other = hostFile(u"nota.txt"_s, "nota");

    bool stayed = false;
    const DialogStep meddle{u"Importar arquivos"_s,
                            {},
                            [&](QWidget &progress) {
                                w->trigger(u"import"_s);
                                w->trigger(u"lock"_s);
                                w->click(u"Docs"_s, true);
                                QTest::keyClick(&progress, Qt::Key_Escape);
                                progress.close();
                                w->window.close();
                                stayed = progress.isVisible() && w->window.isVisible();
                            },
                            true};
    QCOMPARE(act(u"import"_s, {pick(title, {path, other}), meddle}), QString());
    QVERIFY(stayed);
    QCOMPARE(w->status(), u"2 arquivos importados com sucesso."_s);
    QCOMPARE(w->rows(), (QStringList{u"Docs"_s, u"Foto.JPG"_s, u"nota.txt"_s}));

    const QString again = hostFile(u"foto.jpg"_s, "outra");
    const QString question = u"foto.jpg já existe no cofre. Deseja substituir o arquivo protegido?"_s;
    QCOMPARE(act(u"import"_s, {pick(title, {again}), press(u"Substituir arquivo"_s, question, u"Não"_s)}),
             QString());
    QCOMPARE(w->status(), u"0 arquivos importados com sucesso."_s);
    QCOMPARE(act(u"import"_s, {pick(title, {other}), press(u"Substituir arquivo"_s, {}, u"Sim"_s)}),
             QString());
    QCOMPARE(w->status(), u"Arquivo importado com sucesso."_s);
    QCOMPARE(w->rows().size(), 3);
}

void WindowStoriesTest::anImportThatCannotBeIsRefused()
{
    const QString title = u"Importar arquivos para o cofre"_s;
    const QString fleeting = hostFile(u"some.txt"_s, "x");
    DialogStep vanish = pick(title, {fleeting});
    vanish.answer = [choose = vanish.answer, fleeting](QWidget &dialog) {
        choose(dialog);
        QFile::remove(fleeting);
    };
    QCOMPARE(act(u"import"_s, {vanish, told(u"O arquivo some.txt não está disponível para importação."_s,
                                            u"Importar arquivos"_s)}),
             QString());

    QFile huge(hostFile(u"enorme"_s, {}));
    if (huge.resize(qint64(8) << 40)) // A sparse file: it takes no room here.
        QCOMPARE(
            act(u"import"_s, {pick(title, {huge.fileName()}), press(u"Espaço insuficiente"_s, {}, u"OK"_s)}),
            QString());

    const QString good = hostFile(u"boa.txt"_s, "x");
    QVERIFY(QFile::rename(container, container + u".away"_s));
    QCOMPARE(act(u"import"_s, {pick(title, {good}), told(u"Não foi possível importar boa.txt."_s)}),
             QString());
    QVERIFY(QFile::rename(container + u".away"_s, container));
    QCOMPARE(w->status(), u"0 arquivos importados com sucesso."_s);
    QCOMPARE(w->rows().size(), 3);
}

void WindowStoriesTest::anExportedFileHasTheSameBytes()
{
    const QString warning = u"Exportar Foto.JPG criará uma cópia descriptografada fora do cofre. Alterações "
                            "feitas nessa cópia não voltam automaticamente para o Tessarin."_s;
    w->click(u"Foto.JPG"_s);
    QCOMPARE(act(u"export"_s, {press(u"Exportar arquivo"_s, warning, u"Cancelar"_s)}), QString());

    const DialogStep agree = press(u"Exportar arquivo"_s, warning, u"Continuar"_s);
    QCOMPARE(act(u"export"_s, {agree, pick(u"Exportar arquivo"_s, {host.filePath(u"saida.jpg"_s)})}),
             QString());
    QCOMPARE(w->status(), u"Arquivo exportado com sucesso."_s);
    QCOMPARE(readFile(host.filePath(u"saida.jpg"_s)), photo);

    QCOMPARE(act(u"export"_s, {agree, pick(u"Exportar arquivo"_s, {host.filePath(u"não/há/saida.jpg"_s)}),
                               told(u"Não foi possível exportar o arquivo."_s)}),
             QString());
    QCOMPARE(w->status(), u"Falha ao exportar o arquivo."_s);
}

void WindowStoriesTest::namesStayAsTheyAre()
{
    const QStringList names{u"100%1.txt"_s, u"%2.txt"_s, u"<img src=x>.txt"_s, u"&Arquivo.txt"_s,
                            QString(251, u'w') + u".txt"_s};
    for (const QString &name : names)
        hostFile(name, "x");
    QStringList paths;
    for (const QString &name : names)
        paths += host.filePath(name);
    QCOMPARE(act(u"import"_s, {pick(u"Importar arquivos para o cofre"_s, paths)}), QString());
    QCOMPARE(w->status(), u"5 arquivos importados com sucesso."_s);

    for (const QString &name : names) {
        QVERIFY2(w->rows().contains(name), qPrintable(name));
        w->click(name);
        const QString question = u"Excluir "_s + name +
                                 u" removerá o arquivo da lista do cofre.\n\nOs dados físicos só serão "
                                 u"liberados do container após "
                                 "executar Compactar cofre."_s;
        DialogStep remove = press(u"Excluir arquivo"_s, question, u"Sim"_s);
        remove.answer = [answer = remove.answer](QWidget &box) {
            QVERIFY(box.width() < 1200);
            QVERIFY(static_cast<QMessageBox &>(box).textFormat() == Qt::PlainText);
            answer(box);
        };
        QCOMPARE(act(u"deleteFile"_s, {remove}), QString());
        QCOMPARE(w->status(), u"Arquivo excluído do cofre."_s);
    }
}

void WindowStoriesTest::filesAndFoldersAreRenamedMovedAndDeleted()
{
    const QString clash = u"Já existe um item com esse nome nesta pasta."_s;
    const auto file = [](const QString &text) { return type(u"Renomear arquivo"_s, u"Novo nome:"_s, text); };
    const auto folder = [](const QString &text) { return type(u"Renomear pasta"_s, u"Novo nome:"_s, text); };
    const auto into = [](const QString &choice) {
        return DialogStep{u"Mover arquivo"_s, u"Mover carta.txt para:"_s, [choice](QWidget &dialog) {
                              dialog.findChild<QComboBox *>()->setCurrentText(choice);
                              clickButton(dialog, u"Mover"_s);
                          }};
    };

    w->click(u"nota.txt"_s);
    QCOMPARE(
        act(u"renameFile"_s, {file(u"a\\b"_s), told(u"Use um nome de arquivo simples, sem barras, pontos "
                                                    "isolados ou caminho relativo."_s,
                                                    u"Renomear arquivo"_s)}),
        QString());
    QCOMPARE(act(u"renameFile"_s, {file(u"docs"_s), told(clash, u"Renomear arquivo"_s)}), QString());
    QCOMPARE(act(u"renameFile"_s, {file(u" carta.txt "_s)}), QString());
    QCOMPARE(w->status(), u"Arquivo renomeado."_s);

    w->click(u"carta.txt"_s);
    QCOMPARE(act(u"moveFile"_s, {into(u"Docs"_s)}), QString());
    QCOMPARE(w->status(), u"Arquivo movido."_s);
    QCOMPARE(w->rows(), (QStringList{u"Docs"_s, u"Foto.JPG"_s}));

    w->click(u"Docs"_s);
    QCOMPARE(act(u"renameDirectory"_s, {folder(u"foto.jpg"_s), told(clash, u"Renomear pasta"_s)}), QString());
    QCOMPARE(act(u"renameDirectory"_s, {folder(u"Papéis"_s)}), QString());
    QCOMPARE(w->status(), u"Pasta renomeada."_s);
    w->click(u"Papéis"_s);
    QCOMPARE(act(u"deleteDirectory"_s,
                 {press(u"Excluir pasta"_s, u"Excluir a pasta vazia Papéis?"_s, u"Sim"_s),
                  told(u"A pasta não está vazia ou não pode ser excluída."_s, u"Excluir pasta"_s)}),
             QString());

    w->click(u"Papéis"_s, true);
    QCOMPARE(w->rows(), (QStringList{u".."_s, u"2024"_s, u"carta.txt"_s}));
    w->click(u"carta.txt"_s);
    QCOMPARE(act(u"moveFile"_s, {into(u"Raiz"_s)}), QString());
    w->click(u"2024"_s);
    QCOMPARE(act(u"deleteDirectory"_s,
                 {press(u"Excluir pasta"_s, u"Excluir a pasta vazia Papéis/2024?"_s, u"Sim"_s)}),
             QString());
    QCOMPARE(w->status(), u"Pasta excluída."_s);
    QCOMPARE(w->label(u"protectedFiles"_s), u"Arquivos protegidos | Pasta: Papéis | 2 arquivos no cofre."_s);
    w->click(u".."_s, true);
    QCOMPARE(w->rows(), (QStringList{u"Papéis"_s, u"carta.txt"_s, u"Foto.JPG"_s}));
}

void WindowStoriesTest::headersSortAndTheMenuFollowsTheRow()
{
    QHeaderView *header = w->table.horizontalHeader();
    const auto clickHeader = [&](int column) {
        QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                          {header->sectionViewportPosition(column) + 5, header->height() / 2});
    };
    clickHeader(0);
    QCOMPARE(header->sortIndicatorSection(), 1);
    clickHeader(2);
    clickHeader(2);
    QCOMPARE(w->rows(), (QStringList{u"Papéis"_s, u"Foto.JPG"_s, u"carta.txt"_s}));
    QVERIFY(header->sortIndicatorSection() == 2 && header->sortIndicatorOrder() == Qt::DescendingOrder);
    clickHeader(1);

    const auto menuAt = [&](const QString &row) {
        QString entries;
        const DialogStep read{{}, {}, [&entries](QWidget &menu) {
                                  for (const QAction *action : menu.actions())
                                      entries += action->isSeparator() ? u"|"_s : action->text() + u' ';
                                  menu.close();
                              }};
        const QPoint place = w->table.visualItemRect(w->table.item(int(w->rows().indexOf(row)), 2)).center();
        const QString wrong = drive([&] { Q_EMIT w->table.customContextMenuRequested(place); }, {read});
        return wrong + entries;
    };
    QCOMPARE(menuAt(u"Foto.JPG"_s),
             u"Nova pasta... Renomear pasta... Excluir pasta vazia |Importar... Exportar... Abrir "
             "Mover para pasta... Renomear arquivo... |Excluir... "_s);
    QVERIFY(w->action(u"export"_s)->isEnabled());
    QCOMPARE(menuAt(u"Papéis"_s),
             u"Nova pasta... Renomear pasta... Excluir pasta vazia |Importar... Exportar... Abrir "
             "|Excluir... "_s);
    QVERIFY(w->action(u"renameDirectory"_s)->isEnabled() && !w->action(u"export"_s)->isEnabled());
}

void WindowStoriesTest::compactionAsksFirstAndTellsHowItEnded()
{
    const QString title = u"Compactar cofre"_s;
    const QString question =
        u"A compactação reconstruirá o container removendo fisicamente dados de arquivos já "
        u"excluídos.\n\nDurante a "
        "operação, será criado temporariamente um container criptografado no disco local. Nenhum arquivo "
        "descriptografado será gravado fora do cofre.\n\nDeseja continuar?"_s;
    const qint64 formerBytes = QFileInfo(container).size();

    QCOMPARE(act(u"compact"_s, {press(title, question, u"Não"_s)}), QString());
    QCOMPARE(QFileInfo(container).size(), formerBytes);
    QCOMPARE(act(u"compact"_s,
                 {press(title, question, u"Sim"_s), told(u"Cofre compactado com sucesso."_s, title)}),
             QString());
    QCOMPARE(w->status(), u"Cofre compactado com sucesso."_s);
    QVERIFY(QFileInfo(container).size() < formerBytes);

    QVERIFY(QFile::rename(container, container + u".away"_s));
    QCOMPARE(act(u"compact"_s,
                 {press(title, question, u"Sim"_s), told(u"Não foi possível compactar o cofre."_s, title)}),
             QString());
    QVERIFY(QFile::rename(container + u".away"_s, container));
    QCOMPARE(w->status(), u"Falha ao compactar o cofre."_s);
    QCOMPARE(w->rows().size(), 3);
}

void WindowStoriesTest::aVaultWhoseCopyCannotComeBackStaysOpen()
{
    QDesktopServices::setUrlHandler(u"file"_s, this, "rememberOpened");
    w->click(u"Foto.JPG"_s, true);
    QDesktopServices::unsetUrlHandler(u"file"_s);
    QCOMPARE(w->status(), u"Arquivo aberto para edição."_s);
    QCOMPARE(readFile(openedCopy), photo);

    // A directory in the copy's place is newer than it, and cannot be imported.
    QTest::qWait(20);
    QVERIFY(QFile::remove(openedCopy) && QDir().mkpath(openedCopy));
    QCOMPARE(act(u"lock"_s, {told(u"Não foi possível limpar a área temporária."_s)}), QString());
    QVERIFY(w->padlock.isChecked());
    QCOMPARE(w->rows().size(), 3);
    QCOMPARE(drive([&] { w->window.close(); }, {told(u"Não foi possível bloquear o cofre."_s)}), QString());
    QVERIFY(w->window.isVisible() && w->padlock.isChecked());

    QVERIFY(QDir().rmdir(openedCopy));
    writeFile(openedCopy, "editada");
    w->click(u"Papéis"_s, true);
    QCOMPARE(act(u"lock"_s, {}), QString());
    QCOMPARE(w->status(), u"Cofre bloqueado."_s);
    QVERIFY(w->table.rowCount() == 0 && !QFile::exists(openedCopy));

    QCOMPARE(unlock(), QString());
    QCOMPARE(w->rows(), (QStringList{u"Papéis"_s, u"carta.txt"_s, u"Foto.JPG"_s}));
    w->click(u"Foto.JPG"_s);
    QCOMPARE(act(u"export"_s, {press(u"Exportar arquivo"_s, {}, u"Continuar"_s),
                               pick(u"Exportar arquivo"_s, {host.filePath(u"editada.jpg"_s)})}),
             QString());
    QCOMPARE(readFile(host.filePath(u"editada.jpg"_s)), "editada");
    QCOMPARE(act(u"lock"_s, {}), QString());
}

void WindowStoriesTest::thePasswordIsChanged()
{
    const auto form = [](const QString &current, const QString &next, const QString &repeated) {
        return DialogStep{u"Alterar senha do cofre"_s, {}, [=](QWidget &dialog) {
                              dialog.findChild<QLineEdit *>(u"currentPasswordEdit"_s)->setText(current);
                              dialog.findChild<QLineEdit *>(u"newPasswordEdit"_s)->setText(next);
                              dialog.findChild<QLineEdit *>(u"confirmationEdit"_s)->setText(repeated);
                              clickButton(dialog, u"Alterar"_s);
                          }};
    };
    const QString title = u"Alterar senha"_s;
    const QString next = u"doze letras!"_s;
    QCOMPARE(
        act(u"changePassword"_s,
            {form({}, next, next), told(u"Informe a senha atual."_s, title),
             form(password, u"onze letras"_s, u"onze letras"_s),
             told(u"Use uma nova senha com pelo menos 12 caracteres."_s, title), form(password, next, u"x"_s),
             told(u"A confirmação não coincide com a nova senha."_s, title), form(u"errada"_s, next, next),
             told(u"Não foi possível alterar a senha. Verifique a senha atual e tente novamente."_s)}),
        QString());
    QCOMPARE(w->status(), u"Falha ao alterar a senha."_s);
    QCOMPARE(act(u"changePassword"_s, {form(password, next, next), told(u"Senha alterada com sucesso."_s)}),
             QString());

    password = next;
    QCOMPARE(unlock(), QString());
    QCOMPARE(act(u"lock"_s, {}), QString());
}

void WindowStoriesTest::theBackupIsACopyElsewhere()
{
    const QString save = u"Fazer backup do container"_s;
    const QString title = u"Fazer backup"_s;
    const QByteArray bytes = readFile(container);
    std::filesystem::create_symlink(container.toStdString(), host.filePath(u"atalho.trvx"_s).toStdString());
    std::filesystem::create_hard_link(container.toStdString(), stick.filePath(u"outro.trvx"_s).toStdString());
    for (const QString &path :
         {container, host.filePath(u"atalho.trvx"_s), stick.filePath(u"outro.trvx"_s)}) {
        QCOMPARE(act(u"backup"_s, {pick(save, {path}), press(save, {}, u"Yes"_s),
                                   told(u"Escolha um destino diferente do container original."_s, title)}),
                 QString());
    }
    const QString copy = host.filePath(u"copia.trvx"_s);
    QCOMPARE(act(u"backup"_s,
                 {pick(save, {copy}),
                  told(u"Backup concluído com sucesso.\n\nO arquivo de backup é uma cópia criptografada do "
                       "container e permanece protegido pela senha do cofre."_s,
                       title)}),
             QString());
    QCOMPARE(w->status(), u"Backup do container concluído."_s);
    QVERIFY(readFile(copy) == bytes && readFile(container) == bytes);
}

void WindowStoriesTest::theChosenContainerKeepsItsDriveSelected()
{
    QTemporaryDir second;
    QListWidget &list = w->deviceList;
    const auto current = [&] {
        const bool oneMind = list.selectedItems() ==
                             (list.currentItem() ? QList{list.currentItem()} : QList<QListWidgetItem *>());
        return oneMind ? list.currentRow() : -2;
    };
    w->drives->prepend(DirectoryDevices::drive(u"SEGUNDO"_s, second.path(), u"/dev/x2"_s));
    w->drives->append(DirectoryDevices::drive(u"FECHADO"_s, {}, u"/dev/x3"_s));
    w->trigger(u"refreshDevices"_s);
    QCOMPARE(current(), 1);
    QCOMPARE(list.item(1)->toolTip(), u"Dispositivo associado ao container selecionado."_s);
    QCOMPARE(list.item(2)->text(), u"FECHADO (/dev/x3) | não montado"_s);
    QVERIFY(!(list.item(2)->flags() & Qt::ItemIsSelectable));

    for (const int row : {0, 2, 1}) {
        QTest::mouseClick(list.viewport(), Qt::LeftButton, {}, list.visualItemRect(list.item(row)).center());
        QCOMPARE(current(), 1);
    }
    const QString none =
        u"Nenhum tessarin.trvx foi encontrado em %1. Use Criar cofre para criar um novo container."_s;
    QCOMPARE(drive([&] { Q_EMIT list.itemDoubleClicked(list.item(0)); }, {told(none.arg(second.path()))}),
             QString());
    QCOMPARE(current(), 1);

    w->drives->removeAt(1);
    w->trigger(u"refreshDevices"_s);
    QCOMPARE(current(), -1);
    QCOMPARE(w->label(u"container"_s), u"Container: Tessarin"_s);

    // Without a container people choose among several drives; the only one is chosen for them.
    const auto alone = DirectoryDevices::drive(u"A"_s, second.path(), u"/dev/x2"_s);
    QCOMPARE(WindowHarness({alone}).deviceList.currentRow(), 0);
    QCOMPARE(WindowHarness({alone, DirectoryDevices::drive(u"B"_s, stick.path(), u"/dev/x1"_s)})
                 .deviceList.currentRow(),
             -1);
    QCOMPARE(WindowHarness({}).deviceList.item(0)->text(), u"Nenhum dispositivo USB detectado."_s);
}

QTEST_MAIN(WindowStoriesTest)
#include "tst_window_stories.moc"
