#!/usr/bin/env bash
# Makes sure the tools and libraries the build needs are installed (Debian 12).
#
# Fast path: when everything is present, no package manager is called at all.
# Missing packages: as root they are installed with apt-get (non-interactive); otherwise the
# missing packages and the command to install them are printed and the script exits 1.
# ETSI_SKIP_DEPS=1 skips the check entirely.
set -euo pipefail

[[ "${ETSI_SKIP_DEPS:-0}" == "1" ]] && exit 0

# The one list of required Debian packages. Each line: <package> <probe> [<probe> ...]
# A probe is `cmd:NAME` (a command on PATH) or `file:GLOB` (an existing file; alternatives
# separated by `|`). A package counts as present when all of its probes succeed.
PACKAGES=(
  "cmake         cmd:cmake cmd:ctest"
  "g++           cmd:g++"
  "make          cmd:make"
  "python3       cmd:python3"
  "pkg-config    cmd:pkg-config"
  "libgtest-dev  file:/usr/include/gtest/gtest.h file:/usr/lib/*/cmake/GTest/GTestConfig.cmake|/usr/lib/*/libgtest.a|/usr/lib/libgtest.a"
  "tshark        cmd:tshark"
  "binutils      cmd:nm"
  "clang         cmd:clang++"
  "libclang-rt-14-dev file:/usr/lib/llvm-14/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a"
  "libpcap-dev   file:/usr/include/pcap/pcap.h file:/usr/lib/*/libpcap.so|/usr/lib/*/pkgconfig/libpcap.pc"
  "libbenchmark-dev file:/usr/include/benchmark/benchmark.h file:/usr/lib/*/cmake/benchmark/benchmarkConfig.cmake|/usr/lib/*/libbenchmark_main.a|/usr/lib/*/libbenchmark_main.so"
  "python3-pytest      file:/usr/lib/python3/dist-packages/pytest/__init__.py"
  "python3-dask        file:/usr/lib/python3/dist-packages/dask/__init__.py"
  "python3-distributed file:/usr/lib/python3/dist-packages/distributed/__init__.py"
)

probe_ok() {
  local probe=$1 kind=${1%%:*} arg=${1#*:} alt
  local -a alts
  case $kind in
    cmd)  command -v "$arg" >/dev/null 2>&1 ;;
    file)
      IFS='|' read -r -a alts <<<"$arg"
      for alt in "${alts[@]}"; do
        compgen -G "$alt" >/dev/null && return 0
      done
      return 1 ;;
    *) echo "ensure-deps: unknown probe '$probe'" >&2; return 2 ;;
  esac
}

missing_packages() {
  local line pkg probe
  local -a probes
  for line in "${PACKAGES[@]}"; do
    read -r -a probes <<<"$line"
    pkg=${probes[0]}
    for probe in "${probes[@]:1}"; do
      if ! probe_ok "$probe"; then
        echo "$pkg"
        break
      fi
    done
  done
}

mapfile -t missing < <(missing_packages)
[[ ${#missing[@]} -eq 0 ]] && exit 0

if [[ $(id -u) -ne 0 ]]; then
  echo "ensure-deps: missing packages: ${missing[*]}" >&2
  echo "ensure-deps: install them with:" >&2
  echo "  sudo apt-get update && sudo apt-get install -y ${missing[*]}" >&2
  exit 1
fi

echo "ensure-deps: installing missing packages: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -q </dev/null
apt-get install -y -q --no-install-recommends "${missing[@]}" </dev/null

mapfile -t still < <(missing_packages)
if [[ ${#still[@]} -ne 0 ]]; then
  echo "ensure-deps: still missing after installation: ${still[*]}" >&2
  exit 1
fi
echo "ensure-deps: done"
