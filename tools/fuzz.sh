# The fuzz command of ./dev, which sources this file: `root`, `build`, `preset`, `package`, `fail`,
# `install` and `run_python` are its own.
# shellcheck shell=bash disable=SC2154,SC2034

# The names of the targets, without what they begin with.
fuzz_targets() {
  find "$root/fuzz" -name 'fuzz_*.cc' -printf '%f\n' | sed 's/^fuzz_//; s/\.cc$//' | sort
}

fuzz_build() {
  preset=$1 build=$root/build/$1
  build fuzz/all
}

# Files that are links into the folder of TAGBRIDGE_CORPUS, beside those that the project makes.
fuzz_files() {
  local folder=$1 file
  rm -rf "$folder"
  "$build/fuzz/write_seeds" "$folder"
  [[ -d ${TAGBRIDGE_CORPUS:-} ]] || return 0
  while IFS= read -r -d '' file; do
    ln -s -- "$file" "$folder/$(basename -- "$(dirname -- "$file")")-${file##*/}"
  done < <(find "$(readlink -f -- "$TAGBRIDGE_CORPUS")" -type f -size -1025k \
    \( -iname '*.tif' -o -iname '*.tiff' \) -print0)
}

# The folders with inputs to start from; those that are kept in tests/data/ among them.
fuzz_seeds() {
  local target=$1
  if [[ $target == read ]]; then
    fuzz_files "$build/fuzz/fuzz_read.files"
    printf '%s\n' "$build/fuzz/fuzz_read.files"
  fi
  [[ ! -d $root/tests/data/fuzz_$target ]] || printf '%s\n' "$root/tests/data/fuzz_$target"
}

# What a target finds new is kept beside it, in fuzz_TARGET.corpus, and inputs that fail there too.
fuzz_with_libfuzzer() {
  local target=$1 seeds options=(-max_total_time="$2" -timeout=10 -rss_limit_mb=2048)
  local program=$build/fuzz/fuzz_$target
  case $target in
    # A sequence is of some use from a few steps on, and what follows its last step is not read.
    sequence | write) options+=(-len_control=0 -max_len=972) ;;
    calls) options+=(-len_control=0 -max_len=1604) ;;
    kernels) options+=(-len_control=0 -max_len=64) ;;
    read | codestream) options+=(-dict="$root/fuzz/tiff.dict") ;;
  esac
  mapfile -t seeds < <(fuzz_seeds "$target")
  mkdir -p "$program.corpus"
  (cd "$build/fuzz" && "$program" "${options[@]}" "$program.corpus" "${seeds[@]}")
}

# AFL++ wants something to start from, and keeps what it finds in fuzz_TARGET.afl.
fuzz_with_afl() {
  local target=$1 seconds=$2 folder options=()
  local program=$build/fuzz/fuzz_$target
  mkdir -p "$program.seeds"
  head -c 500 /dev/zero > "$program.seeds/zeros"
  fuzz_seeds "$target" | while IFS= read -r folder; do
    find -L "$folder" -type f -size -65k -exec cp -t "$program.seeds" -- {} +
  done
  [[ $target != read && $target != codestream ]] || options=(-x "$root/fuzz/tiff.dict")
  (cd "$build/fuzz" && env AFL_NO_UI=1 AFL_SKIP_CPUFREQ=1 AFL_AUTORESUME=1 \
    AFL_I_DONT_CARE_ABOUT_MISSING_CRASHES=1 \
    ASAN_OPTIONS=abort_on_error=1:symbolize=0:detect_leaks=0:hard_rss_limit_mb=2048 \
    UBSAN_OPTIONS=abort_on_error=1:symbolize=0 \
    afl-fuzz -V "$seconds" -m none -t 10000 -i "$program.seeds" -o "$program.afl" \
    "${options[@]}" -- "$program")
  [[ -z $(find "$program.afl/default/crashes" "$program.afl/default/hangs" -name 'id:*' -print -quit) ]] ||
    fail "fuzz_$target failed: see $program.afl/default"
}

# Python with the package of the ordinary build, or of the one with the sanitizers.
fuzz_file_layer() {
  local seconds=$1 chosen=$2
  preset=$chosen build=$root/build/$chosen
  build "${package[@]}"
  (run_python "$root/fuzz/fuzz_file_layer.py" "$seconds")
}

fuzz_coverage() {
  local target inputs
  fuzz_build coverage
  export LLVM_PROFILE_FILE=/dev/null  # of what only makes the inputs
  for target in "$@"; do
    mapfile -t inputs < <(fuzz_seeds "$target"
      find "$root"/build/fuzz*/fuzz -maxdepth 1 -name "fuzz_$target.corpus" 2> /dev/null)
    python3 "$root/tools/fuzz_coverage.py" "$build" "fuzz_$target" "${inputs[@]}"
  done
}

fuzz() {
  local engine=libfuzzer chosen=all seconds target targets python_preset=$preset
  case ${1:-} in
    --afl | --coverage) engine=${1#--}; shift ;;
    mutations)
      [[ $preset == fuzz* ]] || preset=fuzz
      fuzz_build "$preset"
      "$build/fuzz/read_mutations" "${@:2}"
      return ;;
  esac
  [[ ${1:-} == '' || $1 =~ ^[0-9]+$ ]] || { chosen=${1#fuzz_}; shift; }
  seconds=${1:-60}
  mapfile -t targets < <(fuzz_targets)
  [[ $engine == libfuzzer || $chosen != file_layer ]] || fail "fuzz_file_layer is not a C++ program"
  if [[ $chosen != all && $chosen != file_layer ]]; then
    [[ -f $root/fuzz/fuzz_$chosen.cc ]] || fail "there is no fuzz target '$chosen'"
    targets=("$chosen")
  fi
  if [[ $engine == coverage ]]; then
    fuzz_coverage "${targets[@]}"
    return
  fi
  [[ $engine != afl ]] || install afl++
  if [[ $chosen != file_layer ]]; then
    [[ $preset == fuzz* ]] || preset=fuzz
    if [[ $engine == afl ]]; then
      preset=fuzz-afl
      # Kernels take minutes to compile with it, and have nothing for a fuzzer to find its way by.
      export AFL_LLVM_DENYLIST=$root/fuzz/afl_denylist.txt
    fi
    fuzz_build "$preset"
    for target in "${targets[@]}"; do
      printf 'dev: fuzz_%s for %s s\n' "$target" "$seconds" >&2
      "fuzz_with_$engine" "$target" "$seconds"
    done
  fi
  [[ $engine == libfuzzer && ($chosen == all || $chosen == file_layer) ]] || return 0
  [[ $python_preset != fuzz* ]] || python_preset=gcc
  printf 'dev: fuzz_file_layer for %s s\n' "$seconds" >&2
  fuzz_file_layer "$seconds" "$python_preset"
}
