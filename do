#!/usr/bin/env bash
# One door for people and CI:
#   ./do demo    install what is missing, build, and run kvd on a demo table and a demo plant
#   ./do test    install what is missing, build, and run every test
#   ./do asan    the same tests under AddressSanitizer + UndefinedBehaviorSanitizer
#   ./do fuzz    build the libFuzzer targets and fuzz each for a while (FUZZ_SECONDS, default 60)
#   ./do bench   build and run the benchmarks against SQLite
#   ./do setup   only install what is missing
set -euo pipefail
cd "$(dirname "$0")"

# Debian packages the build, the tests and the interop checks need.
PACKAGES=(cmake ninja-build g++ clang libclang-rt-14-dev libgtest-dev libgmock-dev
          libbenchmark-dev libsqlite3-dev python3 python3-dbfread python3-dbf
          libdbd-xbase-perl pgdbf libmimalloc-dev)

setup() {
  local missing=()
  for p in "${PACKAGES[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
  done
  if ((${#missing[@]})); then
    echo "installing: ${missing[*]}"
    local sudo=""; [ "$(id -u)" = 0 ] || sudo=sudo
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
  fi
}

build() {  # build PRESET
  cmake --preset "$1" >/dev/null
  cmake --build --preset "$1"
}

case "${1:-}" in
  setup) setup ;;
  demo)
    setup; build default
    demo=build/demo; rm -rf "$demo"; mkdir -p "$demo"
    ./build/default/tools/kvd/kvd demo "$demo/PLANT.DBF"
    ./build/default/tools/kvd/kvd info "$demo/PLANT.DBF"
    ./build/default/tools/kvd/kvd dump "$demo/PLANT.DBF"
    echo "in the order of tag DESCR:"
    ./build/default/tools/kvd/kvd dump "$demo/PLANT.DBF" --tag DESCR
    kvd=./build/default/tools/kvd/kvd; plant="$demo/plant"
    echo; echo "a plant with $plant as its admin directory, written through the library:"
    $kvd demo "$plant/"
    echo; $kvd --admin "$plant" projects
    echo; $kvd --admin "$plant" versions WATER
    echo; $kvd --admin "$plant" project show WATER
    echo; $kvd --admin "$plant" version show WATER V2
    echo; echo "the data banks of project WATER (_TABLES.DBF, read only for the library):"
    $kvd dump "$plant/WATER/_TABLES.DBF"
    echo; echo "version WATER/V1, its tables checked and its figures as the family reads them:"
    $kvd check "$plant/WATER/V1"
    $kvd dump "$plant/WATER/V1" Dirfig
    echo; echo "what the demo made:"
    (cd "$demo" && find plant | sort | sed 's|[^/]*/|  |g')
    echo; echo "a copy of project BOILER, renamed, and deleted again (its emptied directory stays):"
    $kvd --admin "$plant" project copy BOILER BOILER2 BOILER2
    $kvd --admin "$plant" project rename BOILER2 B2COPY
    $kvd --admin "$plant" projects
    $kvd --admin "$plant" project delete B2COPY ;;
  test)
    setup; build default
    ctest --preset default ;;
  asan)
    setup; build asan
    ctest --preset asan ;;
  fuzz)
    setup; build fuzz
    for t in build/fuzz/fuzz/fuzz_*; do
      [ -x "$t" ] || continue
      name=$(basename "$t"); mkdir -p "build/fuzz/corpus-$name"
      "$t" -max_total_time="${FUZZ_SECONDS:-60}" "build/fuzz/corpus-$name" "fuzz/corpus/${name#fuzz_}"
    done ;;
  bench)
    setup; build default
    ./build/default/bench/kvd_bench
    ./build/default/bench/kvd_catalogue_bench
    ./build/default/bench/kvd_frame_bench
    ./build/default/bench/kvd_dataobj_bench
    ./build/default/bench/kvd_arena_bench
    ./build/default/bench/kvd_string_bench
    ./build/default/bench/kvd_container_bench
    ./build/default/bench/kvd_time_bench ;;
  *) sed -n '2,8p' "$0"; exit 2 ;;
esac
