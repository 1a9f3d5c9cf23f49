"""The tables of scripts/bench: what was measured against its bar, and other programs on the same bytes."""
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

MIB = 1024 * 1024

# What, benchmark, its figure, unit, bar, and what the bar is a multiple of.
ROWS = [
    ("import of 1 GiB", "bulk", "import_ratio", "×", 1.10, "bare loop of read, SHA-256, AEAD, write"),
    ("export of 1 GiB", "bulk", "export_ratio", "×", 1.10, "bare loop of read, AEAD, write"),
    ("memory above idle, import", "bulk", "import_MiB", "MiB", 48, ""),
    ("memory above idle, export", "bulk", "export_MiB", "MiB", 48, ""),
    ("written by a rename, 1,000 files", "writtenBytes/few", "rename_headers", "×", 2.75, "header, + 64 KiB"),
    ("written by a small import, 1,000 files", "writtenBytes/few", "import_headers", "×", 2.75,
     "header, + block + 64 KiB"),
    ("written by a rename, 14,000 files", "writtenBytes/many", "rename_headers", "×", 1.75, "header, + 64 KiB"),
    ("written by a small import, 14,000 files", "writtenBytes/many", "import_headers", "×", 1.75,
     "header, + block + 64 KiB"),
    ("unlocking 14,000 files, beyond an empty vault", "unlocking", "beyond_ms", "ms", 100, ""),
    ("rename among 14,000 files", "amongFourteenThousand", "rename_ms", "ms", 60, ""),
    ("move among 14,000 files", "amongFourteenThousand", "move_ms", "ms", 60, ""),
    ("delete among 14,000 files", "amongFourteenThousand", "delete_ms", "ms", 60, ""),
    ("import of one byte among 14,000 files", "amongFourteenThousand", "import_ms", "ms", 60, ""),
    ("renaming a folder of 5,000 of 14,000 files", "amongFourteenThousand", "folder_ms", "ms", 100, ""),
    ("1,000 files of 4 KiB in a series, each", "thousandFiles", "file_ms", "ms", 12, ""),
    ("the same, growth", "thousandFiles", "growth", "×", 7, "first quarter by the last; 7 is linear"),
    ("showing a folder of 10,000 files", "largeFolder", "show_ms", "ms", 300, ""),
    ("sorting it by name", "largeFolder", "sort_name_ms", "ms", 300, ""),
    ("sorting it by size", "largeFolder", "sort_size_ms", "ms", 300, ""),
    ("sorting it by type", "largeFolder", "sort_type_ms", "ms", 300, ""),
    ("sorting it by date", "largeFolder", "sort_date_ms", "ms", 300, ""),
    ("making a folder in it, and refreshing it", "largeFolder", "refresh_ms", "ms", 300, ""),
    ("start to first painted window", "start", "start_ratio", "×", 1.25, "bare Qt window with a menu"),
    ("drive: import of 64 MiB, written", "oneImport", "bytes_ratio", "×", 1.01, "the file"),
    ("drive: the same, waits", "oneImport", "waits", "waits", 20, ""),
    ("drive: 300 files of 4 KiB in a series, written", "seriesOf300", "bytes_ratio", "×", 1.5, "the files"),
    ("drive: the same, waits", "seriesOf300", "waits", "waits", 12, ""),
    ("drive: 20 such files among 5,000, written", "seriesAmong5000", "bytes_ratio", "×", 2.5, "a rename there"),
    ("drive: compaction, written", "compactionOnDrive", "bytes_ratio", "×", 1.03, "two copies of what stays"),
    ("drive: unlocking, read beyond the header", "lockAndUnlock", "unlock_beyond_header_KiB", "KiB", 64, ""),
    ("drive: unlocking, written", "lockAndUnlock", "unlock_written_KiB", "KiB", 0, ""),
    ("drive: locking, written", "lockAndUnlock", "lock_written_KiB", "KiB", 0, ""),
    ("compaction of 1 GiB", "compaction", "compaction_ratio", "×", 1.2, "copying as often, with the re-reads"),
]


def benchmark_results(folder):
    """Name of each benchmark -> its figures."""
    found = {}
    for path in folder.glob("*.json"):
        for run in json.loads(path.read_text())["benchmarks"]:
            if run.get("error_occurred"):
                sys.exit(f"bench: {run['name']}: {run.get('error_message')}")
            found[run["name"].split("/iterations")[0]] = run
    return found


def processor_figure(figures, key):
    """The same in the processor's time instead of the clock's; None for what is no time."""
    for suffix in ("_ratio", "_ms"):
        if key.endswith(suffix):
            return figures.get(key.removesuffix(suffix) + "_processor" + suffix)
    return figures.get(key + "_processor")


def share_of(value, bar):
    return f"{value / bar:.0%}" if bar else "100%" if value == 0 else "above"


def bar_rows(results, markdown):
    for what, benchmark, key, unit, bar, of in ROWS:
        figures = results[benchmark]
        value, processor = figures[key], processor_figure(figures, key)
        verdict = "ok" if value <= bar else "MISSED"
        limit = f"{bar:g} {unit} {of}".strip()
        if markdown:
            yield [what, limit, f"{value:.2f} ×" if unit == "×" else share_of(value, bar) + " of the bar", verdict]
        else:
            in_processor_time = "" if processor is None else f"{processor:.2f} {unit}"
            yield [what, f"{value:.2f} {unit}", limit, share_of(value, bar), in_processor_time, verdict]


# Other programs ---------------------------------------------------------------------------------------------


def run(*command, **options):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, **options)


def median_seconds(work, prepare, times=3):
    def once():
        prepare()
        start = time.monotonic()
        work()
        return time.monotonic() - start
    return statistics.median(once() for _ in range(times))


def removing(*paths):
    def remove():
        for path in paths:
            shutil.rmtree(path) if path.is_dir() else path.unlink(missing_ok=True)
    return remove


def copy_in(source, target):
    """What a file manager does, and a wait for the drive."""
    shutil.copytree(source, target) if source.is_dir() else shutil.copyfile(source, target)
    os.sync()


def time_age(folder, large, small):
    key = folder / "key.txt"
    run("age-keygen", "-o", key)
    public = next(line.split()[-1] for line in key.read_text().splitlines() if "public key" in line)
    box, out, boxes = folder / "1.age", folder / "1.out", folder / "boxes"

    def many():
        boxes.mkdir()
        for path in small.iterdir():
            run("age", "-r", public, "-o", boxes / path.name, path)
    yield median_seconds(lambda: run("age", "-r", public, "-o", box, large), removing(box))
    yield median_seconds(lambda: run("age", "-d", "-i", key, "-o", out, box), removing(out))
    yield median_seconds(many, removing(boxes), times=1)


def time_7z(folder, large, small):
    box, out = folder / "1.7z", folder / "out"
    pack = ["7z", "a", "-mx0", "-mhe=on", "-psenha-do-banco", box]
    unpack = ["7z", "x", "-psenha-do-banco", f"-o{out}", box]
    yield median_seconds(lambda: run(*pack, large), removing(box))
    yield median_seconds(lambda: run(*unpack), removing(out))
    yield median_seconds(lambda: run(*pack, small), removing(box))


def time_gocryptfs(folder, large, small):
    store, mounted, out = folder / "store", folder / "mounted", folder / "out"
    store.mkdir()
    mounted.mkdir()
    run("gocryptfs", "-q", "-init", "-extpass", "echo senha-do-banco", store)
    run("gocryptfs", "-q", "-extpass", "echo senha-do-banco", store, mounted)
    try:
        yield median_seconds(lambda: copy_in(large, mounted / "1"), removing(mounted / "1"))
        yield median_seconds(lambda: shutil.copyfile(mounted / "1", out), removing(out))
        yield median_seconds(lambda: copy_in(small, mounted / "small"), removing(mounted / "small"))
    finally:
        run("fusermount3", "-u", mounted)


def can_mount():
    return shutil.which("fusermount3") is not None and os.access("/dev/fuse", os.R_OK | os.W_OK)


OTHERS = [
    ("age, with a key", "age", time_age, lambda: True),
    ("gocryptfs, mounted", "gocryptfs", time_gocryptfs, can_mount),
    ("7z -mx0, with a password", "7z", time_7z, lambda: True),
]


def other_rows(results):
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        large, small = folder / "large", folder / "small"
        with large.open("wb") as file:
            for _ in range(64):
                file.write(os.urandom(16 * MIB))
        small.mkdir()
        for number in range(1000):
            (small / f"{number}").write_bytes(os.urandom(4096))
        own = [results["bulk"]["import_seconds"], results["bulk"]["export_seconds"],
               results["thousandFiles"]["seconds"]]
        for title, program, timing, is_possible in OTHERS:
            if shutil.which(program) is None or not is_possible():
                yield [title, "skipped", "not available here", ""]
                continue
            work = folder / "work"
            work.mkdir()
            try:
                seconds = list(timing(work, large, small))
            except subprocess.CalledProcessError as error:
                reason = error.stderr.decode(errors="replace").strip().splitlines() or ["failed"]
                yield [title, "skipped", reason[-1][:60], ""]
            else:
                yield [title, *(f"{theirs / ours:.2f} ×" for theirs, ours in zip(seconds, own))]
            finally:
                shutil.rmtree(work, ignore_errors=True)


def print_table(header, rows, markdown):
    rows = [header, *rows]
    if markdown:
        rows.insert(1, ["---"] * len(header))
        for row in rows:
            print("| " + " | ".join(row) + " |")
    else:
        widths = [max(map(len, column)) for column in zip(*rows)]
        for row in rows:
            print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip())
    print()


def main():
    folder, markdown = Path(sys.argv[1]), "--markdown" in sys.argv
    results = benchmark_results(folder)
    header = ["What", "Bar", "Measured", ""] if markdown else \
        ["what", "measured", "bar", "of the bar", "in processor time", ""]
    print_table(header, list(bar_rows(results, markdown)), markdown)
    print("Time that others take for the same bytes, in times of Tessarin's:\n")
    print_table(["", "1 GiB in", "1 GiB out", "1,000 files of 4 KiB in"], list(other_rows(results)), markdown)


if __name__ == "__main__":
    main()
