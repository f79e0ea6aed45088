"""Measures tidewrack beside the limit of the machine and beside other tools; scripts/bench calls it.

Every contender has a copy of the tree of its own. Within a row the contenders take turns, round by
round, so that whatever else the machine does meets them all; a row's figure is the median.
Nothing is deleted while measuring, nor shortly before: an ext4 without a journal looks through all
inodes that were freed in the last five minutes whenever it makes a file, which would be measured along.
"""

import argparse
import json
import os
import random
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

INODE_REST = 330  # seconds

DEVNULL = os.open(os.devnull, os.O_RDWR)


def run(words, environment=None):
    """Runs a command and returns its wall time in seconds; a command that fails ends the benchmark."""
    with tempfile.TemporaryFile() as errors:
        actions = [(os.POSIX_SPAWN_DUP2, DEVNULL, 0), (os.POSIX_SPAWN_DUP2, DEVNULL, 1),
                   (os.POSIX_SPAWN_DUP2, errors.fileno(), 2)]
        start = time.perf_counter()
        child = os.posix_spawnp(words[0], words, {**os.environ, **(environment or {})}, file_actions=actions)
        _, status = os.waitpid(child, 0)
        elapsed = time.perf_counter() - start
        if status != 0:
            errors.seek(0)
            sys.exit(f"bench: failed with status {os.waitstatus_to_exitcode(status)}: {' '.join(words)}\n"
                     + errors.read().decode(errors="replace"))
    return elapsed


def output_of(words, environment=None):
    return subprocess.run(words, env={**os.environ, **(environment or {})}, stdout=subprocess.PIPE, check=True).stdout


class Tidewrack:
    name = "tidewrack"
    exact = True

    def __init__(self, programs, tree, store):
        self.program, self.tree = programs + "/tidewrack", tree
        self.new_store(store)

    def new_store(self, store):
        self.environment = {"TIDEWRACK_HOME": store}

    def command(self, *words):
        return [self.program, *words, "--project", self.tree]

    def first_command(self):
        return [self.program, "track", self.tree, "--force"]

    def snap_command(self):
        return self.command("snap")

    def newest(self):
        return str(json.loads(output_of(self.command("log", "-n", "1", "--json"), self.environment))[0]["seq"])

    def undo_command(self, snapshot):
        return self.command("undo", snapshot)

    def restore_command(self, snapshot):
        return self.command("restore", snapshot)


class Limit:
    name = "limit"
    exact = True
    environment = {}

    def __init__(self, programs, tree, store):
        self.program, self.tree = programs + "/tidewrack_limit", tree
        self.new_store(store)

    def new_store(self, store):
        os.makedirs(store)
        self.store = store

    def first_command(self):
        return self.snap_command()

    def snap_command(self):
        return [self.program, "snap", self.tree, self.store]

    def newest(self):
        return str(max(int(name[:-5]) for name in os.listdir(self.store) if name.endswith(".list")))

    def undo_command(self, snapshot):
        return self.restore_command(snapshot)

    def restore_command(self, snapshot):
        return [self.program, "restore", self.tree, self.store, snapshot]


class ShadowGit:
    """A git repository outside the tree that takes every snapshot as a commit, ignored files included."""

    name = "shadow git"
    exact = False  # git keeps no times and few mode bits
    save = "git add -A -f && git commit -q --allow-empty --no-verify -m snapshot"

    def __init__(self, programs, tree, store):
        self.tree = tree
        self.new_store(store)

    def new_store(self, store):
        self.environment = {
            "GIT_DIR": store, "GIT_WORK_TREE": self.tree, "GIT_CONFIG_GLOBAL": os.devnull,
            "GIT_CONFIG_COUNT": "2", "GIT_CONFIG_KEY_0": "gc.auto", "GIT_CONFIG_VALUE_0": "0",
            "GIT_CONFIG_KEY_1": "core.excludesFile", "GIT_CONFIG_VALUE_1": os.devnull,
            "GIT_AUTHOR_NAME": "bench", "GIT_AUTHOR_EMAIL": "bench", "GIT_COMMITTER_NAME": "bench",
            "GIT_COMMITTER_EMAIL": "bench",
        }

    def shell(self, text):
        return ["sh", "-c", f"cd '{self.tree}' && {text}"]

    def first_command(self):
        return self.shell("git init -q && " + self.save)

    def snap_command(self):
        return self.shell(self.save)

    def newest(self):
        return output_of(self.shell("git rev-parse HEAD"), self.environment).decode().strip()

    def undo_command(self, snapshot):
        return self.restore_command(snapshot)

    def restore_command(self, snapshot):
        return self.shell(f"{self.save} && git reset -q --hard {snapshot}")


def listing(tree, exact):
    """What a tree holds, for telling whether it came back as it was."""
    found = {}
    for folder, folders, files in os.walk(tree):
        for name in folders + files:
            path = os.path.join(folder, name)
            status = os.lstat(path)
            is_folder = os.path.isdir(path) and not os.path.islink(path)
            if is_folder and not exact:
                continue
            facts = (status.st_mode,) if is_folder else (status.st_mode, status.st_size, status.st_mtime_ns)
            found[os.path.relpath(path, tree)] = facts if exact else status.st_size
    return found


def check_same(contender, before):
    after = listing(contender.tree, contender.exact)
    if after != before:
        different = [path for path in before.keys() | after.keys() if before.get(path) != after.get(path)]
        sys.exit(f"bench: {contender.name} did not put back {len(different)} paths, such as {min(different)}")


def files_below(tree):
    return sorted(os.path.join(folder, name) for folder, _, files in os.walk(tree) for name in files
                  if not os.path.islink(os.path.join(folder, name)))


class Bench:
    def __init__(self, options):
        self.options = options
        self.folder = options.folder
        self.rows = []
        self.trash = 0

    def path(self, *names):
        return os.path.join(self.folder, "work", *names)

    def remove_work(self):
        shutil.rmtree(self.path())
        with open(os.path.join(self.folder, "last-removal"), "w"):
            pass

    def wait_for_inodes(self):
        try:
            age = time.time() - os.stat(os.path.join(self.folder, "last-removal")).st_mtime
        except FileNotFoundError:
            return
        if age < INODE_REST:
            print(f"bench: waiting {INODE_REST - age:.0f} s, because files were deleted just now", flush=True)
            time.sleep(INODE_REST - age)

    def make_contenders(self, tree_name, source):
        contenders = []
        for kind in (Tidewrack, Limit, ShadowGit):
            place = self.path(tree_name, kind.__name__)
            os.makedirs(place)
            run(["cp", "-a", source, place + "/tree"])
            contenders.append(kind(self.options.programs, place + "/tree", place + "/store"))
        return contenders

    def row(self, name, turns):
        """turns: (contender's name, prepare, finish) where prepare returns (command, environment)."""
        times = {}
        for number in range(self.options.rounds):
            for title, prepare, finish in turns:
                words, environment = prepare(number)
                os.sync()
                times.setdefault(title, []).append(run(words, environment))
                if finish:
                    finish()
        self.add(name, {title: statistics.median(values) for title, values in times.items()}, "s")

    def add(self, name, figures, unit):
        self.rows.append((name, figures, unit))
        print_row(name, figures, unit)

    def first(self, label, contenders, tree_name, copy):
        def fresh(contender):
            def prepare(number):
                contender.new_store(self.path(tree_name, type(contender).__name__, f"store{number}"))
                return contender.first_command(), contender.environment
            return prepare

        def copy_tree(number):
            return [*copy, contenders[0].tree, self.path(tree_name, f"copy{number}")], None

        turns = [(contender.name, fresh(contender), None) for contender in contenders]
        self.row(label, turns + [(" ".join(copy), copy_tree, None)])

    def unchanged(self, label, contenders):
        for contender in contenders:
            run(contender.snap_command(), contender.environment)
        git = contenders[2]
        turns = [(contender.name, lambda _, c=contender: (c.snap_command(), c.environment), None)
                 for contender in contenders]
        turns.append(("git status", lambda _: (git.shell("git status --porcelain"), git.environment), None))
        self.row(f"{label}: nothing changed", turns)
        limit = contenders[1]
        self.row(f"{label}: walk alone", [("limit", lambda _: ([limit.program, "walk", limit.tree], None), None)])
        peaks = {contender.name: self.peak_memory(contender) for contender in contenders}
        self.add(f"{label}: peak memory, nothing changed", peaks, "MB")

    def peak_memory(self, contender):
        report = self.path("peak")
        run(["/usr/bin/time", "-o", report, "-f", "%M", *contender.snap_command()], contender.environment)
        with open(report) as file:
            return int(file.read()) / 1024

    def wreck_a_little(self, tree, number):
        """20 changes, 5 additions, 3 deletions: one turn of an agent."""
        files = files_below(tree)
        chosen = random.Random(number).sample(files, 28)
        for path in chosen[:20]:
            with open(path, "a") as file:
                file.write("changed by the benchmark\n")
        for path in chosen[20:25]:
            with open(path + ".added", "w") as file:
                file.write("added by the benchmark\n")
        for path in chosen[25:]:
            os.unlink(path)

    def wreck_a_third(self, tree, number):
        """Moves folders of the second level away until a third of the files is gone."""
        files = files_below(tree)
        counts = {}
        for path in files:
            parts = os.path.relpath(path, tree).split(os.sep)
            if len(parts) > 2:
                counts[os.path.join(*parts[:2])] = counts.get(os.path.join(*parts[:2]), 0) + 1
        folders = sorted(counts)
        random.Random(number).shuffle(folders)
        gone = 0
        for folder in folders:
            if gone + counts[folder] > len(files) / 3 * 1.02:
                continue
            self.trash += 1
            os.makedirs(self.path("trash"), exist_ok=True)
            os.rename(os.path.join(tree, folder), self.path("trash", str(self.trash)))
            gone += counts[folder]

    def turn(self, label, contenders, source):
        """The snapshot after a turn, and its undo; each undo is checked."""
        before, states = {}, {}

        def change(contender):
            def prepare(number):
                run(contender.snap_command(), contender.environment)
                states[contender.name] = contender.newest()
                before[contender.name] = listing(contender.tree, contender.exact)
                self.wreck_a_little(contender.tree, number)
                return contender.snap_command(), contender.environment
            return prepare

        def undo(contender):
            def prepare(number):
                change(contender)(number)
                run(contender.snap_command(), contender.environment)
                return contender.undo_command(states[contender.name]), contender.environment
            return prepare

        git = contenders[2]

        def reset(number):
            undo(git)(number)
            return git.shell(f"git reset -q --hard {states[git.name]}"), git.environment

        restic, restic_tree = self.prepare_restic(source)

        def restic_turn(number):
            run(restic_backup, restic)
            self.wreck_a_little(restic_tree, number)
            return restic_backup, restic

        restic_backup = ["restic", "--quiet", "backup", restic_tree]
        self.row(f"{label}: after 28 changes",
                 [(c.name, change(c), None) for c in contenders] + [("restic", restic_turn, None)])
        self.row(f"{label}: undo of the turn",
                 [(c.name, undo(c), lambda c=c: check_same(c, before[c.name])) for c in contenders]
                 + [("git reset --hard", reset, lambda: check_same(git, before[git.name]))])

    def prepare_restic(self, source):
        place = self.path("restic")
        os.makedirs(place)
        run(["cp", "-a", source, place + "/tree"])
        environment = {"RESTIC_REPOSITORY": place + "/repository", "RESTIC_PASSWORD": "bench",
                       "RESTIC_CACHE_DIR": place + "/cache"}
        run(["restic", "--quiet", "init"], environment)
        return environment, place + "/tree"

    def restore(self, label, contenders, source):
        before, states = {}, {}

        def wreck(contender):
            def prepare(number):
                run(contender.snap_command(), contender.environment)
                states[contender.name] = contender.newest()
                before[contender.name] = listing(contender.tree, contender.exact)
                self.wreck_a_third(contender.tree, number)
                return contender.restore_command(states[contender.name]), contender.environment
            return prepare

        copy = self.path("rsync")
        os.makedirs(copy)
        run(["cp", "-a", source, copy + "/tree"])
        run(["cp", "-a", source, copy + "/kept"])

        def rsync(number):
            self.wreck_a_third(copy + "/tree", number)
            return ["rsync", "-a", "--delete", copy + "/kept/", copy + "/tree/"], None

        self.row(f"{label}: restore after a third is gone",
                 [(c.name, wreck(c), lambda c=c: check_same(c, before[c.name])) for c in contenders]
                 + [("rsync", rsync, None)])

    def measure_tree(self, tree_name, source, all_rows):
        files = len(files_below(source))
        label = f"{files:,} files"
        print(f"\n{source}: {files:,} files", flush=True)
        contenders = self.make_contenders(tree_name, source)
        self.first(f"{label}: first snapshot", contenders, tree_name, self.options.copy.split())
        self.unchanged(label, contenders)
        if all_rows:
            self.turn(label, contenders, source)
            self.restore(label, contenders, source)


def print_row(name, figures, unit):
    limit = figures.get("limit")
    print(name)
    for title, value in figures.items():
        ratio = f"  {value / limit:6.2f} x limit" if limit else ""
        print(f"    {title:<22} {value:9.3f} {unit}{ratio}", flush=True)


def print_table(rows):
    print("\n| work | tidewrack | limit | tidewrack / limit | others |\n|---|---|---|---|---|")
    for name, figures, unit in rows:
        def shown(title):
            return f"{figures[title]:.3f} {unit}" if title in figures else ""
        ratio = f"{figures['tidewrack'] / figures['limit']:.2f}" if "tidewrack" in figures else ""
        others = ", ".join(f"{title} {shown(title)}" for title in figures if title not in ("tidewrack", "limit"))
        print(f"| {name} | {shown('tidewrack')} | {shown('limit')} | {ratio} | {others} |")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--programs", required=True, help="folder with tidewrack and tidewrack_limit")
    parser.add_argument("--folder", required=True, help="folder for trees and stores; its volume is measured")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--copy", default="cp -a", help="the copying command to compare first snapshots with")
    parser.add_argument("--main-tree", required=True, help="tree for all rows")
    parser.add_argument("--wide-tree", help="tree for the first and the unchanged rows")
    parser.add_argument("--no-wait", action="store_true", help="start at once though files were just deleted")
    options = parser.parse_args()

    bench = Bench(options)
    if os.path.exists(bench.path()):
        bench.remove_work()
    if not options.no_wait:
        bench.wait_for_inodes()
    os.makedirs(bench.path())
    bench.measure_tree("main", options.main_tree, True)
    if options.wide_tree:
        bench.measure_tree("wide", options.wide_tree, False)
    print_table(bench.rows)
    bench.remove_work()


main()
