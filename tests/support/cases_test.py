#!/usr/bin/env python3
"""cases_test.py FOLDER... FILE: does what the file shows, in the way of console.py.

The programs of the folders are on the shell's PATH, and ZELQ_DIR names a state folder that is not there
yet. What is shown must come out to the last byte, but for "..."; behind it stands "[N]" where a command
ends with a status N other than 0.
"""

import os
import sys

sys.dont_write_bytecode = True
import console

*folders, cases = sys.argv[1:]
environment = {**os.environ, "PATH": ":".join([*folders, os.environ["PATH"]]), "LC_ALL": "C.UTF-8", "TZ": "UTC",
               "CASES": os.path.dirname(cases)}
steps = [step for block in console.split(cases)[0] for step in console.steps_of(block)]
show_status = 'status=$?; [ $status = 0 ] || echo "[$status]";'
failures = [f"FAIL: {cases}:{line}: {text}"
            for line, text in console.run(steps, environment, shown_status=show_status)]
print(*failures, f"{len(steps)} steps", sep="\n")
sys.exit(1 if failures or not steps else 0)
