"""Uses the real program as people do who hear it: by the keyboard, and by the names and words that the accessibility
tree tells. No places on the screen, no object names. Started by scripts/tour --by-ear.
"""
import argparse
import sys
from pathlib import Path

from desktop import Desktop, Missed, until

PASSWORD = "cavalo-bateria-grampo"
LOCKED = "O cofre está bloqueado. Clique no cadeado ou pressione Ctrl+L para desbloqueá-lo."
PASSWORD_FIELDS = ["Senha atual:", "Nova senha:", "Confirmar nova senha:", "Alterar", "Cancelar"]


class Ear:
    def __init__(self, desktop, drive):
        self.desktop, self.drive = desktop, drive
        self.action = desktop.atspi.Action

    # Listening -----------------------------------------------------------------------------------------------

    def focused(self):
        try:
            self.desktop.application.clear_cache()
            return [node.get_name() for node in self.desktop.walk() if self.desktop.has_focus(node)]
        except self.desktop.gone:
            return []

    def hear(self, name):
        until(f"'{name}' to have the focus", lambda: name in self.focused(), lambda: str(self.focused()), timeout=5)

    def move(self, key):
        """Presses a key, and waits a moment for the focus to move."""
        before = self.focused()
        self.desktop.key(key)
        try:
            until("another focus", lambda: self.focused() != before, timeout=0.4)
        except Missed:
            pass  # there is nothing else

    def reach(self, name, key):
        """Presses the key until the thing of that name has the focus."""
        for _ in range(20):
            if name in self.focused():
                return
            self.move(key)
        raise Missed(f"to reach '{name}' with {key}", str(self.focused()))

    def says(self, role, name, description=""):
        self.desktop.find(role, name, lambda node: node.get_description() == description)

    def is_control(self, node):
        return self.desktop.role_of(node) != "scroll bar" and (node.get_state_set().contains(self.desktop.atspi.StateType.FOCUSABLE)
                or "Action" in node.get_interfaces() and self.action.get_n_actions(node) > 0)

    def window(self, title, role="dialog"):
        """Waits for the window. Each of its controls has a name, and a name shows no mnemonic."""
        window = self.desktop.window(title, role)
        for node in self.desktop.walk(window):
            name = node.get_name()
            if (self.is_control(node) and not name) or "&" in name:
                raise Missed(f"a name for every control of '{title}'", f"{self.desktop.role_of(node)} '{name}'")

    # Acting --------------------------------------------------------------------------------------------------

    def menu(self, *path):
        self.window("Tessarin", "frame")
        self.desktop.key("Alt_L")
        self.hear("Arquivo")
        self.reach(path[0], "Right")
        for text in path[1:]:
            self.move("Down" if text == path[1] else "Right")
            self.reach(text, "Down")
        self.desktop.key("Return")

    def press(self, button):
        self.reach(button, "Tab")
        self.desktop.key("space")

    def give_password(self, title):
        self.window(title)
        self.hear("Senha:")
        rule = "Pelo menos 12 caracteres" if title == "Definir senha do cofre" else ""
        self.says("password text", "Senha:", rule)
        self.desktop.type(PASSWORD)
        self.press("OK")

    def status(self, text):
        self.desktop.find("status bar", text)

    # The words -----------------------------------------------------------------------------------------------

    def state_is(self, padlock, vault, table, hint):
        self.says("check box", padlock, vault)
        self.says("label", vault)
        self.says("label", table)
        self.says("table", "Arquivos protegidos", f"{table} | {hint}")

    def create_and_unlock(self):
        self.window("Tessarin", "frame")
        nothing = "Nenhum cofre em uso (aberto)"
        self.state_is("Selecione um container para desbloquear o cofre.", "Cofre bloqueado", nothing,
                      "A unidade selecionada ainda não tem um cofre com o nome padrão. Pressione Ctrl+N para criar um "
                      "ou Ctrl+O para escolher um cofre com outro nome.")
        until("the drive to have the focus", lambda: any(str(self.drive) in name for name in self.focused()))
        self.menu("USB", "Container", "Criar novo cofre...")
        self.desktop.window("Criar container Tessarin")
        self.desktop.key("Return")
        self.give_password("Definir senha do cofre")
        self.give_password("Confirmar senha do cofre")
        self.status("Cofre criado com sucesso.")
        self.state_is("Desbloquear cofre", "Cofre bloqueado", nothing, LOCKED)
        self.desktop.find("list item", where=lambda item: str(self.drive) in item.get_name() and
                          item.get_description() == "Dispositivo associado ao container selecionado.")
        self.menu("USB", "Acesso ao cofre", "Desbloquear")
        self.give_password("Senha do cofre")
        self.status("Cofre desbloqueado.")
        self.state_is("Bloquear cofre", "Cofre desbloqueado", "Arquivos protegidos | Pasta: Raiz | O cofre está vazio.",
                      "Arraste arquivos para cá ou pressione Ctrl+I para importá-los.")

    def use_files(self):
        self.menu("USB", "Acesso ao cofre", "Arquivos protegidos", "Nova pasta...")
        self.window("Nova pasta")
        self.hear("Nome da pasta:")
        self.desktop.type("Documentos")
        self.press("OK")
        self.status("Pasta criada.")
        source = self.desktop.home / "contrato.pdf"
        source.write_bytes(b"contrato")
        self.menu("USB", "Acesso ao cofre", "Arquivos protegidos", "Importar...")
        self.desktop.window("Importar arquivos para o cofre")
        self.desktop.type(str(source))
        self.desktop.key("Return")
        self.status("Arquivo importado com sucesso.")
        self.says("table", "Arquivos protegidos", "Arquivos protegidos | Pasta: Raiz | 1 arquivo no cofre.")
        self.desktop.find("table cell", "sem tamanho")
        self.desktop.find("table cell", source.name, lambda cell: cell.get_state_set().contains(
            self.desktop.atspi.StateType.SELECTED))
        self.menu("USB", "Acesso ao cofre", "Arquivos protegidos", "Mover para pasta...")
        self.window("Mover arquivo")
        self.press("Mover")
        self.status("Arquivo movido.")
        self.desktop.key("Home")
        self.menu("USB", "Acesso ao cofre", "Arquivos protegidos", "Excluir pasta vazia")
        self.window("Excluir pasta", "alert")
        self.hear("Não")
        self.press("Não")
        self.window("Tessarin", "frame")
        self.action.do_action(self.desktop.find("check box", "Bloquear cofre"), 0)
        self.status("Cofre bloqueado.")
        self.state_is("Desbloquear cofre", "Cofre bloqueado", "Nenhum cofre em uso (aberto)", LOCKED)

    def visit_dialogs(self):
        self.menu("USB", "Container", "Alterar senha...")
        self.window("Alterar senha do cofre")
        for name in PASSWORD_FIELDS:
            self.hear(name)
            self.desktop.key("Tab")
        self.press("Cancelar")
        for entry, title in (("Ajuda", "Ajuda do Tessarin"), ("Sobre o Tessarin", "Sobre o Tessarin")):
            self.menu("Sobre", entry)
            self.window(title)
            self.press("Fechar")
        self.menu("Arquivo", "Sair")
        until("the program's end", lambda: self.desktop.program.poll() == 0, self.desktop.describe)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    parser.add_argument("--drive", type=Path, required=True)
    parser.add_argument("--output", type=Path, required=True)
    arguments = parser.parse_args()
    arguments.output.mkdir(parents=True, exist_ok=True)
    desktop = Desktop()
    try:
        desktop.launch(arguments.program)
        ear = Ear(desktop, arguments.drive)
        for step in (ear.create_and_unlock, ear.use_files, ear.visit_dialogs):
            step()
    except Missed as error:
        desktop.picture(arguments.output / "failure.png")
        sys.exit(f"FAILED: {error}")
    finally:
        desktop.close()


if __name__ == "__main__":
    main()
