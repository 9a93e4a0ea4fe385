#!/usr/bin/env bash
# Installs the Debian packages of a folder, uses all of them, and removes them: for a machine or a root
# that can be thrown away, as the superuser. Exits with 0 when all worked and nothing stayed behind.
#
#   tools/try_packages.sh [FOLDER]      (default: build/package/packages)
set -euo pipefail
root=$(dirname -- "$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")")
folder=$(readlink -f -- "${1:-$root/build/package/packages}")
packages=(libtagbridge-runtime0 libtagbridge-dev python3-tagbridge tagbridge)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export DEBIAN_FRONTEND=noninteractive PYTHONDONTWRITEBYTECODE=1 PYTHONPATH=

step() { printf '== %s\n' "$*"; }

step install
apt-get update -qq
apt-get install -qq -y --no-install-recommends "$folder"/*.deb cmake g++ ninja-build > "$work/log" 2>&1 ||
  { cat "$work/log"; exit 1; }
dpkg-query -W "${packages[@]}"
dpkg-query -L "${packages[@]}" | sort -u > "$work/files"

step use the command
cd /
tagbridge --version
tagbridge info "$root/examples/pyramid.tif"
tagbridge convert "$root"/examples/pages.tif "$work/stack.tif" --compression deflate --tile 64x64
tagbridge set "$work/stack.tif" Artist me
[[ $(tagbridge get "$work/stack.tif" Artist) == me ]]
tagbridge preview "$work/stack.tif" -o "$work/small.png"
tagbridge verify "$work/stack.tif"
grep -q '^/usr/share/man/man1/tagbridge-convert.1.gz$' "$work/files"
grep -q '^/usr/share/bash-completion/completions/tagbridge$' "$work/files"

step use the package of Python
python3 - "$work/stack.tif" <<'END'
import sys
import tagbridge
from importlib.metadata import version
with tagbridge.open(sys.argv[1]) as tif:
    print(len(tif), tif.shape, tif.compression.name, tif[0][:10, :10].mean())
assert version("tagbridge") == tagbridge.__version__
END
# Compiled when it was installed.
compgen -G '/usr/lib/python3/dist-packages/tagbridge/__pycache__/file.*.pyc' > /dev/null

step build a program outside the tree
mkdir "$work/size"
awk -v code="$work/size/CMakeLists.txt" '/^```/ { inside = ($0 == "```cmake"); next } inside { print > code }' \
  "$root/docs/embedding.md"
awk -v code="$work/size/size.cc" '/^```/ { inside = ($0 == "```cpp"); next } inside { print > code }' \
  "$root/docs/embedding.md"
cmake -S "$work/size" -B "$work/size/build" -G Ninja | tee "$work/configured" | grep plug-in
cmake --build "$work/size/build" > "$work/log" || { cat "$work/log"; exit 1; }
"$work/size/build/size" "$(sed -n 's/.*plug-in: //p' "$work/configured")" "$root/examples/pages.tif"

step remove
apt-get remove -qq -y "${packages[@]}" > "$work/log" 2>&1 || { cat "$work/log"; exit 1; }
left=0
while read -r file; do
  [[ $file != *tagbridge* || ! -e $file ]] || { printf 'left behind: %s\n' "$file"; left=1; }
done < "$work/files"
exit "$left"
