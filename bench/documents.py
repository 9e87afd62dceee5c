"""The table of the benches as a part of a document in Markdown, with the machine in words."""

import datetime
import os
import pathlib
import platform
import sys

BEGIN = "<!-- Measured: script/bench --document writes what stands from here -->"
END = "<!-- to here. -->"


def _about(path, key, separator):
    """What a file of the system says of the key, if it says something."""
    try:
        lines = pathlib.Path(path).read_text(encoding="utf-8").splitlines()
    except OSError:
        return None
    for line in lines:
        found, _, rest = line.partition(separator)
        if found.strip() == key:
            return rest.strip().strip('"')
    return None


def machine():
    """What the figures hold for, in a sentence."""
    load = os.getloadavg()[0]
    memory = int((_about("/proc/meminfo", "MemTotal", ":") or "0 kB").split()[0])
    processor = _about("/proc/cpuinfo", "model name", ":") or platform.machine()
    system = _about("/etc/os-release", "PRETTY_NAME", "=") or platform.system()
    virtual = "hypervisor" in (_about("/proc/cpuinfo", "flags", ":") or "").split()
    busy = ", too many for steady figures" if load > 1 else ""
    return (
        f"{os.cpu_count()} {'virtual ' if virtual else ''}processors ({processor}), "
        f"{memory / 2**20:.0f} GiB of memory, {system}, Linux {platform.release()}; "
        f"{load:.1f} other processes running on average{busy}"
    )


def _halves(path):
    text = pathlib.Path(path).read_text(encoding="utf-8")
    before, begin, rest = text.partition(BEGIN)
    _, end, after = rest.partition(END)
    if not begin or not end:
        sys.exit(f"{path} has no place for the table: the comments {BEGIN} and {END}")
    return before + begin, end + after


def look_for_place(path):
    """Ends the program if the document cannot take the table."""
    _halves(path)


def put(path, machine_in_words, sections):
    before, after = _halves(path)
    lines = [
        "",
        "",
        f"On {datetime.date.today():%d %B %Y}: {machine_in_words}.",
    ]
    for title, notes, rows in sections:
        lines += ["", f"### {title}", ""]
        if notes:
            note = " ".join(notes)
            lines += [f"{note[0].upper()}{note[1:]}.", ""]
        lines += ["| | measured | ratio | target | |", "|---|--:|--:|--:|---|"]
        lines += ["| " + " | ".join(cell.strip() for cell in row) + " |" for row in rows]
    pathlib.Path(path).write_text(before + "\n".join(lines) + "\n\n" + after, encoding="utf-8")
