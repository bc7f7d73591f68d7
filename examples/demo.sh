#!/usr/bin/env bash
# Walks through the seven example messages: UPER (hex) -> JSON -> UPER with build/etsi-convert.
# Usage: examples/demo.sh [BUILD_DIR] [JSON_LINES]
#   BUILD_DIR   folder with etsi-convert and etsi-inventory (default: build)
#   JSON_LINES  lines of each JSON document to print, 0 for all (default: 15)
# Exit status 0 when every round trip gives back the input bytes, 1 otherwise.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${1:-build}
[[ $build = /* ]] || build=$root/$build
lines=${2:-15}
convert=$build/etsi-convert
inventory=$build/etsi-inventory

if [[ ! -x $convert ]]; then
  echo "demo: $convert is not built (run 'make build')" >&2
  exit 2
fi

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

rule() { printf '%s\n' "----------------------------------------------------------------------------"; }

if [[ -x $inventory ]]; then
  echo "== etsi-inventory"
  "$inventory"
  echo
fi

failed=()
for msg in CAM DENM SPATEM MAPEM IVIM SREM SSEM; do
  hex_file=$root/examples/$msg.hex
  ok=1
  rule
  echo "== $msg  (examples/$msg.hex, $(( $(tr -d ' \n' < "$hex_file" | wc -c) / 2 )) bytes)"
  rule
  echo "UPER:"
  tr -d ' \n' < "$hex_file" | fold -w 72
  echo

  if ! "$convert" "$msg" to-json --hex "$hex_file" > "$tmp/$msg.json" 2> "$tmp/$msg.err"; then
    echo "UPER -> JSON: FAILED"; cat "$tmp/$msg.err"
    failed+=("$msg"); continue
  fi
  total=$(wc -l < "$tmp/$msg.json")
  if [[ $lines -gt 0 && $total -gt $lines ]]; then
    echo "JSON (first $lines of $total lines):"
    head -n "$lines" "$tmp/$msg.json"
    echo "   ..."
  else
    echo "JSON:"
    cat "$tmp/$msg.json"
  fi

  if ! "$convert" "$msg" from-json --hex "$tmp/$msg.json" > "$tmp/$msg.hex" 2> "$tmp/$msg.err"; then
    echo "JSON -> UPER: FAILED"; cat "$tmp/$msg.err"
    failed+=("$msg"); continue
  fi
  if [[ $(tr -d ' \n' < "$hex_file") == "$(tr -d ' \n' < "$tmp/$msg.hex")" ]]; then
    echo "UPER -> JSON -> UPER: identical"
  else
    echo "UPER -> JSON -> UPER: DIFFERENT"
    echo "  in:  $(tr -d ' \n' < "$hex_file")"
    echo "  out: $(tr -d ' \n' < "$tmp/$msg.hex")"
    ok=0
  fi
  # The hand-written examples/<MSG>.json must describe the same message.
  if "$convert" "$msg" from-json --hex "$root/examples/$msg.json" > "$tmp/$msg.src.hex" 2> "$tmp/$msg.err" &&
     [[ $(tr -d ' \n' < "$hex_file") == "$(tr -d ' \n' < "$tmp/$msg.src.hex")" ]]; then
    echo "examples/$msg.json -> UPER: identical to examples/$msg.hex"
  else
    echo "examples/$msg.json -> UPER: DIFFERENT from examples/$msg.hex"; cat "$tmp/$msg.err"
    ok=0
  fi
  [[ $ok -eq 1 ]] || failed+=("$msg")
  echo
done

rule
if [[ ${#failed[@]} -ne 0 ]]; then
  echo "demo: FAILED for ${failed[*]}"
  exit 1
fi
echo "demo: all 7 messages survive UPER -> JSON -> UPER unchanged"
