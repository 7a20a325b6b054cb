#!/usr/bin/env bash
# Gathers the seed inputs of every fuzz target from the project's test data into
# <out>/<target>/ (one file per seed). Databases are written with the kra2db tool of the
# given build folder. Usage: collect_seeds.sh <build-dir> <out-dir>
set -euo pipefail
build=$(cd "$1" && pwd)
out=$2
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
cases=$root/tests/e2e/cases

mkdir -p "$out"
out=$(cd "$out" && pwd)
for target in command_file raw_file psf_file netlist database header_parameters network_data db_network; do
  rm -rf "${out:?}/$target"
  mkdir -p "$out/$target"
done

# Files under a name that tells where they came from.
take() {  # take <target> <file> [prefix-byte-as-octal-escape]
  local target=$1 file=$2 prefix=${3:-}
  local name
  name=$(echo "${file#"$root"/}" | tr '/' '_')
  if [ -n "$prefix" ]; then
    { printf "$prefix"; cat "$file"; } > "$out/$target/$name"
  else
    cp "$file" "$out/$target/$name"
  fi
}

# The small hand-made seeds kept in the project (make test replays them too); the command
# files among them use the fixtures the target provides.
for dir in "$here"/seeds/*/; do
  target=$(basename "$dir")
  for f in "$dir"*; do take "$target" "$f"; done
done

# Every end-to-end case's command file.
for f in "$cases"/*/cmd; do take command_file "$f"; done

# Raw files of every dialect and layout the tests hold, small ones only.
while IFS= read -r f; do
  take raw_file "$f"
done < <(find "$root/tests/data" "$cases" -name '*.raw' -size -64k -type f | sort)

# Real simulator results, when the shared samples are at hand (read where they are, never kept
# in the project): raw files of every dialect and PSF ASCII files.
samples=${KRA2_SAMPLES_DIR:-$root/../shared/samples}
if [ -d "$samples" ]; then
  while IFS= read -r f; do
    cp "$f" "$out/raw_file/sample_$(echo "${f#"$samples"/}" | tr '/' '_')"
  done < <(find "$samples" -name '*.raw' -size -64k -type f | sort)
  while IFS= read -r f; do
    cp "$f" "$out/psf_file/sample_$(echo "${f#"$samples"/}" | tr '/' '_')"
  done < <(find "$samples/psfascii" -type f -size -64k | sort)
fi

# Netlists, each under the plain grammar (first byte 0) and the peak-current grammar (16).
while IFS= read -r f; do
  take netlist "$f" '\000'
  printf '\020' | cat - "$f" > "$out/netlist/peak_$(basename "$f")"
done < <(find "$root/tests/data" "$cases" -name '*.net' -type f | sort)

# Network data: length data (first byte 0, 2, 4) and PG data (first byte 1).
while IFS= read -r f; do
  take network_data "$f" '\000'
  printf '\002' | cat - "$f" > "$out/network_data/currdir_$(basename "$f")"
  printf '\004' | cat - "$f" > "$out/network_data/sum_$(basename "$f")"
done < <(find "$cases" \( -name '*.len' -o -name '*.dat' \) -type f | sort)

# Databases: written by kra2db, IR first and EM first, with long and empty names.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
printf 'n1\t1\t2\t3\t4e-09\t-0.5\t1e-09\nn2\t0\t0\t0\t0\t0\t0\n' > "$work/ir.tsv"
printf '%s\t1\t2\t3\t4\t5\t6\n' "$(printf 'a%.0s' $(seq 300))" >> "$work/ir.tsv"
printf 'R1\t9\t9\t9\t9\t9\t1\t2\nR2\t1\t-1\t1\t0\t0\t2\t0\n' > "$work/em.tsv"
"$build/kra2db" write -q "$out/database/ir_em.db" --ir "$work/ir.tsv" --em "$work/em.tsv"
"$build/kra2db" write -q "$out/database/em_first.db" --ir "$work/ir.tsv" --em "$work/em.tsv" \
  --em-first
"$build/kra2db" write -q "$out/database/ir_only.db" --ir "$work/ir.tsv"
"$build/kra2db" write -q "$out/database/empty.db"

# Header texts: the tag text of each database.
for f in "$out"/database/*.db; do
  head -c 1024 "$f" | tr -d '\000' > "$out/header_parameters/$(basename "$f" .db)"
done

for target in "$out"/*/; do
  echo "$(basename "$target"): $(find "$target" -type f | wc -l) seeds"
done
