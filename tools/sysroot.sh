#!/usr/bin/env bash
# Unpacks Debian's libraries of another architecture, for tests of what is compiled for it:
#
#   sysroot.sh ARCHITECTURE FOLDER    Debian's name of it, such as s390x; FOLDER becomes its root
#
# Apt works with settings, lists and a record of installed packages of its own, made from the
# machine's entries for Debian's archives, and knows no architecture but this one. Nothing is
# installed and no script of a package runs: the machine's packages and settings stay as they are.
set -euo pipefail

architecture=$1
mkdir -p "$2"
folder=$(readlink -f -- "$2")
apt=$folder/apt

# The libraries of packages.txt that programs in C++ are linked with; apt adds what those need.
packages=(libc6-dev libstdc++6 libtiff-dev libboost-dev libboost-locale-dev libfmt-dev libopenjp2-7-dev
  libhwy-dev libgtest-dev libgmock-dev)

fail() { printf '%s: %s\n' "$0" "$*" >&2; exit 1; }

# One line for each archive of Debian's from which the machine installs packages.
entries() {
  local keys=/usr/share/keyrings/debian-archive-keyring.gpg options=arch=$architecture
  [[ ! -f $keys ]] || options+=" signed-by=$keys"
  apt-get indextargets --format "deb [$options] \$(REPO_URI) \$(RELEASE) \$(COMPONENT)" \
    'Created-By: Packages' 'Origin: Debian' | sort -u
}

fetch() {
  local lines options
  mkdir -p "$apt/state/lists/partial" "$apt/cache/archives/partial" "$apt/parts"
  lines=$(entries)
  [[ -n $lines ]] || fail "apt knows no packages of Debian's; run apt-get update first"
  printf '%s\n' "$lines" > "$apt/sources.list"
  : > "$apt/state/status"
  options=(-o "APT::Architecture=$architecture" -o "APT::Architectures::=$architecture"
    -o "Dir::Etc::SourceList=$apt/sources.list" -o "Dir::Etc::SourceParts=$apt/parts"
    -o "Dir::State=$apt/state" -o "Dir::State::Status=$apt/state/status" -o "Dir::Cache=$apt/cache"
    -o APT::Sandbox::User=root -o APT::Install-Recommends=false)
  # An archive that cannot be read just now may not be needed: if it is, the next step fails.
  apt-get -qq "${options[@]}" update || true
  apt-get -qq "${options[@]}" --yes --download-only install "${packages[@]}"
}

# As after the merge of /lib into /usr, on which the packages of the release rely.
make_root() {
  local name
  for name in bin sbin lib lib64 lib32; do
    mkdir -p "$folder/usr/$name"
    ln -sfn "usr/$name" "$folder/$name"
  done
}

unpack() {
  local package
  for package in "$apt"/cache/archives/*.deb; do
    dpkg-deb --fsys-tarfile "$package" |
      tar -x -C "$folder" --no-same-owner --keep-directory-symlink --exclude=./usr/share
  done
}

# A link to /lib/… would lead out of this root.
bind_links() {
  local link target
  find "$folder/usr" -type l -lname '/*' -print0 | while IFS= read -r -d '' link; do
    target=$(readlink -- "$link")
    ln -sfnr -- "$folder$target" "$link"
  done
}

fetch
make_root
unpack
bind_links
rm -rf "$apt"
touch "$folder/done"
