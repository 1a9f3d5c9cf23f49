"""Runs the stations of the tour in a session of one kind. Started by scripts/tour."""
import argparse
import sys
from pathlib import Path

from desktop import Desktop
from stations import Tour
from gtk import GtkDesktop, GtkTour
from wayland import WaylandDesktop

SESSIONS = {"x11": (Desktop, Tour), "wayland": (WaylandDesktop, Tour), "gtk": (GtkDesktop, GtkTour)}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--program", required=True)
    parser.add_argument("--drive", type=Path, required=True)
    parser.add_argument("--output", type=Path, required=True)
    parser.add_argument("--session", choices=SESSIONS, default="x11")
    parser.add_argument("--short", action="store_true")
    parser.add_argument("--update-pictures", action="store_true")
    arguments = parser.parse_args()
    arguments.output.mkdir(parents=True, exist_ok=True)
    for picture in [*arguments.output.glob("[0-9][0-9]-*.png"), arguments.output / "failure.png"]:
        picture.unlink(missing_ok=True)

    make_desktop, make_tour = SESSIONS[arguments.session]
    desktop = make_desktop()
    try:
        tour = make_tour(desktop, arguments.program, arguments.drive, arguments.output, arguments.update_pictures)
        done = tour.run(tour.SHORT if arguments.short else tour.STATIONS)
    finally:
        desktop.close()
    sys.exit(0 if done else 1)


if __name__ == "__main__":
    main()
