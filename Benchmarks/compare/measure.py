"""Runs commands and times them, and keeps what was measured.

Within a row the contenders take turns, round by round and each round in another order, so that whatever else the
machine does meets them all, and none always follows the one that keeps the disk busy; a row's figure is the median.
Nothing is deleted while measuring, nor shortly before: an ext4 without a journal looks through all inodes that were
freed in the last five minutes whenever it makes a file, which would be measured along.
"""

import json
import mmap
import os
import random
import statistics
import subprocess
import sys
import tempfile
import time
from collections import namedtuple

LEAST_FREE = 4e9  # bytes; a disk that fills up would stop everything else on the machine as well

Command = namedtuple("Command", "words environment", defaults=({},))
# What one contender does in a row: prepare(round) returns the Command to time, finish() is called after it. What lies
# below the folders that reads() names is read just before.
Turn = namedtuple("Turn", "name prepare finish reads", defaults=(None, lambda: []))

NOWHERE = os.open(os.devnull, os.O_RDWR)


def fail(text):
    sys.exit(f"bench: {text}")


def run(command):
    """Runs a command and returns its wall time in seconds; a command that fails ends the benchmark."""
    with tempfile.TemporaryFile() as errors:
        actions = [(os.POSIX_SPAWN_DUP2, NOWHERE, 0), (os.POSIX_SPAWN_DUP2, NOWHERE, 1),
                   (os.POSIX_SPAWN_DUP2, errors.fileno(), 2)]
        start = time.perf_counter()
        child = os.posix_spawnp(command.words[0], command.words, {**os.environ, **command.environment},
                                file_actions=actions)
        _, status = os.waitpid(child, 0)
        elapsed = time.perf_counter() - start
        if status != 0:
            errors.seek(0)
            fail(f"failed with status {os.waitstatus_to_exitcode(status)}: {' '.join(command.words)}\n"
                 + errors.read().decode(errors="replace"))
    return elapsed


def output_of(command):
    return subprocess.run(command.words, env={**os.environ, **command.environment}, stdout=subprocess.PIPE,
                          check=True).stdout.decode()


def read_all(folder):
    """So that it is in the cache: some systems drop what was not used for a minute, free memory or not."""
    run(Command(["find", folder, "-type", "f", "-exec", "cat", "{}", "+"]))


def fill_memory():
    """So that a host which takes free memory back has handed it out again: else the first use of each page, which can
    take ten times as long, is measured along. Much more than any turn uses, but never all."""
    with open("/proc/meminfo") as file:
        free = next(int(line.split()[1]) * 1024 for line in file if line.startswith("MemFree:"))
    size = min(8 << 30, free * 3 // 4)
    mmap.mmap(-1, size, flags=mmap.MAP_PRIVATE | mmap.MAP_ANONYMOUS | mmap.MAP_POPULATE).close()


def with_peak(command, report):
    """The command, writing its peak memory into a file: by a small program between, because a child counts the memory
    of who spawned it as its own. That costs a millisecond."""
    return Command(["/usr/bin/time", "-o", report, "-f", "%M", *command.words], command.environment)


def peak_in(report):
    """Megabytes."""
    with open(report) as file:
        return int(file.read()) * 1024 / 1e6


class Disk:
    """The volume that is measured."""

    def __init__(self, folder, file_system):
        self.folder, self.shares_blocks = folder, file_system == "btrfs"

    def used(self):
        """Bytes of the whole volume."""
        status = os.statvfs(self.folder)
        return (status.f_blocks - status.f_bfree) * status.f_frsize

    def check_free(self):
        status = os.statvfs(self.folder)
        if status.f_bavail * status.f_frsize < LEAST_FREE:
            fail("the disk is nearly full")

    def size(self, path):
        """Bytes that only what lies below a path holds. Where blocks are shared, the shared ones do not count."""
        if self.shares_blocks:
            words = ["btrfs", "filesystem", "du", "--raw", "-s", path]
            return int(output_of(Command(words)).splitlines()[-1].split()[1])
        return allocated(path)


def allocated(path):
    """Bytes of the blocks below a path, those of hard links once."""
    seen, total = set(), 0
    for folder, _, files in os.walk(path):
        for name in [".", *files]:
            status = os.lstat(os.path.join(folder, name))
            if (status.st_dev, status.st_ino) not in seen:
                seen.add((status.st_dev, status.st_ino))
                total += status.st_blocks * 512
    return total


class Results:
    """The rows of a run. A row: its part, title, unit, the values of each contender, and what is to be reached."""

    def __init__(self, options, disk, machine):
        self.options, self.disk = options, disk
        self.data = {"machine": machine, "rounds": options.rounds, "small": options.small, "rows": [], "series": {}}

    def row(self, part, title, turns, rounds=None, aim=None):
        """Times the turns; returns the medians."""
        times = {turn.name: [] for turn in turns}
        for number in range(rounds or self.options.rounds):
            for turn in random.Random(number).sample(turns, len(turns)):
                self.disk.check_free()
                command = turn.prepare(number)
                for folder in turn.reads():
                    read_all(folder)
                os.sync()
                if turn.reads():
                    fill_memory()
                times[turn.name].append(run(command))
                if turn.finish:
                    turn.finish()
        return self.add(part, title, "s", times, aim)

    def add(self, part, title, unit, values, aim=None):
        """values: of each contender, one or a list of them. aim: see verdict() in report.py."""
        values = {name: value if isinstance(value, list) else [value] for name, value in values.items()}
        row = {"part": part, "title": title, "unit": unit, "values": values, "aim": aim}
        self.data["rows"].append(row)
        medians = {name: statistics.median(found) for name, found in values.items()}
        print(title)
        for name, value in medians.items():
            ratio = f"  {value / medians['limit']:6.2f} x limit" if medians.get("limit") else ""
            print(f"    {name:<28} {value:12.4f} {unit}{ratio}", flush=True)
        self.save()
        return medians

    def series(self, name, points):
        """points: of each line of a plot, pairs of numbers."""
        self.data["series"][name] = points
        self.save()

    def save(self):
        """After every row, so that a run which fails late has not measured for nothing."""
        with open(self.options.output + ".new", "w") as file:
            json.dump(self.data, file, indent=1)
            file.write("\n")
        os.replace(self.options.output + ".new", self.options.output)
