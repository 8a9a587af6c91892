#!/bin/sh
# demo_test.sh SOURCE BUILD: the demonstration runs through, and shows what it promises.
set -eu
source=$1
build=${2#"$source"/}
output=$("$source/examples/demo" "$build")
echo "$output"
while read -r pattern; do
    echo "$output" | grep -qE "$pattern" || { echo "FAIL: no line matches '$pattern'" >&2; exit 1; }
done <<'END'
^ +ok +'README.md' begins with [0-9]+ bytes of text$
^ +OPENFAILED +cannot open '/no/such/file': No such file or directory$
^[0-9a-f]{8} .* error +01 10 2000 +READFAILED +readfiles$
^event +NOTEXT$
no text in '.*/libzelqcood.so'$
0000  7f 45 4c 46 .*ELF
XLIBLOGF: xlog_record: src=0, crc=0x0000$
RDFILESF: < readText$
END
