#!/bin/sh
# demo_test.sh SOURCE BUILD: the demonstration runs through, and shows what it promises.
set -eu
source=$1
build=${2#"$source"/}
output=$("$source/examples/demo" "$build")
echo "$output"
while read -r pattern; do
    echo "$output" | grep -qE -e "$pattern" || { echo "FAIL: no line matches '$pattern'" >&2; exit 1; }
done <<'END'
^ +ok +'README.md' begins with [0-9]+ bytes of text$
^ +OPENFAILED +cannot open '/no/such/file': No such file or directory$
^[0-9a-f]{8} .* error +01 10 +READFAILED +readfiles$
^event +NOTEXT$
no text in '.*/libzelqcood.so'$
0000  7f 45 4c 46 .*ELF
XLIBLOGF: xlog_record: src=0, crc=0x0000$
RDFILESF: < readText$
^  could not install '/no/such/update.pkg': recorded$
^[0-9a-f]{8} .* error +A0420021 00000002 +PACKAGE +twostages$
^refcode +A0420022 00000018$
^    '.*/demo/cut.pkg' is cut off$
^    the update was not installed$
^    #[0-9]+  0x[0-9a-f]+  main\+0x[0-9a-f]+  \[twostages\+0x[0-9a-f]+\]$
^    A0410011 00000000$
^system trace, last 10 of [0-9]+ lines, [0-9]+ library lines hidden \(--full shows all\)$
^    [0-9:.]+ UPDATERF: < readPackage$
^item 0x03   24 bytes$
^  the parent received [0-9]+ bytes and read in them:$
^XException: job 7 has no input$
^  at Line: +[0-9]+ in File: workers.cpp$
^  worker 2: program check, last words from the user exit$
^  worker 2 died of signal 11 \(Segmentation fault\)$
^refcode +A0510031 00000007$
0010  74 72 .*troller\.
END
