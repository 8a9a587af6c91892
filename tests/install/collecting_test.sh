#!/bin/sh
# collecting_test.sh SOURCE BUILD: the configuration files in examples/collecting carry records from one
# rsyslog to another, whole and unchanged, while files rotate and while either side is down.
set -eu
source=$1
build=$2
export ZELQ_STORE_SIZE=512K ZELQ_STORE_FILES=100
# rsyslogd stands in sbin, which not everybody has in the path.
PATH=$PATH:/usr/sbin:/sbin
work=$(mktemp -d)
sender=
receiver=
trap 'kill $sender $receiver 2>/dev/null || true; wait; rm -rf "$work"' EXIT
mkdir "$work/sender" "$work/receiver"  # the others come with the first record
export ZELQ_DIR="$work/store"

fail() {
    echo "FAIL: $*" >&2
    cat "$work"/*/messages >&2
    exit 1
}

port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
for side in sender receiver; do
    # The files as they stand, but for places, port and patience; read after other modules, as from a
    # distribution's own configuration.
    sed -e "s#/var/log/zelq-collected/#$work/collected/#; s#/var/log/zelq/#$work/store/#" \
        -e "s#collector.example#127.0.0.1#; s#\"2514\"#\"$port\"#" \
        -e 's#\(resumeInterval[A-Za-z]*\)="[0-9]*"#\1="1"#g' "$source/examples/collecting/$side.conf" >"$work/$side/zelq.conf"
    cat >"$work/$side/rsyslog.conf" <<END
module(load="imuxsock" SysSock.Use="off")
global(workDirectory="$work/$side")
include(file="$work/$side/zelq.conf")
END
    rsyslogd -N1 -f "$work/$side/rsyslog.conf" >"$work/$side/messages" 2>&1 || fail "$side.conf"
done

# start SIDE: its process id is in the variable of that name.
start() {
    rsyslogd -n -f "$work/$1/rsyslog.conf" -i "$work/$1/pid" >>"$work/$1/messages" 2>&1 &
    eval "$1=$!"
}

stop() {
    eval "process=\$$1"
    kill "${2:--TERM}" "$process"
    wait "$process" || true
    eval "$1="
}

record() { "$build/tests/reporter" load "$@"; }

# Waits until every line that was recorded has arrived, or nothing more arrives for half a minute; then looks
# at what arrived: nothing but those.
expect_all() {
    cat "$work"/store/errors.jsonl* | sort >"$work/sent"
    waits=0 last=
    while [ "$waits" -lt 150 ]; do
        grep . "$work/collected/errors.jsonl" 2>/dev/null | sort >"$work/received" || true
        uniq "$work/received" >"$work/distinct"
        ! cmp -s "$work/sent" "$work/distinct" || break
        arrived=$(wc -c <"$work/received")
        [ "$arrived" = "$last" ] || waits=0
        last=$arrived waits=$((waits + 1))
        sleep 0.2
    done
    echo "$1: $(wc -l <"$work/sent") records in $(ls "$work"/store/errors.jsonl* | wc -l) files," \
        "$(wc -l <"$work/received") received"
    cmp "$work/sent" "$work/distinct" || fail "$1: $(comm -23 "$work/sent" "$work/distinct" | wc -l) records are missing," \
        "$(comm -13 "$work/sent" "$work/distinct" | wc -l) lines were never recorded"
}

start receiver
start sender
record 20 10
record 2 300000
expect_all "both running"
for _ in 1 2 3 4; do
    record 10 60000
    expect_all "while files rotate"
done
# A file that moves while it is read may be read again now and then, but not as a rule.
[ "$(wc -l <"$work/received")" -lt $(($(wc -l <"$work/sent") * 3 / 2)) ] || fail "files are sent again whenever they move"

stop receiver
record 40 50000
start receiver
expect_all "receiver was down"

stop sender
record 10 120000
start sender
expect_all "sender was down"

# What was on its way when the sender was killed may be lost. It is still in the store, and all of that
# is sent again when rsyslog has forgotten what it read.
record 10 120000
stop sender -KILL
rm "$work"/sender/imfile-state*
start sender
expect_all "sender was killed and sends again"

stop receiver
ZELQ_DIR="$work/collected" "$build/tools/zelq" log >"$work/list" || fail "the viewer does not read what was collected"
[ "$(wc -l <"$work/list")" -gt "$(wc -l <"$work/sent")" ] || fail "the viewer shows $(wc -l <"$work/list") lines"
