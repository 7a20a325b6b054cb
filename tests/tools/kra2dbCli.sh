#!/usr/bin/env bash
# kra2db from the command line: write, dump and info, the round trip of records through a
# database, and the errors a user sees. Usage: kra2dbCli.sh <kra2db>
set -u
kra2db=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
failures=0
check() {  # check <label> <expected> <actual>
  if [ "$2" != "$3" ]; then
    echo "FAIL $1"; diff <(printf '%s\n' "$2") <(printf '%s\n' "$3"); failures=$((failures + 1))
  fi
}

printf 'n1\t1\t2\t3\t4e-09\t-0.5\t1e-09\r\n\n# skipped\nn2\t0.1\t1e+300\t-0\t5e-324\tinf\t-inf\n' > ir.tsv
printf 'R1\t0.25\t-0.125\t3\t7e-10\t0.5\t-1\t9223372036854775807\n' > em.tsv
"$kra2db" write -q out.db --ir ir.tsv --em em.tsv -t 85 --start 1e-9 --stop 2.5e-6
check "write exit" 0 $?
# The EM block starts after the IR block, whose random key length varies: mask its offset.
dump=$("$kra2db" dump out.db | sed 's/^block\tEM\t[0-9]*/block\tEM\tX/')
check "dump" "$(printf '%s\n' \
  'parameter	architecture	64' \
  'parameter	version	5' \
  'version	5' \
  'temperature	85' \
  'startTime	1e-09' \
  'stopTime	2.5e-06' \
  'block	IR	1128	2' \
  'block	EM	X	1' \
  'IR	n1	1	2	3	4e-09	-0.5	1e-09' \
  'IR	n2	0.1	1e+300	-0	5e-324	inf	-inf' \
  'EM	R1	0.25	-0.125	3	7e-10	0.5	-1	9223372036854775807')" "$dump"
info=$("$kra2db" info out.db | sed 's/^block\tEM\t[0-9]*/block\tEM\tX/')
check "info is the dump without records" "$(printf '%s\n' "$dump" | grep -v '^[IE][RM]	')" "$info"

# The record lines of a dump are record files again.
"$kra2db" dump out.db | grep '^IR' | cut -f2- > ir2.tsv
"$kra2db" dump out.db | grep '^EM' | cut -f2- > em2.tsv
"$kra2db" write -q again.db --ir ir2.tsv --em em2.tsv -t 85 --start 1e-9 --stop 2.5e-6 --em-first
check "round trip" "$("$kra2db" dump out.db | grep -v '^block')" \
  "$("$kra2db" dump again.db | grep -v '^block')"

err=$(printf 'a\t1\t2\t3\t4\t5\t6\nb\t1\t2\tx\t4\t5\t6\n' > bad.tsv; "$kra2db" write bad.db --ir bad.tsv 2>&1)
check "bad field exit" 1 $?
check "bad field message" "kra2db: error: bad.tsv:2: field peak is not a number: 'x'" "$err"
check "no partial database" "" "$(ls bad.db 2>/dev/null)"

err=$("$kra2db" write old.db --version 4.8 2>&1)
check "legacy write" "kra2db: error: Cannot write 'old.db': the legacy EMIR database format (version below 4.9) is not supported." "$err"
check "no legacy file" "" "$(ls old.db 2>/dev/null)"

err=$("$kra2db" write x.db --ir missing.tsv 2>&1)
check "missing input" "kra2db: error: cannot open IR record file 'missing.tsv': No such file or directory" "$err"

head -c 3000 /dev/zero | tr '\0' 'x' > legacy.db
printf 'begin' | dd of=legacy.db bs=1 seek=96 conv=notrunc status=none
err=$("$kra2db" info legacy.db 2>&1)
check "legacy info exit" 1 $?
check "legacy info" "kra2db: error: The file 'legacy.db' is in the legacy EMIR database format (version below 4.9), which is not supported." "$err"

# Without tags and without a legacy first line the file is no database at all.
head -c 3000 /dev/zero | tr '\0' 'x' > foreign.db
err=$("$kra2db" info foreign.db 2>&1)
check "foreign info" "kra2db: error: The file 'foreign.db'is not a  EMIR database file." "$err"

cp out.db cut.db
truncate -s -66 cut.db  # the whole EM record: length, "R1", 56 bytes
err=$("$kra2db" dump cut.db 2>&1 >/dev/null)
check "short file warning" "kra2db: warning: EM block of cut.db claims 1 records, the file holds 0" "$err"

help=$("$kra2db" write --help)
case "$help" in
  *"IR file (--ir):  name  rms  avg  peak  tpeak  min  tmin"*) ;;
  *) echo "FAIL help text"; failures=$((failures + 1)) ;;
esac

[ "$failures" -eq 0 ] && echo "all kra2db checks passed"
exit "$failures"
