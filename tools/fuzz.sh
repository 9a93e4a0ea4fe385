# The fuzz command of ./dev, which sources this file: `root`, `build`, `preset`, `package`,
# `fail` and `run_python` are its own.
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

# Python with the package of the ordinary build, or of the one with the sanitizers.
fuzz_file_layer() {
  local seconds=$1 chosen=$2
  preset=$chosen build=$root/build/$chosen
  build "${package[@]}"
  (run_python "$root/fuzz/fuzz_file_layer.py" "$seconds")
}

# fuzz [TARGET|all] [SECONDS], fuzz mutations [COUNT]
fuzz() {
  local chosen=all seconds target targets python_preset=$preset
  if [[ ${1:-} == mutations ]]; then
    [[ $preset == fuzz* ]] || preset=fuzz
    fuzz_build "$preset"
    "$build/fuzz/read_mutations" "${@:2}"
    return
  fi
  [[ ${1:-} == '' || $1 =~ ^[0-9]+$ ]] || { chosen=${1#fuzz_}; shift; }
  seconds=${1:-60}
  mapfile -t targets < <(fuzz_targets)
  if [[ $chosen != all && $chosen != file_layer ]]; then
    [[ -f $root/fuzz/fuzz_$chosen.cc ]] || fail "there is no fuzz target '$chosen'"
    targets=("$chosen")
  fi
  if [[ $chosen != file_layer ]]; then
    [[ $preset == fuzz* ]] || preset=fuzz
    fuzz_build "$preset"
    for target in "${targets[@]}"; do
      printf 'dev: fuzz_%s for %s s\n' "$target" "$seconds" >&2
      fuzz_with_libfuzzer "$target" "$seconds"
    done
  fi
  [[ $chosen == all || $chosen == file_layer ]] || return 0
  [[ $python_preset != fuzz* ]] || python_preset=gcc
  printf 'dev: fuzz_file_layer for %s s\n' "$seconds" >&2
  fuzz_file_layer "$seconds" "$python_preset"
}
