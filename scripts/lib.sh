# shellcheck shell=bash
# Shared by the scripts, which source it: installing what they need, and building.

root=$(dirname "$(dirname "$(realpath "${BASH_SOURCE[0]}")")")
jobs=$(nproc)

say() { printf '\n== %s\n' "$1"; }

fail() {
  echo "${0##*/}: $1" >&2
  exit 1
}

# Succeeds if the package, or what it would bring, is there. Node.js 18 serves the tests wherever
# it comes from; Debian's own would clash with another one.
is_installed() {
  case $1 in
    nodejs) [[ $(node --version 2>/dev/null) =~ ^v([0-9]+) && ${BASH_REMATCH[1]} -ge 18 ]] && return ;;
    npm) command -v npm >/dev/null && return ;;
  esac
  [[ $(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

# be_root ARGUMENT...: runs the script anew as root, with these arguments, unless it is.
be_root() {
  [[ $EUID -eq 0 ]] && return
  mkdir -p "$root/build"
  command -v sudo >/dev/null || fail "this needs root, and there is no sudo"
  exec sudo "$(realpath "$0")" "$@"
}

# packages_of GROUP...: prints the packages of the groups in packages.txt.
packages_of() {
  local group package
  while read -r group package; do
    [[ " $* " != *" $group "* ]] || echo "$package"
  done < <(grep -v '^#' "$root/scripts/packages.txt")
}

# need GROUP...: installs the packages of the groups that are missing.
need() {
  local packages
  mapfile -t packages < <(packages_of "$@")
  need_packages "${packages[@]}"
}

# need_packages PACKAGE...: installs those that are missing.
need_packages() {
  local package missing=() as_root=()
  for package in "$@"; do
    is_installed "$package" || missing+=("$package")
  done
  if [[ ${#missing[@]} -eq 0 ]]; then
    return
  fi
  say "installing ${missing[*]}"
  if [[ $EUID -ne 0 ]]; then
    command -v sudo >/dev/null || fail "as root, run: apt-get install ${missing[*]}"
    as_root=(sudo)
  fi
  "${as_root[@]}" apt-get update -q
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -q -y --no-install-recommends "${missing[@]}"
}

# build PRESET: configures and builds into build/PRESET.
build() {
  say "building ($1)"
  (cd "$root" && cmake --preset "$1" && cmake --build --preset "$1" -j "$jobs")
}

# Builds the product alone, which needs no test package, with the settings of the preset release.
product=$root/build/product
build_product() {
  say "building"
  (cd "$root" && cmake --preset release -B "$product" -DQUORVEL_TESTS=OFF)
  cmake --build "$product" -j "$jobs"
}

# pack BUILD FOLDER ARCHITECTURE: makes the package of a build in the folder and checks it.
pack() {
  say "packing"
  rm -f "$2"/*_"$3".deb
  cpack --config "$1/CPackConfig.cmake" -G DEB -B "$2"
  # The overrides serve releases whose lintian does not know all of their tags.
  lintian -EI --pedantic --suppress-tags alien-tag --fail-on error,warning,info,pedantic "$2"/*_"$3".deb
}
