#!/usr/bin/env bash
# Coverage-guided fuzzing of the exported conversions (`make fuzz`).
#
# Builds the four libFuzzer targets with clang, AddressSanitizer and UBSan in FUZZ_DIR, builds
# fresh seeds, and runs every target for FUZZ_SECONDS on FUZZ_PARALLEL cores at a time. The grown
# corpora are kept in FUZZ_CORPUS (outside the repository) and reused by the next run. Findings
# (crashes, fixed-point violations, leaks, timeouts, out-of-memory) are minimised and the run
# fails; a minimised finding belongs in tests/fuzz/regressions/<target>/ once it is fixed, where
# `make test` replays it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

FUZZ_DIR=${FUZZ_DIR:-build-fuzz}
FUZZ_SECONDS=${FUZZ_SECONDS:-300}
FUZZ_CORPUS=${FUZZ_CORPUS:-${HOME:-/tmp}/.cache/etsi-v2x-fuzz}
FUZZ_PARALLEL=${FUZZ_PARALLEL:-$(nproc 2>/dev/null || echo 2)}
FUZZ_TARGETS=${FUZZ_TARGETS:-"uper_to_json json_to_uper uper_to_xml xml_to_uper"}
JOBS=${JOBS:-$(nproc 2>/dev/null || echo 2)}
# Per input: 10 s at most, 2 GB of resident memory, no single allocation above 256 MB.
FUZZ_FLAGS=${FUZZ_FLAGS:-"-timeout=10 -rss_limit_mb=2048 -malloc_limit_mb=256 -max_len=20000"}

cmake -S . -B "$FUZZ_DIR" -DETSI_FUZZ=ON -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-O1 -g" >/dev/null
targets=(fuzz_seeds)
for t in $FUZZ_TARGETS; do targets+=("fuzz_$t"); done
cmake --build "$FUZZ_DIR" -j "$JOBS" --target "${targets[@]}"

seeds="$FUZZ_CORPUS/seeds"
rm -rf "$seeds"
ETSI_SOURCE_DIR=$PWD "$FUZZ_DIR/fuzz_seeds" "$seeds" 60
artifacts="$FUZZ_CORPUS/findings"
mkdir -p "$artifacts"

run_target() {
  local t=$1 dict
  case $t in *json*) dict="$seeds/json.dict" ;; *) dict="$seeds/xml.dict" ;; esac
  mkdir -p "$FUZZ_CORPUS/$t" "$artifacts/$t"
  # shellcheck disable=SC2086
  ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    "$FUZZ_DIR/fuzz_$t" $FUZZ_FLAGS -max_total_time="$FUZZ_SECONDS" -print_final_stats=1 \
    -dict="$dict" -artifact_prefix="$artifacts/$t/" "$FUZZ_CORPUS/$t" "$seeds/$t" \
    >"$FUZZ_CORPUS/$t.log" 2>&1 || true
}

echo "fuzz: ${FUZZ_SECONDS} s per target, ${FUZZ_PARALLEL} at a time; corpora and logs in $FUZZ_CORPUS"
running=0
for t in $FUZZ_TARGETS; do
  run_target "$t" &
  running=$((running + 1))
  if (( running >= FUZZ_PARALLEL )); then wait -n; running=$((running - 1)); fi
done
wait

# Per target: executions per second, coverage (cov:, features ft:), corpus size, findings.
status=0
printf '\n| target | runs | exec/s | cov | ft | corpus | findings |\n|---|---:|---:|---:|---:|---:|---|\n'
for t in $FUZZ_TARGETS; do
  log="$FUZZ_CORPUS/$t.log"
  last=$(grep -E '^#[0-9]+' "$log" | tail -n 1 || true)
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
  eps=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -n 1)
  cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$last")
  ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$last")
  corp=$(sed -n 's/.* corp: \([0-9]*\).*/\1/p' <<<"$last")
  mapfile -t found < <(find "$artifacts/$t" -type f ! -name '*.min' | sort)
  if (( ${#found[@]} > 0 )) || ! grep -q '^Done [0-9]* runs' "$log"; then
    status=1
    summary="${#found[@]} (see $log)"
  else
    summary=none
  fi
  printf '| %s | %s | %s | %s | %s | %s | %s |\n' "$t" "${runs:-?}" "${eps:-?}" "${cov:-?}" "${ft:-?}" "${corp:-?}" "$summary"
done

if (( status != 0 )); then
  echo
  echo "fuzz: FINDINGS. Minimised inputs (fix the fault, then add the input to tests/fuzz/regressions/<target>/):"
  for t in $FUZZ_TARGETS; do
    while IFS= read -r f; do
      [[ -n "$f" ]] || continue
      ASAN_OPTIONS=detect_leaks=1 "$FUZZ_DIR/fuzz_$t" $FUZZ_FLAGS -minimize_crash=1 -max_total_time=60 \
        -exact_artifact_path="$f.min" "$f" </dev/null >"$f.minimize.log" 2>&1 || true
      [[ -s "$f.min" ]] || cp "$f" "$f.min"
      echo "  $t: $f.min ($(stat -c %s "$f.min") bytes)"
    done < <(find "$artifacts/$t" -type f ! -name '*.min' ! -name '*.log' | sort)
  done
  exit 1
fi
echo
echo "fuzz: nothing found"
