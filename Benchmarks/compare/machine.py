"""Describes the machine without naming it."""

import os
import platform
import re

from measure import Command, output_of


def first_line(*words):
    return output_of(Command(list(words))).splitlines()[0].strip()


def file_system_of(folder):
    return output_of(Command(["df", "--output=fstype", folder])).split()[-1]


def disk_kind(folder):
    """Deleting is slow where the file system tells the disk at once which blocks are free."""
    source, options = output_of(Command(["findmnt", "-no", "SOURCE,OPTIONS", "-T", folder])).split()
    name = os.path.basename(source)
    kind = "an image file" if name.startswith("loop") else "a virtual disk" if name[:2] in ("vd", "xv") else "a disk"
    return kind + (", mounted with discard" if "discard" in options.split(",") else "")


def describe(folder):
    with open("/proc/cpuinfo") as file:
        processor = re.search(r"^model name\s*:\s*(.*)$", file.read(), re.MULTILINE)
    with open("/proc/meminfo") as file:
        memory = int(re.search(r"^MemTotal:\s*(\d+)", file.read(), re.MULTILINE).group(1))
    return {
        "processor": processor.group(1) if processor else platform.machine(),
        "cores": os.cpu_count(),
        "memory": f"{memory / 1024 ** 2:.0f} GiB",
        "kernel": "Linux " + ".".join(platform.release().split("-")[0].split(".")[:2]),
        "file system": file_system_of(folder),
        "disk": disk_kind(folder),
        "git": first_line("git", "--version").split()[-1],
        "restic": first_line("restic", "version").split()[1],
        "borg": first_line("borg", "--version").split()[-1],
        "rsync": first_line("rsync", "--version").split()[2],
    }
