"""Looking for what was lost in a long history, and taking back the newest turn."""

import os

from contenders import Limit, Restic, ShadowGit, Tidewrack
from measure import Command, Turn, fail, output_of, run
from trees import change_a_little, copy_tree, files_below

RESTIC_SNAPSHOTS = 20  # each takes seconds


class Story:
    """One tree with a turn after another, of which a file comes and goes in the middle, and another changes five times."""

    def __init__(self, bench, source):
        self.bench, self.count = bench, bench.counts.found
        tree = copy_tree(source, bench.path("history", "tree"))
        self.tidewrack, self.limit, self.git = (kind(bench.options.programs, tree, bench.path("history", kind.__name__))
                                                for kind in (Tidewrack, Limit, ShadowGit))
        self.tree, self.lost, self.changed = tree, tree + "/lost_by_the_benchmark.txt", tree + "/changed_by_it.txt"
        self.files = files_below(tree)
        self.restic = None
        if "restic" not in bench.options.without:
            self.restic = Restic(bench.options.programs, tree, bench.path("history", "Restic"))
        for contender in (self.tidewrack, self.git):
            run(contender.first())
        for number in range(self.count - 1):
            self.go_on(number)
            for contender in (self.tidewrack, self.git):
                run(contender.snap())
            if self.restic and number % max(1, self.count // RESTIC_SNAPSHOTS) == 0:
                run(self.restic.snap())

    def go_on(self, number):
        change_a_little(self.files, number)
        step = self.count // 6
        if number % step == 0:
            self.write(self.changed, number)
        if number == 2 * step:
            self.write(self.lost, number)
        if number == 4 * step:
            os.unlink(self.lost)

    @staticmethod
    def write(path, number):
        with open(path, "w") as file:
            file.write(f"line {number}\n" * 10)

    def row(self, title, turns, **more):
        self.bench.results.row("history", f"{self.count:,} snapshots: {title}", turns, **more)

    def finding(self):
        name = os.path.basename(self.lost)
        ours = self.tidewrack.tool("find", "lost_by", "--deleted")
        git = self.git.shell(f"git log --all --diff-filter=D --name-only -- '*{name}'")
        if name not in output_of(ours) or name not in output_of(git):
            fail("the lost file is not found")
        turns = [Turn("tidewrack", lambda _: ours), Turn("git log -- pattern", lambda _: git)]
        if self.restic:
            words = self.restic.command("restic", "--quiet", "find", name)
            turns.append(Turn(f"restic find, {RESTIC_SNAPSHOTS} snapshots", lambda _: words))
        self.row("find a lost file", turns, aim={"most": 2})

    def log_of_a_path(self):
        name = os.path.basename(self.changed)
        for path, aim in ((name, {"most": 2}), ("Documentation" if os.path.isdir(self.tree + "/Documentation") else "", None)):
            if not path:
                continue
            self.row(f"log of {'a file' if aim else 'a folder, the latest 20 changes'}", [
                Turn("tidewrack", lambda _, p=path: self.tidewrack.tool("log", f"{self.tree}/{p}")),
                Turn("git log -- path", lambda _, p=path: self.git.shell(f"git log -n 20 --shortstat -- '{p}'"))], aim=aim)

    def timeline(self):
        self.row("timeline of 20 rows", [
            Turn("tidewrack", lambda _: self.tidewrack.tool("timeline")),
            Turn("git log --shortstat", lambda _: self.git.shell("git log -n 20 --shortstat"))])

    def export(self):
        newest = self.tidewrack.newest()

        def to(name, command):
            def prepare(number):
                folder = self.bench.path("history", f"{name}{number}")
                return command(folder)
            return prepare
        self.row("export of all into a folder", [
            Turn("tidewrack", to("ours", lambda folder: self.tidewrack.tool("export", newest, folder))),
            Turn("git archive and tar", to("archive", lambda folder: self.git.shell(
                f"mkdir '{folder}' && git archive HEAD | tar -xf - -C '{folder}'"))),
            Turn("cp -a of the tree", to("copy", lambda folder: Command(["cp", "-a", self.tree, folder])))])

    def undo_last(self):
        def turn(number):
            change_a_little(self.files, number + 1_000_000)

        def ours(number):
            snap = ["snap", "--agent", "claude", "--session", "s", "--turn", str(number), "--kind"]
            run(self.tidewrack.tool(*snap, "prompt"))
            turn(number)
            run(self.tidewrack.tool(*snap, "stop"))
            return self.tidewrack.tool("undo", "--last")

        def reverted(number):
            run(self.git.snap())
            turn(number + 1000)
            run(self.git.snap())
            return self.git.shell("git revert --no-edit HEAD")

        def found_again():
            self.files[:] = files_below(self.tree)
        self.row("undo --last of a turn of 28 changes", [Turn("tidewrack", ours, found_again),
                                                         Turn("git revert", reverted, found_again)])


def measure_history(bench, source):
    story = Story(bench, source)
    story.timeline()
    story.finding()
    story.log_of_a_path()
    story.undo_last()
    story.export()
