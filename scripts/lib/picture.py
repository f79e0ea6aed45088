#!/usr/bin/env python3
"""Draws what a terminal shows when an agent's clean-up is taken back, for the README:
    scripts/lib/picture.py PROGRAM >docs/picture.svg
Everything in the picture is what the program really prints in a project of its own; an agent's hooks are called as the
agent would."""

import html
import json
import os
import pathlib
import pty
import re
import shutil
import subprocess
import sys
import tempfile

COLOURS = {"1": "#ffffff", "2": "#8b949e", "31": "#ff7b72", "32": "#7ee787", "33": "#e3b341", "34": "#79c0ff",
           "35": "#d2a8ff", "36": "#76e3ea", "90": "#8b949e"}
NO_BREAK = "\u00a0"  # viewers join ordinary spaces
PLAIN, LINE, LETTER, MARGIN = "#c9d1d9", 20, 8.43, 18
SESSION = [("", "# claude was told: \"Tidy up this folder\". What did it do?"),
           ("tidewrack timeline --commands", None),
           ("tidewrack diff --last", None),
           ("", "# Take it back. Later work would stay."),
           ("tidewrack undo --last", None)]


def on_terminal(words, folder, environment):
    """What a command prints on a terminal."""
    parent, child = pty.openpty()
    process = subprocess.Popen(words, cwd=folder, env=environment, stdin=child, stdout=child, stderr=child)
    os.close(child)
    text = b""
    try:
        while piece := os.read(parent, 65536):
            text += piece
    except OSError:  # the end of a terminal
        pass
    process.wait()
    return [line for line in text.decode().replace("\r\n", "\n").split("\n") if line]


def drawn(line):
    """One line as pieces of one colour each."""
    parts, colour = [], PLAIN
    for piece in re.split(r"(\x1b\[[0-9;]*m|\x1b\[K)", line):
        if found := re.fullmatch(r"\x1b\[([0-9;]*)m", piece):
            colour = next((COLOURS[code] for code in reversed(found[1].split(";")) if code in COLOURS), PLAIN)
        elif piece and not piece.startswith("\x1b"):
            parts.append(f'<tspan fill="{colour}">{html.escape(piece, quote=False).replace(" ", NO_BREAK)}</tspan>')
    return "".join(parts)


def session(program, folder):
    home, project = folder / "home", folder / "home" / "project"
    (folder / "bin").mkdir()
    (folder / "bin" / "tidewrack").symlink_to(program)
    environment = {"HOME": str(home), "TIDEWRACK_HOME": str(folder / "store"), "TERM": "xterm", "PAGER": "cat", "LC_ALL": "C.UTF-8",
                   "PATH": f"{folder}/bin:/usr/bin:/bin", "TZ": "UTC"}

    def hook(event, **more):
        said = json.dumps({"hook_event_name": event, "session_id": "s", "cwd": str(project), **more})
        subprocess.run([program, "hook", "claude"], input=said, text=True, env=environment, cwd=project, check=True)

    (project / "src").mkdir(parents=True)
    for name, text in {"README.md": "# Project\n", ".env": "KEY=secret\n", "src/main.c": "int main;\n", "src/run.c": "\n"}.items():
        (project / name).write_text(text)
    subprocess.run([program, "track"], env=environment, cwd=project, check=True, capture_output=True)
    hook("UserPromptSubmit", prompt="Tidy up this folder")
    hook("PreToolUse", tool_name="Bash", tool_input={"command": "rm -rf src .env"})
    shutil.rmtree(project / "src")
    (project / ".env").unlink()
    (project / "README.md").write_text("# Tidy project\n")
    hook("Stop")
    lines = []
    for command, comment in SESSION:
        if comment:
            lines.append(f"\x1b[2m{comment}\x1b[0m")
            continue
        lines += [f"\x1b[32m$\x1b[0m \x1b[1m{command}\x1b[0m", *on_terminal(["sh", "-c", command], project, environment), ""]
    return lines[:-1]


with tempfile.TemporaryDirectory() as scratch:
    lines = session(str(pathlib.Path(sys.argv[1]).resolve()), pathlib.Path(scratch))
width = 2 * MARGIN + max(len(re.sub(r"\x1b\[[0-9;]*[mK]", "", line)) for line in lines) * LETTER
height = 2 * MARGIN + len(lines) * LINE
print(f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width:.0f} {height:.0f}" width="{width:.0f}" height="{height:.0f}">')
print(f'<rect width="100%" height="100%" rx="8" fill="#0d1117"/>')
print('<g font-family="ui-monospace,SFMono-Regular,Menlo,Consolas,monospace" font-size="14">')
for number, line in enumerate(lines):
    if line:
        print(f'<text x="{MARGIN}" y="{MARGIN + 14 + number * LINE}">{drawn(line)}</text>')
print("</g>\n</svg>")
