# shellcheck shell=bash disable=SC2034,SC2154
# Sourced by package_test: a fresh Debian that boots systemd in a container with a network of its
# own, and ways to work in it.

# shellcheck source=../../scripts/root.sh
source "$(dirname "$(realpath "${BASH_SOURCE[0]}")")/../../scripts/root.sh"

program=/opt/apps/quorvelserver home=/var/lib/quorvelserver tls=/etc/quorvelserver
certificate=localhost-100y.cert key=localhost-100y.key
system_root=/usr/local/share/ca-certificates/quorvelserver.crt
request='{"fid":"readcardbas","data":{"itype":3,"bae140":"3"}}'

skip() { echo "skipped: $1"; exit 77; }
fail() { echo "FAILED: $1" >&2; exit 1; }
check() { "${@:2}" || fail "$1"; }
check_not() { ! "${@:2}" || fail "$1"; }
quietly() { "$@" >"$work/log" 2>&1; }

work=$(mktemp -d) leader='' container=''
root=$work/root
chmod 0755 "$work"
cleanup() {
  if [[ -n $leader ]]; then
    kill -KILL "$leader"
    wait "$container" || true
  fi
  jobs -rp | xargs -r kill 2>/dev/null || true
  rm -rf --one-file-system "$work"
}
trap cleanup EXIT

clean() { env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root DEBIAN_FRONTEND=noninteractive "$@"; }
in_network() { nsenter --target "$leader" --net "$@"; }
inside() { clean nsenter --target "$leader" --all "$@"; }
as_user() { inside setpriv --reuid="$1" --regid="$1" --init-groups "${@:2}"; }
has() { grep -qx -- "$1" "$root$2"; }
gone() { [[ ! -e $root$1 && ! -L $root$1 ]]; }

# Prints the service's process, found by its program, which an upgrade may have replaced.
service_pid() { inside sh -c "ls -l /proc/[0-9]*/exe 2>/dev/null | sed -nE 's,.*/proc/([0-9]+)/exe -> $program/bin/quorvelserver( .deleted.)?\$,\1,p'"; }
start() { inside systemctl restart quorvelserver; }
call() { inside "$program/bin/quorvel-call" --url "ws://127.0.0.1:$port" "$1"; }
answers() { for _ in {1..100}; do call "$request" >"$work/reply" 2>&1 && return; sleep 0.1; done; cat "$work/reply"; return 1; }
set_port() { sed -i "s/^localport=.*/localport=$port/" "$root$program/bin/quorvel_service.ini"; }
set_options() { sed -i "s/^QUORVEL_OPTIONS=.*/QUORVEL_OPTIONS=\"$1\"/" "$root/etc/default/quorvelserver"; }

# make_clean_system DEB: what the package depends on and recommends is there.
make_clean_system() {
  debootstrap --variant=minbase --include=systemd-sysv,dbus "$(debian_release)" "$root" "$(debian_mirror)" &&
    echo "127.0.0.1 localhost" >"$root/etc/hosts" && rm -f "$root/usr/sbin/policy-rc.d" &&
    clean chroot "$root" apt-get satisfy -y --no-install-recommends \
      "$(dpkg-deb -f "$1" Depends), $(dpkg-deb -f "$1" Recommends)"
}
boot_clean_system() {
  # Two systems that begin at the same control group take each other's services for their own.
  exec {turn}>/run/quorvel-package-test.lock
  flock "$turn"
  systemd-nspawn --quiet --register=no --keep-unit --private-network --bind-ro="$work/debs" -D "$root" --boot </dev/null &
  container=$!
  for _ in {1..300}; do
    leader=$(tr -d ' ' 2>/dev/null <"/proc/$container/task/$container/children") || break
    # On a busy machine a unit that this is not about may have failed.
    [[ -n $leader && $(inside systemctl is-system-running --wait) =~ ^(running|degraded)$ ]] && return
    sleep 0.2
  done
  kill -KILL "$container" 2>/dev/null || true
  wait "$container" || true
  leader=''
  return 1
}

# enter_clean_system DEB: sets "leader", the process in whose namespaces the system runs.
enter_clean_system() {
  { make_clean_system "$1" && boot_clean_system; } >"$work/log" 2>&1 && return
  tail -3 "$work/log"
  skip "no clean system can be made here"
}
