"""The tour on a desktop that gives the program GTK's fonts, colours and file dialogs. Those are no part of the tree in
which the program's own windows are: they are known by their titles, and used by the keyboard."""
import os
import subprocess

from desktop import Desktop, until
from stations import REST, Tour


class GtkDesktop(Desktop):
    def _environment(self):
        return super()._environment() | {"QT_QPA_PLATFORMTHEME": "gtk3"}

    def _active_window(self, title, role):
        return role == "dialog" and self.name_in_front() == title or super()._active_window(title, role)

    def name_in_front(self):
        return subprocess.run(["xdotool", "getactivewindow", "getwindowname"], env=self.environment,
                              capture_output=True, text=True, check=False).stdout.rstrip("\n")


class GtkTour(Tour):
    def import_several(self):
        """One after the other: GTK's dialog takes one typed path."""
        for name in REST:
            self.files[name] = self.write("Diversos", name, os.urandom(84_000))
            self.press("ctrl+i")
            self.ask("Importar arquivos para o cofre", str(self.desktop.home / "Diversos" / name))
            self.cell(name)
        self.shot()

    def replace_file(self, name):
        """The question has no title; its default is to replace."""
        until("GTK's own question", lambda: self.desktop.name_in_front() != "Exportar arquivo")
        self.shot("replace")
        self.desktop.key("Return")
