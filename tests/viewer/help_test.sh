#!/bin/bash
# help_test.sh SOURCE ZELQ: the manual page and the completion name every command and
# option that the viewer's help names, and do what they are for.
set -eu
source=$1
zelq=$2
page=$source/docs/zelq.1
completion=$source/tools/zelq.bash-completion
failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

# What `zelq $*` completes to, when the last word is begun.
completed() {
    COMP_WORDS=(zelq "$@")
    COMP_CWORD=$#
    COMPREPLY=()
    _zelq
    echo "${COMPREPLY[*]}"
}

# Looks at the help of a command and of those below it.
check() {
    local help command option
    help=$("$zelq" "$@" --help)
    for command in $(echo "$help" | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p'); do
        grep -qF "zelq${*:+ $*} $command" "$page" || fail "the manual page lacks 'zelq $* $command'"
        [[ " $(completed "$@" "") " == *" $command "* ]] || fail "the completion lacks 'zelq $* $command'"
        check "$@" "$command"
    done
    for option in $(echo "$help" | sed -n '/^Options:/,/^$/s/^  \(-.,\)\?\(--[a-z-]*\).*/\2/p'); do
        grep -qF -e "${option//-/\\-}" "$page" || fail "the manual page lacks $option"
        [ "$(completed "$@" "$option")" = "$option" ] || fail "the completion lacks 'zelq $* $option'"
        checked=$((checked + 1))
    done
}

# shellcheck source=/dev/null
. "$completion"
checked=0
check
[ "$checked" -ge 50 ] || fail "only $checked options were found in the help"
[ "$(completed log st)" = stats ] || fail "'zelq log st' completes to '$(completed log st)'"
[ "$(completed log -o v)" = verbose ] || fail "'zelq log -o v' completes to '$(completed log -o v)'"
[ "$(completed log stats -o v)" = "" ] || fail "'zelq log stats -o v' completes to '$(completed log stats -o v)'"
warnings=$(groff -man -Tutf8 -ww -z "$page" 2>&1)
[ -z "$warnings" ] || fail "$warnings"
[ "$failures" -eq 0 ]
