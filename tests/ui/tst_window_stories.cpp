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
    void initTestCase()
    {
        w = std::make_unique<WindowHarness>(
            QList{DirectoryDevices::drive(u"PENDRIVE"_s, stick.path(), u"/dev/x1"_s)});
        QVERIFY(QDir(stick.path()).mkdir(u"sub"_s));
    }

    void aVaultIsCreatedOnlyAtTheDrivesRootWithAGoodPassword()
    {
        const QString save = u"Criar container Tessarin"_s;
        const QString rootOnly =
            u"O cofre deve ser criado como arquivo .trvx diretamente na raiz da unidade USB selecionada."_s;
        const auto define = [](const QString &text) { return type(u"Definir senha do cofre"_s, {}, text); };
        const auto confirm = [](const QString &text) {
            return type(u"Confirmar senha do cofre"_s, {}, text);
        };

        for (const QString &name : {u"sub/cofre.trvx"_s, u"cofre.txt"_s})
            act(u"createVault"_s, {pick(save, {stick.filePath(name)}), told(rootOnly, u"Criar cofre"_s)});
        act(u"createVault"_s, {pick(save, {stick.filePath(u"COFRE.TRVX"_s)}), define(u"onze letras"_s),
                               confirm(u"onze letras"_s),
                               told(u"Use uma senha com pelo menos 12 caracteres para criar o cofre."_s)});
        act(u"createVault"_s, {pick(save, {container}), define(password), confirm(u"outra senha boa"_s),
                               told(u"As senhas informadas não coincidem."_s)});
        QVERIFY(!QFile::exists(container) && w->label(u"container"_s) == u"Container: nenhum"_s);

        act(u"createVault"_s, {pick(save, {container}), define(password), confirm(password)},
            u"Cofre criado com sucesso."_s);
        QVERIFY(QFile::exists(container));
        QCOMPARE(w->label(u"container"_s), u"Container: Tessarin"_s);
    }

    void onlyTheRightPasswordUnlocks()
    {
        act(u"unlock"_s, {type(u"Senha do cofre"_s, u"Senha:"_s, u"uma senha errada"_s),
                          told(u"Não foi possível desbloquear o cofre. Verifique a senha ou se o container "
                               "foi alterado."_s)});
        QVERIFY(!w->padlock.isChecked());

        unlock();
        QCOMPARE(w->status(), u"Cofre desbloqueado."_s);
        QCOMPARE(w->label(u"protectedFiles"_s), u"Arquivos protegidos | Pasta: Raiz | O cofre está vazio."_s);
    }

    void foldersAreMadeAndEntered()
    {
        const QString title = u"Nova pasta"_s;
        const auto name = [&](const QString &text) { return type(title, u"Nome da pasta:"_s, text); };
        const auto simple =
            told(u"Use um nome de pasta simples, sem barras, pontos isolados ou caminho relativo."_s, title);

        act(u"createDirectory"_s, {name(u"a/b"_s), simple});
        act(u"createDirectory"_s, {name(u" .. "_s), simple});
        act(u"createDirectory"_s, {name(u"  "_s)});
        act(u"createDirectory"_s, {name(u"  Docs "_s)}, u"Pasta criada."_s);
        act(u"createDirectory"_s,
            {name(u"DOCS"_s), told(u"Já existe um item com esse nome nesta pasta."_s, title)});

        w->click(u"Docs"_s, true);
        act(u"createDirectory"_s, {name(u"2024"_s)});
        QCOMPARE(w->rows(), (QStringList{u".."_s, u"2024"_s}));
        w->click(u".."_s, true);
        QCOMPARE(w->rows(), QStringList{u"Docs"_s});
    }

    void filesComeInAndNothingElseStartsMeanwhile()
    {
        const QString title = u"Importar arquivos para o cofre"_s;
        const QString path = hostFile(u"Foto.JPG"_s, photo);
        const QString other = hostFile(u"nota.txt"_s, "nota");

        bool stayed = false;
        DialogStep meddle = told({}, u"Importar arquivos"_s);
        meddle.isProgress = true;
        meddle.answer = [&](QWidget &progress) {
            w->trigger(u"import"_s);
            w->trigger(u"lock"_s);
            w->click(u"Docs"_s, true);
            QTest::keyClick(&progress, Qt::Key_Escape);
            progress.close();
            w->window.close();
            stayed = progress.isVisible() && w->window.isVisible();
        };
        act(u"import"_s, {pick(title, {path, other}), meddle}, u"2 arquivos importados com sucesso."_s);
        QVERIFY(stayed);
        QCOMPARE(w->rows(), (QStringList{u"Docs"_s, u"Foto.JPG"_s, u"nota.txt"_s}));

        const QString again = hostFile(u"foto.jpg"_s, "outra");
        const QString question = u"foto.jpg já existe no cofre. Deseja substituir o arquivo protegido?"_s;
        act(u"import"_s, {pick(title, {again}), press(u"Substituir arquivo"_s, question, u"Não"_s)},
            u"0 arquivos importados com sucesso."_s);
        act(u"import"_s, {pick(title, {other}), press(u"Substituir arquivo"_s, {}, u"Sim"_s)},
            u"Arquivo importado com sucesso."_s);
        QCOMPARE(w->rows().size(), 3);
    }

    void anImportThatCannotBeIsRefused()
    {
        const QString title = u"Importar arquivos para o cofre"_s;
        const QString fleeting = hostFile(u"some.txt"_s, "x");
        DialogStep vanish = pick(title, {fleeting});
        vanish.answer = [choose = vanish.answer, fleeting](QWidget &dialog) {
            choose(dialog);
            QFile::remove(fleeting);
        };
        act(u"import"_s, {vanish, told(u"O arquivo some.txt não está disponível para importação."_s,
                                       u"Importar arquivos"_s)});

        QFile huge(hostFile(u"enorme"_s, {}));
        if (huge.resize(qint64(8) << 40)) // A sparse file: it takes no room here.
            act(u"import"_s, {pick(title, {huge.fileName()}), press(u"Espaço insuficiente"_s, {}, u"OK"_s)});

        const QString good = hostFile(u"boa.txt"_s, "x");
        QVERIFY(QFile::rename(container, container + u".away"_s));
        act(u"import"_s, {pick(title, {good}), told(u"Não foi possível importar boa.txt."_s)});
        QVERIFY(QFile::rename(container + u".away"_s, container));
        QCOMPARE(w->status(), u"0 arquivos importados com sucesso."_s);
        QCOMPARE(w->rows().size(), 3);
    }

    void anExportedFileHasTheSameBytes()
    {
        const QString warning =
            u"Exportar Foto.JPG criará uma cópia descriptografada fora do cofre. Alterações "
            "feitas nessa cópia não voltam automaticamente para o Tessarin."_s;
        w->click(u"Foto.JPG"_s);
        act(u"export"_s, {press(u"Exportar arquivo"_s, warning, u"Cancelar"_s)});

        const DialogStep agree = press(u"Exportar arquivo"_s, warning, u"Continuar"_s);
        act(u"export"_s, {agree, pick(u"Exportar arquivo"_s, {host.filePath(u"saida.jpg"_s)})},
            u"Arquivo exportado com sucesso."_s);
        QCOMPARE(readFile(host.filePath(u"saida.jpg"_s)), photo);

        act(u"export"_s,
            {agree, pick(u"Exportar arquivo"_s, {host.filePath(u"não/há/saida.jpg"_s)}),
             told(u"Não foi possível exportar o arquivo."_s)},
            u"Falha ao exportar o arquivo."_s);
    }

    void namesStayAsTheyAre()
    {
        const QStringList names{u"100%1.txt"_s, u"%2.txt"_s, u"<img src=x>.txt"_s, u"&Arquivo.txt"_s,
                                QString(251, u'w') + u".txt"_s};
        QStringList paths;
        for (const QString &name : names)
            paths += hostFile(name, "x");
        act(u"import"_s, {pick(u"Importar arquivos para o cofre"_s, paths)},
            u"5 arquivos importados com sucesso."_s);

        for (const QString &name : names) {
            w->click(name);
            const QString question = u"Excluir "_s + name +
                                     u" removerá o arquivo da lista do cofre.\n\nOs dados físicos só serão "
                                     "liberados do container após executar Compactar cofre."_s;
            DialogStep remove = press(u"Excluir arquivo"_s, question, u"Sim"_s);
            remove.answer = [answer = remove.answer](QWidget &box) {
                QVERIFY(box.width() < 1200);
                QVERIFY(static_cast<QMessageBox &>(box).textFormat() == Qt::PlainText);
                answer(box);
            };
            act(u"deleteFile"_s, {remove}, u"Arquivo excluído do cofre."_s);
        }
    }

    void filesAndFoldersAreRenamedMovedAndDeleted()
    {
        const QString clash = u"Já existe um item com esse nome nesta pasta."_s;
        const auto file = [](const QString &text) { return type(u"Renomear arquivo"_s, {}, text); };
        const auto folder = [](const QString &text) { return type(u"Renomear pasta"_s, {}, text); };
        const auto into = [](const QString &choice) {
            return DialogStep{u"Mover arquivo"_s, u"Mover carta.txt para:"_s, [choice](QWidget &dialog) {
                                  dialog.findChild<QComboBox *>()->setCurrentText(choice);
                                  clickButton(dialog, u"Mover"_s);
                              }};
        };

        w->click(u"nota.txt"_s);
        act(u"renameFile"_s, {file(u"a\\b"_s), told(u"Use um nome de arquivo simples, sem barras, pontos "
                                                    "isolados ou caminho relativo."_s,
                                                    u"Renomear arquivo"_s)});
        act(u"renameFile"_s, {file(u"docs"_s), told(clash, u"Renomear arquivo"_s)});
        act(u"renameFile"_s, {file(u" carta.txt "_s)}, u"Arquivo renomeado."_s);

        w->click(u"carta.txt"_s);
        act(u"moveFile"_s, {into(u"Docs"_s)}, u"Arquivo movido."_s);
        QCOMPARE(w->rows(), (QStringList{u"Docs"_s, u"Foto.JPG"_s}));

        w->click(u"Docs"_s);
        act(u"renameDirectory"_s, {folder(u"foto.jpg"_s), told(clash, u"Renomear pasta"_s)});
        act(u"renameDirectory"_s, {folder(u"Papéis"_s)}, u"Pasta renomeada."_s);
        w->click(u"Papéis"_s);
        act(u"deleteDirectory"_s,
            {press(u"Excluir pasta"_s, u"Excluir a pasta vazia Papéis?"_s, u"Sim"_s),
             told(u"A pasta não está vazia ou não pode ser excluída."_s, u"Excluir pasta"_s)});

        w->click(u"Papéis"_s, true);
        QCOMPARE(w->rows(), (QStringList{u".."_s, u"2024"_s, u"carta.txt"_s}));
        w->click(u"carta.txt"_s);
        act(u"moveFile"_s, {into(u"Raiz"_s)});
        w->click(u"2024"_s);
        act(u"deleteDirectory"_s,
            {press(u"Excluir pasta"_s, u"Excluir a pasta vazia Papéis/2024?"_s, u"Sim"_s)},
            u"Pasta excluída."_s);
        QCOMPARE(w->label(u"protectedFiles"_s),
                 u"Arquivos protegidos | Pasta: Papéis | 2 arquivos no cofre."_s);
        w->click(u".."_s, true);
        QCOMPARE(w->rows(), (QStringList{u"Papéis"_s, u"carta.txt"_s, u"Foto.JPG"_s}));
    }

    void headersSortAndTheMenuFollowsTheRow()
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
            const QPoint place =
                w->table.visualItemRect(w->table.item(int(w->rows().indexOf(row)), 2)).center();
            drive([&] { Q_EMIT w->table.customContextMenuRequested(place); }, {read});
            return entries;
        };
        const QString folders = u"Nova pasta... Renomear pasta... Excluir pasta vazia |"_s;
        const QString files = u"Importar... Exportar... Abrir "_s;
        QCOMPARE(menuAt(u"Foto.JPG"_s),
                 folders + files + u"Mover para pasta... Renomear arquivo... |Excluir... "_s);
        QVERIFY(w->action(u"export"_s)->isEnabled());
        QCOMPARE(menuAt(u"Papéis"_s), folders + files + u"|Excluir... "_s);
        QVERIFY(w->action(u"renameDirectory"_s)->isEnabled() && !w->action(u"export"_s)->isEnabled());
    }

    void compactionAsksFirstAndTellsHowItEnded()
    {
        const QString title = u"Compactar cofre"_s;
        const QString question =
            u"A compactação reconstruirá o container removendo fisicamente dados de arquivos já "
            "excluídos.\n\nDurante a operação, será criado temporariamente um container criptografado no "
            "disco local. Nenhum arquivo "
            "descriptografado será gravado fora do cofre.\n\nDeseja continuar?"_s;
        const qint64 formerBytes = QFileInfo(container).size();

        act(u"compact"_s, {press(title, question, u"Não"_s)});
        QCOMPARE(QFileInfo(container).size(), formerBytes);
        act(u"compact"_s, {press(title, question, u"Sim"_s), told(u"Cofre compactado com sucesso."_s, title)},
            u"Cofre compactado com sucesso."_s);
        QVERIFY(QFileInfo(container).size() < formerBytes);

        QVERIFY(QFile::rename(container, container + u".away"_s));
        act(u"compact"_s,
            {press(title, question, u"Sim"_s), told(u"Não foi possível compactar o cofre."_s, title)});
        QVERIFY(QFile::rename(container + u".away"_s, container));
        QCOMPARE(w->status(), u"Falha ao compactar o cofre."_s);
        QCOMPARE(w->rows().size(), 3);
    }

    void aVaultWhoseCopyCannotComeBackStaysOpen()
    {
        QDesktopServices::setUrlHandler(u"file"_s, this, "rememberOpened");
        w->click(u"Foto.JPG"_s, true);
        QDesktopServices::unsetUrlHandler(u"file"_s);
        QCOMPARE(w->status(), u"Arquivo aberto para edição."_s);
        QCOMPARE(readFile(openedCopy), photo);

        // A directory in the copy's place is newer than it, and cannot be imported.
        QTest::qWait(20);
        QVERIFY(QFile::remove(openedCopy) && QDir().mkpath(openedCopy));
        act(u"lock"_s, {told(u"Não foi possível limpar a área temporária."_s)});
        QVERIFY(w->padlock.isChecked());
        QCOMPARE(w->rows().size(), 3);
        drive([&] { w->window.close(); }, {told(u"Não foi possível bloquear o cofre."_s)});
        QVERIFY(w->window.isVisible() && w->padlock.isChecked());

        QVERIFY(QDir().rmdir(openedCopy));
        writeFile(openedCopy, "editada");
        w->click(u"Papéis"_s, true);
        act(u"lock"_s, {}, u"Cofre bloqueado."_s);
        QVERIFY(w->table.rowCount() == 0 && !QFile::exists(openedCopy));

        unlock();
        QCOMPARE(w->rows(), (QStringList{u"Papéis"_s, u"carta.txt"_s, u"Foto.JPG"_s}));
        w->click(u"Foto.JPG"_s);
        act(u"export"_s, {press(u"Exportar arquivo"_s, {}, u"Continuar"_s),
                          pick(u"Exportar arquivo"_s, {host.filePath(u"editada.jpg"_s)})});
        QCOMPARE(readFile(host.filePath(u"editada.jpg"_s)), "editada");
        act(u"lock"_s, {});
    }

    void thePasswordIsChanged()
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
        act(u"changePassword"_s,
            {form({}, next, next), told(u"Informe a senha atual."_s, title),
             form(password, u"onze letras"_s, u"onze letras"_s),
             told(u"Use uma nova senha com pelo menos 12 caracteres."_s, title), form(password, next, u"x"_s),
             told(u"A confirmação não coincide com a nova senha."_s, title), form(u"errada"_s, next, next),
             told(u"Não foi possível alterar a senha. Verifique a senha atual e tente novamente."_s)},
            u"Falha ao alterar a senha."_s);
        act(u"changePassword"_s, {form(password, next, next), told(u"Senha alterada com sucesso."_s)});

        password = next;
        unlock();
        act(u"lock"_s, {});
    }

    void theBackupIsACopyElsewhere()
    {
        const QString save = u"Fazer backup do container"_s;
        const QString title = u"Fazer backup"_s;
        const QByteArray bytes = readFile(container);
        const QString symbolicLink = host.filePath(u"atalho.trvx"_s);
        const QString hardLink = stick.filePath(u"outro.trvx"_s);
        std::filesystem::create_symlink(container.toStdString(), symbolicLink.toStdString());
        std::filesystem::create_hard_link(container.toStdString(), hardLink.toStdString());
        for (const QString &path : {container, symbolicLink, hardLink}) {
            act(u"backup"_s, {pick(save, {path}), press(save, {}, u"Yes"_s),
                              told(u"Escolha um destino diferente do container original."_s, title)});
        }
        const QString copy = host.filePath(u"copia.trvx"_s);
        act(u"backup"_s,
            {pick(save, {copy}),
             told(u"Backup concluído com sucesso.\n\nO arquivo de backup é uma cópia criptografada do "
                  "container e permanece protegido pela senha do cofre."_s,
                  title)},
            u"Backup do container concluído."_s);
        QVERIFY(readFile(copy) == bytes && readFile(container) == bytes);
    }

    void theChosenContainerKeepsItsDriveSelected()
    {
        QTemporaryDir second;
        QListWidget &list = w->deviceList;
        // The current row, if it is the highlighted one.
        const auto current = [&list] {
            QList<QListWidgetItem *> expected{list.currentItem()};
            expected.removeAll(nullptr);
            return list.selectedItems() == expected ? list.currentRow() : -2;
        };
        w->drives->prepend(DirectoryDevices::drive(u"SEGUNDO"_s, second.path(), u"/dev/x2"_s));
        w->drives->append(DirectoryDevices::drive(u"FECHADO"_s, {}, u"/dev/x3"_s));
        w->trigger(u"refreshDevices"_s);
        QCOMPARE(current(), 1);
        QCOMPARE(list.item(1)->toolTip(), u"Dispositivo associado ao container selecionado."_s);
        QCOMPARE(list.item(2)->text(), u"FECHADO (/dev/x3) | não montado"_s);
        QVERIFY(!(list.item(2)->flags() & Qt::ItemIsSelectable));

        for (const int row : {0, 2, 1}) {
            QTest::mouseClick(list.viewport(), Qt::LeftButton, {},
                              list.visualItemRect(list.item(row)).center());
            QCOMPARE(current(), 1);
        }
        const QString none =
            u"Nenhum tessarin.trvx foi encontrado em %1. Use Criar cofre para criar um novo container."_s;
        drive([&] { Q_EMIT list.itemDoubleClicked(list.item(0)); }, {told(none.arg(second.path()))});
        QCOMPARE(current(), 1);

        w->drives->removeAt(1);
        w->trigger(u"refreshDevices"_s);
        QCOMPARE(current(), -1);
        QCOMPARE(w->label(u"container"_s), u"Container: Tessarin"_s);

        // Without a container people choose among several drives; the only one is chosen for them.
        const auto alone = DirectoryDevices::drive(u"A"_s, second.path(), u"/dev/x2"_s);
        QCOMPARE(WindowHarness({alone}).deviceList.currentRow(), 0);
        QCOMPARE(WindowHarness({alone, alone}).deviceList.currentRow(), -1);
        QCOMPARE(WindowHarness({}).deviceList.item(0)->text(), u"Nenhum dispositivo USB detectado."_s);
    }

private:
    /// Runs an action, answers its dialogs, and looks at the status bar.
    void act(const QString &action, const QList<DialogStep> &steps, const QString &status = {})
    {
        drive([&] { w->trigger(action); }, steps);
        if (!status.isEmpty())
            QCOMPARE(w->status(), status);
    }
    void unlock() { act(u"unlock"_s, {type(u"Senha do cofre"_s, u"Senha:"_s, password)}); }
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

QTEST_MAIN(WindowStoriesTest)
#include "tst_window_stories.moc"
