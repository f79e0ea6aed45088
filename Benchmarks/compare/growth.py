"""What a hundred turns cost, in time and on the disk, and thinning them to half afterwards."""

import glob
import os

from basics import chosen, the
from contenders import Borg, Restic, ShadowGit, Tidewrack
from measure import Turn, allocated, output_of, run
from records import move_back
from trees import change_a_little, copy_tree, files_below


def tidewrack_shares(bench, contender):
    """Where the store's bytes are. Only contents can share blocks."""
    folder = contender.project_folder()
    return {"manifests": allocated(folder + "/manifests"), "contents": bench.disk.size(folder + "/blobs"),
            "records": allocated(folder + "/snapshots")}


class Growth:
    def __init__(self, bench, source):
        self.bench, self.turns = bench, bench.counts.turns
        # Only the tree changes, so all contenders share it.
        tree = copy_tree(source, bench.path("growth", "tree"))
        self.everyone = [kind(bench.options.programs, tree, bench.path("growth", kind.__name__))
                         for kind in chosen(bench, (Tidewrack, ShadowGit, Restic, Borg))]
        self.tidewrack = self.everyone[0]
        self.files = files_below(tree)
        self.lines = {contender.name: [] for contender in self.everyone}
        self.seconds = {contender.name: [] for contender in self.everyone}
        self.git = the(ShadowGit, self.everyone)
        for contender in self.everyone:
            run(contender.first())
        self.first_commit = self.git.newest()

    def note_sizes(self, turn):
        for contender in self.everyone:
            self.lines[contender.name].append((turn, self.bench.disk.size(contender.store)))

    def live(self):
        every = max(1, self.turns // 10) if not self.bench.disk.shares_blocks else self.turns
        self.note_sizes(0)
        before = tidewrack_shares(self.bench, self.tidewrack)
        for turn in range(1, self.turns + 1):
            self.bench.disk.check_free()
            change_a_little(self.files, turn)
            for contender in self.everyone:
                os.sync()
                self.seconds[contender.name].append(run(contender.snap()))
            if turn % every == 0:
                self.note_sizes(turn)
        after = tidewrack_shares(self.bench, self.tidewrack)
        return {title: after[title] - before[title] for title in after}

    def report(self, shares):
        results = self.bench.results
        grown = {name: (points[-1][1] - points[0][1]) / 1e6 for name, points in self.lines.items()}
        title = f"{self.turns} turns of 28 changes"
        results.add("growth", f"{title}: time of one snapshot", "s", self.seconds)
        results.add("growth", f"{title}: disk, growth", "MB", grown)
        results.add("growth", f"{title}: disk, growth of tidewrack by kind", "MB",
                    {name: size / 1e6 for name, size in shares.items()})
        results.series("growth", {name: [(turn, (size - points[0][1]) / 1e6) for turn, size in points]
                                  for name, points in self.lines.items()})

    def packed(self, commit):
        """Bytes of all that a commit and those before it need, packed."""
        return int(output_of(self.git.shell(f"git rev-list --objects {commit} | git pack-objects -q --stdout | wc -c")))

    def tidy(self):
        """Deletes much, so it comes last."""
        kept = self.turns // 2
        records = sorted(glob.glob(self.tidewrack.project_folder() + "/snapshots/*.json"), key=os.path.getmtime)
        move_back(records[:-kept], 60 * 86400)
        turns = [Turn("tidewrack", lambda _: self.tidewrack.tool("prune"))]
        turns += [Turn(c.name, lambda _, c=c: c.thin(kept)) for c in self.everyone
                  if isinstance(c, (Restic, Borg))]
        # Git drops nothing of a history; it packs it. At once, so that the unpacked objects do not count.
        turns.append(Turn("git gc, which drops none", lambda _: self.git.shell("git gc --quiet --prune=now")))
        self.bench.results.row("prune", f"thin {self.turns + 1} snapshots to {kept}", turns, rounds=1)
        grown = (self.packed("HEAD") - self.packed(self.first_commit)) / 1e6
        self.bench.results.add("growth", f"{self.turns} turns of 28 changes: disk, growth after git gc", "MB",
                               {"shadow git": grown})
        sizes = {c.name: self.bench.disk.size(c.store) / 1e6 for c in self.everyone}
        self.bench.results.add("prune", "disk of the whole store, thinned; shadow git after gc", "MB", sizes)


def measure_growth(bench, source):
    growth = Growth(bench, source)
    growth.report(growth.live())
    bench.at_the_end.append(growth.tidy)
