# shellcheck shell=bash disable=SC2034,SC2154
# Sourced by package_test: a fresh Debian that boots systemd in a container with a network of its
# own, and ways to work in it. Where none can be made (or with QUORVEL_PACKAGE_ROOT=own) it is this
# machine's own root, which is cleaned up at the end.

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

work=$(mktemp -d) root='' leader='' container=''
chmod 0755 "$work"
cleanup() {
  if [[ -n $leader ]]; then
    kill -KILL "$leader"
    wait "$container" || true
  elif [[ $root == / ]]; then
    stop || true
    dpkg --purge quorvelserver >/dev/null 2>&1 || true
  fi
  jobs -rp | xargs -r kill
  rm -rf --one-file-system "$work"
}
trap cleanup EXIT

clean() { env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root DEBIAN_FRONTEND=noninteractive "$@"; }
in_network() { if [[ -n $leader ]]; then nsenter --target "$leader" --net "$@"; else "$@"; fi; }
inside() { if [[ -n $leader ]]; then clean nsenter --target "$leader" --all "$@"; else clean "$@"; fi; }
as_user() { inside setpriv --reuid="$1" --regid="$1" --init-groups "${@:2}"; }
booted() { [[ -d ${root%/}/run/systemd/system || -n $leader ]]; }
has() { grep -qx -- "$1" "${root%/}$2"; }
gone() { [[ ! -e ${root%/}$1 && ! -L ${root%/}$1 ]]; }

# Prints the service's process, found by its program, which an upgrade may have replaced.
service_pid() { inside sh -c "ls -l /proc/[0-9]*/exe 2>/dev/null | sed -nE 's,.*/proc/([0-9]+)/exe -> $program/bin/quorvelserver( .deleted.)?\$,\1,p'"; }
start() {
  if booted; then inside systemctl restart quorvelserver; return; fi
  stop
  local unit=${root%/}/usr/lib/systemd/system/quorvelserver.service options command
  options=$(sed -n 's/^QUORVEL_OPTIONS="\(.*\)"/\1/p' "${root%/}/etc/default/quorvelserver")
  command=$(sed -n 's/^ExecStart=//p' "$unit")
  # shellcheck disable=SC2086  # the unit's command is a list of words, as systemd reads it
  (cd $home && as_user quorvelserver ${command/\$QUORVEL_OPTIONS/$options}) >"$work/log" 2>&1
  as_user quorvelserver env MAINPID="$(service_pid)" $program/libexec/await-answer
}
stop() {
  if booted; then inside systemctl stop quorvelserver; return; fi
  local pid
  pid=$(service_pid)
  if [[ -n $pid ]]; then kill -INT "$pid" && timeout 10 tail --pid="$pid" -f /dev/null; fi
}
call() { inside "$program/bin/quorvel-call" --url "ws://127.0.0.1:$port" "$1"; }
answers() { for _ in {1..100}; do call "$request" >"$work/reply" 2>&1 && return; sleep 0.1; done; cat "$work/reply"; return 1; }
set_port() { sed -i "s/^localport=.*/localport=$port/" "${root%/}$program/bin/quorvel_service.ini"; }
set_options() { sed -i "s/^QUORVEL_OPTIONS=.*/QUORVEL_OPTIONS=\"$1\"/" "${root%/}/etc/default/quorvelserver"; }

# satisfy ROOT DEB: installs what the package depends on and recommends.
satisfy() { clean chroot "$1" apt-get satisfy -y --no-install-recommends "$(dpkg-deb -f "$2" Depends), $(dpkg-deb -f "$2" Recommends)"; }
make_clean_system() {
  debootstrap --variant=minbase --include=systemd-sysv,dbus "$(debian_release)" "$root" "$(debian_mirror)" &&
    echo "127.0.0.1 localhost" >"$root/etc/hosts" && rm -f "$root/usr/sbin/policy-rc.d" && satisfy "$root" "$1"
}
boot_clean_system() {
  systemd-nspawn --quiet --register=no --keep-unit --private-network --bind-ro="$work/debs" -D "$root" --boot </dev/null &
  container=$!
  for _ in {1..100}; do
    leader=$(tr -d ' ' 2>/dev/null <"/proc/$container/task/$container/children") || break
    [[ -n $leader ]] && inside systemctl is-system-running --wait && return
    sleep 0.2
  done
  kill -KILL "$container" 2>/dev/null || true
  leader=''
  return 1
}

# enter_clean_system DEB: sets "root" and, for a container, "leader".
enter_clean_system() {
  root=$work/root
  : >"$work/log"
  [[ ${QUORVEL_PACKAGE_ROOT:-} != own ]] && { make_clean_system "$1" && boot_clean_system; } >"$work/log" 2>&1 && return
  root=''
  dpkg-query -W quorvelserver >/dev/null 2>&1 && skip "no clean system, and this one has the package already"
  tail -3 "$work/log"
  echo "no clean system was made here; using this machine's own"
  root=/
  satisfy / "$1" >"$work/log" 2>&1 || { tail "$work/log"; fail "a dependency can not be installed"; }
}
