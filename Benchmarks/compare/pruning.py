"""Pruning a long history, with much to remove and with nothing; the log of many snapshots; many projects."""

import os
import re
import time

from contenders import Limit, ShadowGit, Tidewrack
from measure import Command, Turn, fail, output_of, run
from records import build_history, numbers_of, repeat_newest, spread
from trees import copy_tree, files_below, make_tree


class Pruning:
    def __init__(self, bench, source):
        self.bench, self.snapshots = bench, bench.counts.history
        tree = copy_tree(source, bench.path("prune", "tree"))
        self.tidewrack = Tidewrack(bench.options.programs, tree, bench.path("prune", "Tidewrack"))
        build_history(self.tidewrack, files_below(tree), self.snapshots, bench.counts.real)
        self.project = self.tidewrack.project_folder()

    def nothing_due(self, title):
        """A snapshot that prunes as well, as the first one of each hour does, beside one that does not."""
        marker = self.project + "/last-prune"

        def snap(age):
            def prepare(_):
                os.utime(marker, (time.time() - age, time.time() - age))
                return self.tidewrack.snap()
            return prepare

        def stays(expected=len(numbers_of(self.project))):
            nonlocal count
            count += 1
            if len(numbers_of(self.project)) != expected + count:
                fail("a snapshot was pruned that was not due")
        count = 0
        self.bench.results.row("prune", title,
                               [Turn("snapshot that prunes", snap(7200), stays),
                                Turn("snapshot alone", snap(60), stays)],
                               rounds=self.bench.options.rounds * 3, aim={"plus": 0.020, "of": "snapshot alone"})

    def manifests_and_records(self):
        return [self.project + "/manifests", self.project + "/snapshots"]

    def live(self):
        self.nothing_due(f"{self.snapshots:,} snapshots, nothing due")
        spread(self.project, self.snapshots)
        found = output_of(self.tidewrack.tool("prune", "--dry-run"))
        due, contents = (int(number) for number in re.search(r"(\d+) snapshots, (\d+) stored", found).groups())
        self.title = f"{self.snapshots:,} snapshots, {due:,} due with {contents:,} contents"
        rehearsal = Turn("tidewrack", lambda _: self.tidewrack.tool("prune", "--dry-run"),
                         reads=self.manifests_and_records)
        self.bench.results.row("prune", f"{self.title}: dry run", [rehearsal])

    def tidy(self):
        """Deletes much, so it comes last, and once: a second store of that size would take half a minute to make."""
        prune = Turn("tidewrack", lambda _: self.tidewrack.tool("prune"), reads=self.manifests_and_records)
        self.bench.results.row("prune", f"{self.title}: prune", [prune], rounds=1, aim={"most": 5})
        self.nothing_due(f"{len(numbers_of(self.project)):,} snapshots left after that prune, nothing due")


def measure_prune(bench, source):
    pruning = Pruning(bench, source)
    pruning.live()
    bench.at_the_end.append(pruning.tidy)


def measure_log(bench, source):
    count = bench.counts.log
    tidewrack, limit, git = (kind(bench.options.programs, source, bench.path("log", kind.__name__))
                             for kind in (Tidewrack, Limit, ShadowGit))
    for contender in (tidewrack, git):
        run(contender.first())
    repeat_newest(tidewrack.project_folder(), count - 1)
    commits = "".join(f"commit refs/heads/log\ncommitter bench <bench> {1000000000 + number} +0000\ndata 8\nsnapshot\n"
                      + ("from refs/heads/master^0\n" if number == 0 else "") for number in range(count - 1))
    stream = bench.path("log", "commits")
    with open(stream, "w") as file:
        file.write(commits)
    run(git.shell(f"git branch -M master && git fast-import --quiet < '{stream}'"
                  " && git symbolic-ref HEAD refs/heads/log"))
    lines = output_of(git.shell("git log --oneline")).count("\n")
    if lines != count or output_of(tidewrack.log(count)).count("#") < count:
        fail("the logs are not as long as they should be")
    bench.results.row("log", f"log of {count:,} snapshots, with what has changed since", [
        Turn("tidewrack", lambda _: tidewrack.log(count)),
        Turn("walk alone", lambda _: limit.walk()),
        Turn("snapshot of the same", lambda _: tidewrack.snap()),
        Turn("git log and git status", lambda _: git.shell(f"git log -n {count} && git status --porcelain")),
    ], rounds=bench.options.rounds * 3, aim={"plus": 0.020, "of": "walk alone"})
    list_projects(bench)


def list_projects(bench):
    count = bench.counts.projects
    store = {"TIDEWRACK_HOME": bench.path("log", "projects", "store")}
    program = bench.options.programs + "/tidewrack"
    for number in range(count):
        tree = bench.path("log", "projects", f"project{number}")
        make_tree(tree, 5, "a line of text\n")
        run(Command([program, "track", tree], store))
    listed = Command([program, "projects"], store)
    if output_of(listed).count("/project") < count:
        fail("not all projects are listed")
    bench.results.row("log", f"projects, with {count} of them", [
        Turn("tidewrack", lambda _: listed),
        Turn("program that does nothing", lambda _: Command([bench.options.programs + "/tidewrack_nothing"])),
    ], rounds=20, aim={"most": 0.010})
