#!/usr/bin/env python3
"""contributing_test.py SOURCE BUILD: the class of CONTRIBUTING.md's example becomes part of the library.

What stands behind the kind of a block is a file of the project. "c++ FILE" is that file as a whole, "diff
FILE" changes it: lines that stay begin with a blank, new ones with "+", old ones with "-", and "..." parts
one place from the next. "text zelq block" is what the viewer shows of the example's block.

The files are written to a scratch folder. What they change is compiled and linked with the commands of the
build and its other objects; then the tests of the library and the viewer run, and the exported names are
compared. Neither the sources nor the build are changed.
"""

import concurrent.futures
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

source, build = (os.path.abspath(path) for path in sys.argv[1:3])


def fail(text):
    sys.exit(f"FAIL: {text}")


def run(command, **options):
    result = subprocess.run(command, capture_output=True, text=True, check=False, **options)
    if result.returncode != 0:
        fail(f"{command}\n{result.stdout}{result.stderr}")
    return result.stdout


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def blocks_of(document):
    """The (kind, file, text) of the blocks that name something behind their kind."""
    pattern = re.compile(r"^( *)```(c\+\+|diff|text) (\S.*)\n((?:.*\n)*?)\1```$", re.MULTILINE)
    for indent, kind, name, text in pattern.findall(read(document)):
        yield kind, name, "".join(line.removeprefix(indent) for line in text.splitlines(True))


def changed(text, diff, name):
    """The text of a file with the changes made, each in the one place that it can mean."""
    for hunk in re.split(r"^\.\.\.\n", diff, flags=re.MULTILINE):
        lines = [line if line.strip() else " \n" for line in hunk.splitlines(True)]
        old = "".join(line[1:] for line in lines if line[0] in " -")
        new = "".join(line[1:] for line in lines if line[0] in " +")
        if ("\n" + text).count("\n" + old) != 1:
            fail(f"{name} does not have this in one place:\n{old}")
        text = ("\n" + text).replace("\n" + old, "\n" + new)[1:]
    return text


class Commands:
    """The build's own commands, with some paths exchanged."""

    def __init__(self, scratch):
        self.scratch = scratch
        self.compiled = {}
        for entry in json.loads(read(f"{build}/compile_commands.json")):
            name = os.path.relpath(entry["file"], source)
            if name not in self.compiled or "viewer_of_host" in entry["command"]:
                self.compiled[name] = entry["command"]

    def compile(self, name, model, file):
        """Compiles `file`, under the name of a source of the project, as the source `model` is compiled."""
        # Includes come from the scratch folder first; quick to compile is enough.
        flags = " ".join(f"-I{self.scratch}{folder}" for folder in ("/tests", "/include", ""))
        command = self.compiled[model].split(" -o ")[0].replace(f"{source}/tests/exp", f"{self.scratch}/tests/exp")
        first, rest = re.match(r"((?:\S*ccache )?\S+) (.*)", command).groups()
        output = f"{self.scratch}/{name}.o"
        run(f"{first} {flags} {rest} -O0 -g0 -U_FORTIFY_SOURCE -o {output} -c {file}", shell=True, cwd=build)
        return output

    def link(self, target, output, objects, libraries=()):
        """Links a file of the build another time: with these objects in front, or in the place of its own."""
        command = run(["ninja", "-t", "commands", target], cwd=build).splitlines()[-1]
        own = re.findall(r"\S+\.o(?= )", command)
        for name, made in objects.items():
            older = [path for path in own if path.endswith(".dir/" + name.split("/", 1)[1] + ".o")]
            if older:
                command = command.replace(f" {older[0]} ", f" {made} ")
            else:
                command = command.replace(f" {own[0]} ", f" {own[0]} {made} ", 1)
        for path in libraries:
            command = re.sub(rf" \S*{os.path.basename(path)}(?= )", f" {path}", command)
        run(command.replace(f"-o {target}", f"-o {output}"), shell=True, cwd=build)
        return output


def main():
    with tempfile.TemporaryDirectory() as scratch:
        shutil.copytree(f"{source}/tests/expected", f"{scratch}/tests/expected")
        files, shown, example = [], None, None
        for kind, name, text in blocks_of(f"{source}/CONTRIBUTING.md"):
            if kind == "text":
                shown = text
                continue
            os.makedirs(f"{scratch}/{os.path.dirname(name)}", exist_ok=True)
            if kind == "diff":
                text = changed(read(f"{source}/{name}"), text, name)
            with open(f"{scratch}/{name}", "w", encoding="utf-8") as file:
                file.write(text)
            files.append(name)
            if name.endswith("/blocks.txt"):
                example = re.search(r"^XNote\n((?:[0-9A-F ]+\n)+)", text, re.MULTILINE)
        new_sources = [name for name in files if name.endswith(".cpp") and not os.path.exists(f"{source}/{name}")]
        for name in new_sources:
            if f"  {name}\n" not in read(f"{scratch}/CMakeLists.txt"):
                fail(f"{name} is not in CMakeLists.txt")

        commands = Commands(scratch)
        # Besides what is changed, the test that goes through all samples.
        jobs = {name: (name, f"{scratch}/{name}") for name in files if name.endswith(".cpp")}
        for name in new_sources:
            jobs[name] = ("logdata/logdata.cpp", f"{scratch}/{name}")
        samples_test = "tests/library/blockbytes_test.cpp"
        jobs[samples_test] = (samples_test, f"{source}/{samples_test}")
        with concurrent.futures.ThreadPoolExecutor(2) as pool:
            made = dict(zip(jobs, pool.map(lambda name: commands.compile(name, *jobs[name]), jobs)))

        def objects(folder):
            return {name: made[name] for name in made if name.startswith(folder)}

        library = commands.link("libzelqcood.so", f"{scratch}/libzelqcood.so",
                                {name: made[name] for name in new_sources})
        test = commands.link("tests/library_test", f"{scratch}/library_test", objects("tests/"), [library])
        viewer = commands.link("tools/zelq", f"{scratch}/zelq", objects("tools/"))

        names = {re.sub(r"^[0-9a-f]* +\w ", "", line) for line in run(["nm", "-DC", "--defined-only", library]).splitlines()}
        listed = set(read(f"{scratch}/tests/exported/zelqcood.txt").splitlines())
        if names != listed:
            fail(f"exported, or listed, but not both: {names ^ listed}")
        print(run([test, "--gtest_brief=1"], env={**os.environ, "ZELQ_DIR": scratch, "LD_LIBRARY_PATH": scratch}))
        tree = run([viewer, "block", "--hex", "-"], input=example.group(1))
        if tree != shown:
            fail(f"the viewer shows\n{tree}and not\n{shown}")


main()
