"""The stations of the tour: the main job of the real program, done as a person does it, on a USB drive.

Every station acts through keys and clicks, and is reached when the window says so or the drive holds the
proof. Containers are checked by a second implementation of the format. Started by tour.py.
"""
import os
import subprocess
import sys
import threading
import time
import traceback
from pathlib import Path
from urllib.parse import unquote, urlparse

import read_container
from desktop import Desktop, Missed, until

PROJECT = Path(__file__).resolve().parent.parent

PASSWORD = "cavalo-bateria-grampo"
NEW_PASSWORD = "rio, pedra & 100% vento"
HEADER_BYTES = 8388636
REST = ("chave.pem", "contrato.pdf")  # files that stand in the root all the time

REPORT = "Documentos/relatório.odt"

OPEN_CONTAINERS, SAVE_CONTAINER = "Escolher container Tessarin", "Criar container Tessarin"

# The pictures in the documents: what they are cropped from.
PUBLISHED = {
    "unlock-dialog": ["resources/help/pt_BR/desbloquear.png", "docs/pictures/unlock.png"],
    "browse": ["resources/help/pt_BR/janela.png", "docs/pictures/vault.png"],
    "compact-box": ["resources/help/pt_BR/compactar.png"],
    "context_menu": ["docs/pictures/menu.png"],
}


def require(condition, expected, seen):
    if not condition:
        raise Missed(expected, seen)


class Tour:
    def __init__(self, desktop, program, drive, output, update_pictures):
        self.desktop, self.program, self.drive, self.output = desktop, program, drive, output
        self.update_pictures = update_pictures
        self.container = drive / "tessarin.trvx"
        self.files, self.folders = {}, set()  # what the vault holds
        self.shots = 0
        self.station = ""

    # What every station does --------------------------------------------------------------------------------

    def picture_name(self, detail):
        return self.station + (f"-{detail}" if detail else "")

    def picture_path(self, detail):
        self.shots += 1
        return self.output / f"{self.shots:02}-{self.picture_name(detail)}.png"

    def shot(self, detail=""):
        self.desktop.picture(self.picture_path(detail))
        name = self.picture_name(detail)
        for target in PUBLISHED.get(name, []) if self.update_pictures else []:
            picture = PROJECT / target
            picture.parent.mkdir(parents=True, exist_ok=True)
            self.desktop.picture(picture, self.desktop.area(self.desktop.find("frame", "Tessarin")))
            # The help page shows its pictures as they are: scaled by the page they would be hard to read.
            scale = ["-filter", "Lanczos", "-resize", "638"] if "help" in target else []
            subprocess.run(["convert", picture, *scale, "-bordercolor", "#c8c8c8", "-border", "1", "+dither",
                            "-colors", "256", "-define", "png:compression-level=9", f"PNG8:{picture}"], check=True)

    def status(self, text):
        self.desktop.find("status bar", text)

    def label(self, text):
        self.desktop.find("label", text)

    def box(self, title, beginning, button, detail="box"):
        """Waits for a message box, takes its picture and presses a button of it."""
        self.desktop.find("alert", title)
        self.desktop.find("label", where=lambda node: node.get_name().startswith(beginning))
        self.shot(detail)
        self.desktop.click(self.desktop.find("button", button))

    def ask(self, title, text, detail="dialog"):
        """Answers an input dialog or a file dialog by typing."""
        self.desktop.window(title)
        self.desktop.key("ctrl+a")
        self.desktop.type(text)
        if detail:
            self.shot(detail)
        self.desktop.key("Return")

    def replace_file(self, name):
        self.box("Exportar arquivo", f"{name} já existe.", "Sim")

    def rows(self):
        try:
            table = self.desktop.look("table")
            return [table.get_accessible_at(row, 1).get_name() for row in range(table.get_n_rows())]
        except self.desktop.gone:
            return None

    def shows(self, *names):
        until(f"rows {list(names)}", lambda: self.rows() == list(names), lambda: f"rows {self.rows()}")

    def cell(self, name):
        return self.desktop.find("table cell", name)

    def press(self, shortcut):
        self.desktop.window("Tessarin", "frame")
        self.desktop.key(shortcut)

    def menu(self, *path):
        self.desktop.window("Tessarin", "frame")
        for text in path:
            self.desktop.click(self.desktop.find("menu item", text, self.desktop.is_placed))

    def file_menu(self, text):
        self.menu("USB", "Acesso ao cofre", "Arquivos protegidos", text)

    def write(self, folder, name, content):
        path = self.desktop.home / folder / name
        path.parent.mkdir(exist_ok=True)
        path.write_bytes(content)
        return content

    def unlock(self, password, detail=None):
        self.press("ctrl+l")
        self.ask("Senha do cofre", password, detail)

    def lock(self):
        self.press("ctrl+shift+l")
        self.status("Cofre bloqueado.")

    def import_all(self, folder):
        self.press("ctrl+i")
        # Whole paths in quotes: anything else makes the file dialog's completion take part.
        paths = " ".join(f'"{path}"' for path in sorted((self.desktop.home / folder).iterdir()))
        self.ask("Importar arquivos para o cofre", paths)

    def export(self, name):
        target = self.desktop.home / f"exportado-{self.shots}"
        self.desktop.click(self.cell(name))
        self.press("ctrl+e")
        self.box("Exportar arquivo", "Exportar ", "Continuar")
        self.ask("Exportar arquivo", str(target))
        self.status("Arquivo exportado com sucesso.")
        return target.read_bytes()

    def workspaces(self):
        return list((self.desktop.temporary / "Tessarin").glob("*"))

    def stored(self, password=PASSWORD):
        """The container as the second implementation reads it."""
        return read_container.Container(self.container, password)

    # The stations, in their order ----------------------------------------------------------------------------

    def start(self):
        self.desktop.launch(self.program)
        self.desktop.window("Tessarin", "frame")
        limits = Path(f"/proc/{self.desktop.program.pid}/limits").read_text(encoding="ascii").splitlines()
        cores = next(line for line in limits if line.startswith("Max core file size"))
        require(cores.split()[4:6] == ["0", "0"], "no core dumps", cores)

    def choose_drive(self):
        self.status("Pronto")
        self.label("Container: nenhum")
        self.desktop.click(self.desktop.find("list item", where=lambda item: str(self.drive) in item.get_name()))
        self.shot()

    def create_vault(self):
        self.press("ctrl+n")
        self.desktop.window(SAVE_CONTAINER)
        self.shot("file")
        self.desktop.key("Return")
        self.ask("Definir senha do cofre", "curta-demais")
        self.ask("Confirmar senha do cofre", "outra-demais", detail=None)
        self.box("Tessarin", "As senhas informadas não coincidem.", "OK", "differ")
        self.press("ctrl+n")
        self.ask(SAVE_CONTAINER, str(self.container), detail=None)
        self.ask("Definir senha do cofre", PASSWORD, detail=None)
        self.ask("Confirmar senha do cofre", PASSWORD)
        self.status("Cofre criado com sucesso.")
        self.label("Container: Tessarin")
        size = self.container.stat().st_size
        require(size == HEADER_BYTES, f"a container of {HEADER_BYTES} bytes", size)
        self.shot()

    def refuse_wrong_password(self):
        self.unlock("senha-errada-mesmo")
        self.box("Tessarin", "Não foi possível desbloquear o cofre.", "OK")

    def unlock_vault(self):
        self.station = "unlock"
        self.unlock(PASSWORD, "dialog")
        self.status("Cofre desbloqueado.")
        self.label("Arquivos protegidos | Pasta: Raiz | O cofre está vazio.")
        self.shot()

    def create_folders(self):
        for name in ("Documentos", "Fotos", "Rascunhos"):
            self.press("ctrl+shift+n")
            self.ask("Nova pasta", name, "dialog" if name == "Fotos" else None)
            self.cell(name)
            self.folders.add(name)
        self.status("Pasta criada.")
        self.press("ctrl+shift+n")
        self.ask("Nova pasta", "documentos", detail=None)
        self.box("Nova pasta", "Já existe um item com esse nome nesta pasta.", "OK")
        self.shows("Documentos", "Fotos", "Rascunhos")

    def import_several(self):
        sizes = {"férias.mp3": 64 << 20, "chave.pem": 1704, "contrato.pdf": 84_000, "visto.png": 240_000,
                 "<b>a&b.jpg": 300_000, "notas": 0}
        self.odd = "Receita de açúcar %1 %2\n".encode()
        self.files |= {name: os.urandom(size) for name, size in sizes.items()} | {"100%1 açúcar.txt": self.odd}
        for name, content in self.files.items():
            self.write("Diversos", name, content)
        self.import_all("Diversos")
        self.desktop.glimpse("Importar arquivos", self.picture_path("progress"))
        self.status("7 arquivos importados com sucesso.")
        self.shows("Documentos", "Fotos", "Rascunhos", "100%1 açúcar.txt", "<b>a&b.jpg", *REST, "férias.mp3",
                   "notas", "visto.png")
        self.label("Arquivos protegidos | Pasta: Raiz | 7 arquivos no cofre.")
        self.shot()

    def enter_folder_and_replace(self):
        self.desktop.click(self.cell("Documentos"), times=2)
        self.shows("..")
        self.write("Escritorio", "relatório.odt", b"primeira versao")
        self.import_all("Escritorio")
        self.status("Arquivo importado com sucesso.")
        self.write("Escritorio", "relatório.odt", b"segunda versao")
        self.files[REPORT] = b"segunda versao"
        self.import_all("Escritorio")
        self.box("Substituir arquivo", "Documentos/relatório.odt já existe no cofre.", "Sim")
        self.status("Arquivo importado com sucesso.")
        self.shows("..", "relatório.odt")

    def export_file(self):
        content = self.export("relatório.odt")
        require(content == self.files[REPORT], repr(self.files[REPORT]), repr(content))

    def open_and_edit(self):
        self.desktop.click(self.cell("relatório.odt"))
        self.desktop.hold("Return", 1.5)
        self.status("Arquivo aberto para edição.")
        address = until("an opened file", lambda: self.desktop.opened.exists() and self.desktop.opened.read_text())
        require(address.count("\n") == 1, "one opening", address)
        copy = self.copy = Path(unquote(urlparse(address.strip()).path))
        require(self.desktop.temporary in copy.parents and copy.read_bytes() == self.files[REPORT],
                "a decrypted copy below the temporary directory", copy)
        self.files[REPORT] += b", corrigida"
        copy.write_bytes(self.files[REPORT])
        self.cell("Arquivo, editado e ainda não gravado no cofre")
        self.shot()

    def open_again(self):
        self.desktop.click(self.cell("relatório.odt"), times=2)
        self.box("Abrir arquivo", f"{REPORT} já foi aberto e editado", "Continuar editando")
        self.status("Arquivo aberto para edição.")
        require(self.copy.read_bytes() == self.files[REPORT], "the edit", self.copy.read_bytes())

    def close_in_vain(self):
        """A window that cannot be closed, since an edit has no way back, stays however often it is asked to go."""
        area = self.desktop.area(self.desktop.window("Tessarin", "frame"))
        aside = self.copy.rename(self.desktop.home / "desviado.odt")
        self.copy.symlink_to(aside)
        self.press("ctrl+q")
        self.desktop.find("alert", "Tessarin")
        self.desktop.click_close_button(area)
        time.sleep(0.3)
        self.box("Tessarin", "Não foi possível bloquear o cofre.", "OK")
        self.label("Arquivos protegidos | Pasta: Documentos | 8 arquivos no cofre.")
        aside.rename(self.copy)

    def lock_by_padlock(self):
        self.desktop.click(self.desktop.find("check box", "Bloquear cofre"))
        self.status("Cofre bloqueado.")
        self.label("Nenhum cofre em uso (aberto)")
        require(not self.workspaces(), "no temporary copies", self.workspaces())
        self.shot()
        stored = self.stored()
        require(set(stored.files) == set(self.files), set(self.files), set(stored.files))
        require(set(stored.directories) == self.folders, self.folders, set(stored.directories))
        for name, content in self.files.items():
            require(stored.read(name) == content, f"{name} as it was imported or edited", "other bytes")

    def edit_came_back(self):
        self.unlock(PASSWORD)
        self.status("Cofre desbloqueado.")
        self.desktop.click(self.cell("Documentos"), times=2)
        content = self.export("relatório.odt")
        require(content == self.files[REPORT], repr(self.files[REPORT]), repr(content))
        self.desktop.click(self.cell(".."), times=2)
        self.cell("férias.mp3")

    def move_file(self):
        self.desktop.click(self.cell("<b>a&b.jpg"))
        self.file_menu("Mover para pasta...")
        self.desktop.window("Mover arquivo")
        self.desktop.find("combo box", where=self.desktop.has_focus)
        self.desktop.key("F")
        self.desktop.find("combo box", where=lambda box: "Fotos" in self.desktop.text_of(box))
        self.shot("dialog")
        self.desktop.click(self.desktop.find("button", "Mover"))
        self.status("Arquivo movido.")
        self.shows("Documentos", "Fotos", "Rascunhos", "100%1 açúcar.txt", *REST, "férias.mp3", "notas", "visto.png")

    def rename_file(self):
        self.desktop.click(self.cell("100%1 açúcar.txt"))
        self.file_menu("Renomear arquivo...")
        self.ask("Renomear arquivo", "receita.txt")
        self.status("Arquivo renomeado.")
        self.shows("Documentos", "Fotos", "Rascunhos", *REST, "férias.mp3", "notas", "receita.txt", "visto.png")

    def rename_folder(self):
        self.desktop.click(self.cell("Fotos"))
        self.file_menu("Renomear pasta...")
        self.ask("Renomear pasta", "Viagem")
        self.status("Pasta renomeada.")
        self.shows("Documentos", "Rascunhos", "Viagem", *REST, "férias.mp3", "notas", "receita.txt", "visto.png")

    def browse(self):
        """The sort by size, and the window as the documents show it."""
        self.desktop.click(self.desktop.find("table column header", "Tamanho"))
        self.shows("Documentos", "Rascunhos", "Viagem", "notas", "receita.txt", *REST, "visto.png", "férias.mp3")
        self.desktop.click(self.desktop.find("table column header", "Nome do arquivo"))
        self.shows("Documentos", "Rascunhos", "Viagem", *REST, "férias.mp3", "notas", "receita.txt", "visto.png")
        self.desktop.click(self.cell("receita.txt"))
        self.shot()

    def use_keys(self):
        """The table takes no focus, and the keys reach it all the same."""
        self.press("Home")
        self.desktop.key("r", "e")  # receita.txt
        self.desktop.key("Up", "Down", "F2")
        self.ask("Renomear arquivo", "receita.txt")
        self.press("Home")
        self.desktop.key("KP_Enter")
        self.shows("..", "relatório.odt")
        self.desktop.key("BackSpace")
        self.shows("Documentos", "Rascunhos", "Viagem", *REST, "férias.mp3", "notas", "receita.txt", "visto.png")
        self.desktop.key("Menu")
        until("a popup menu", lambda: self.desktop.popups())
        self.shot()
        self.desktop.key("Escape")

    def context_menu(self):
        self.desktop.click(self.cell("chave.pem"), button=3)
        until("a popup menu", lambda: self.desktop.popups())
        self.shot()
        self.desktop.key("Escape")

    def open_without_program(self):
        self.desktop.click(self.cell("chave.pem"), times=2)
        self.box("Tessarin", "Não foi possível abrir o arquivo no aplicativo padrão.", "OK")
        self.status("Falha ao abrir o arquivo.")

    def delete_file(self):
        before = self.container.stat().st_size
        self.desktop.click(self.cell("férias.mp3"))
        self.press("Delete")
        self.box("Excluir arquivo", "Excluir férias.mp3 removerá o arquivo da lista do cofre.", "Sim")
        self.status("Arquivo excluído do cofre.")
        self.shows("Documentos", "Rascunhos", "Viagem", *REST, "notas", "receita.txt", "visto.png")
        require(self.container.stat().st_size == before, f"still {before} bytes", self.container.stat().st_size)

    def delete_folder(self):
        self.desktop.click(self.cell("Viagem"))
        self.file_menu("Excluir pasta vazia")
        self.box("Excluir pasta", "Excluir a pasta vazia Viagem?", "Sim")
        self.box("Excluir pasta", "A pasta não está vazia ou não pode ser excluída.", "OK", "refused")
        self.desktop.click(self.cell("Rascunhos"))
        self.file_menu("Excluir pasta vazia")
        self.box("Excluir pasta", "Excluir a pasta vazia Rascunhos?", "Sim")
        self.status("Pasta excluída.")
        self.shows("Documentos", "Viagem", *REST, "notas", "receita.txt", "visto.png")

    def compact(self):
        before = self.container.stat().st_size
        self.press("F6")
        self.box("Compactar cofre", "A compactação reconstruirá o container", "Sim")
        self.box("Compactar cofre", "Cofre compactado com sucesso.", "OK", "done")
        self.status("Cofre compactado com sucesso.")
        live = HEADER_BYTES + sum(block["encryptedSize"] for entry in self.stored().files.values()
                                  for block in entry["blocks"])
        live = -(-live // 4096) * 4096  # The last page is full.
        size = self.container.stat().st_size
        require(size == live < before, f"{live} bytes, fewer than {before}", size)
        left = list(self.desktop.temporary.glob("Tessarin-compact-*"))
        require(not left, "no working folder", left)

    def backup(self):
        self.lock()
        target = self.desktop.home / "copia.trvx"
        self.press("ctrl+b")
        self.ask("Fazer backup do container", str(target))
        self.box("Fazer backup", "Backup concluído com sucesso.", "OK")
        self.status("Backup do container concluído.")
        require(target.read_bytes() == self.container.read_bytes(), "a backup of the same bytes", "other bytes")

    def keep_the_vault(self):
        """A new vault in the place of this one takes a question of its own."""
        before = self.container.read_bytes()
        self.press("ctrl+n")
        self.ask(SAVE_CONTAINER, str(self.container), detail=None)
        self.box("Substituir cofre", "A unidade PENDRIVE", "Não")
        require(self.container.read_bytes() == before, "the container as it was", "other bytes")

    def change_password(self):
        self.press("ctrl+p")
        self.desktop.window("Alterar senha do cofre")
        self.desktop.press_caps_lock()
        self.label("A tecla Caps Lock está ligada.")
        self.shot("caps-lock")
        self.desktop.press_caps_lock()
        for text in (PASSWORD, NEW_PASSWORD, NEW_PASSWORD + "?"):
            self.desktop.type(text)
            self.desktop.key("Tab")
        self.desktop.click(self.desktop.find("password text", "Nova senha:"))
        self.desktop.key("ctrl+m")
        self.shot("readable")
        self.desktop.key("ctrl+m")
        self.desktop.click(self.desktop.find("button", "Alterar"))
        self.box("Alterar senha", "A confirmação não coincide com a nova senha.", "OK", "differ")
        self.desktop.window("Alterar senha do cofre")
        self.desktop.click(self.desktop.find("password text", "Confirmar nova senha:"))
        self.ask("Alterar senha do cofre", NEW_PASSWORD)
        self.box("Tessarin", "Senha alterada com sucesso.", "OK")
        self.unlock(NEW_PASSWORD)
        self.status("Cofre desbloqueado.")
        self.shows("Documentos", "Viagem", *REST, "notas", "receita.txt", "visto.png")
        self.lock()
        stored = self.stored(NEW_PASSWORD)
        require(stored.read("receita.txt") == self.odd, repr(self.odd), "other bytes")

    def open_foreign_container(self):
        content = self.foreign = os.urandom((32 << 20) + 1)
        path = self.drive / "de-outro-autor.trvx"
        read_container.create(path, PASSWORD, {"Música/Ópera/ária.ogg": content, "leia-me": b"ok"})
        self.press("ctrl+o")
        self.ask(OPEN_CONTAINERS, str(path))
        self.status("Container selecionado.")
        self.label("Container: de-outro-autor.trvx")
        self.unlock(PASSWORD)
        self.status("Cofre desbloqueado.")
        self.desktop.click(self.cell("Música"), times=2)
        self.desktop.click(self.cell("Ópera"), times=2)
        require(self.export("ária.ogg") == content, "ária.ogg as it was written", "other bytes")

    def about(self):
        self.menu("Sobre", "Sobre o Tessarin")
        self.desktop.window("Sobre o Tessarin")
        self.desktop.click(self.desktop.find("list item", where=lambda item: item.get_name().startswith("libsodium")))
        self.shot()
        self.desktop.click(self.desktop.find("button", "Fechar"))

    def help(self):
        self.menu("Sobre", "Ajuda")
        self.desktop.window("Ajuda do Tessarin")
        self.shot()
        self.desktop.click(self.desktop.find("button", "Fechar"))

    def close_while_it_works(self):
        """The window is asked to close while an export waits for whoever reads it."""
        area = self.desktop.area(self.desktop.window("Tessarin", "frame"))
        pipe = self.desktop.home / "lento"
        os.mkfifo(pipe)
        received, go_on = [], threading.Event()

        def read_slowly():
            with pipe.open("rb") as stream:
                time.sleep(1)
                received.append(stream.read(16 << 20))
                go_on.wait()
                received.append(stream.read())

        reader = threading.Thread(target=read_slowly, daemon=True)
        reader.start()
        self.desktop.click(self.cell("ária.ogg"))
        self.press("ctrl+e")
        self.box("Exportar arquivo", "Exportar ", "Continuar")
        self.ask("Exportar arquivo", str(pipe))
        self.replace_file(pipe.name)
        # The program is waiting for the pipe: it can be seen, and answers nobody.
        until("the export's progress", lambda: received and self.desktop.popups())
        self.shot()
        self.desktop.ask_to_close(area)
        time.sleep(0.3)
        require(self.desktop.program.poll() is None, "a program that goes on", "its end")
        go_on.set()
        reader.join()
        self.ended()
        require(b"".join(received) == self.foreign, "ária.ogg as it was written", "other bytes")

    def quit(self):
        self.start()
        self.desktop.click_close_button(self.desktop.area(self.desktop.window("Tessarin", "frame")))
        self.ended()

    def ended(self):
        code = until("the program's end", lambda: self.desktop.program.poll() is not None,
                     self.desktop.describe) and self.desktop.program.returncode
        require(code == 0, "exit code 0", code)
        require(not self.workspaces(), "no temporary copies", self.workspaces())
        settings = list((self.desktop.home / "config").glob("QtProject*"))
        require(not settings, "no trace of the file dialogs", settings)

    STATIONS = [start, choose_drive, create_vault, refuse_wrong_password, unlock_vault, create_folders, import_several,
                enter_folder_and_replace, export_file, open_and_edit, open_again, close_in_vain, lock_by_padlock,
                edit_came_back, move_file, rename_file, rename_folder, browse, use_keys, context_menu,
                open_without_program, delete_file, delete_folder, compact, backup, keep_the_vault, change_password,
                open_foreign_container, about, help, close_while_it_works, quit]
    SHORT = [start, choose_drive, create_vault, unlock_vault, create_folders, import_several, lock_by_padlock,
             open_foreign_container, close_while_it_works, quit]

    def run(self, stations):
        for number, station in enumerate(stations, 1):
            self.station = station.__name__
            start = time.monotonic()
            try:
                getattr(self, self.station)()
            except Exception as error:  # whatever it is, the station was not reached
                if not isinstance(error, Missed):
                    traceback.print_exc()
                self.desktop.picture(self.output / "failure.png")
                print(f"FAILED at station {number}, {station.__name__}: {error}", file=sys.stderr)
                return False
            print(f"{number:2}  {station.__name__}  ({time.monotonic() - start:.1f} s)", flush=True)
        return True
