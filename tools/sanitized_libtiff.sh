#!/usr/bin/env bash
# Builds Debian's libtiff with AddressSanitizer and UndefinedBehaviorSanitizer:
#
#   sanitized_libtiff.sh COMPILER FOLDER    gcc or clang; FOLDER gets include/ and lib/
#
# A sanitizer sees only what was compiled with it, and most of what a hostile file can break lies
# inside libtiff. The source is that of the installed package with its patches, so that a finding
# here is one there. Apt fetches it with settings of its own, made from the machine's entries for
# packages; the machine's settings stay as they are.
set -euo pipefail

compiler=$1
mkdir -p "$2"
folder=$(readlink -f -- "$2")
apt=$folder/apt
version=$(dpkg-query -W -f='${source:Version}' libtiff-dev)

# What libtiff does on purpose and what nobody reports as a fault: it shifts signed numbers, reads
# words where they lie in the file, adds 0 to null pointers and copies no bytes from them, and casts
# numbers of any size from files to narrower ones.
unchecked=shift,alignment,pointer-overflow,nonnull-attribute,float-cast-overflow
checks=("-fsanitize=address,undefined" "-fno-sanitize=$unchecked" -fno-sanitize-recover=all
  -fno-omit-frame-pointer)
# What clang builds serves the fuzz targets, which coverage guides.
[[ $compiler != clang ]] || checks+=(-fno-sanitize=function -fsanitize=fuzzer-no-link)

# One line for each archive of Debian's from which the machine installs packages.
source_entries() {
  local keys=/usr/share/keyrings/debian-archive-keyring.gpg options=
  [[ ! -f $keys ]] || options="[signed-by=$keys] "
  apt-get indextargets --format "deb-src $options\$(REPO_URI) \$(RELEASE) \$(COMPONENT)" \
    'Created-By: Packages' 'Origin: Debian' | sort -u
}

fetch_source() {
  local entries options
  mkdir -p "$apt/lists/partial" "$apt/cache/archives/partial" "$apt/parts"
  entries=$(source_entries)
  if [[ -z $entries ]]; then
    echo "$0: apt knows no packages of Debian's; run apt-get update first" >&2
    return 1
  fi
  printf '%s\n' "$entries" > "$apt/sources.list"
  options=(-o "Dir::Etc::SourceList=$apt/sources.list" -o "Dir::Etc::SourceParts=$apt/parts"
    -o "Dir::State::Lists=$apt/lists" -o "Dir::Cache=$apt/cache" -o APT::Sandbox::User=root)
  apt-get -qq "${options[@]}" update
  (cd "$folder" && apt-get -qq "${options[@]}" source "tiff=$version")
}

source_folder() { find "$folder" -maxdepth 1 -type d -name 'tiff-*' -print -quit; }

[[ -n $(source_folder) ]] || fetch_source

# The codecs of Debian's build; -O1 keeps stacks whole.
cmake -G Ninja -S "$(source_folder)" -B "$folder/build" --install-prefix "$folder" \
  -DCMAKE_C_COMPILER="$compiler" -DCMAKE_BUILD_TYPE=None -DCMAKE_INSTALL_LIBDIR=lib \
  -DCMAKE_C_FLAGS="-O1 -g ${checks[*]}" -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=address,undefined" \
  -DBUILD_SHARED_LIBS=ON -Dcxx=OFF -Dtiff-tools=OFF -Dtiff-tests=OFF -Dtiff-contrib=OFF \
  -Dtiff-docs=OFF -Djpeg=ON -Dzlib=ON -Dlzma=ON -Dzstd=ON -Dwebp=ON -Djbig=ON -Dlerc=ON \
  -Dlibdeflate=ON
ninja -C "$folder/build" install
touch "$folder/done"
