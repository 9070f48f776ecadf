# shellcheck shell=bash disable=SC2154
# Sourced by scripts that work in a Debian of their own: a root folder under build/roots, made once
# and used again. The sources are copied into it, so that nothing in there touches this checkout.

# Prints the address from which apt on this machine takes Debian's packages.
debian_mirror() {
  local mirror
  # shellcheck disable=SC2016  # the names are apt's
  mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Label: Debian' | head -1)
  [[ -n $mirror ]] || { echo "apt knows no source of Debian's packages; run: apt-get update" >&2; return 1; }
  echo "$mirror"
}

# Prints this machine's release, such as bookworm.
debian_release() { sed -n 's/^VERSION_CODENAME=//p' /etc/os-release; }

# bootstrap_root FOLDER RELEASE: makes a Debian root, whole or not at all.
bootstrap_root() {
  local mirror
  mirror=$(debian_mirror) || return 1
  # Its mounts end with the mount namespace, however it is interrupted.
  rm -rf --one-file-system "$1.new"
  (umask 022 && mkdir -p "$1.new" && unshare --mount debootstrap --variant=minbase "$2" "$1.new" "$mirror") || return 1
  mv -T "$1.new" "$1"
}

# in_root FOLDER COMMAND...: runs the command as root in the root folder, in a copy of the sources
# in /src. What it leaves running is ended, and what it mounts is gone.
in_root() {
  local folder=$1
  shift
  cp -L /etc/resolv.conf /etc/hosts "$folder/etc/"
  # What this machine trusts: a network may have a certificate authority of its own.
  mkdir -p "$folder/usr/local/share/ca-certificates"
  find /usr/local/share/ca-certificates -name '*.crt' -exec cp -L -t "$folder/usr/local/share/ca-certificates" {} +
  copy_sources "$folder/src"
  SOURCE_DATE_EPOCH=$(git -C "$root" log -1 --format=%ct || date +%s)
  export SOURCE_DATE_EPOCH
  # shellcheck disable=SC2016  # expanded in the new namespaces
  unshare --mount --pid --fork --kill-child sh -euc '
    folder=$1
    shift
    mount --bind "$folder" "$folder" # a mount, as the root of a system is
    mount -t proc proc "$folder/proc"
    mount --rbind /sys "$folder/sys"
    mount --rbind /dev "$folder/dev"
    mount -t tmpfs tmpfs "$folder/dev/shm"
    mount -t tmpfs -o mode=755 tmpfs "$folder/run"
    exec chroot "$folder" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 \
      ${http_proxy:+http_proxy="$http_proxy"} ${https_proxy:+https_proxy="$https_proxy"} \
      NODE_EXTRA_CA_CERTS=/etc/ssl/certs/ca-certificates.crt \
      SOURCE_DATE_EPOCH="$SOURCE_DATE_EPOCH" sh -c "cd /src && exec \"\$@\"" sh "$@"
  ' sh "$folder" "$@"
}

# copy_sources FOLDER: renews the copy, of which only build/ stays. A file that is the same as before
# keeps its date there, any other is new: so that exactly what changed is built anew.
copy_sources() {
  rm -rf "$1.new"
  mkdir -p "$1.new"
  tar -C "$root" --exclude=./build --exclude=./.git --exclude=node_modules -c . |
    tar -x -m -C "$1.new" --no-same-owner --no-same-permissions
  (cd "$1.new" && find . -type f -print0) | while IFS= read -r -d '' file; do
    if cmp -s "$1/$file" "$1.new/$file"; then touch -r "$1/$file" "$1.new/$file"; fi
  done
  if [[ -d $1/build ]]; then mv "$1/build" "$1.new/build"; fi
  rm -rf "$1"
  mv -T "$1.new" "$1"
}

# with_root NAME RELEASE COMMAND...: runs the command in the root build/roots/NAME, which is made
# if it is not there. Two runs with one root take turns.
with_root() {
  local folder=$root/build/roots/$1 release=$2
  shift 2
  mkdir -p "$root/build/roots"
  exec {turn}>"$folder.lock"
  flock "$turn"
  if [[ ! -d $folder ]]; then
    say "making a root of $release in $folder"
    bootstrap_root "$folder" "$release" || fail "no root of $release could be made; see the lines above"
  fi
  in_root "$folder" "$@"
}
