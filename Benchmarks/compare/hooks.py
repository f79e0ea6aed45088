"""What an agent waits for: whole processes, timed by tidewrack_startup."""

import json
import os

from contenders import Limit, ShadowGit, Tidewrack
from measure import Command, fail, output_of, run
from records import numbers_of
from trees import make_tree


class Hook:
    def __init__(self, bench, name, tree):
        self.bench, self.place, self.tree = bench, bench.path("hooks", name), tree
        self.tidewrack, self.limit, self.git = (kind(bench.options.programs, tree, f"{self.place}/{kind.__name__}")
                                                for kind in (Tidewrack, Limit, ShadowGit))
        os.makedirs(self.place + "/home")
        self.environment = {**self.tidewrack.environment(), "HOME": self.place + "/home"}
        for contender in (self.tidewrack, self.limit, self.git):
            run(contender.first())

    def program(self, name):
        return f"{self.bench.options.programs}/{name}"

    def time(self, title, shell_command, rounds, candidates, aim):
        """candidates: name to words. Asserts that tidewrack allowed the command."""
        event = f"{self.place}/event.json"
        with open(event, "w") as file:
            json.dump({"hook_event_name": "PreToolUse", "tool_name": "Bash", "cwd": self.tree, "session_id": "bench",
                       "tool_input": {"command": shell_command}}, file)
        startup = [self.program("tidewrack_startup")]
        words = [word for candidate in candidates.values() for word in ["--", *candidate]][1:]
        run(Command([*startup, "2", event, *words], self.environment))  # warm, the hourly backup of dotfiles done
        os.sync()
        found = output_of(Command([*startup, str(rounds), event, *words], self.environment)).splitlines()[1:]
        medians = [float(line.split()[1]) for line in found]
        self.bench.results.add("hooks", title, "ms", dict(zip(candidates, medians, strict=True)), aim)

    def harmless(self, title, rounds):
        self.time(f"{title}: ls -la", "ls -la", rounds, {
            "tidewrack": [self.program("tidewrack"), "hook", "claude"],
            "program that does nothing": [self.program("tidewrack_nothing")],
            "/bin/true": ["/bin/true"],
        }, {"most": 1.0})

    def removing(self, title, folder, rounds):
        project = self.tidewrack.project_folder()
        before = len(numbers_of(project))
        exports = " ".join(f"export {name}='{value}';" for name, value in self.git.environment().items())
        self.time(f"{title}: rm -rf {folder}", f"rm -rf {folder}", rounds, {
            "tidewrack": [self.program("tidewrack"), "hook", "claude"],
            "limit": self.limit.snap().words,
            "shadow git": ["/bin/sh", "-c", f"cat >/dev/null; {exports} {self.git.snap().words[2]}"],
        }, {"times": 1.3})
        if len(numbers_of(project)) != before + rounds + 2:
            fail("the hook did not take a snapshot each time")


def measure_hooks(bench, source):
    counts = bench.counts
    small = bench.path("hooks", "small")
    make_tree(small + "/tree", 404, "a line of text\n" * 20)
    make_tree(small + "/tree/build", 20, "a line of text\n")
    hook = Hook(bench, "small", small + "/tree")
    for number in range(9):
        make_tree(f"{small}/other{number}", 10, "a line of text\n")
        run(Command([hook.program("tidewrack"), "track", f"{small}/other{number}"], hook.environment))
    hook.harmless("400 files, 10 projects", counts.hook_rounds)
    hook.removing("400 files, 10 projects", "build", counts.hook_rounds // 3)

    large = Hook(bench, "large", source)
    folder = min(name for name in os.listdir(source) if os.path.isdir(f"{source}/{name}"))
    large.harmless("the large tree", counts.hook_rounds)
    large.removing("the large tree", folder, counts.hook_rounds // 15)
