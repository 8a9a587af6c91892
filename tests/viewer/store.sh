# A folder for the store, to work in, and lines with little in them to put into its files.
mkdir -p -m 700 "$ZELQ_DIR"
cd "$ZELQ_DIR"

# line ID EVENT [MORE [TIME]]
line() {
    printf '{"v":1,"id":"%s","time":"%s","program":"demo","pid":7,"tid":8,"class":10,"type":2,"user":4660,' \
        "$1" "${4-2026-11-22T10:00:00Z}"
    printf '"severity":"error","event":"%s"%s}\n' "$2" "${3-}"
}

# events [ARGUMENT]...: the events of the records that the command prints, in its order
events() {
    zelq log "$@" -o json | sed 's/.*"event":"\([^"]*\)".*/\1/' | paste -sd ' '
}
