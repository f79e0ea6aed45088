"""The trees that are measured, and what happens to them."""

import os
import random

from measure import Command, fail, run


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
        fail(f"{contender.name} did not put back {len(different)} paths, such as {min(different)}")


def copy_tree(source, target):
    os.makedirs(os.path.dirname(target))
    run(Command(["cp", "-a", source, target]))
    return target


def files_below(tree):
    return sorted(os.path.join(folder, name) for folder, _, files in os.walk(tree) for name in files
                  if not os.path.islink(os.path.join(folder, name)))


def change_a_little(files, number):
    """20 changes, 5 additions, 3 deletions: one turn of an agent. Keeps the sorted list of files true."""
    chosen = random.Random(number).sample(files, 28)
    for path in chosen[:20]:
        with open(path, "a") as file:
            file.write("changed by the benchmark\n")
    added = [f"{path}.added{number}" for path in chosen[20:25]]
    for path in added:
        with open(path, "w") as file:
            file.write("added by the benchmark\n")
    for path in chosen[25:]:
        os.unlink(path)
    files[:] = sorted((set(files) | set(added)) - set(chosen[25:]))


def take_a_third_away(tree, number, trash):
    """Moves folders of the second level away until a third of the files is gone; returns the folders."""
    files = files_below(tree)
    counts = {}
    for path in files:
        parts = os.path.relpath(path, tree).split(os.sep)
        if len(parts) > 2:
            counts[os.path.join(*parts[:2])] = counts.get(os.path.join(*parts[:2]), 0) + 1
    folders = sorted(counts)
    random.Random(number).shuffle(folders)
    gone, left = [], len(files) / 3 * 1.02
    os.makedirs(trash)
    for folder in folders:
        if counts[folder] <= left:
            os.rename(os.path.join(tree, folder), os.path.join(trash, str(len(gone))))
            gone.append(folder)
            left -= counts[folder]
    return gone


def make_tree(tree, entries, text):
    """Files with the same text, a hundred in a folder, a hundred folders in one; the folders are entries too."""
    made = 0
    for number in range(entries):
        if made >= entries:
            return
        folder = f"{tree}/group{number // 100}/folder{number}"
        made += 2 if number % 100 == 0 else 1
        os.makedirs(folder)
        for file_number in range(min(100, entries - made)):
            with open(f"{folder}/file{file_number}.txt", "w") as file:
                file.write(text)
            made += 1
