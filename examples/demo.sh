#!/usr/bin/env bash
# Walks through the seven example messages with build/etsi-convert: UPER (hex) -> JSON -> UPER
# and UPER -> XML -> UPER, and checks the bundled examples/<MSG>.json (and <MSG>.xml, where there
# is one) against examples/<MSG>.hex.
# Usage: examples/demo.sh [BUILD_DIR] [LINES]
#   BUILD_DIR   folder with etsi-convert and etsi-inventory (default: build)
#   LINES       lines of each JSON and XML document to print, 0 for all (default: 15)
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

# show LABEL FILE: the document, or its first $lines lines.
show() {
  local total
  total=$(wc -l < "$2")
  if [[ $lines -gt 0 && $total -gt $lines ]]; then
    echo "$1 (first $lines of $total lines):"
    head -n "$lines" "$2"
    echo "   ..."
  else
    echo "$1:"
    cat "$2"
  fi
}

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

  # One text form: UPER -> text -> UPER, then the bundled examples/<MSG>.<form> -> UPER.
  for form in json xml; do
    label=${form^^}
    if ! "$convert" "$msg" to-$form --hex "$hex_file" > "$tmp/$msg.$form" 2> "$tmp/$msg.err"; then
      echo "UPER -> $label: FAILED"; cat "$tmp/$msg.err"
      ok=0; continue
    fi
    show "$label" "$tmp/$msg.$form"
    if ! "$convert" "$msg" from-$form --hex "$tmp/$msg.$form" > "$tmp/$msg.hex" 2> "$tmp/$msg.err"; then
      echo "$label -> UPER: FAILED"; cat "$tmp/$msg.err"
      ok=0; continue
    fi
    if [[ $(tr -d ' \n' < "$hex_file") == "$(tr -d ' \n' < "$tmp/$msg.hex")" ]]; then
      echo "UPER -> $label -> UPER: identical"
    else
      echo "UPER -> $label -> UPER: DIFFERENT"
      echo "  in:  $(tr -d ' \n' < "$hex_file")"
      echo "  out: $(tr -d ' \n' < "$tmp/$msg.hex")"
      ok=0
    fi
    # The bundled examples/<MSG>.json (written by hand) and examples/<MSG>.xml (written by
    # etsi-convert) must describe the same message.
    src=$root/examples/$msg.$form
    [[ -f $src ]] || continue
    if "$convert" "$msg" from-$form --hex "$src" > "$tmp/$msg.src.hex" 2> "$tmp/$msg.err" &&
       [[ $(tr -d ' \n' < "$hex_file") == "$(tr -d ' \n' < "$tmp/$msg.src.hex")" ]]; then
      echo "examples/$msg.$form -> UPER: identical to examples/$msg.hex"
    else
      echo "examples/$msg.$form -> UPER: DIFFERENT from examples/$msg.hex"; cat "$tmp/$msg.err"
      ok=0
    fi
  done
  [[ $ok -eq 1 ]] || failed+=("$msg")
  echo
done

rule
if [[ ${#failed[@]} -ne 0 ]]; then
  echo "demo: FAILED for ${failed[*]}"
  exit 1
fi
echo "demo: all 7 messages survive UPER -> JSON -> UPER and UPER -> XML -> UPER unchanged"
