"""Turns the results of one or more runs into docs/benchmarks.md and its plots."""

import json
import os
import statistics

import plots

COLUMNS = ("tidewrack", "limit", "shadow git", "restic", "borg")
# What is no rival but a measure.
MEASURES = {"limit", "limit and a flush", "walk alone", "snapshot alone", "snapshot that prunes",
            "snapshot of the same", "program that does nothing", "/bin/true", "manifests", "contents", "records"}

INTRODUCTION = """# Benchmarks

Tidewrack beside the limit of the machine and beside what else people use: written by `scripts/bench`, not by hand.

- **limit**: a bare program with two threads that makes the necessary system calls and checks nothing
  (`Benchmarks/Limits`). A ratio is tidewrack's figure divided by it. It reads its newest list first and walks then;
  tidewrack begins to walk meanwhile, so it can be faster.
- **shadow git**: a git repository outside of the project, as the checkpoints of some agents are; a snapshot is
  `git add -A -f` and a commit. It keeps neither times nor most mode bits, and no empty folders.
- **restic** and **borg**: backup programs. They compress, find equal contents, and check what they wrote; restic always
  encrypts, borg is used without. For the restore they are told which folders are missing, since otherwise they would
  write the whole tree; they have no equivalent of an undo. Their caches do not count as disk use.
- **rsync**, **cp**: from and to a full copy.

Every row is measured with a warm cache and after a `sync`, the contenders in another order each round; figures are
medians, and every restore and undo is compared with what was there before. Only figures of one row should be compared:
the speed of a virtual machine changes within the hour.

A turn is 20 changed, 5 new and 3 deleted files, spread over the whole tree.
"""

REPRODUCE = """## To reproduce this

On a Debian 12 machine that does nothing else meanwhile, with some 70 GB free (`scripts/bench` says what it needs):

```sh
sudo scripts/bench --rounds 3 --btrfs --only first,turn                                # 15 minutes
sudo scripts/bench --rounds 3 --btrfs --only growth --without restic,borg              # 5 minutes
scripts/bench --rounds 3                                                               # an hour
scripts/bench --report build/results/*.json                                            # writes this page
```

`--only first,wide,turn,hooks,log,history,scale,prune,growth` takes any of these parts, `--small --tree FOLDER --rounds 1
--no-wait` tries the script in a minute. Each run leaves its figures in `build/results`.
"""

PARTS = {
    "first": ("Snapshots of a whole tree", """\
The first snapshot of each store, and then snapshots of the same tree unchanged. Disk use is that of one store after
its first snapshot. On ext4 a kept content is a copy; where blocks are shared, disk use is what the volume lost, and a
kept content costs no more than its name and attributes. Before a snapshot with news counts, tidewrack has brought
everything that it keeps to the disk; the limit, git and cp leave that to the system. "limit and a flush" does that
too."""),
    "turn": ("A turn of an agent", """\
On the Linux kernel's source. The undo and the restore include the snapshot that they take first; in the
restore a third of all files is missing, whole folders at a time. Tidewrack brings what it kept and put back to the disk;
the limit, git and rsync do not; "limit and a flush" does."""),
    "hooks": ("Hooks", """\
How long an agent waits for `tidewrack hook` before each shell command, as a whole process. `ls -la` needs no snapshot;
`rm -rf` takes one. The shadow git repository stands for a shell hook that only commits."""),
    "log": ("Reading the history", """\
`log` also tells what has changed since the newest snapshot, so it walks the tree once and compares, as a snapshot does.
The walk alone is the limit's, which compares nothing."""),
    "history": ("Finding and taking back", """\
A history of real turns, in which one file came and went. `find` looks through the listings of all snapshots, `log` with a
path through those that can tell of it. git looks through commits of the same turns, restic through fewer snapshots;
`undo --last` plans by state, keeps later work, and takes its safety snapshot first."""),
    "scale": ("From a thousand entries to a million", """\
Trees of empty files, a hundred in a folder."""),
    "prune": ("Pruning", """\
Long histories are made of real turns and copies of their records, manifests and contents
(`Benchmarks/compare/records.py`), with dates up to two months back, and with more contents to delete than after as many
real turns. Where the volume is mounted with discard, deleting a file takes as long as the disk takes to hear of its free
blocks. The others thin the history of the section about growth instead, since making two thousand of their snapshots
would take hours; git has no equivalent."""),
    "growth": ("A hundred turns", """\
One tree, changed by one turn after another, and a snapshot of it after each. Growth is what came on top of the first
snapshot. Where blocks are shared, those that a store alone holds are counted, names and attributes are not."""),
}


class Run:
    """What was measured on one kind of volume, by one or more runs; later rows replace earlier ones."""

    def __init__(self):
        self.machine, self.rows, self.series, self.rounds, self.small = None, {}, {}, set(), False

    def take(self, data):
        if self.machine not in (None, data["machine"]):
            raise SystemExit("bench: these results are of different machines or versions")
        self.machine = data["machine"]
        self.rounds.add(data["rounds"])
        self.small |= data["small"]
        for row in data["rows"]:
            row["median"] = {name: statistics.median(values) for name, values in row["values"].items()}
            self.rows[row["part"], row["title"]] = row
        self.series.update(data["series"])

    def of(self, part):
        return [row for (row_part, _), row in self.rows.items() if row_part == part]


def shown(value, unit):
    if unit == "MB":
        return f"{value:,.1f} MB" if value < 100 else f"{value:,.0f} MB"
    if unit == "s" and value < 0.1:
        value, unit = value * 1000, "ms"
    return f"{value:.3g} {unit}" if value < 100 else f"{value:,.0f} {unit}"


def word(reached):
    return "met" if reached else "**missed**"


def verdict(row):
    """What was to be reached and whether it was: "times" the limit, at "most", or "plus" a time over another figure."""
    aim, median = row["aim"], row["median"]
    if not aim:
        return ""
    ours = median.get("tidewrack", median.get("snapshot that prunes"))
    flushed = ""
    if "times" in aim:
        reached, text = ours / median["limit"] <= aim["times"], f"{aim['times']} x limit"
        if "limit and a flush" in median:
            ratio = ours / median["limit and a flush"]
            flushed = f"<br>the same with its flush ({ratio:.2f}): {word(ratio <= aim['times'])}"
    elif "most" in aim:
        reached, text = ours <= aim["most"], f"{aim['most']:g} {row['unit']}"
    else:
        over = ours - median[aim["of"]]
        reached = over <= aim["plus"]
        text = f"{shown(aim['plus'], row['unit'])} over {aim['of']} ({over * 1000:+.1f} ms)"
    return f"{text}: {word(reached)}{flushed}"


def cells(row):
    median, unit = row["median"], row["unit"]
    found = {"work": row["title"], "aim": verdict(row)}
    found.update({name: shown(median[name], unit) for name in COLUMNS if name in median})
    if "tidewrack" in median and "limit" in median:
        found["ratio"] = f"{median['tidewrack'] / median['limit']:.2f}"
    found["others"] = "<br>".join(f"{name} {shown(value, unit)}" for name, value in median.items()
                                  if name not in COLUMNS)
    return found


def table(rows):
    lines = [cells(row) for row in rows]
    titles = [title for title in ("work", "tidewrack", "limit", "ratio", "aim", *COLUMNS[2:], "others")
              if any(line.get(title) for line in lines)]
    text = "| " + " | ".join(titles) + " |\n|" + "---|" * len(titles) + "\n"
    for line in lines:
        text += "| " + " | ".join(line.get(title, "") for title in titles) + " |\n"
    return text


def better(rows):
    """Who does better than tidewrack, and where: by more than chance."""
    found = {}
    for row in rows:
        ours = row["median"].get("tidewrack")
        for name, value in row["median"].items():
            if ours and name not in MEASURES and name != "tidewrack" and value < ours * 0.95:
                found.setdefault(name, []).append(f"{row['title']} ({ours / value:.2g} times)")
    return found


def summary(rows):
    compared = [row for row in rows if "tidewrack" in row["median"] and set(row["median"]) - MEASURES - {"tidewrack"}]
    if not compared:
        return ""
    found = better(compared)
    if not found:
        return "No other tool does better here.\n"
    return "Better than tidewrack here:\n\n" + "".join(
        f"- {name}: {'; '.join(titles)}\n" for name, titles in found.items())


def dominating(run):
    """Which kind of file most of the growth is."""
    row = next((row for row in run.of("growth") if "manifests" in row["median"]), None)
    if not row:
        return ""
    total = sum(row["median"].values()) or 1
    largest = max(row["median"], key=row["median"].get)
    return f"Of tidewrack's growth {row['median'][largest] / total:.0%} is {largest}.\n"


def straightness(points):
    """How much more an entry costs in the largest tree than in one of a hundredth of its size."""
    last = points[-1]
    early = min(points, key=lambda point: abs(point[0] - last[0] / 100))
    return (last[1] / last[0]) / (early[1] / early[0]), early[0], last[0]


def scale_text(run):
    text = ""
    for name in ("first snapshot", "nothing changed"):
        times, early, last = straightness(run.series["scale"][name])
        text += f"{name.capitalize()}: an entry costs {times:.2f} times as much among {last:,} as among {early:,}. "
    return text.strip() + "\n"


def picture(run, kind, docs, text):
    """The plot of a part, if it has one."""
    system = run.machine["file system"]
    file = f"{docs}/benchmarks/{kind}-{system}.svg"
    where = f"{system}, two cores, warm cache" if run.machine["cores"] == 2 else f"{system}, warm cache"
    if kind == "scale":
        plots.lines(file, run.series["scale"], f"Cost of a snapshot ({where})", ("entries in the tree", "seconds"),
                    "left top", True)
    elif kind == "growth":
        plots.lines(file, run.series["growth"], f"Growth of the stores ({system})", ("turns of 28 changes", "MB"),
                    "left top", False)
    else:
        plots.bars(file, overview(run), f"Time on the Linux kernel's source ({where})", "seconds")
    return f"\n![{text}](benchmarks/{os.path.basename(file)})\n"


def overview(run):
    """The main rows: of the tree of the first rows, and of the turn."""
    first = run.of("first")
    tree = first[0]["title"].split(":")[0]
    wanted = (("first snapshot", "first", f"{tree}: first snapshot"),
              ("nothing changed", "first", f"{tree}: nothing changed"), ("after 28 changes", "turn", "after 28 changes"),
              ("undo of a turn", "turn", "undo of the turn"),
              ("restore of a third", "turn", "restore after a third is gone"))
    return [(name, run.rows[part, title]["median"]) for name, part, title in wanted if (part, title) in run.rows]


def section(run, part, docs):
    rows = run.of(part)
    title, text = PARTS[part]
    out = f"### {title}\n\n{text}\n\n{table(rows)}\n"
    if part == "first":
        out += summary(rows) + picture(run, "overview", docs, "Time of the main operations")
    elif part == "scale":
        out += scale_text(run) + picture(run, "scale", docs, "Time over entries, both logarithmic")
    elif part == "growth":
        out += dominating(run) + "\n" + summary(rows) + picture(run, "growth", docs, "Disk use over turns")
    else:
        out += summary(rows)
    return out.rstrip() + "\n\n"


def describe(run):
    machine = run.machine
    text = (f"## On {machine['file system']}\n\n{machine['processor']}, {machine['cores']} cores, {machine['memory']}; "
            f"{machine['kernel']}; {machine['file system']} on {machine['disk']}. git {machine['git']}, restic "
            f"{machine['restic']}, borg {machine['borg']}, rsync {machine['rsync']}. Rounds: "
            f"{', '.join(map(str, sorted(run.rounds)))}.\n\n")
    return text + ("**A trial with small counts: its figures mean nothing.**\n\n" if run.small else "")


def write(files, docs):
    runs = {}
    for file in files:
        with open(file) as opened:
            data = json.load(opened)
        runs.setdefault(data["machine"]["file system"], Run()).take(data)
    os.makedirs(docs + "/benchmarks", exist_ok=True)
    text = INTRODUCTION + "\n" + REPRODUCE + "\n"
    for system in sorted(runs, reverse=True):
        run = runs[system]
        text += describe(run) + "".join(section(run, part, docs) for part in PARTS if run.of(part))
    with open(docs + "/benchmarks.md", "w") as file:
        file.write(text.rstrip() + "\n")
