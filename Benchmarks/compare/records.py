"""Long histories in little time: records and manifests of tidewrack's store made by copying real ones, in the format
that docs/store-format.md describes."""

import glob
import json
import os
import shutil
import time

from measure import run
from trees import change_a_little


def read_record(path):
    with open(path) as file:
        return json.load(file)


def write_record(path, record):
    with open(path, "w") as file:
        file.write(json.dumps(record, sort_keys=True, separators=(",", ":"), ensure_ascii=False).replace("/", "\\/"))


def date(age):
    return time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(time.time() - age))


def move_back(paths, age):
    for path in paths:
        write_record(path, {**read_record(path), "created": date(age)})


def numbers_of(project):
    return sorted(int(os.path.basename(path)[:-5]) for path in glob.glob(project + "/snapshots/*.json"))


def repeat_newest(project, times):
    """Snapshots that found nothing changed: records that share the newest manifest."""
    newest = numbers_of(project)[-1]
    record = read_record(f"{project}/snapshots/{newest}.json")
    for number in range(newest + 1, newest + times + 1):
        write_record(f"{project}/snapshots/{number}.json", {**record, "seq": number, "added": 0, "modified": 0,
                                                            "deleted": 0})


def copy_newest(project, times):
    """Snapshots with a manifest and contents of their own, as large as the newest one's. No manifest names these
    contents, so pruning has more of them to delete than after real turns, most of whose contents stay in use."""
    newest = numbers_of(project)[-1]
    record = read_record(f"{project}/snapshots/{newest}.json")
    for number in range(newest + 1, newest + times + 1):
        write_record(f"{project}/snapshots/{number}.json", {**record, "seq": number, "manifestOf": number})
        shutil.copyfile(f"{project}/manifests/{newest}.mf", f"{project}/manifests/{number}.mf")
        shutil.copytree(f"{project}/blobs/{newest}", f"{project}/blobs/{number}")


def build_history(contender, files, snapshots, real):
    """Real turns, each followed by copies of its snapshot. Numbers stay in order: the next real snapshot numbers
    itself after the copies and keeps its contents under that number."""
    run(contender.first())
    project = contender.project_folder()
    for turn in range(real):
        change_a_little(files, turn)
        run(contender.snap())
        copy_newest(project, (snapshots - 1 - real) * (turn + 1) // real - (snapshots - 1 - real) * turn // real)


def spread(project, snapshots):
    """Dates such that half of them are due: 143 hours and days keep one each, all of the last two days stay."""
    numbers = numbers_of(project)[:snapshots]
    hours, days, recent = 120, 23, snapshots // 2 - 143
    hourly = int((snapshots - recent) * 0.52)
    daily = int((snapshots - recent) * 0.21)
    old = snapshots - recent - hourly - daily

    def age(index):
        """In days; ages fall with the index."""
        if index < old:
            return 60 - 29 * index / old
        if index < old + daily:
            return 30 - 23 * (index - old + 0.5) / daily
        if index < old + daily + hourly:
            return 7 - 5 * (index - old - daily + 0.5) / hourly
        return 2 * (1 - (index - old - daily - hourly + 0.5) / recent)
    for index, number in enumerate(numbers):
        move_back([f"{project}/snapshots/{number}.json"], age(index) * 86400)
