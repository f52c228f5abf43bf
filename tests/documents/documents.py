"""Runs the commands that the documents show, as they are shown.

usage: documents.py demo SOURCE CHECKOUT
       documents.py run CHECKOUT DOCUMENT

`demo` makes CHECKOUT, a copy of the sources, runs scripts/demo in it, and then pastes every command
that the demo printed. `run` works on a fresh copy of that checkout, with the demo's database as
weather.db in its top folder and the demo's programs on the PATH, and runs the blocks of DOCUMENT
in order, in one shell:

    ```console         lines that start with "$ ", and the exact output of each
    ```sh              commands that must succeed
    ```python read.py  a block with a file name is saved in that file, for later commands
    ```sh not-run      commands that cannot be run here; NOT_RUN below lists all of them

In a manual page, the example blocks (.EX to .EE) follow the rule of ```console.
"""

import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import sys
from typing import NamedTuple

# The first lines of the blocks marked not-run, by document, and why they are not run.
NOT_RUN = {
    "README.md": {
        "scripts/demo": "a test of its own runs it, and scripts/test runs this test",
        "scripts/build-packages": "scripts/test-packages makes and installs the packages",
    },
    "CONTRIBUTING.md": {
        "cmake --preset dev": "scripts/test runs these commands, and this test is one of them",
        "ctest --preset dev -R Recorder": "needs the tests of the dev preset",
        "scripts/test": "runs this test",
    },
    "docs/trend-database.md": {
        "CREATE TABLE copied (": "trendtool copy makes this table",
    },
    "docs/archive.md": {
        "createdb -h db.example trends": "needs a server; tests/archive runs the SQL",
    },
    "docs/fleet.md": {
        'trendtool copy -x trend.db "postgresql://db.example/trends" --prefix site7/': "needs a server",
        "[Timer]": "a part of a file of systemd",
        'trendtool purge -x "postgresql://db.example/trends" -d site7/pump -i 5 --before -730d':
            "needs a server",
        "pg_dump -h db.example -Fc -f trends.dump trends":
            "needs a server; tests/archive runs the same",
        "for host in data1.example data2.example coordinator.example; do": "needs three servers",
        "psql -h data1.example trends -f data.sql":
            "needs three servers; tests/archive runs the SQL",
    },
    "docs/guide.md": {
        "set datafile separator \",\"": "gnuplot is large, and not needed for anything else",
    },
    "docs/recipes.md": {
        "SELECT count(*), min(time), max(time), sum(\"rain:.ValueIntSum\") FROM 'observed.csv';":
            "Debian has no DuckDB",
        "trendtool export -x weather.db -d site/observed --format influx |": "Debian has no InfluxDB",
    },
    "docs/target.md": {
        "scripts/build-target": "takes minutes; scripts/test-packages runs it",
        "scp build/target-static/install/bin/* root@device:/usr/local/bin/": "needs a device",
        "scripts/build-packages powerpc": "scripts/test-packages runs it",
    },
}

# Where the documents have the socket of the CDS, and where the demo's programs look for it.
DOCUMENTED_SOCKET = "/run/cds/cds.sock"
DEMO_SOCKET = "build/demo/cds.sock"

MARK = "=== end of command"


class Block(NamedTuple):
    line: int  # of the first line in it, counted from 1
    kind: str  # console, sh, file or not-run
    text: str
    file: str = ""


class WrongDocument(Exception):
    """A document has an error. The text says where and what it is."""


def read_markdown(text):
    """Returns the blocks of a Markdown document."""
    blocks = []
    fence = None
    lines = text.splitlines()
    for number, line in enumerate(lines, start=1):
        if fence is None and line.startswith("```"):
            fence = (number, line[3:].split())
        elif fence is not None and line == "```":
            start, info = fence
            blocks.append(make_block(start + 1, info, "\n".join(lines[start : number - 1]) + "\n"))
            fence = None
        elif fence is None and line.startswith("    ") and lines[number - 2] == "":
            raise WrongDocument(f"line {number}: an indented block; put it between ``` lines")
    if fence is not None:
        raise WrongDocument(f"line {fence[0]}: this block has no end")
    return blocks


def make_block(line, info, text):
    language, mark = (info + ["", ""])[:2]
    if len(info) > 2:
        raise WrongDocument(f"line {line - 1}: more than a language and a mark")
    if mark == "not-run":
        return Block(line, "not-run", text)
    if mark:
        return Block(line, "file", text, mark)
    if language in ("console", "sh"):
        return Block(line, language, text)
    raise WrongDocument(f"line {line - 1}: is this block run, saved in a file, or not-run?")


def read_manual_page(text):
    """Returns the example blocks of a manual page."""
    blocks = []
    for match in re.finditer(r"^\.EX\n(.*?)^\.EE$", text, re.MULTILINE | re.DOTALL):
        shown = match[1].replace("\\-", "-").replace("\\(aq", "'").replace("\\&", "")
        if "\\" in shown:
            raise WrongDocument("an example has an unknown escape")
        blocks.append(Block(text.count("\n", 0, match.start()) + 2, "console", shown))
    return blocks


def split_console(block):
    """Returns the commands of a console block, each with its line and the output shown."""
    commands = []
    for number, line in enumerate(block.text.splitlines(keepends=True), start=block.line):
        if line.startswith("$ "):
            commands.append((number, line[2:].rstrip("\n"), ""))
        elif commands:
            start, command, output = commands[-1]
            commands[-1] = (start, command, output + line)
        else:
            raise WrongDocument(f"line {number}: output before the first command")
    return commands


def plan(blocks):
    """Returns the steps of a document: line, command, and the output shown or None."""
    steps = []
    for block in blocks:
        if block.kind == "console":
            steps += split_console(block)
        elif block.kind == "sh":
            steps.append((block.line, block.text, None))
        elif block.kind == "file":
            save = f"cat >{shlex.quote(block.file)} <<'END OF BLOCK'\n{block.text}END OF BLOCK\n"
            steps.append((block.line, save, None))
    return steps


def run_steps(steps, folder, replace=lambda text: text):
    """Runs steps in one shell in `folder`, and returns a list of what went wrong."""
    script = "exec 2>&1 </dev/null\n"
    for _, command, shown in steps:
        run = f"eval {shlex.quote(replace(command))}\n"
        # A later `echo $?` is to see the command's status, not that of the mark.
        end = f'status=$?; printf "\\n{MARK}\\n"; (exit $status)\n'
        script += run + end if shown is not None else f"set -e\n{run}set +e\n{end}"
    result = subprocess.run(
        ["bash", "-c", script], cwd=folder, stdout=subprocess.PIPE, check=False
    )
    outputs = result.stdout.decode(errors="replace").split(f"\n{MARK}\n")
    wrong = []
    for (line, command, shown), output in zip(steps, outputs):
        if shown is not None and output != replace(shown):
            wrong.append(f"line {line}: $ {command}\nshown:\n{shown}printed:\n{output}")
    if len(outputs) <= len(steps):
        line, command, _ = steps[len(outputs) - 1]
        wrong.append(f"line {line}: failed: {command}\n{outputs[-1]}")
    return wrong


def check_not_run(name, blocks):
    """Returns what is wrong with the blocks that are not run."""
    shown = [block.text.splitlines()[0] for block in blocks if block.kind == "not-run"]
    if shown == list(NOT_RUN.get(name, {})):
        return []
    return [f"not run: {shown}; but NOT_RUN lists {list(NOT_RUN.get(name, {}))}"]


def check_links(text, folder):
    """Returns the links to files that do not exist."""
    links = re.findall(r"\]\(([^)#]+)[^)]*\)", text)
    return [
        f"no such file: {link}"
        for link in links
        if not link.startswith("https:") and not (folder / link).exists()
    ]


def copy_tree(source, target):
    """Copies the project's files, but no builds and no folder that contains `target`."""

    def ignore(folder, names):
        paths = {name: pathlib.Path(folder, name) for name in names}
        return {n for n, path in paths.items() if n in (".git", "build") or path in target.parents}

    if target.exists():
        shutil.rmtree(target)
    shutil.copytree(source, target, ignore=ignore, symlinks=True)


def stand_in(path, script):
    """Puts a shell script in the place of a program."""
    path.parent.mkdir(parents=True, exist_ok=True)
    path.unlink(missing_ok=True)
    path.write_text("#!/bin/sh\n" + script)
    path.chmod(0o755)


def run_document(checkout, name):
    folder = checkout.parent / name.replace("/", "-")
    copy_tree(checkout, folder)
    shutil.copytree(checkout / "build/demo", folder / "build/demo", symlinks=True)
    shutil.copy(checkout / "build/demo/weather.db", folder)
    # The tests install nothing on this machine.
    stand_in(folder / "build/bin/sudo", f'exec env DESTDIR="{folder}/build/root" "$@"\n')
    text = (folder / name).read_text()
    blocks = read_markdown(text) if name.endswith(".md") else read_manual_page(text)
    if not blocks and not name.endswith(".md"):
        raise WrongDocument("no example")
    wrong = check_not_run(name, blocks) + check_links(text, (folder / name).parent)
    path = 'export TZ=UTC PATH="$PWD/build/bin:$PWD/build/demo:$PATH"'
    steps = [(0, path, None)] + plan(blocks)
    wrong += run_steps(steps, folder, lambda text: text.replace(DOCUMENTED_SOCKET, DEMO_SOCKET))
    # After a failure, a server that the document started may still run.
    for pid_file in folder.glob("*.pid"):
        os.kill(int(pid_file.read_text()), signal.SIGTERM)
    return wrong


def run_demo(source, checkout):
    copy_tree(source, checkout)
    # The tests install nothing on this machine.
    stand_in(checkout / "scripts/setup", "")
    demo = subprocess.run(["scripts/demo"], cwd=checkout, text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, check=False)
    if demo.returncode != 0:
        return [f"scripts/demo failed:\n{demo.stdout}"]
    # A command's output ends where the next paragraph starts.
    shown = "".join(re.findall(r"^\$ (?:.+\n)+", demo.stdout, re.MULTILINE))
    steps = [(0, 'export TZ=UTC PATH="$PWD/build/demo:$PATH"', None)]
    for step in split_console(Block(1, "console", shown)):
        steps.append(step)
        if step[1].endswith("&"):
            steps.append((0, f"until redis-cli -s {DEMO_SOCKET} ping; do sleep 0.1; done", None))
    steps += [(0, command, None) for command in re.findall(r"Try: (.*)", demo.stdout)]
    if len(steps) < 8:
        return [f"the demo shows too few commands:\n{demo.stdout}"]
    return run_steps(steps + [(0, "kill $!", None)], checkout)


def main(arguments):
    try:
        if len(arguments) != 3 or arguments[0] not in ("demo", "run"):
            sys.exit(__doc__)
        if arguments[0] == "demo":
            wrong = run_demo(*(pathlib.Path(path).resolve() for path in arguments[1:]))
        else:
            wrong = run_document(pathlib.Path(arguments[1]).resolve(), arguments[2])
    except WrongDocument as error:
        wrong = [str(error)]
    for what in wrong:
        print(f"{arguments[-1]}: {what}")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
