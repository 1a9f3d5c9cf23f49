"""A desktop whose windows are Wayland's. The compositor has the screen in memory for its own, so hands and pictures
are those of any Desktop, and keys and clicks reach the program by way of the compositor."""
import re
import subprocess
from dataclasses import dataclass

from desktop import Desktop, Missed, until

SETTINGS = """[core]
idle-time=0
use-pixman=true
[shell]
panel-position=none
background-color=0xff506070
background-type=centered
animation=none
startup-animation=none
close-animation=none
locking=false
[input-method]
path=
"""

# What `weston-debug scene-graph` tells of a window, the uppermost first.
VIEW = re.compile(r"View \d+ \(role (?P<role>\w+), PID (?P<pid>\d+), .*?(?:'(?P<title>.*)' of .*)?\):\n"
                  r"\s*position: \((-?\d+), (-?\d+)\) -> \((-?\d+), (-?\d+)\)")


@dataclass
class View:
    """What a window takes of the screen, with the frame that the toolkit draws around it."""
    role: str
    pid: int
    title: str
    width: int
    height: int
    x: int
    y: int


class WaylandDesktop(Desktop):
    def _environment(self):
        return super()._environment() | {"QT_QPA_PLATFORM": "wayland", "WAYLAND_DISPLAY": "tour",
                                         "XDG_SESSION_TYPE": "wayland"}

    def _start_window_manager(self):
        settings, log = self.root / "weston.ini", self.root / "weston.log"
        settings.write_text(SETTINGS)
        width, height, _ = self.screen.split("x")
        with log.open("w") as output:
            weston = self._start("weston", "--backend=x11-backend.so", f"--width={width}", f"--height={height}",
                                 "--debug", f"--config={settings}", "--socket=tour",
                                 stdout=output, stderr=subprocess.STDOUT)
        until("a compositor that has the mouse", lambda: self._follows_the_mouse(int(width), int(height)),
              lambda: f"weston with status {weston.poll()}, this log and these windows:\n"
                      f"{log.read_text()}\n{self._scene_graph()}")
        self._xdotool("search", "--class", "Weston", "windowfocus", "--sync")  # and the keyboard

    def _follows_the_mouse(self, width, height):
        """Weston goes as far as the mouse does, but at times from another place: from corner to corner, both come to be
        where the screen ends."""
        if not (self.root / "run/tour").exists():
            return False
        for x, y in ((width - 1, height - 1), (0, 0), (320, 320)):
            self._xdotool("mousemove", x, y)
            windows = self._scene_graph()  # answered once it has moved there: moves that wait are taken together
        return re.search(r"cursor, .*\n\s*position: \(31", windows)

    def _scene_graph(self):
        return subprocess.run(["weston-debug", "scene-graph"], env=self.environment, capture_output=True, text=True,
                              check=False).stdout

    def views(self):
        """The windows of the program on show."""
        told = self._scene_graph()
        views = [View(found["role"], int(found["pid"]), found["title"] or "", right - left, bottom - top, left, top)
                 for found in VIEW.finditer(told) for left, top, right, bottom in [map(int, found.groups()[3:])]]
        return [view for view in views if view.pid == self.program.pid]

    def area(self, node):
        """A program does not know where the compositor has put its windows: only where things lie within them."""
        width, height, x, y = super().area(node)
        window = node
        while window.get_parent() != self.application:
            window = window.get_parent()
        own = super().area(window)
        view = self._view_of(window.get_name(), own)
        # The frame is as wide at the sides as it is below; the rest of its height is the title's.
        frame = (view.width - own[0]) // 2
        return [width, height, view.x + frame + x - own[2], view.y + view.height - frame - own[1] + y - own[3]]

    def _view_of(self, title, area):
        views = [view for view in self.views() if view.title == title and view.width >= area[0]]
        if not views:
            raise Missed(f"'{title}' on the screen", [view.title for view in self.views()])
        return min(views, key=lambda view: view.width - area[0])

    def type(self, text):
        """Not letter by letter where a list of completions comes up: it takes the keyboard, and some get lost."""
        if "/" in text:
            self.paste(text)
        else:
            super().type(text)

    def click(self, node, button=1, times=1):
        """As long as a finger takes: the compositor gives a popup to a press, and not to one that is over already."""
        if times > 1:
            super().click(node, button, times)
            return
        width, height, x, y = self.area(node)
        self._xdotool("mousemove", x + width // 2, y + height // 2, "mousedown", button)
        for _ in range(2):  # compositor and program answer once they have seen to what came before
            self.views()
            node.get_extents(self.atspi.CoordType.SCREEN)
        self._xdotool("mouseup", button)

    def ask_to_close(self, area):
        """The frame is the toolkit's, and its button does nothing while a dialog shows: the session ends as well."""
        super().ask_to_close(area)
        self.program.terminate()

    def popups(self):
        return len(self.views()) - 1

    def is_on_screen(self, title):
        return any(view.title == title for view in self.views())
