"""Documents whose blocks can be done: shells that run what they show, and compare what comes out.

The blocks of a document are done in their order, by one bash that begins in an empty folder. The first
word behind the fence says what a block is:

  sh          Commands, which must all succeed; what they print is not looked at.
  console     Commands behind "$ " (a line that ends in "\\" goes on behind "> "), each with what it prints
              below it, to either output. "..." stands for any text, on a line of its own for any number
              of lines.
"""

import os
import re
import signal
import subprocess
import tempfile


class Block:
    def __init__(self, line, info):
        self.line, self.text = line, ""
        self.kind, _, self.rest = info.partition(" ")


class Step:
    """One thing that the document's shell does; `expected` is None where any output will do."""

    def __init__(self, line, script, expected=None):
        self.line, self.script, self.expected = line, script, expected


def split(document):
    """The blocks, and the text around them with the blocks' lines left empty."""
    blocks, prose, inside, indent = [], [], False, 0
    with open(document, encoding="utf-8") as file:
        for number, line in enumerate(file.read().split("\n"), 1):
            fence = re.match(r"( *)```(.*)", line)
            if fence and not inside:
                indent = len(fence.group(1))  # in a list
                blocks.append(Block(number, fence.group(2)))
            elif inside and not fence:
                blocks[-1].text += line[indent:] + "\n"
            inside = inside != bool(fence)
            prose.append("" if inside or fence else line)
    if inside:
        blocks[-1].kind = "without an end"
    return blocks, prose


def steps_of(block):
    """What a block of commands does; none when a console block does not begin with a command."""
    if block.kind == "sh":
        return [Step(block.line, block.text)]
    steps = []
    for number, line in enumerate(block.text.splitlines(), block.line + 1):
        if line.startswith("$ "):
            steps.append(Step(number, line[2:] + "\n", []))
        elif not steps:
            return []
        elif line.startswith("> ") and steps[-1].script.endswith("\\\n") and not steps[-1].expected:
            steps[-1].script += line[2:] + "\n"
        else:
            steps[-1].expected.append(line)
    return steps


def first_difference(expected, actual, normalised):
    """None, or the expected line that nothing matches."""
    states, furthest = {0}, 0  # how many actual lines may be used up
    for i, line in enumerate(expected):
        furthest = i
        if line.strip() == "...":
            states = set(range(min(states), len(actual) + 1))
            continue
        pattern = re.compile(".*".join(re.escape(part) for part in normalised(line).split("...")))
        states = {n + 1 for n in states if n < len(actual) and pattern.fullmatch(normalised(actual[n]))}
        if not states:
            return f"nothing printed matches {line!r}"
    return None if len(actual) in states else f"more is printed than {expected[furthest] if expected else ''!r}"


def run(steps, environment, normalised=str, shown_status=""):
    """Runs the steps in one shell, and yields those that did not do what they should: (line, complaint).
    `shown_status` is what the shell does with a status that a console step has to show."""
    with tempfile.TemporaryDirectory() as work:
        home = os.path.join(work, "home")
        os.mkdir(home, 0o700)
        script = f"cd {home}\n"
        for i, step in enumerate(steps):
            with open(f"{work}/step{i}", "w", encoding="utf-8") as file:
                file.write(step.script)
            # A set -e that fails ends the shell: the step then has no status.
            strict, status = ("set -e", "") if step.expected is None else ("set +e", shown_status)
            script += f"{strict}\n{{ . {work}/step{i}; {status} }} >{work}/output{i} 2>&1 </dev/null\n"
            script += f"echo $? >{work}/status{i}\n"
        with open(f"{work}/script", "w", encoding="utf-8") as file:
            file.write(script)
        shell = subprocess.Popen(["bash", f"{work}/script"], start_new_session=True,
                                 env={**environment, "HOME": home, "ZELQ_DIR": f"{work}/state"})
        try:
            shell.wait(timeout=120)
        except subprocess.TimeoutExpired:
            os.killpg(shell.pid, signal.SIGKILL)
            shell.wait()
        for i, step in enumerate(steps):
            output = ""
            if os.path.exists(f"{work}/output{i}"):
                with open(f"{work}/output{i}", encoding="utf-8", errors="replace", newline="\n") as file:
                    output = file.read().replace(f"{work}/state", "$ZELQ_DIR")
            if not os.path.exists(f"{work}/status{i}"):
                yield step.line, f"failed, or was not over in two minutes:\n{step.script}{output}"
                return
            if step.expected is not None:
                difference = first_difference(step.expected, output.removesuffix("\n").split("\n") if output else [],
                                              normalised)
                if difference:
                    yield step.line, f"$ {step.script}{difference}; it printed:\n{output}"
