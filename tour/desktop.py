"""A private desktop for the tour: a screen in memory, a window manager, a session bus; and on it hands (keys
and clicks) and eyes (the accessibility tree and pictures). Nothing here knows what the program is for."""
import os
import signal
import subprocess
import tempfile
import time
from pathlib import Path

TIMEOUT_SECONDS = 20
SCREEN = "1280x800x24"
# By number: newer keyboard maps have their symbols with Alt as well, and xdotool would take those.
FUNCTION_KEYS = {f"F{number}": 66 + number for number in range(1, 11)}

FAKE_OPENER = """#!/bin/sh
# Stands in for the desktop's opener: writes down what it was asked to open, and knows no program for keys.
case $1 in *.pem) exit 3 ;; esac
printf '%s\\n' "$1" >> "$TOUR_OPENED"
"""


class Missed(Exception):
    """Something that should have come about did not."""

    def __init__(self, expected, seen):
        super().__init__(f"expected {expected}, saw {seen}")


def until(expected, look, describe=None, timeout=TIMEOUT_SECONDS):
    """Polls `look` until it answers something true, and returns that."""
    deadline = time.monotonic() + timeout
    while True:
        answer = look()
        if answer:
            return answer
        if time.monotonic() > deadline:
            raise Missed(expected, describe() if describe else repr(answer))
        time.sleep(0.03)


class Desktop:
    """Everything it starts ends with it; all that its programs write goes below one temporary directory."""

    def __init__(self, screen=SCREEN, environment=None):
        self.directory = tempfile.TemporaryDirectory(prefix="tour-", ignore_cleanup_errors=True)
        self.root = Path(self.directory.name)
        self.processes = []
        self.home, self.temporary = self.root / "home", self.root / "tmp"
        for name in ("home", "tmp", "run", "bin"):
            (self.root / name).mkdir(mode=0o700)
        self.opened = self.root / "opened"
        opener = self.root / "bin/xdg-open"
        opener.write_text(FAKE_OPENER)
        opener.chmod(0o755)
        self.screen = screen
        self.environment = self._environment() | (environment or {})
        try:
            self._start_display()
            self._start_bus()
            self._start_window_manager()
        except BaseException:
            self.close()
            raise
        # Only now, since the bindings find their bus through the environment.
        os.environ.update(self.environment)
        import gi
        gi.require_version("Atspi", "2.0")
        from gi.repository import Atspi
        self.atspi = Atspi
        Atspi.set_timeout(2000, 15000)
        self.application = None
        self.program = None

    def _environment(self):
        kept = {name: os.environ[name] for name in ("USER", "LOGNAME", "ASAN_OPTIONS") if name in os.environ}
        return kept | {
            "PATH": f"{self.root}/bin:/usr/local/bin:/usr/bin:/bin", "HOME": str(self.home),
            "TMPDIR": str(self.temporary), "XDG_RUNTIME_DIR": str(self.root / "run"),
            "XDG_CONFIG_HOME": str(self.home / "config"), "XDG_CACHE_HOME": str(self.home / "cache"),
            "XDG_DATA_HOME": str(self.home / "data"), "LANG": "pt_BR.UTF-8", "TOUR_OPENED": str(self.opened),
            "QT_ACCESSIBILITY": "1", "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1", "QT_QPA_PLATFORM": "xcb"}

    def _start(self, *command, **options):
        process = subprocess.Popen(command, env=self.environment, start_new_session=True,
                                   **{"stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL} | options)
        self.processes.append(process)
        return process

    def _start_display(self):
        reader, writer = os.pipe()
        self._start("Xvfb", "-displayfd", str(writer), "-screen", "0", self.screen, "-nolisten",
                    "tcp", pass_fds=[writer])
        os.close(writer)
        with os.fdopen(reader) as pipe:
            self.environment["DISPLAY"] = ":" + pipe.readline().strip()

    def _start_bus(self):
        bus = self._start("dbus-daemon", "--session", "--nofork", "--print-address", stdout=subprocess.PIPE,
                          text=True)
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = bus.stdout.readline().strip()

    def _start_window_manager(self):
        # A window that is mapped while the window manager starts up may never be shown.
        ready = self.root / "window-manager-is-ready"
        self._start("openbox", "--sm-disable", "--startup", f"touch {ready}")
        until("a window manager", ready.exists, lambda: "none")

    def close(self):
        for process in reversed(self.processes):
            try:
                os.killpg(process.pid, signal.SIGTERM)
                process.wait(timeout=5)
            except (ProcessLookupError, subprocess.TimeoutExpired):
                process.kill()
        self.directory.cleanup()

    # The program ---------------------------------------------------------------------------------------------

    def launch(self, program):
        name = Path(program).name.lower()
        self.program = subprocess.Popen([program], env=self.environment, cwd=self.home, start_new_session=True)
        self.processes.append(self.program)
        self.application = until(f"'{name}' on the accessibility bus", lambda: self._find_application(name))

    def _find_application(self, name):
        desktop = self.atspi.get_desktop(0)
        desktop.clear_cache()
        children = (desktop.get_child_at_index(i) for i in range(desktop.get_child_count()))
        # Where other toolkits lend it their dialogs, the program has a second tree, of theirs.
        return next((child for child in children if child and child.get_name().lower() == name
                     and child.get_toolkit_name() == "Qt"), None)

    # Eyes ----------------------------------------------------------------------------------------------------

    def walk(self, node=None):
        """Every accessible thing below a node that is on show, parents first."""
        node = node or self.application
        for i in range(node.get_child_count()):
            child = node.get_child_at_index(i)
            if child and (child.get_state_set().contains(self.atspi.StateType.SHOWING)
                          or self.role_of(child) in ("menu", "menu item")):
                yield child
                yield from self.walk(child)

    def look(self, role, name=None, where=lambda node: True):
        """The first thing on show of that role and exact name, or None. The tree may change under our feet."""
        if self.program.poll() is not None:
            raise Missed(f"{role} '{name}'", f"the program had ended with {self.program.returncode}")
        try:
            self.application.clear_cache()
            return next((node for node in self.walk() if self.role_of(node) == role
                         and (name is None or node.get_name() == name) and where(node)), None)
        except self.gone:
            return None

    @property
    def gone(self):
        from gi.repository import GLib
        return GLib.Error

    def find(self, role, name=None, where=lambda node: True):
        return until(f"{role} '{name or ''}'", lambda: self.look(role, name, where), self.describe)

    def describe(self):
        """What is on show, in a line."""
        try:
            self.application.clear_cache()
            names = [f"{self.role_of(node)} '{self.text_of(node)}'" for node in self.walk()
                     if self.role_of(node) not in ("menu item", "menu", "filler") and self.text_of(node)]
        except self.gone:
            names = ["a changing window"]
        return "; ".join(names)

    @staticmethod
    def role_of(node):
        """The role as AT-SPI calls it now; until version 2.54 a button was a "push button"."""
        return node.get_role_name().removeprefix("push ")

    def text_of(self, node):
        if self.role_of(node) == "text" and node.get_text_iface():
            return self.atspi.Text.get_text(node, 0, -1)
        return node.get_name()

    def window(self, title, role="dialog"):
        """The window of that title, once it has the keyboard."""
        return until(f"{role} '{title}' in front", lambda: self._active_window(title, role), self.describe)

    def _active_window(self, title, role):
        return self.look(role, title, lambda node: node.get_state_set().contains(self.atspi.StateType.ACTIVE))

    def is_placed(self, node):
        width, height, x, y = self.area(node)
        return width > 0 and height > 0 and x >= 0 and y >= 0

    def popups(self):
        """How many windows the program has on show besides one: a context menu is not in the tree."""
        found = subprocess.run(["xdotool", "search", "--onlyvisible", "--pid", str(self.program.pid)],
                               env=self.environment, capture_output=True, text=True, check=False)
        return len(found.stdout.split()) - 1

    def picture(self, path, area=None):
        crop = ["-crop", "{0}x{1}+{2}+{3}".format(*area), "+repage"] if area else []
        subprocess.run(["import", "-window", "root", *crop, "-strip", str(path)], env=self.environment, check=True)

    def is_on_screen(self, title):
        search = ["xdotool", "search", "--onlyvisible", "--name", f"^{title}$"]
        return subprocess.run(search, env=self.environment, capture_output=True, check=False).returncode == 0

    def glimpse(self, title, path):
        """A picture of a window that closes by itself, the program held still meanwhile; none if it was too quick."""
        deadline = time.monotonic() + 2
        while not self.is_on_screen(title):
            if time.monotonic() > deadline:
                return
        time.sleep(0.15)  # to be painted
        os.kill(self.program.pid, signal.SIGSTOP)
        self.picture(path)
        os.kill(self.program.pid, signal.SIGCONT)

    # Hands ---------------------------------------------------------------------------------------------------

    def _xdotool(self, *arguments):
        subprocess.run(["xdotool", *map(str, arguments)], env=self.environment, check=True)

    def key(self, *keys):
        self._xdotool("key", "--clearmodifiers", *(FUNCTION_KEYS.get(key, key) for key in keys))

    def hold(self, key, seconds):
        """Long enough for the X server to repeat it."""
        self._xdotool("keydown", key)
        time.sleep(seconds)
        self._xdotool("keyup", key)

    def press_caps_lock(self):
        """With its modifiers cleared, the key would clear itself."""
        self._xdotool("key", "Caps_Lock")

    def type(self, text):
        if text.isascii():
            self._xdotool("type", "--clearmodifiers", "--delay", 4, "--", text)
            return
        # Letters that the keyboard map lacks are lost at random while the map is changed for them.
        self.paste(text)

    def paste(self, text):
        field = self.find("text", where=self.has_focus)
        self.atspi.EditableText.set_text_contents(field, text)

    def area(self, node):
        """Width, height, x and y in the screen's own pixels; a scaled program tells its own, larger ones."""
        scale = float(self.environment.get("QT_SCALE_FACTOR", 1))
        extents = node.get_extents(self.atspi.CoordType.SCREEN)
        return [round(scale * length) for length in (extents.width, extents.height, extents.x, extents.y)]

    def has_focus(self, node):
        return node.get_state_set().contains(self.atspi.StateType.FOCUSED)

    def click_close_button(self, area):
        """The one of the frame, which the window manager puts above a window at its right end."""
        width, _, x, y = area
        self._xdotool("mousemove", x + width - 12, y - 10, "click", 1)

    def ask_to_close(self, area):
        """As people ask a window of that area to close while its program is at work."""
        self.click_close_button(area)

    def click(self, node, button=1, times=1):
        width, height, x, y = self.area(node)
        self._xdotool("mousemove", x + width // 2, y + height // 2, "click", "--repeat", times, "--delay", 60, button)
