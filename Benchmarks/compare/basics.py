"""First snapshots, snapshots without and with changes, undo, restore."""

import os

from contenders import EVERYONE, Borg, Limit, Restic, ShadowGit, Tidewrack
from measure import Command, Turn, fail, peak_in, run, with_peak
from trees import change_a_little, check_same, copy_tree, files_below, listing, take_a_third_away


def chosen(bench, kinds):
    return [kind for kind in kinds if kind.name not in bench.options.without]


def the(kind, everyone):
    return next(contender for contender in everyone if isinstance(contender, kind))


def measure_first(bench, tree, name, aims):
    """Nobody changes the tree here, so all contenders share it."""
    entries = sum(len(folders) + len(files) for _, folders, files in os.walk(tree))
    label = f"{entries:,} entries"
    everyone = [kind(bench.options.programs, tree, bench.path("first", name, kind.__name__))
                for kind in chosen(bench, EVERYONE)]
    first_snapshots(bench, label, everyone)
    nothing_changed(bench, label, everyone, aims)


def first_snapshots(bench, label, everyone):
    place, copy, tree = everyone[0].place, bench.options.copy.split(), everyone[0].tree
    limit = the(Limit, everyone)
    peaks, held = {}, {}

    def turn(contender):
        def prepare(number):
            contender.new_store(f"store{number}")
            os.sync()
            held[contender.name] = -bench.disk.used()
            return with_peak(contender.first(), contender.place + "/peak")

        def finish():
            os.sync()
            held[contender.name] += bench.disk.used()
            peaks.setdefault(contender.name, []).append(peak_in(contender.place + "/peak"))
        return Turn(contender.name, prepare, finish, lambda: [tree])

    def flushed_limit(number):
        limit.new_store(f"flushed{number}")
        return limit.flushed(limit.first())

    def copy_all(number):
        return Command([*copy, tree, f"{place}/copy{number}"])

    bench.results.row("first", f"{label}: first snapshot",
                      [*map(turn, everyone), Turn("limit and a flush", flushed_limit, reads=lambda: [tree]),
                       Turn(bench.options.copy, copy_all, reads=lambda: [tree])], aim={"times": 1.25})
    bench.results.add("first", f"{label}: peak memory, first snapshot", "MB", peaks)
    if not bench.disk.shares_blocks:
        held = {contender.name: bench.disk.size(contender.store) for contender in everyone}
    bench.results.add("first", f"{label}: disk, one snapshot", "MB", {name: size / 1e6 for name, size in held.items()})


def nothing_changed(bench, label, everyone, aims):
    for contender in everyone:
        run(contender.snap())
    limit, git = the(Limit, everyone), the(ShadowGit, everyone)
    turns = [Turn(c.name, lambda _, c=c: c.snap()) for c in everyone]
    turns.append(Turn("git status", lambda _: git.shell("git status --porcelain")))
    bench.results.row("first", f"{label}: nothing changed", turns, aim={"times": 1.25})
    bench.results.row("first", f"{label}: walk alone", [Turn("limit", lambda _: limit.walk())])
    peaks = {}
    for contender in everyone:
        run(with_peak(contender.snap(), contender.place + "/peak"))
        peaks[contender.name] = peak_in(contender.place + "/peak")
    bench.results.add("first", f"{label}: peak memory, nothing changed", "MB", peaks, aims.get("memory"))


class Rivals:
    """Contenders that each have a copy of the tree and a first snapshot of it."""

    def __init__(self, bench, source):
        self.bench, self.before, self.states = bench, {}, {}
        self.everyone = []
        for kind in chosen(bench, EVERYONE):
            tree = copy_tree(source, bench.path("turn", kind.__name__, "tree"))
            self.everyone.append(kind(bench.options.programs, tree, bench.path("turn", kind.__name__, "stores")))
        for contender in self.everyone:
            run(contender.first())
        self.limit, self.git = the(Limit, self.everyone), the(ShadowGit, self.everyone)
        self.files = {contender.name: files_below(contender.tree) for contender in self.everyone}

    def remember(self, contender):
        """Takes the state that must come back."""
        run(contender.snap())
        self.states[contender.name] = contender.newest()
        self.before[contender.name] = listing(contender.tree, contender.exact)

    def checked(self, contender):
        return lambda: check_same(contender, self.before[contender.name])

    def snapshot_after_turn(self, contender):
        def prepare(number):
            run(contender.snap())
            change_a_little(self.files[contender.name], number)
            return contender.snap()

        def finish():
            if isinstance(contender, Tidewrack) and contender.newest_counts() != (5, 20, 3):
                fail("the turn's changes are not in the snapshot")
        return Turn(contender.name, prepare, finish)

    def undo(self, contender, name=None, command=None):
        def prepare(number):
            self.remember(contender)
            change_a_little(files_below(contender.tree), number + 1000)
            run(contender.snap())
            return (command or contender.undo)(self.states[contender.name])
        return Turn(name or contender.name, prepare, self.checked(contender), lambda: [contender.store])

    def restore(self, contender, name=None, command=None):
        title = name or contender.name

        def prepare(number):
            self.remember(contender)
            gone = take_a_third_away(contender.tree, number, f"{contender.place}/trash of {title}{number}")
            return (command or contender.restore)(self.states[contender.name], gone)
        return Turn(title, prepare, self.checked(contender), lambda: [contender.store])


def rsync_restore(bench, source):
    """From a full copy: the source itself, which nothing here changes."""
    tree = copy_tree(source, bench.path("turn", "rsync", "tree"))

    def prepare(number):
        take_a_third_away(tree, number, bench.path("turn", "rsync", f"trash{number}"))
        return Command(["rsync", "-a", "--delete", source + "/", tree + "/"])
    return Turn("rsync", prepare, reads=lambda: [source])


def measure_turn(bench, source):
    rivals = Rivals(bench, source)
    bench.results.row("turn", "after 28 changes", [rivals.snapshot_after_turn(c) for c in rivals.everyone],
                      aim={"times": 1.25})
    # The others can only write the whole tree anew, or files that one names, and leave what was added.
    undoing = [c for c in rivals.everyone if not isinstance(c, (Restic, Borg))]
    bench.results.row("turn", "undo of the turn",
                      [*map(rivals.undo, undoing), rivals.undo(rivals.git, "git reset --hard", rivals.git.reset)],
                      aim={"times": 1.25})
    bench.results.row("turn", "restore after a third is gone",
                      [*map(rivals.restore, rivals.everyone),
                       rivals.restore(rivals.limit, "limit and a flush",
                                      lambda *state: rivals.limit.flushed(rivals.limit.restore(*state))),
                       rsync_restore(bench, source)], aim={"times": 1.3})
