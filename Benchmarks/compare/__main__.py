"""Measures tidewrack beside the limit of the machine and beside other tools, and reports it; scripts/bench calls it:
    python3 Benchmarks/compare --programs FOLDER --folder FOLDER --output FILE ...
    python3 Benchmarks/compare --report FILE... --docs FOLDER
"""

import argparse
import os
import shutil
import time
from collections import namedtuple

import basics
import growth
import history as long_history
import hooks
import machine
import pruning
import report
import scale
from measure import Disk, Results

INODE_REST = 330  # seconds

# How much of everything; the small ones are for trying the scripts.
Counts = namedtuple("Counts", "turns history real log found projects hook_rounds sizes")
FULL = Counts(turns=100, history=2000, real=40, log=1000, found=1000, projects=200, hook_rounds=300,
              sizes=[1_000, 3_000, 10_000, 30_000, 100_000, 300_000, 1_000_000])
SMALL = Counts(turns=10, history=400, real=10, log=50, found=30, projects=10, hook_rounds=30, sizes=[1_000, 3_000, 10_000])


class Bench:
    def __init__(self, options):
        self.options = options
        self.counts = SMALL if options.small else FULL
        described = machine.describe(options.folder)
        self.disk = Disk(options.folder, described["file system"])
        self.results = Results(options, self.disk, described)
        self.at_the_end = []  # what deletes much

    def path(self, *names):
        return os.path.join(self.options.folder, "work", *names)

    def remove_work(self):
        shutil.rmtree(self.path())
        with open(os.path.join(self.options.folder, "last-removal"), "w"):
            pass

    def wait_for_inodes(self):
        try:
            age = time.time() - os.stat(os.path.join(self.options.folder, "last-removal")).st_mtime
        except FileNotFoundError:
            return
        if age < INODE_REST:
            print(f"bench: waiting {INODE_REST - age:.0f} s, because files were deleted just now", flush=True)
            time.sleep(INODE_REST - age)

    def measure(self):
        parts = {
            "first": lambda tree: basics.measure_first(self, tree, "main", {"memory": {"most": 40}}),
            "wide": lambda _: basics.measure_first(self, self.options.wide_tree, "wide", {"memory": {"most": 110}}),
            "turn": lambda tree: basics.measure_turn(self, tree),
            "hooks": lambda tree: hooks.measure_hooks(self, tree),
            "log": lambda tree: pruning.measure_log(self, tree),
            "history": lambda tree: long_history.measure_history(self, tree),
            "scale": lambda tree: scale.measure_scale(self, tree),
            "prune": lambda tree: pruning.measure_prune(self, tree),
            "growth": lambda tree: growth.measure_growth(self, tree),
        }
        for name, measure in parts.items():
            if self.options.only and name not in self.options.only:
                continue
            start = time.monotonic()
            print(f"\n--- {name}", flush=True)
            measure(self.options.main_tree)
            print(f"--- {name} took {time.monotonic() - start:.0f} s", flush=True)
        for tidy in self.at_the_end:
            tidy()


def words_of(text):
    return [word for word in text.split(",") if word]


def parse():
    parser = argparse.ArgumentParser()
    parser.add_argument("--programs", help="folder with the built programs")
    parser.add_argument("--folder", help="folder for trees and stores; its volume is measured")
    parser.add_argument("--output", help="file for the results")
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--copy", default="cp -a", help="the copying command to compare first snapshots with")
    parser.add_argument("--main-tree", help="tree for all other parts")
    parser.add_argument("--wide-tree", help="tree for the part wide")
    parser.add_argument("--only", type=words_of, default=[], help="parts to measure")
    parser.add_argument("--without", type=words_of, default=[], help="contenders to leave out: restic, borg")
    parser.add_argument("--small", action="store_true", help="small counts, for trying this out")
    parser.add_argument("--no-wait", action="store_true", help="start at once though files were just deleted")
    parser.add_argument("--keep", action="store_true", help="leave trees and stores there, for a closer look")
    parser.add_argument("--report", nargs="+", help="results to turn into docs/benchmarks.md and its plots")
    parser.add_argument("--docs", default="docs")
    return parser.parse_args()


def main():
    options = parse()
    if options.report:
        report.write(options.report, options.docs)
        return
    bench = Bench(options)
    if os.path.exists(bench.path()):
        bench.remove_work()
    if not options.no_wait:
        bench.wait_for_inodes()
    os.makedirs(bench.path())
    bench.measure()
    if not options.keep:
        bench.remove_work()


main()
