#!/usr/bin/env python3
"""storelines_test.py REPORTER: the service's lines hold every byte, as text where it is text that is fit for people."""

import base64
import calendar
import json
import os
import subprocess
import sys
import tempfile
import time
from urllib.parse import quote_from_bytes

reporter = sys.argv[1]
failures = []


def check(condition, what):
    if not condition:
        failures.append(what)


def stored(event, log_id, *items):
    words = [word for number, item in enumerate(items, 1) for word in (str(number), item)]
    quoted = [quote_from_bytes(word, safe="") if isinstance(word, bytes) else word for word in (event, log_id, *words)]
    answer = subprocess.run([reporter, "named", *quoted], check=True, capture_output=True, text=True)
    check(answer.stdout == "0 0\n", answer)
    with open(os.path.join(os.environ["ZELQ_DIR"], "errors.jsonl"), encoding="utf-8", newline="\n") as file:
        return json.loads(file.readlines()[-1])


def bytes_of(item):
    value = item["text"].encode() if "text" in item else base64.b64decode(item["base64"], validate=True)
    return value.ljust(item["size"], b"\0")


def check_items(items, record):
    check([bytes_of(item) for item in record["items"]] == items, f"{items} came back as {record['items']}"[:300])


def check_every_byte():
    ids, everything = set(), b""
    for byte in range(256):
        one = bytes([byte])
        everything += one
        among = b"0123456789" + one + b"abcdefghi"
        before = time.time()
        record = stored(b"e" + one, b"l" + one, one, among, among + b"\0", everything)
        check_items([one, among, among + b"\0", everything], record)
        check(("text" in record["items"][1]) == (32 <= byte < 127 or one in b"\n\t\r"), f"text or not: {byte}")
        for name in ("event", "log_id"):
            expected = name[:1].encode() + one.rstrip(b"\0")
            exact = record.get(name + "_base64")
            check((exact is not None) == (byte >= 128), f"{name} in base64 or not: {byte}")
            check((base64.b64decode(exact) if exact else record[name].encode()) == expected, f"{name}: {byte}")
        ids.add(record["id"])
        then = calendar.timegm(time.strptime(record["time"][:19], "%Y-%m-%dT%H:%M:%S"))
        check(int(before) - 1 <= then <= time.time(), record)
        check(len(record["time"]) == 27 and record["time"][-1] == "Z", record)
        check(len(record["id"]) == 16 and set(record["id"]) <= set("0123456789abcdef"), record["id"])
    check(len(ids) == 256, "ids come up again")


def check_text_or_not():
    text = ["ä€😀 and more".encode(), "end ä".encode() + b"\0", b"\xC2\xA0", b"\xEF\xBF\xBF", b"\xF4\x8F\xBF\xBF",
            b"x" * 40000 + b'"\n']
    other = [b"two\0\0", b"\0", b"in\0side", b"cut \xE2\x82", b"\xE2\x82 cut", b"cut \xF0\x9F\x98\0",
             b"\xC0\xAF", b"\xE0\x80\x80", b"\xF0\x8F\xBF\xBF",  # overlong
             b"\xED\xA0\x80",  # a surrogate
             b"\xF4\x90\x80\x80", b"\xF8\x88\x80\x80\x80",  # beyond the last character
             b"\xC2\x85",  # a control character of two bytes
             b"\xFF" * 40001]
    record = stored(b"", b"", *text, *other)
    check_items(text + other, record)
    for number, item in enumerate(record["items"]):
        check(("text" in item) == (number < len(text)), f"text or not: {bytes_of(item)[:20]}")


with tempfile.TemporaryDirectory() as folder:
    os.environ["ZELQ_DIR"] = os.path.join(folder, "state")
    check_every_byte()
    check_text_or_not()
print(*failures, sep="\n")
sys.exit(1 if failures else 0)
