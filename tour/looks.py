"""The program in situations that its makers do not sit in front of: dark colours, other scales and screens, long
names, many drives, a desktop without icons. Takes pictures of the window and its dialogs in each, for people to
look at, and tells which windows reach beyond the screen. Started by scripts/tour --looks.
"""
import argparse
import os
import subprocess
import sys
from dataclasses import dataclass, field
from pathlib import Path

import read_container
from desktop import SCREEN, Desktop, Missed
from stations import PASSWORD, Tour

# What the desktop with these settings calls its dark colours.
DARK_COLOURS = """
[General]
ColorScheme=Dark
[Colors:Window]
BackgroundNormal=42,46,50
BackgroundAlternate=49,54,59
ForegroundNormal=252,252,252
ForegroundInactive=161,169,177
ForegroundLink=29,153,243
ForegroundVisited=155,89,182
[Colors:View]
BackgroundNormal=27,30,32
BackgroundAlternate=35,38,41
ForegroundNormal=252,252,252
ForegroundInactive=161,169,177
ForegroundLink=29,153,243
ForegroundVisited=155,89,182
[Colors:Button]
BackgroundNormal=49,54,59
BackgroundAlternate=30,87,116
ForegroundNormal=252,252,252
[Colors:Selection]
BackgroundNormal=61,174,233
ForegroundNormal=252,252,252
[Colors:Tooltip]
BackgroundNormal=49,54,59
ForegroundNormal=252,252,252
"""

LONG_NAME = "atadareunião" * 19 + "2026.pdf"  # 255 bytes, the most that Linux allows, and nowhere to break the line
LONG_FOLDER = "Pasta" * 51
WHEEL_DOWN = 5  # as a button
SHORT_FILES = ("chave.pem", "férias.mp3", "notas", "relatório.odt", "visto.png")


@dataclass
class Situation:
    name: str
    screen: str = SCREEN
    environment: dict = field(default_factory=dict)
    settings: str = ""  # of a desktop whose settings the toolkit reads by itself
    more_drives: bool = False
    icons: bool = True
    file: str = "contrato.pdf"
    folder: str = "Documentos"


def scaled(factor, screen):
    return Situation(f"scale-{factor}", screen, {"QT_SCALE_FACTOR": factor})


SITUATIONS = [
    Situation("large-font", settings="[General]\nfont=DejaVu Sans,12,-1,5,50,0,0,0,0,0\n"),
    scaled("1", "1280x800x24"),
    scaled("1.5", "1920x1200x24"),
    scaled("2", "2560x1600x24"),
    Situation("small-1366x768", "1366x768x24"),
    Situation("small-1024x600", "1024x600x24"),
    Situation("long-names", file=LONG_NAME, folder=LONG_FOLDER),
    Situation("no-icons", icons=False),
    # Last, since what is plugged in stays.
    Situation("many-drives", more_drives=True),
    Situation("dark", settings=DARK_COLOURS, more_drives=True),
]


def plug_in(disk, label, mounted_at=None):
    """One more drive of the practice kind, as scripts/practice-drive makes the first."""
    device = Path(f"/media/.practice-drive/devices/pci0000:00/0000:00:14.0/usb1/1-2/host0/target0/0/block/{disk}")
    device.mkdir(parents=True)
    (device / "removable").write_text("1\n")
    Path(f"/sys/class/block/{disk}").symlink_to(device)
    node = Path(f"/dev/{disk}")
    node.touch()
    subprocess.run(["mount", "-n", "--bind", "/dev/null", node], check=True)  # the toolkit looks for no regular file
    if label:
        Path(f"/dev/disk/by-label/{label}").symlink_to(f"../../{disk}")
    if mounted_at:
        mounted_at.mkdir(parents=True)
        subprocess.run(["mount", "-n", "-t", "tmpfs", "-o", "size=8M", f"/dev/{disk}", str(mounted_at)], check=True)


def plug_in_four():
    media = Path("/media/ana")
    plug_in("sdw", "FOTOS", media / "FOTOS")
    plug_in("sdx", "", media / "4C1D-9F22")
    plug_in("sdy", "Trabalhos-da-faculdade-de-engenharia-civil-" * 3, media / ("Trabalhos-da-faculdade" * 5))
    plug_in("sdv", "SEM-MONTAR")


class Looks(Tour):
    def __init__(self, situation, desktop, program, drive, output):
        super().__init__(desktop, program, drive, output, update_pictures=False)
        self.situation = situation
        self.station = situation.name

    def shot(self, detail=""):
        super().shot(detail)
        width, height = map(int, self.situation.screen.split("x")[:2])
        for index in range(self.desktop.application.get_child_count()):
            window = self.desktop.application.get_child_at_index(index)
            area = self.desktop.area(window)
            if area[2] < 0 or area[3] < 0 or area[0] + area[2] > width or area[1] + area[3] > height:
                print(f"{self.picture_name(detail)}: {window.get_name()} {area} beyond {width}x{height}")

    def prepare(self):
        files = {name: os.urandom(5000) for name in SHORT_FILES}
        files |= {self.situation.folder + "/mapa.svg": b""}
        read_container.create(self.container, PASSWORD, files)
        if self.situation.settings:
            settings = self.desktop.home / "config/kdeglobals"
            settings.parent.mkdir()
            settings.write_text(self.situation.settings)
            self.desktop.environment |= {"XDG_CURRENT_DESKTOP": "KDE", "KDE_SESSION_VERSION": "5"}
        if not self.situation.icons:
            # For the program alone: others find their services there.
            self.desktop.environment["XDG_DATA_DIRS"] = "/nonexistent"
        if self.situation.more_drives and not Path("/sys/class/block/sdw").exists():
            plug_in_four()

    def locked(self):
        self.desktop.launch(self.program)
        self.desktop.window("Tessarin", "frame")
        self.shot("start")
        if self.situation.more_drives:
            self.desktop.click(self.desktop.find("list", "Dispositivos USB"), WHEEL_DOWN, 9)
            self.shot("last-drive")
        self.press("ctrl+o")
        self.ask("Escolher container Tessarin", str(self.container), "choose")
        self.status("Container selecionado.")
        self.shot("locked")
        self.press("ctrl+p")
        self.desktop.window("Alterar senha do cofre")
        self.shot("password")
        self.desktop.key("Escape")
        self.unlock(PASSWORD, "unlock")
        self.status("Cofre desbloqueado.")

    def opened(self):
        self.write("grande", self.situation.file, os.urandom(96 << 20))
        self.import_all("grande")
        self.desktop.glimpse("Importar arquivos", self.picture_path("progress"))
        self.status("Arquivo importado com sucesso.")
        self.shot("imported")
        self.import_all("grande")
        self.box("Substituir arquivo", self.situation.file, "Não", "replace")
        self.status("0 arquivos importados com sucesso.")
        self.select(self.situation.folder)
        self.shot("folder")
        self.select(self.situation.file)
        self.shot("file")
        self.press("ctrl+e")
        self.box("Exportar arquivo", "Exportar ", "Cancelar", "export")
        for command, title in (("Mover para pasta...", "Mover arquivo"), ("Renomear arquivo...", "Renomear arquivo")):
            self.file_menu(command)
            self.desktop.window(title)
            self.shot(title.split()[0].lower())
            self.desktop.key("Escape")

    def about(self):
        for row, title in ((1, "Ajuda do Tessarin"), (3, "Sobre o Tessarin")):
            self.desktop.window("Tessarin", "frame")
            self.desktop.key("Alt_L", "Left", *["Down"] * row)
            self.shot("menu")
            self.desktop.key("Return")
            self.desktop.window(title)
            self.shot(title.split()[0].lower())
            self.desktop.key("Escape")

    def select(self, name):
        """As a screen reader does: where a thing is on the screen tells little when it is scaled."""
        self.desktop.window("Tessarin", "frame")
        self.desktop.atspi.Action.do_action(self.cell(name), 0)


def take_pictures(situation, arguments):
    output = arguments.output / situation.name
    output.mkdir(parents=True, exist_ok=True)
    for picture in output.glob("*.png"):
        picture.unlink()
    desktop = Desktop(situation.screen, situation.environment)
    looks = Looks(situation, desktop, arguments.program, arguments.drive, output)
    try:
        for step in (looks.prepare, looks.locked, looks.opened, looks.about):
            step()
        print(f"{situation.name}: {looks.shots} pictures", flush=True)
    except Missed as error:
        desktop.picture(output / "failure.png")
        sys.exit(f"FAILED in {situation.name}: {error}")
    finally:
        desktop.close()


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    parser.add_argument("--drive", type=Path, required=True)
    parser.add_argument("--output", type=Path, required=True)
    parser.add_argument("--situation", help="only this one")
    arguments = parser.parse_args()
    for situation in SITUATIONS:
        if situation.name == arguments.situation:
            take_pictures(situation, arguments)
    if arguments.situation is None:
        # Each in a process of its own: the bindings stay on the first desktop they see.
        command = [sys.executable, "-B", *sys.argv, "--situation"]
        codes = [subprocess.run([*command, situation.name], check=False).returncode for situation in SITUATIONS]
        sys.exit(max(codes))


if __name__ == "__main__":
    main()
