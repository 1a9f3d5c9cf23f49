// A day with the window: each story presses what people press, answers what they are asked, and looks at what
// they would see, in the window and on the drive. The stories follow one another on one vault.
#include "WindowHarness.h"
#include "core/HostFile.h"
#include "support/VaultFixture.h"

#include <QComboBox>
#include <QHeaderView>
#include <QMenu>
#include <QMessageBox>

#include <filesystem>

using namespace Tessarin::Tests;
using namespace Qt::Literals::StringLiterals;

class WindowStoriesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aVaultIsCreatedAtTheDrivesRootWithAGoodPassword()
    {
        const auto save = [](const QString &path) { return pick(u"Criar container Tessarin"_s, {path}); };
        const auto define = [](const QString &text) { return type(u"Definir senha do cofre"_s, {text}); };
        const auto confirm = [](const QString &text) { return type(u"Confirmar senha do cofre"_s, {text}); };

        QVERIFY(QDir(stick.path()).mkdir(u"sub"_s));
        for (const QString &name : {u"sub/cofre.trvx"_s, u"cofre.txt"_s})
            w.act(u"createVault"_s,
                  {save(stick.filePath(name)), told(u"O cofre deve ser"_s, u"Criar cofre"_s)});
        w.act(u"createVault"_s,
              {save(stick.filePath(u"COFRE.TRVX"_s)), define(u"onze letras"_s), confirm(u"onze letras"_s),
               told(u"Use uma senha com pelo menos 12 caracteres"_s)});
        w.act(u"createVault"_s, {save(container), define(password), confirm(u"outra senha boa"_s),
                                 told(u"As senhas informadas não coincidem."_s)});
        QVERIFY(!QFile::exists(container) && w.label(u"container"_s) == u"Container: nenhum"_s);

        w.act(u"createVault"_s, {save(container), define(password), confirm(password)},
              u"Cofre criado com sucesso."_s);
        w.act(u"unlock"_s, {type(u"Senha do cofre"_s, {u"uma senha errada"_s}),
                            told(u"Não foi possível desbloquear o cofre."_s)});
        QVERIFY(!w.padlock.isChecked());
        unlock(u"Cofre desbloqueado."_s);
    }

    void foldersAreMadeAndEntered()
    {
        const QString title = u"Nova pasta"_s;
        w.act(u"createDirectory"_s,
              {type(title, {u" .. "_s}), told(u"Use um nome de pasta simples"_s, title)});
        w.act(u"createDirectory"_s, {type(title, {u"  Docs "_s})}, u"Pasta criada."_s);
        w.act(u"createDirectory"_s, {type(title, {u"DOCS"_s}), told(u"Já existe um item"_s, title)});
        w.enter(u"Docs"_s);
        w.act(u"createDirectory"_s, {type(title, {u"2024"_s})});
        w.enter(u".."_s);
        QCOMPARE(w.rows(), QStringList{u"Docs"_s});
    }

    void filesComeInAndNothingElseStartsMeanwhile()
    {
        const QString path = hostFile(u"Foto.JPG"_s, photo);
        const QString other = hostFile(u"nota.txt"_s, "nota");
        bool stayed = false;
        const auto meddle = [&](QWidget &progress) {
            w.trigger(u"import"_s);
            w.trigger(u"lock"_s);
            QVERIFY(!w.drop({path}));
            w.enter(u"Docs"_s);
            QTest::keyClick(&progress, Qt::Key_Escape);
            progress.close();
            stayed = progress.isVisible();
        };
        w.act(u"import"_s, {choose({path, other}), {u"Importar arquivos"_s, {}, meddle}},
              u"2 arquivos importados com sucesso."_s);
        QVERIFY(stayed);

        w.act(u"import"_s, {choose({other}), press(u"Substituir arquivo"_s, u"nota.txt já"_s, u"Sim"_s)},
              u"Arquivo importado com sucesso."_s);
        QCOMPARE(w.rows(), (QStringList{u"Docs"_s, u"Foto.JPG"_s, u"nota.txt"_s}));
    }

    void anImportThatCannotBeIsRefused()
    {
        QFile huge(hostFile(u"enorme"_s, {}));
        if (huge.resize(qint64(8) << 40)) // A sparse file: it takes no room here.
            w.act(u"import"_s,
                  {choose({huge.fileName()}), told(u"Não há espaço"_s, u"Espaço insuficiente"_s)});

        const QString good = hostFile(u"boa.txt"_s, "x");
        QVERIFY(QFile::rename(container, container + u".away"_s));
        w.act(u"import"_s, {choose({good}), told(u"Não foi possível importar boa.txt."_s)},
              u"0 arquivos importados com sucesso."_s);
        QVERIFY(QFile::rename(container + u".away"_s, container));
        QCOMPARE(w.rows().size(), 3);
    }

    void filesAreDroppedWhereTheyAreToGo()
    {
        const QString path = host.filePath(u"nota.txt"_s);
        const auto drop = [&](const QString &row, const QList<DialogStep> &steps) {
            drive([&] { QVERIFY(w.drop({path}, row)); }, steps);
            return w.window.statusBar()->currentMessage();
        };
        const DialogStep keep = press(u"Substituir arquivo"_s, u"nota.txt já"_s, u"Não"_s);
        QCOMPARE(drop(u"nota.txt"_s, {keep}), u"0 arquivos importados com sucesso."_s);
        QCOMPARE(drop(u"Docs"_s, {}), u"Arquivo importado com sucesso."_s);
        w.enter(u"Docs"_s);
        QCOMPARE(w.rows(), (QStringList{u".."_s, u"2024"_s, u"nota.txt"_s}));
        drop(u".."_s, {keep});
        drive(
            [&] {
                QVERIFY(w.drop({path, host.path()}));
            },
            {told(u"Nada foi importado."_s, u"Importar arquivos"_s)});

        w.click(u"nota.txt"_s);
        w.act(u"deleteFile"_s, {press(u"Excluir arquivo"_s, {}, u"Sim"_s)});
        w.enter(u".."_s);
    }

    void anExportedFileHasTheSameBytes()
    {
        const QString title = u"Exportar arquivo"_s;
        w.click(u"Foto.JPG"_s);
        w.act(u"export"_s, {press(title, u"Exportar Foto.JPG criará uma cópia"_s, u"Cancelar"_s)});
        // Onto the container itself, of all things.
        w.act(u"export"_s,
              {press(title, {}, u"Continuar"_s), pick(title, {container}), press(title, {}, u"Yes"_s),
               told(u"Não foi possível exportar o arquivo."_s)},
              u"Falha ao exportar o arquivo."_s);
        QCOMPARE(exported(u"Foto.JPG"_s), photo);
    }

    void namesStayAsTheyAre()
    {
        const QStringList names{u"100%1.txt"_s, u"%2.txt"_s, u"<img src=x>.txt"_s, u"&Arquivo.txt"_s,
                                QString(251, u'w') + u".txt"_s};
        QStringList paths;
        for (const QString &name : names)
            paths += hostFile(name, "x");
        w.act(u"import"_s, {choose(paths)}, u"5 arquivos importados com sucesso."_s);

        for (const QString &name : names) {
            w.click(name);
            DialogStep remove = press(u"Excluir arquivo"_s, u"Excluir %1 removerá"_s.arg(name), u"Sim"_s);
            remove.answer = [answer = remove.answer](QWidget &box) {
                QVERIFY(box.width() < 1200);
                QVERIFY(static_cast<QMessageBox &>(box).textFormat() == Qt::PlainText);
                answer(box);
            };
            w.act(u"deleteFile"_s, {remove}, u"Arquivo excluído do cofre."_s);
        }
    }

    void filesAndFoldersAreRenamedMovedAndDeleted()
    {
        const QString clash = u"Já existe um item com esse nome nesta pasta."_s;
        const auto file = [](const QString &text) { return type(u"Renomear arquivo"_s, {text}); };
        const auto folder = [](const QString &text) { return type(u"Renomear pasta"_s, {text}); };
        const auto into = [](const QString &choice) {
            return DialogStep{u"Mover arquivo"_s, u"Mover carta.txt para:"_s, [choice](QWidget &dialog) {
                                  dialog.findChild<QComboBox *>()->setCurrentText(choice);
                                  press({}, {}, u"Mover"_s).answer(dialog);
                              }};
        };

        w.click(u"nota.txt"_s);
        w.act(u"renameFile"_s,
              {file(u"a\\b"_s), told(u"Use um nome de arquivo simples"_s, u"Renomear arquivo"_s)});
        w.act(u"renameFile"_s, {file(u"docs"_s), told(clash, u"Renomear arquivo"_s)});
        w.act(u"renameFile"_s, {file(u" carta.txt "_s)}, u"Arquivo renomeado."_s);
        w.click(u"carta.txt"_s);
        w.act(u"moveFile"_s, {into(u"Docs"_s)}, u"Arquivo movido."_s);

        w.click(u"Docs"_s);
        w.act(u"renameDirectory"_s, {folder(u"foto.jpg"_s), told(clash, u"Renomear pasta"_s)});
        w.act(u"renameDirectory"_s, {folder(u"Papéis"_s)}, u"Pasta renomeada."_s);
        w.click(u"Papéis"_s);
        w.act(u"deleteDirectory"_s,
              {press(u"Excluir pasta"_s, u"Excluir a pasta vazia Papéis?"_s, u"Sim"_s),
               told(u"A pasta não está vazia ou não pode ser excluída."_s, u"Excluir pasta"_s)});

        w.enter(u"Papéis"_s);
        QCOMPARE(w.rows(), (QStringList{u".."_s, u"2024"_s, u"carta.txt"_s}));
        w.click(u"carta.txt"_s);
        w.act(u"moveFile"_s, {into(u"Raiz"_s)});
        w.click(u"2024"_s);
        w.act(u"deleteDirectory"_s, {press(u"Excluir pasta"_s, {}, u"Sim"_s)}, u"Pasta excluída."_s);
        w.enter(u".."_s);
        QCOMPARE(w.rows(), (QStringList{u"Papéis"_s, u"carta.txt"_s, u"Foto.JPG"_s}));
    }

    void headersSortAndTheMenuFollowsTheRow()
    {
        const QHeaderView *header = w.table.horizontalHeader();
        const auto rowsByColumn = [&](int column) {
            const int x = header->sectionViewportPosition(column) + 5;
            QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, {x, header->height() / 2});
            return w.rows();
        };
        const QStringList byName = rowsByColumn(0);
        QCOMPARE(rowsByColumn(2), byName);
        QCOMPARE(rowsByColumn(2), (QStringList{u"Papéis"_s, u"Foto.JPG"_s, u"carta.txt"_s}));
        QCOMPARE(rowsByColumn(1), byName);

        QString entries;
        const DialogStep read{{}, {}, [&entries](QWidget &menu) {
                                  for (const QAction *action : menu.actions())
                                      entries += action->isSeparator() ? u"| "_s : action->text() + u' ';
                                  menu.close();
                              }};
        for (const QString &row : {u"Foto.JPG"_s, u"Papéis"_s})
            drive([&] { Q_EMIT w.table.customContextMenuRequested(w.placeOf(row)); }, {read});
        const QString folders = u"Nova pasta... Renomear pasta... Excluir pasta vazia | "_s;
        const QString files = u"Importar... Exportar... Abrir "_s;
        QCOMPARE(entries, folders + files + u"Mover para pasta... Renomear arquivo... | Excluir... "_s +
                              folders + files + u"| Excluir... "_s);
        QVERIFY(w.action(u"renameDirectory"_s)->isEnabled() && !w.action(u"export"_s)->isEnabled());
    }

    void compactionAsksFirstAndTellsHowItEnded()
    {
        const QString title = u"Compactar cofre"_s;
        const DialogStep agree = press(title, u"A compactação reconstruirá o container"_s, u"Sim"_s);
        const qint64 formerBytes = QFileInfo(container).size();

        w.act(u"compact"_s, {press(title, {}, u"Não"_s)});
        w.act(u"compact"_s, {agree, told(u"Cofre compactado com sucesso."_s, title)},
              u"Cofre compactado com sucesso."_s);
        QVERIFY(QFileInfo(container).size() < formerBytes);

        QVERIFY(QFile::rename(container, container + u".away"_s));
        w.act(u"compact"_s, {agree, told(u"Não foi possível compactar o cofre."_s, title)},
              u"Falha ao compactar o cofre."_s);
        QVERIFY(QFile::rename(container + u".away"_s, container));

        // Another program grows the new container while it is put in the old one's place.
        const QString former = stick.filePath(u"antigo.trvx"_s);
        const QString twin = stick.filePath(u"tessarin-compactado-1.trvx"_s);
        std::filesystem::create_hard_link(container.toStdString(), former.toStdString());
        const auto meddle = [&](QWidget &progress) {
            auto *timer = new QTimer(&progress);
            connect(timer, &QTimer::timeout, &progress, [&] {
                if (QFile::exists(container) && !Tessarin::Core::isSameFile(container, former))
                    QFile::resize(container, QFileInfo(container).size() + 1);
            });
            timer->start(0);
        };
        w.act(u"compact"_s,
              {agree,
               {title, {}, meddle},
               told(u"Não foi possível substituir o container no USB.\n\nUm container compactado "
                    "criptografado foi preservado em:\n"_s +
                        twin,
                    title)},
              u"Falha ao compactar o cofre."_s);
        QVERIFY(!QFile::exists(container) && QFile::rename(twin, container) && QFile::remove(former));
        QCOMPARE(w.rows().size(), 3);
    }

    void aVaultWhoseCopyCannotComeBackStaysOpen()
    {
        w.enter(u"Foto.JPG"_s);
        QCOMPARE(readFile(opened.path), photo);

        // A directory in the copy's place is newer than it, and cannot be imported.
        QTest::qWait(20);
        QVERIFY(QFile::remove(opened.path) && QDir().mkpath(opened.path));
        w.act(u"lock"_s, {told(u"Não foi possível limpar a área temporária."_s)});
        QVERIFY(w.padlock.isChecked());
        QCOMPARE(w.rows().size(), 3);
        drive([&] { w.window.close(); }, {told(u"Não foi possível bloquear o cofre."_s)});
        QVERIFY(w.window.isVisible() && w.padlock.isChecked());

        QVERIFY(QDir().rmdir(opened.path));
        writeFile(opened.path, "editada");
        w.enter(u"Papéis"_s);
        w.act(u"lock"_s, {}, u"Cofre bloqueado."_s);
        QVERIFY(w.table.rowCount() == 0 && !QFile::exists(opened.path));
        QVERIFY(!w.drop({host.filePath(u"nota.txt"_s)}));
        QCOMPARE(w.window.statusBar()->currentMessage(), u"Desbloqueie o cofre para importar arquivos."_s);

        unlock();
        QCOMPARE(w.rows(), (QStringList{u"Papéis"_s, u"carta.txt"_s, u"Foto.JPG"_s}));
        QCOMPARE(exported(u"Foto.JPG"_s), "editada");
        w.act(u"lock"_s, {});
    }

    void thePasswordIsChanged()
    {
        const auto form = [](const QStringList &texts) {
            return type(u"Alterar senha do cofre"_s, texts, u"Alterar"_s);
        };
        const QString title = u"Alterar senha"_s;
        const QString next = u"doze letras!"_s;
        w.act(u"changePassword"_s,
              {form({{}, next, next}), told(u"Informe a senha atual."_s, title),
               form({password, u"onze letras"_s, u"onze letras"_s}), told(u"Use uma nova senha"_s, title),
               form({password, next, u"x"_s}), told(u"A confirmação não coincide"_s, title),
               form({u"errada"_s, next, next}), told(u"Não foi possível alterar a senha."_s)},
              u"Falha ao alterar a senha."_s);
        w.act(u"changePassword"_s, {form({password, next, next}), told(u"Senha alterada com sucesso."_s)});
        password = next;
        unlock(u"Cofre desbloqueado."_s);
        w.act(u"lock"_s, {});
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
        for (const QString &path : {container, symbolicLink, hardLink})
            w.act(u"backup"_s, {pick(save, {path}), press(save, {}, u"Yes"_s),
                                told(u"Escolha um destino diferente do container original."_s, title)});
        const QString copy = host.filePath(u"copia.trvx"_s);
        w.act(u"backup"_s, {pick(save, {copy}), told(u"Backup concluído com sucesso."_s, title)},
              u"Backup do container concluído."_s);
        QVERIFY(readFile(copy) == bytes && readFile(container) == bytes);
    }

    void theChosenContainerKeepsItsDriveSelected()
    {
        QTemporaryDir second;
        QListWidget &list = w.deviceList;
        // The current row, if it is the highlighted one.
        const auto current = [&list] {
            QList<QListWidgetItem *> expected{list.currentItem()};
            expected.removeAll(nullptr);
            return list.selectedItems() == expected ? list.currentRow() : -2;
        };
        w.drives->prepend(usbDrive(u"SEGUNDO"_s, second.path(), u"/dev/x2"_s));
        w.drives->append(usbDrive(u"FECHADO"_s, {}, u"/dev/x3"_s));
        w.trigger(u"refreshDevices"_s);
        QCOMPARE(current(), 1);
        QCOMPARE(list.item(2)->text(), u"FECHADO (/dev/x3) | não montado"_s);

        for (const int row : {0, 2, 1}) {
            QTest::mouseClick(list.viewport(), Qt::LeftButton, {},
                              list.visualItemRect(list.item(row)).center());
            QCOMPARE(current(), 1);
        }
        const QString none = u"Nenhum tessarin.trvx foi encontrado em "_s + second.path();
        drive([&] { Q_EMIT list.itemDoubleClicked(list.item(0)); }, {told(none)});
        writeFile(second.filePath(u"tessarin-compactado-1.trvx"_s), {});
        const QString twin = u"Uma compactação deste cofre parece ter sido interrompida."_s;
        drive([&] { Q_EMIT list.itemDoubleClicked(list.item(0)); }, {told(twin)});
        QCOMPARE(current(), 1);

        w.drives->removeAt(1);
        w.trigger(u"refreshDevices"_s);
        QCOMPARE(current(), -1);
        QCOMPARE(w.label(u"container"_s), u"Container: Tessarin"_s);
    }

private:
    static DialogStep choose(const QStringList &paths)
    {
        return pick(u"Importar arquivos para o cofre"_s, paths);
    }
    void unlock(const QString &status = {})
    {
        w.act(u"unlock"_s, {type(u"Senha do cofre"_s, {password})}, status);
    }
    QString hostFile(const QString &name, const QByteArray &bytes)
    {
        writeFile(host.filePath(name), bytes);
        return host.filePath(name);
    }
    QByteArray exported(const QString &name)
    {
        const QString title = u"Exportar arquivo"_s;
        const QString target = host.filePath(u"exportado"_s);
        QFile::remove(target);
        w.click(name);
        w.act(u"export"_s, {press(title, {}, u"Continuar"_s), pick(title, {target})},
              u"Arquivo exportado com sucesso."_s);
        return readFile(target);
    }

    QTemporaryDir host;
    QTemporaryDir stick;
    const QString container = stick.filePath(u"tessarin.trvx"_s);
    const QByteArray photo = noise(300000, 7);
    QString password = u"uma senha boa"_s;
    OpenedFile opened;
    WindowHarness w{{usbDrive(u"PENDRIVE"_s, stick.path(), u"/dev/x1"_s)}};
};

QTEST_MAIN(WindowStoriesTest)
#include "tst_window_stories.moc"
