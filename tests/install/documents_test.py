#!/usr/bin/env python3
"""documents_test.py SOURCE BUILD FLAGS: does what README.md, CONTRIBUTING.md and docs/*.md show.

The blocks of a document are done as support/console.py says. zelq and the examples are on the PATH of their
shell, ZELQ_DIR names a folder of its own, and pkg-config knows the installed copy of the build. Times, ids,
addresses and the like may differ, and so may the number of blanks between words; where a status matters,
the document has it printed. Besides those of a shell there are these blocks:

  cpp         A program: compiled, and run; it must exit with 0. When its first line is "// NAME.cpp", it
              is saved under that name and with a main() compiled to ./NAME; a later command of the
              document must use ./NAME, or NAME.cpp when there is no main().
  c++         Part of a program.
  text, json  Illustrations. With these three nothing is done here; contributing_test.py does something with
  diff        those of CONTRIBUTING.md that name a file, and with changes to files.

"not run: REASON" behind the first word keeps a block from being run; the make targets and files that
it names must exist all the same. So must those that stand between backquotes in the text, and what
links lead to.
"""

import glob
import os
import re
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(os.path.dirname(__file__), "../support"))
import console

source, build, flags = sys.argv[1:4]
folders = [name for name in os.listdir(source) if os.path.isdir(os.path.join(source, name)) and name != "build"]
problems = []

# What differs from run to run, each where it can be told from anything else.
volatile = [
    (r"\d{4}-\d\d-\d\d", "DATE"),
    (r"\d\d:\d\d:\d\d(\.\d+)?", "TIME"),
    (r"\b[0-9a-f]{16}\b", "ID"),
    (r"^[0-9a-f]{8}(?= )", "ID"),
    (r"\b0x[0-9a-fA-F]{8,16}\b", "ADDRESS"),
    (r"\+0x[0-9a-f]+\b", "+OFFSET"),
    (r"\b\d+/\d+\b", "PID/TID"),
    (r"\bprocess \d+, thread \d+", "process PID, thread TID"),
    (r"^(\s*TIME) \d+ ", r"\1 TID "),
    (r"^host .*", "host NAME"),
    # bash tells of a death by a signal at more length when nobody types.
    (r"^\S+: line \d+: +\d+ (\w[\w ]*?)( \(core dumped\))?  .*", r"\1"),
    (r"(?<=\S) +", " "),
]


def problem(document, line, text):
    problems.append(f"{os.path.relpath(document, source)}:{line}: {text}")


def normalised(line):
    for pattern, name in volatile:
        line = re.sub(pattern, name, line)
    return line.rstrip()


def is_shown_only(block):
    return re.match(r"not run: \S", block.rest) is not None


def compile_command(name, program):
    return f"c++ {flags} -std=c++17 -Wall -Wextra -Wpedantic -Werror {name} -o {program}" \
           " $(pkg-config --cflags --libs zelqcood)\n"


def steps_of(document, blocks, work):
    steps, to_use = [], []
    for block in blocks:
        if block.kind in ("c++", "text", "json", "diff"):
            continue
        if block.kind in ("cpp", "sh", "console") and block.rest:
            if not is_shown_only(block):
                problem(document, block.line, f"{block.rest!r} is not 'not run: REASON'")
            continue
        if block.kind == "cpp":
            named = re.match(r"// (\w+\.(cpp|h))\n", block.text)
            name = named.group(1) if named else f"program{len(steps)}.cpp"
            has_main = re.search(r"\bint main\(", block.text) is not None
            saved = os.path.join(work, name)
            program = "./" + name.rsplit(".", 1)[0]
            script = f"cp {saved} {name}\n"
            with open(saved, "w", encoding="utf-8") as file:
                file.write(block.text)
            if has_main or not named:
                script += compile_command(name, program)
            if named:
                to_use.append((block.line, program if has_main else name))
            else:
                script += program + "\n"
            steps.append(console.Step(block.line, script))
        elif block.kind in ("sh", "console"):
            steps += console.steps_of(block)
            if steps == [] or steps[-1].line < block.line:
                problem(document, block.line, "a console block begins with a command behind '$ '")
        else:
            problem(document, block.line, f"unknown kind of block {block.kind!r}")
            continue
        used = block.text if block.kind != "cpp" else ""
        to_use = [(line, name) for line, name in to_use if name not in used]
    for line, name in to_use:
        problem(document, line, f"no command uses {name}")
    return steps


def run(document, blocks, environment):
    with tempfile.TemporaryDirectory() as work:
        for line, text in console.run(steps_of(document, blocks, work), environment, normalised):
            problem(document, line, text)


def check_names(document, line, text):
    """Make targets and files of the project that a piece of shell or a name in the text refers to."""
    for target in re.findall(r"\bmake ([a-z][\w-]*)", text):
        if subprocess.run(["make", "-n", target], cwd=source, capture_output=True).returncode != 0:
            problem(document, line, f"no make target {target!r}")
    for path in re.findall(r"(?<![\w./$-])[\w.-]+/[\w./*-]*", text):
        top = path.split("/")[0]
        if top in folders and "NAME" not in path and not glob.glob(os.path.join(source, path)):
            problem(document, line, f"no file {path!r}")


def anchors_of(document):
    headings = [line.lstrip("#").strip() for line in console.split(document)[1] if re.match(r"#+ ", line)]
    return {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-") for heading in headings}


def check_text(document, prose):
    for number, line in enumerate(prose, 1):
        for name in re.findall(r"`([^`]+)`", line):
            check_names(document, number, name)
        for target in re.findall(r"\]\(([^)\s]+)\)", line):
            if re.match(r"https?:", target):
                continue
            path, _, anchor = target.partition("#")
            file = os.path.normpath(os.path.join(os.path.dirname(document), path)) if path else document
            if not os.path.exists(file):
                problem(document, number, f"link to {target!r}, which does not exist")
            elif anchor and anchor not in anchors_of(file):
                problem(document, number, f"link to {target!r}, but there is no such heading")


def check_folders():
    """The table in docs/architecture.md: folders include from rows below their own, and not from beside them.
    Those of the first row stand on top of everything, and nothing includes from them."""
    architecture = os.path.join(source, "docs/architecture.md")
    table = [line for line in console.split(architecture)[1] if line.startswith("| `")]
    rows = [re.findall(r"`([\w/]+)/`", line.split("|")[1]) for line in table]
    row_of = {folder: number for number, row in enumerate(rows) for folder in row}

    def folder_of(path):
        header = re.fullmatch(r"include/zelqcood/(\w+)\.h", path)
        if header:
            return header.group(1)
        return max((folder for folder in row_of if path.startswith(folder + "/")), key=len, default=None)

    checked = 0
    for file in glob.glob(f"{source}/*/**/*.cpp", recursive=True) + glob.glob(f"{source}/*/**/*.h", recursive=True):
        name = os.path.relpath(file, source)
        own = folder_of(name)
        if row_of.get(own, 0) == 0:
            continue
        with open(file, encoding="utf-8") as text:
            headers = re.findall(r'^#include "([^"]+)"', text.read(), re.MULTILINE)
        for header in headers:
            roots = ("", "include", "platform/include", "platform")
            found = [os.path.join(root, header) for root in roots if os.path.exists(os.path.join(source, root, header))]
            other = folder_of(found[0]) if found else None
            if other != own and row_of.get(other, 0) <= row_of[own]:
                problem(file, 1, f"includes {header!r}, but docs/architecture.md has it not below {own}/")
            checked += 1
    if checked < 100:
        problem(architecture, 1, "the table of folders is not what this test looks for")


def main():
    documents = [os.path.join(source, "README.md"), *glob.glob(f"{source}/CONTRIBUTING.md"),
                 *sorted(glob.glob(f"{source}/docs/*.md"))]
    with open(documents[0], encoding="utf-8") as file:
        readme = file.read()
    with tempfile.TemporaryDirectory() as prefix:
        subprocess.run(["cmake", "--install", build, "--prefix", prefix], check=True, stdout=subprocess.DEVNULL)
        environment = {**os.environ, "PATH": f"{prefix}/bin:{build}/examples:{os.environ['PATH']}",
                       "LD_LIBRARY_PATH": f"{prefix}/lib", "PKG_CONFIG_PATH": f"{prefix}/lib/pkgconfig",
                       "LC_ALL": "C.UTF-8", "TZ": "UTC"}
        for document in documents:
            blocks, prose = console.split(document)
            run(document, blocks, environment)
            check_text(document, prose)
            for block in blocks:
                if is_shown_only(block):
                    check_names(document, block.line, block.text)
            name = os.path.relpath(document, source)
            if name.startswith("docs/") and f"]({name})" not in readme:
                problem(documents[0], 1, f"no link to {name}")
            print(f"{name}: {len(blocks)} blocks")
    check_folders()
    for text in problems:
        print(f"FAIL: {text}", file=sys.stderr)
    return 1 if problems else 0


sys.exit(main())
