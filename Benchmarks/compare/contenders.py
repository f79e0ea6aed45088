"""The programs that are compared, each with a tree and a place for its stores."""

import glob
import json
import os

from measure import Command, fail, output_of, run


class Contender:
    exact = True  # puts back modes and times as well

    def __init__(self, programs, tree, place):
        self.programs, self.tree, self.place = programs, tree, place
        os.makedirs(place)
        self.new_store("store")

    def new_store(self, name):
        """What making an empty store takes is measured with the first snapshot where it is a part of the same command
        or takes next to no time."""
        self.store = os.path.join(self.place, name)

    def command(self, *words):
        return Command(list(words), self.environment())

    def environment(self):
        return {}

    def shell(self, text):
        return self.command("sh", "-c", f"cd '{self.tree}' && {text}")

    def first(self):
        return self.snap()


class Tidewrack(Contender):
    name = "tidewrack"

    def environment(self):
        return {"TIDEWRACK_HOME": self.store}

    def tool(self, *words):
        return self.command(self.programs + "/tidewrack", *words, "--project", self.tree)

    def first(self):
        return self.command(self.programs + "/tidewrack", "track", self.tree, "--force")

    def snap(self):
        return self.tool("snap")

    def log(self, count):
        return self.tool("log", "-n", str(count))

    def newest_record(self):
        return json.loads(output_of(self.tool("log", "-n", "1", "--json")))[0]

    def newest(self):
        return str(self.newest_record()["seq"])

    def newest_counts(self):
        record = self.newest_record()
        return record["added"], record["modified"], record["deleted"]

    def undo(self, snapshot):
        return self.tool("undo", snapshot)

    def restore(self, snapshot, _gone):
        return self.tool("restore", snapshot)

    def project_folder(self):
        """Where the store keeps this tree's history."""
        for folder in glob.glob(self.store + "/projects/*"):
            with open(folder + "/project.json") as file:
                if json.load(file)["root"] == self.tree:
                    return folder
        return fail(f"{self.tree} is not tracked")


class Limit(Contender):
    """A bare program that makes the necessary system calls and checks nothing."""

    name = "limit"

    def new_store(self, name):
        super().new_store(name)
        os.makedirs(self.store)

    def tool(self, *words):
        return self.command(self.programs + "/tidewrack_limit", *words)

    def walk(self):
        return self.tool("walk", self.tree)

    def snap(self):
        return self.tool("snap", self.tree, self.store)

    def flushed(self, command):
        """The same, and all of it on the disk afterwards, as tidewrack leaves it."""
        return self.command("sh", "-c", '"$@" && sync -f "$0"', self.store, *command.words)

    def newest(self):
        return str(max(int(name[:-5]) for name in os.listdir(self.store) if name.endswith(".list")))

    def undo(self, snapshot):
        return self.restore(snapshot, None)

    def restore(self, snapshot, _gone):
        return self.tool("restore", self.tree, self.store, snapshot)


class ShadowGit(Contender):
    """A git repository outside the tree that takes every snapshot as a commit, ignored files included."""

    name = "shadow git"
    exact = False  # git keeps no times and few mode bits
    save = "git add -A -f && git commit -q --allow-empty --no-verify -m snapshot"

    def environment(self):
        return {
            "GIT_DIR": self.store, "GIT_WORK_TREE": self.tree, "GIT_CONFIG_GLOBAL": os.devnull,
            "GIT_CONFIG_COUNT": "2", "GIT_CONFIG_KEY_0": "gc.auto", "GIT_CONFIG_VALUE_0": "0",
            "GIT_CONFIG_KEY_1": "core.excludesFile", "GIT_CONFIG_VALUE_1": os.devnull,
            "GIT_AUTHOR_NAME": "bench", "GIT_AUTHOR_EMAIL": "bench", "GIT_COMMITTER_NAME": "bench",
            "GIT_COMMITTER_EMAIL": "bench",
        }

    def first(self):
        return self.shell("git init -q && " + self.save)

    def snap(self):
        return self.shell(self.save)

    def newest(self):
        return output_of(self.shell("git rev-parse HEAD")).strip()

    def undo(self, snapshot):
        return self.shell(f"{self.save} && git reset -q --hard {snapshot}")

    def restore(self, snapshot, _gone):
        return self.undo(snapshot)

    def reset(self, snapshot):
        return self.shell(f"git reset -q --hard {snapshot}")


class Restic(Contender):
    name = "restic"

    def new_store(self, name):
        super().new_store(name)
        run(self.command("restic", "--quiet", "init"))

    def environment(self):
        return {"RESTIC_REPOSITORY": self.store, "RESTIC_PASSWORD": "bench", "RESTIC_CACHE_DIR": self.store + ".cache"}

    def snap(self):
        return self.shell("restic --quiet backup .")

    def newest(self):
        return "latest"

    def restore(self, snapshot, gone):
        """Told which folders are missing: otherwise it would write the whole tree."""
        included = " ".join(f"--include '/{folder}'" for folder in gone)
        return self.shell(f"restic --quiet restore {snapshot} --target . {included}")

    def thin(self, kept):
        return self.command("restic", "--quiet", "forget", "--keep-last", str(kept), "--prune")


class Borg(Contender):
    name = "borg"

    def new_store(self, name):
        super().new_store(name)
        run(self.command("borg", "init", "--encryption", "none"))

    def environment(self):
        return {"BORG_REPO": self.store, "BORG_BASE_DIR": self.store + ".base",
                "BORG_UNKNOWN_UNENCRYPTED_REPO_ACCESS_IS_OK": "yes"}

    def snap(self):
        return self.shell("borg create '::{now:%Y%m%d%H%M%S%f}' .")

    def newest(self):
        return output_of(self.command("borg", "list", "--last", "1", "--short")).strip()

    def restore(self, snapshot, gone):
        """Told which folders are missing: otherwise it would write the whole tree."""
        return self.shell(f"borg extract ::{snapshot} " + " ".join(f"'{folder}'" for folder in gone))

    def thin(self, kept):
        return self.shell(f"borg prune --keep-last {kept} && borg compact")


EVERYONE = (Tidewrack, Limit, ShadowGit, Restic, Borg)
