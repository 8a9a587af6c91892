#!/usr/bin/env python3
"""Counts the instructions that main operations take, and compares them with the numbers in the tree.

    bench/instructions.py BUILD_FOLDER            fails when an operation takes 5 percent more
    bench/instructions.py --renew BUILD_FOLDER    writes the numbers anew

Only instructions of this project's own libraries count: what the C library does depends on its version
and on the processor. For the same reason there is no comparison with another compiler's numbers.
"""

import argparse
import os
import re
import subprocess
import sys
import tempfile

NUMBERS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "instructions.txt")
LIBRARIES = ("libzelqcood.so", "libzelqcoob.so", "libpumwtrac.so", "libzelqsp1.so")
NOT_COUNTED = ("zelq::askClock()",)  # how often it is called depends on how fast the counter runs
TIMES = 20
TOLERANCE = 0.05
HEADER = """\
# Instructions of the project's own libraries for one run of an operation, in an optimised build of
# the host's width. Written by `make test-instructions RENEW=1`, compared by `make test`.
"""


def compiler_of(build_folder):
    with open(os.path.join(build_folder, "CMakeCache.txt"), encoding="utf-8") as cache:
        compiler = re.search(r"^CMAKE_CXX_COMPILER:[A-Z]+=(.*)$", cache.read(), re.M).group(1)
    version = subprocess.run([compiler, "--version"], capture_output=True, text=True, check=True).stdout
    return re.sub(r"^\S+ \(", "(", version.splitlines()[0])  # not the name that it was called by


def own_instructions(profile):
    """The sum over all functions of the libraries. A name is written out once and numbered from then on."""
    names = {}
    library = function = ""
    is_call = False
    total = 0
    for line in profile:
        head = re.match(r"(ob|fn)=(\(\d+\))(?: (.*))?$", line)
        if head:
            kind, number, name = head.groups()
            if name is not None:
                names[kind, number] = name
            if kind == "ob":
                library = os.path.basename(names[kind, number])
            else:
                function = names[kind, number]
        elif match := re.match(r"c(ob|fn)=(\(\d+\)) (.*)$", line):
            names[match.group(1), match.group(2)] = match.group(3)
        elif line.startswith("calls="):
            is_call = True  # the next line holds what the called function took
        elif re.match(r"[+*-]?\d|\*", line):
            if not is_call and library in LIBRARIES and function not in NOT_COUNTED:
                total += int(line.split()[1])
            is_call = False
    return total


def count(build_folder, operation):
    with tempfile.TemporaryDirectory() as folder:
        profile = os.path.join(folder, "profile")
        command = ["valgrind", "--tool=callgrind", "--callgrind-out-file=" + profile, "--toggle-collect=countedRun",
                   os.path.join(build_folder, "bench", "runoperation"), operation, str(TIMES)]
        result = subprocess.run(command, capture_output=True, text=True, check=False)
        if result.returncode != 0:
            sys.exit("{}\n{}".format(" ".join(command), result.stderr))
        with open(profile, encoding="utf-8") as lines:
            return round(own_instructions(lines) / TIMES)


def read_numbers():
    compiler, numbers = "", {}
    with open(NUMBERS, encoding="utf-8") as lines:
        for line in lines:
            if line.startswith("compiler: "):
                compiler = line.split(": ", 1)[1].strip()
            elif match := re.match(r"\s*(\d+)  (.+)$", line):
                numbers[match.group(2)] = int(match.group(1))
    return compiler, numbers


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--renew", action="store_true", help="write the numbers instead of comparing them")
    parser.add_argument("build_folder")
    arguments = parser.parse_args()
    compiler = compiler_of(arguments.build_folder)
    noted_compiler, noted = read_numbers()
    if compiler != noted_compiler and not arguments.renew:
        print(f"instruction counts are NOT COMPARED: they were noted with {noted_compiler}, this is {compiler}")
        return 0
    counted = {operation: count(arguments.build_folder, operation) for operation in noted}
    failed = False
    for operation, instructions in counted.items():
        growth = instructions / noted[operation] - 1 if noted[operation] else 0.0
        slower = growth > TOLERANCE
        failed = failed or slower
        print(f"{operation:40} {instructions:8} instructions, noted {noted[operation]:8} ({growth:+.1%})"
              + ("  SLOWER" if slower else ""))
    if arguments.renew:
        with open(NUMBERS, "w", encoding="utf-8") as file:
            file.write(HEADER + f"compiler: {compiler}\n")
            file.writelines(f"{instructions:8}  {operation}\n" for operation, instructions in counted.items())
        return 0
    if failed:
        print("an operation takes over 5 percent more instructions than noted; if that is meant to be, "
              "`make test-instructions RENEW=1` notes the new numbers")
    return 1 if failed else 0


sys.exit(main())
