"""How the cost of a snapshot grows with the tree."""

from contenders import Limit, Tidewrack
from measure import Turn
from trees import make_tree


def measure_scale(bench, _source):
    """Empty files: the smallest cost of each entry, and a million of them fit any disk."""
    lines = {"first snapshot": [], "first snapshot, limit": [], "nothing changed": [], "nothing changed, limit": []}
    for entries in bench.counts.sizes:
        tree = bench.path("scale", str(entries), "tree")
        make_tree(tree, entries, "")
        both = [kind(bench.options.programs, tree, bench.path("scale", str(entries), kind.__name__))
                for kind in (Tidewrack, Limit)]
        measure_size(bench, entries, both, lines)
    bench.results.series("scale", lines)


def measure_size(bench, entries, both, lines):
    def fresh(contender):
        def prepare(number):
            contender.new_store(f"store{number}")
            return contender.first()
        return Turn(contender.name, prepare)

    rounds = 1 if entries > 100_000 else bench.options.rounds
    first = bench.results.row("scale", f"{entries:,} entries: first snapshot", [fresh(c) for c in both], rounds)
    same = bench.results.row("scale", f"{entries:,} entries: nothing changed",
                             [Turn(c.name, lambda _, c=c: c.snap()) for c in both])
    for name, medians in (("first snapshot", first), ("nothing changed", same)):
        lines[name].append((entries, medians["tidewrack"]))
        lines[name + ", limit"].append((entries, medians["limit"]))
